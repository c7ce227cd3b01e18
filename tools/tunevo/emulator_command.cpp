#include "tunevo/emulator_command.h"

#include <signal.h>

#include <algorithm>
#include <charconv>
#include <filesystem>
#include <initializer_list>
#include <iostream>
#include <optional>
#include <string>
#include <string_view>

#include "emulator/catalog_server.h"
#include "emulator/signin_server.h"
#include "tunevo/exit_codes.h"

namespace tunevo {
namespace {

using applogic::emulator::CatalogServer;
using applogic::emulator::CatalogServerOptions;
using applogic::emulator::SignInServer;
using applogic::emulator::SignInServerOptions;

constexpr const char* kUsage =
    "usage: tunevo emulator signin [--port N] [--ca-out PATH] [--account EMAIL:PASSWORD] [--bundle-id ID]\n"
    "       tunevo emulator catalog --signin URL --signin-ca PATH [--port N] [--ca-out PATH] [--latency MS]\n"
    "                               [--giphy-key KEY]\n"
    "       tunevo emulator all [--port N] [--signin-port N] [--ca-out PATH] [--account EMAIL:PASSWORD]\n"
    "                           [--bundle-id ID] [--latency MS] [--giphy-key KEY]\n"
    "\n"
    "Runs local servers (HTTPS on 127.0.0.1) until Ctrl-C, each with test controls under /__control/.\n"
    "signin: the sign-in page /ap/oa, the token endpoint /auth/o2/token and the profile /user/profile.\n"
    "catalog: the catalog service (API under /v1, Giphy under /giphy/v1, previews under /previews/),\n"
    "accepting the access tokens of the sign-in server at URL, which it asks over /__control/token.\n"
    "all: both in one process, sharing one CA; the catalog accepts the sign-in server's tokens.\n"
    "Certificates are signed by a CA made at start, written to PATH (default: a temporary file).\n"
    "  --port N          the port (of the catalog, for catalog and all); 0, the default, takes any free one\n"
    "  --signin-port N   the sign-in server's port, for all\n"
    "  --ca-out PATH     where the CA certificate (PEM) goes\n"
    "  --account E:P     the test account's e-mail address and password\n"
    "                    (default listener@tunevo.test:tunevo-password)\n"
    "  --bundle-id ID    accept only the redirect address amzn-ID://... (default: any amzn- scheme)\n"
    "  --signin URL      the sign-in server whose tokens the catalog accepts (https://127.0.0.1:PORT)\n"
    "  --signin-ca PATH  the CA certificate (PEM) that the sign-in server's certificate is signed by\n"
    "  --latency MS      a delay before every answer of the catalog\n"
    "  --giphy-key KEY   the api_key the Giphy endpoints accept (default tunevo-giphy-key)\n";

extern "C" void onStopSignal(int /*signal*/) {}

int usageError(const std::string& message) {
  std::cerr << "tunevo emulator: " << message << "\n" << kUsage;
  return kExitUsage;
}

std::optional<std::uint16_t> parsePort(std::string_view text) {
  unsigned value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value > 65535) return std::nullopt;
  return static_cast<std::uint16_t>(value);
}

// Waits for SIGINT or SIGTERM. The signals are blocked before the server starts its threads, so
// that they inherit the mask and only this wait receives them; a do-nothing handler replaces an
// inherited "ignore" (a background job of a shell), which would discard them.
class StopSignals {
 public:
  StopSignals() {
    sigemptyset(&set_);
    sigaddset(&set_, SIGINT);
    sigaddset(&set_, SIGTERM);
    struct sigaction action {};
    action.sa_handler = &onStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
    pthread_sigmask(SIG_BLOCK, &set_, &previous_);
  }
  ~StopSignals() { pthread_sigmask(SIG_SETMASK, &previous_, nullptr); }
  void wait() const {
    int received = 0;
    sigwait(&set_, &received);
  }

 private:
  sigset_t set_;
  sigset_t previous_;
};

// The options of the three servers; which ones a server takes is checked by the caller.
struct Options {
  SignInServerOptions signIn;
  CatalogServerOptions catalog;
  std::string signInUrl;
  std::string signInCa;
};

// Parses `--name value` pairs of the names in `accepted` (`--port` is the catalog's when
// `catalogPort`); the exit code when the command ends here (help, or a usage error).
std::optional<int> parseOptions(int argc, char** argv, std::initializer_list<std::string_view> accepted,
                                bool catalogPort, Options& options) {
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::cout << kUsage;
      return kExitOk;
    }
    if (std::find(accepted.begin(), accepted.end(), arg) == accepted.end()) {
      return usageError("unexpected argument '" + std::string(arg) + "'");
    }
    if (i + 1 >= argc) return usageError(std::string(arg) + " needs a value");
    const std::string_view value = argv[++i];
    if (value.empty()) return usageError(std::string(arg) + " needs a value");
    if (arg == "--port" || arg == "--signin-port") {
      const auto port = parsePort(value);
      if (!port) return usageError(std::string(arg) + " takes a number from 0 to 65535");
      (arg == "--port" && catalogPort ? options.catalog.port : options.signIn.port) = *port;
    } else if (arg == "--ca-out") {
      options.signIn.caOut = options.catalog.caOut = std::string(value);
    } else if (arg == "--account") {
      const std::size_t colon = value.find(':');
      if (colon == std::string_view::npos || colon == 0 || colon + 1 == value.size()) {
        return usageError("--account takes EMAIL:PASSWORD");
      }
      options.signIn.email = std::string(value.substr(0, colon));
      options.signIn.password = std::string(value.substr(colon + 1));
    } else if (arg == "--bundle-id") {
      options.signIn.bundleId = std::string(value);
    } else if (arg == "--signin") {
      options.signInUrl = std::string(value);
    } else if (arg == "--signin-ca") {
      options.signInCa = std::string(value);
    } else if (arg == "--latency") {
      unsigned ms = 0;
      const auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), ms);
      if (error != std::errc() || end != value.data() + value.size()) {
        return usageError("--latency takes a number of milliseconds");
      }
      options.catalog.latency = std::chrono::milliseconds(ms);
    } else {
      options.catalog.giphyApiKey = std::string(value);
    }
  }
  return std::nullopt;
}

