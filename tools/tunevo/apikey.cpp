#include "tunevo/apikey.h"

#include <openssl/err.h>
#include <openssl/evp.h>
#include <openssl/pem.h>

#include <algorithm>
#include <boost/json.hpp>
#include <cerrno>
#include <cstring>
#include <iostream>
#include <map>
#include <memory>
#include <optional>

#include "applogic/platform/openssl_crypto.h"
#include "applogic/signin/client/ai_api_key_helper.h"
#include "applogic/signin/client/base64.h"
#include "tunevo/exit_codes.h"
#include "tunevo/pem_argument.h"

namespace tunevo {
namespace {

using namespace applogic::signin;

constexpr const char* kUsage =
    "usage: tunevo apikey mint --private-key PEM --bundle-id ID --client-id ID [--ver 2|3]\n"
    "                          [--app-id ID] [--app-variant-id ID] [--scopes A,B,...]\n"
    "                          [--authz URL] [--token-exchange URL]\n"
    "       tunevo apikey inspect KEY --public-key PEM --bundle-id ID\n"
    "\n"
    "mint prints an API key for the app BUNDLE-ID, signed with an RSA private key (RS256:\n"
    "PKCS #1 v1.5 over SHA-256), in the three-part form the sign-in client verifies. Version 3\n"
    "(the default) carries --app-id as \"appFamilyId\" and may name the sign-in page (--authz)\n"
    "and the token endpoint (--token-exchange); version 2 carries it as \"appId\". --scopes\n"
    "defaults to \"profile\"; unset ids are left out.\n"
    "\n"
    "The client takes --authz and --token-exchange only when they begin with \"https\", and\n"
    "otherwise uses the production addresses: mint warns about any other address.\n"
    "\n"
    "inspect prints the key's payload and the app information it gives for BUNDLE-ID, or why it\n"
    "is not valid (too few parts, bad signature, bad Base64, not JSON, unknown version, other\n"
    "package), exiting 65; a public key that is not RSA is refused the same way.\n"
    "\n"
    "PEM is a file holding the key, or the PEM text itself.\n";

int printHelp(std::ostream& out) {
  out << kUsage;
  return kExitOk;
}

int usage(std::ostream& err, const std::string& problem) {
  err << "tunevo apikey: " << problem << "\n" << kUsage;
  return kExitUsage;
}

bool isHelp(std::string_view arg) { return arg == "--help" || arg == "-h"; }

// Reads `--name value` pairs and the positional arguments; false on an unknown or unfinished
// option. `--help` in an option's place sets `help`.
bool readOptions(const std::vector<std::string>& args, std::size_t first, const std::vector<std::string>& names,
                 std::map<std::string, std::string>& options, std::vector<std::string>& positional,
                 std::string& problem, bool& help) {
  for (std::size_t i = first; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (isHelp(arg)) {
      help = true;
      return true;
    }
    if (!arg.starts_with("--")) {
      positional.push_back(arg);
      continue;
    }
    const std::string name = arg.substr(2);
    if (std::find(names.begin(), names.end(), name) == names.end()) {
      problem = "unknown option '" + arg + "'";
      return false;
    }
    if (i + 1 >= args.size()) {
      problem = "option '" + arg + "' needs a value";
      return false;
    }
    options[name] = args[++i];
  }
  return true;
}

struct PemText {
  std::optional<std::string> text;
  int status = kExitOk;
};

PemText readPem(const std::string& argument, std::string_view what, std::ostream& err) {
  FileArgument read = readPemArgument(argument, what);
  if (read.text) return {std::move(read.text), kExitOk};
  err << "tunevo apikey: " << read.problem << "\n";
  return {std::nullopt, kExitNoInput};
}

// The type of a PEM public key that is not RSA ("EC"); absent for an RSA key and for text
// OpenSSL cannot read as a public key, which the sign-in client then refuses itself.
std::optional<std::string> publicKeyTypeOtherThanRsa(const std::string& pem) {
  std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_mem_buf(pem.data(), static_cast<int>(pem.size())), &BIO_free);
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
      bio ? PEM_read_bio_PUBKEY(bio.get(), nullptr, nullptr, nullptr) : nullptr, &EVP_PKEY_free);
  ERR_clear_error();
  if (!key || EVP_PKEY_is_a(key.get(), "RSA")) return std::nullopt;
  const char* name = EVP_PKEY_get0_type_name(key.get());
  return std::string(name != nullptr ? name : "another kind");
}

std::string base64Of(std::string_view text) {
  return base64::encode(std::span(reinterpret_cast<const std::uint8_t*>(text.data()), text.size()));
}

std::optional<std::string> signRs256(EVP_PKEY* key, std::string_view message) {
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> context(EVP_MD_CTX_new(), &EVP_MD_CTX_free);
  const auto* bytes = reinterpret_cast<const unsigned char*>(message.data());
  std::size_t size = 0;
  if (!context || EVP_DigestSignInit(context.get(), nullptr, EVP_sha256(), nullptr, key) != 1 ||
      EVP_DigestSign(context.get(), nullptr, &size, bytes, message.size()) != 1) {
    return std::nullopt;
  }
  std::vector<std::uint8_t> signature(size);
  if (EVP_DigestSign(context.get(), signature.data(), &size, bytes, message.size()) != 1) return std::nullopt;
  signature.resize(size);
  return base64::encode(signature);
}

boost::json::array listOf(const std::string& commaSeparated) {
  boost::json::array list;
  std::size_t start = 0;
  while (start <= commaSeparated.size()) {
    const std::size_t comma = commaSeparated.find(',', start);
    const std::string item = commaSeparated.substr(start, comma == std::string::npos ? std::string::npos : comma - start);
    if (!item.empty()) list.emplace_back(item);
    if (comma == std::string::npos) break;
    start = comma + 1;
  }
  return list;
}

int mint(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  std::map<std::string, std::string> options;
  std::vector<std::string> positional;
  std::string problem;
  bool help = false;
  if (!readOptions(args, 1,
                   {"private-key", "bundle-id", "client-id", "ver", "app-id", "app-variant-id", "scopes", "authz",
                    "token-exchange"},
                   options, positional, problem, help)) {
    return usage(err, problem);
  }
  if (help) return printHelp(out);
  if (!positional.empty()) return usage(err, "unexpected argument '" + positional.front() + "'");
  for (const char* required : {"private-key", "bundle-id", "client-id"}) {
    if (!options.contains(required)) return usage(err, std::string("--") + required + " is required");
  }
  const std::string version = options.contains("ver") ? options["ver"] : "3";
  if (version != "2" && version != "3") return usage(err, "--ver must be 2 or 3");
  if (version == "2" && (options.contains("authz") || options.contains("token-exchange") ||
                         options.contains("app-variant-id"))) {
    return usage(err, "--authz, --token-exchange and --app-variant-id need --ver 3");
  }

  const PemText pem = readPem(options["private-key"], "private key", err);
  if (!pem.text) return pem.status;
  std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_mem_buf(pem.text->data(), static_cast<int>(pem.text->size())),
                                                &BIO_free);
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(
      PEM_read_bio_PrivateKey(bio.get(), nullptr, nullptr, nullptr), &EVP_PKEY_free);
  ERR_clear_error();
  if (!key || !EVP_PKEY_is_a(key.get(), "RSA")) {
    err << "tunevo apikey: the private key is not an RSA private key in PEM form\n";
    return kExitDataError;
  }

  boost::json::object payload;
  payload["ver"] = version;
  if (options.contains("app-id")) payload[version == "3" ? "appFamilyId" : "appId"] = options["app-id"];
  payload["bundleSeedId"] = options["bundle-id"];
  payload["scopes"] = listOf(options.contains("scopes") ? options["scopes"] : "profile");
  payload["perm"] = boost::json::array();
  payload["clientId"] = options["client-id"];
  if (options.contains("app-variant-id")) payload["appVariantId"] = options["app-variant-id"];
  for (const char* name : {"authz", "token-exchange"}) {
    if (options.contains(name) && !options[name].starts_with("https")) {
      err << "tunevo apikey: warning: --" << name << " '" << options[name]
          << "' does not begin with https: the sign-in client ignores it and uses the production address\n";
    }
  }
  if (options.contains("authz") || options.contains("token-exchange")) {
    boost::json::object endpoints;
    if (options.contains("authz")) endpoints["authz"] = options["authz"];
    if (options.contains("token-exchange")) endpoints["tokenExchange"] = options["token-exchange"];
    payload["endpoints"] = std::move(endpoints);
  }

  const std::string head = base64Of(R"({"alg":"RS256","typ":"JWT"})") + "." + base64Of(boost::json::serialize(payload));
  const auto signature = signRs256(key.get(), head);
  ERR_clear_error();
  if (!signature) {
    err << "tunevo apikey: signing failed\n";
    return kExitDataError;
  }
  out << head << "." << *signature << "\n";
  return kExitOk;
}