int startFailed(std::string_view command, const applogic::Error& error) {
  const auto message = error.userInfo.find(applogic::emulator::kSignInServerErrorMessageKey);
  std::cerr << "tunevo emulator " << command << ": "
            << (message != error.userInfo.end() ? std::get<std::string>(message->second) : std::string("cannot start"))
            << "\n";
  return error.code == applogic::emulator::kSignInServerCaFileError ? kExitCantCreate : kExitUnavailable;
}

void printCatalog(const CatalogServer& server, const std::string& giphyKey) {
  std::cout << "catalog service: " << server.baseUrl() << "\n"
            << "API base: " << server.apiBaseUrl() << "\n"
            << "Giphy base: " << server.giphyBaseUrl() << "\n"
            << "Giphy API key: " << giphyKey << "\n";
}

int runSignIn(int argc, char** argv) {
  Options options;
  if (auto exit = parseOptions(argc, argv, {"--port", "--ca-out", "--account", "--bundle-id"}, false, options)) return *exit;
  const StopSignals signals;
  const std::string account = options.signIn.email + " " + options.signIn.password;
  auto started = SignInServer::start(std::move(options.signIn));
  if (!started) return startFailed("signin", started.error());
  const SignInServer& server = *started.value();
  std::cout << "sign-in server: " << server.baseUrl() << "\n"
            << "CA certificate: " << server.caPath().string() << "\n"
            << "account: " << account << "\n"
            << "control: " << server.baseUrl() << "/__control/\n"
            << "Ctrl-C stops the server." << std::endl;
  signals.wait();
  started.value().reset();
  std::cout << "stopped" << std::endl;
  return kExitOk;
}

int runCatalog(int argc, char** argv) {
  Options options;
  if (auto exit = parseOptions(argc, argv, {"--port", "--ca-out", "--signin", "--signin-ca", "--latency", "--giphy-key"},
                               true, options)) {
    return *exit;
  }
  if (options.signInUrl.empty() || options.signInCa.empty()) {
    return usageError("catalog needs --signin URL and --signin-ca PATH");
  }
  if (!std::filesystem::is_regular_file(options.signInCa)) {
    std::cerr << "tunevo emulator catalog: cannot read " << options.signInCa << "\n";
    return kExitNoInput;
  }
  const StopSignals signals;
  options.catalog.verifyToken = applogic::emulator::remoteTokenVerifier(options.signInUrl, options.signInCa);
  const std::string giphyKey = options.catalog.giphyApiKey;
  auto started = CatalogServer::start(std::move(options.catalog));
  if (!started) return startFailed("catalog", started.error());
  const CatalogServer& server = *started.value();
  printCatalog(server, giphyKey);
  std::cout << "CA certificate: " << server.caPath().string() << "\n"
            << "sign-in server: " << options.signInUrl << "\n"
            << "control: " << server.baseUrl() << "/__control/catalog/\n"
            << "Ctrl-C stops the server." << std::endl;
  signals.wait();
  started.value().reset();
  std::cout << "stopped" << std::endl;
  return kExitOk;
}

int runAll(int argc, char** argv) {
  Options options;
  if (auto exit = parseOptions(argc, argv,
                               {"--port", "--signin-port", "--ca-out", "--account", "--bundle-id", "--latency",
                                "--giphy-key"},
                               true, options)) {
    return *exit;
  }
  const StopSignals signals;
  const std::string account = options.signIn.email + " " + options.signIn.password;
  options.catalog.accountUserId = options.signIn.userId;
  auto signIn = SignInServer::start(std::move(options.signIn));
  if (!signIn) return startFailed("all", signIn.error());
  options.catalog.tls = signIn.value()->sharedTls();
  options.catalog.verifyToken = applogic::emulator::localTokenVerifier(*signIn.value());
  const std::string giphyKey = options.catalog.giphyApiKey;
  auto catalog = CatalogServer::start(std::move(options.catalog));
  if (!catalog) return startFailed("all", catalog.error());
  const SignInServer& signInServer = *signIn.value();
  const CatalogServer& catalogServer = *catalog.value();
  std::cout << "sign-in server: " << signInServer.baseUrl() << "\n";
  printCatalog(catalogServer, giphyKey);
  std::cout << "CA certificate: " << signInServer.caPath().string() << "\n"
            << "account: " << account << "\n"
            << "sign-in control: " << signInServer.baseUrl() << "/__control/\n"
            << "catalog control: " << catalogServer.baseUrl() << "/__control/catalog/\n"
            << "Ctrl-C stops the servers." << std::endl;
  signals.wait();
  catalog.value().reset();  // first: it checks tokens with the sign-in server
  signIn.value().reset();
  std::cout << "stopped" << std::endl;
  return kExitOk;
}

}  // namespace

int runEmulator(int argc, char** argv) {
  if (argc < 2) return usageError("name the server to run");
  const std::string_view which = argv[1];
  if (which == "--help" || which == "-h") {
    std::cout << kUsage;
    return kExitOk;
  }
  if (which == "signin") return runSignIn(argc - 1, argv + 1);
  if (which == "catalog") return runCatalog(argc - 1, argv + 1);
  if (which == "all") return runAll(argc - 1, argv + 1);
  return usageError("unknown server '" + std::string(which) + "'");
}

}  // namespace tunevo