boost::json::value optionalJson(const std::optional<std::string>& value) {
  return value ? boost::json::value(*value) : boost::json::value(nullptr);
}

boost::json::array arrayJson(const std::vector<std::string>& values) {
  boost::json::array array;
  for (const auto& value : values) array.emplace_back(value);
  return array;
}

// The payload as the key carries it: its JSON when it decodes to one, for a look at a key that
// is not valid as much as at one that is.
void printPayload(std::string_view key, std::ostream& out) {
  const std::size_t first = key.find('.');
  if (first == std::string_view::npos) return;
  const std::size_t second = key.find('.', first + 1);
  const auto bytes = base64::decode(key.substr(first + 1, second == std::string_view::npos ? second : second - first - 1));
  if (!bytes) return;
  boost::system::error_code error;
  const auto parsed = boost::json::parse(std::string_view(reinterpret_cast<const char*>(bytes->data()), bytes->size()), error);
  if (!error) out << "payload: " << boost::json::serialize(parsed) << "\n";
}

int inspect(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  std::map<std::string, std::string> options;
  std::vector<std::string> positional;
  std::string problem;
  bool help = false;
  if (!readOptions(args, 1, {"public-key", "bundle-id"}, options, positional, problem, help)) {
    return usage(err, problem);
  }
  if (help) return printHelp(out);
  if (positional.size() != 1) return usage(err, "inspect takes one KEY");
  for (const char* required : {"public-key", "bundle-id"}) {
    if (!options.contains(required)) return usage(err, std::string("--") + required + " is required");
  }
  const PemText pem = readPem(options["public-key"], "public key", err);
  if (!pem.text) return pem.status;
  if (const auto type = publicKeyTypeOtherThanRsa(*pem.text)) {
    err << "tunevo apikey: the public key is " << *type << ", not RSA: API keys are signed with RSA keys\n";
    return kExitDataError;
  }

  ClientConfiguration configuration;
  configuration.apiKeyPublicKey = *pem.text;
  const AIAPIKeyHelper helper(applogic::platform::makeOpenSslCrypto(), nullptr, configuration);
  const std::string& key = positional.front();
  printPayload(key, out);
  const AIAPIKeyCheck check = helper.checkAPIKey(key, options["bundle-id"]);
  if (!check.appInfo) {
    err << "tunevo apikey: not valid: " << describe(check.problem) << "\n";
    return kExitDataError;
  }
  const AIAppInfo& info = *check.appInfo;
  const boost::json::object appInfo{
      {"appId", optionalJson(info.appId())},
      {"packageName", optionalJson(info.packageName())},
      {"scopes", arrayJson(info.scopes())},
      {"permissions", arrayJson(info.permissions())},
      {"clientId", optionalJson(info.clientId())},
      {"appParentId", optionalJson(info.appParentId())},
      {"appVariantId", optionalJson(info.appVariantId())},
      {"authz", info.authz()},
      {"tokenExchange", info.tokenExchange()},
  };
  out << "app info: " << boost::json::serialize(appInfo) << "\nvalid\n";
  return kExitOk;
}

}  // namespace

int runApiKey(const std::vector<std::string>& args, std::ostream& out, std::ostream& err) {
  if (args.empty()) return usage(err, "mint or inspect?");
  if (isHelp(args[0])) return printHelp(out);
  if (args[0] == "mint") return mint(args, out, err);
  if (args[0] == "inspect") return inspect(args, out, err);
  return usage(err, "unknown subcommand '" + args[0] + "'");
}

int runApiKeyCommand(int argc, char** argv) {
  const std::vector<std::string> args(argv + 1, argv + argc);
  return runApiKey(args, std::cout, std::cerr);
}

}  // namespace tunevo
