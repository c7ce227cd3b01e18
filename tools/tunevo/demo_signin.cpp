#include "tunevo/demo_signin.h"

#include <openssl/evp.h>
#include <openssl/pem.h>
#include <stdlib.h>

#include <boost/json/serialize.hpp>
#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <variant>

#include "applogic/platform/gstreamer_media_player.h"
#include "applogic/platform/linux_platform.h"
#include "applogic/testing/bundle_values.h"
#include "emulator/scripted_browser.h"
#include "emulator/signin_server.h"
#include "tunevo/apikey.h"
#include "tunevo/signin_commands.h"

namespace tunevo {
namespace {

namespace fs = std::filesystem;
using namespace applogic;

constexpr auto kPatience = std::chrono::seconds(10);
constexpr const char* kBundleId = "app.tunevo.demo";
constexpr const char* kClientId = "amzn1.application-oa2-client.tunevo-demo";

struct KeyPair {
  std::string privatePem;
  std::string publicPem;
};

std::string pemOf(EVP_PKEY* key, bool isPrivate) {
  std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new(BIO_s_mem()), &BIO_free);
  if (!bio) return {};
  const int written = isPrivate ? PEM_write_bio_PrivateKey(bio.get(), key, nullptr, nullptr, 0, nullptr, nullptr)
                                : PEM_write_bio_PUBKEY(bio.get(), key);
  if (written != 1) return {};
  char* data = nullptr;
  const long size = BIO_get_mem_data(bio.get(), &data);
  return std::string(data, static_cast<std::size_t>(size));
}

// The issuer of the demo app's API key, made for this run: no private key ships with tunevo.
std::optional<KeyPair> makeIssuerKeys() {
  std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> key(EVP_RSA_gen(2048), &EVP_PKEY_free);
  if (!key) return std::nullopt;
  KeyPair pair{pemOf(key.get(), true), pemOf(key.get(), false)};
  if (pair.privatePem.empty() || pair.publicPem.empty()) return std::nullopt;
  return pair;
}

std::optional<std::string> mintApiKey(const KeyPair& issuer, const std::string& baseUrl) {
  std::ostringstream out;
  std::ostringstream err;
  const int status = runApiKey({"mint", "--private-key", issuer.privatePem, "--bundle-id", kBundleId, "--client-id",
                                kClientId, "--authz", baseUrl + "/ap/oa", "--token-exchange", baseUrl + "/auth/o2/token"},
                               out, err);
  std::string key = out.str();
  if (status != 0 || key.empty()) return std::nullopt;
  key.pop_back();  // the newline
  return key;
}

void call(std::ostream& out, std::string_view operation, std::string_view what) {
  out << "\n" << operation << "\n  " << what << "\n";
}

// Writes why a step gave no answer; false.
template <class T>
bool failed(std::ostream& err, std::string_view step, const std::variant<T, SignInFailure, SignInSession::Stop>& outcome) {
  err << "tunevo demo: " << step << ": ";
  if (const auto* failure = std::get_if<SignInFailure>(&outcome)) {
    err << failure->domain << " code " << failure->code << ": " << failure->message << "\n";
  } else {
    err << "no answer within " << kPatience.count() << " s\n";
  }
  return false;
}

}  // namespace

// A directory under the system's temporary directory, removed with the app.
struct DemoApp::TemporaryDirectory {
  TemporaryDirectory() {
    std::string pattern = (fs::temp_directory_path() / "tunevo-demo-XXXXXX").string();
    if (::mkdtemp(pattern.data()) != nullptr) path = pattern;
  }
  ~TemporaryDirectory() {
    std::error_code ignored;
    if (path) fs::remove_all(*path, ignored);
  }
  std::optional<fs::path> path;
};

std::unique_ptr<DemoApp> DemoApp::start(std::ostream& err) {
  std::unique_ptr<DemoApp> app(new DemoApp());
  app->directory_ = std::make_unique<TemporaryDirectory>();
  if (!app->directory_->path) {
    err << "tunevo demo: cannot make a temporary directory\n";
    return nullptr;
  }
  const fs::path& directory = *app->directory_->path;
  emulator::SignInServerOptions serverOptions;
  serverOptions.bundleId = kBundleId;
  serverOptions.clientId = kClientId;
  serverOptions.caOut = directory / "ca.pem";
  app->email_ = serverOptions.email;
  const std::string password = serverOptions.password;
  app->userId_ = serverOptions.userId;
  const std::string& userId = app->userId_;
  auto started = emulator::SignInServer::start(std::move(serverOptions));
  if (!started) {
    err << "tunevo demo: the local sign-in server cannot start\n";
    return nullptr;
  }
  app->signInServer_ = std::move(started).value();
  emulator::SignInServer& signInServer = *app->signInServer_;

  emulator::CatalogServerOptions catalogOptions;
  catalogOptions.tls = signInServer.sharedTls();
  catalogOptions.accountUserId = userId;
  catalogOptions.verifyToken = emulator::localTokenVerifier(signInServer);
  app->giphyApiKey_ = catalogOptions.giphyApiKey;
  auto catalog = emulator::CatalogServer::start(std::move(catalogOptions));
  if (!catalog) {
    err << "tunevo demo: the local catalog service cannot start\n";
    return nullptr;
  }
  app->catalog_ = std::move(catalog).value();

  const auto issuer = makeIssuerKeys();
  const auto apiKey = issuer ? mintApiKey(*issuer, signInServer.baseUrl()) : std::nullopt;
  if (!apiKey) {
    err << "tunevo demo: cannot issue the demo app's API key\n";
    return nullptr;
  }

  app->audioDevice_ = platform::audioOutputDevicePresent();
  platform::LinuxPlatformOptions options;
  options.httpCaFile = signInServer.caPath();
  options.secureStorePath = directory / "secure-store.sqlite3";
  if (!app->audioDevice_) options.audioSink = "fakesink sync=true";
  platform::LinuxPlatform host = platform::makeLinuxPlatformWithRunLoop(options);
  host.platform.bundleInfo = std::make_shared<testing::BundleValues>(kBundleId, *apiKey);
  emulator::ScriptedBrowserOptions browserOptions;
  browserOptions.email = app->email_;
  browserOptions.password = password;
  browserOptions.caFile = signInServer.caPath();
  app->browser_ = std::make_shared<emulator::ScriptedBrowser>(host.runLoop, browserOptions);
  host.platform.signInPresenter = app->browser_;
  signin::ClientConfiguration configuration;
  configuration.apiKeyPublicKey = issuer->publicPem;
  configuration.profileEndpointUrl = configuration.sandboxProfileEndpointUrl =
      configuration.integrationProfileEndpointUrl = configuration.integrationSandboxProfileEndpointUrl =
          signInServer.baseUrl() + "/user/profile";
  app->session_ = std::make_unique<SignInSession>(std::move(host), std::move(configuration));
  // The browser hands its redirect in as the desktop would; a failure is reported, and the
  // login's own guard then ends the wait.
  app->browser_->setRedirectHandler([session = app->session_.get()](const std::string& url) { session->handleOpenURL(url); });
  app->browser_->setFailureHandler([&err](const std::string& description) {
    err << "tunevo demo: the scripted browser: " << description << "\n";
  });
  return app;
}

DemoApp::~DemoApp() {
  // The browser's handlers refer to the session and to the error stream; they go first (results
  // still on their way are dropped with them).
  if (browser_) {
    browser_->setRedirectHandler(nullptr);
    browser_->setFailureHandler(nullptr);
  }
  session_.reset();
  catalog_.reset();
  signInServer_.reset();
}

bool showSignIn(std::ostream& out, std::ostream& err, DemoApp& app) {
  out << "\n== AmazonLoginService and AIMobileLib ==\n";
  SignInSession& signIn = app.session();
  call(out, "AmazonLoginService.login(sandbox: false), as tunevo login calls it",
       "no refresh token is stored: the sign-in page opens in a scripted browser, which signs in\n"
       "  and hands the redirect back to the app; then the access token and the profile");
  const auto user = signIn.login(false, kPatience);
  if (!std::holds_alternative<SignedInUser>(user)) return failed(err, "login", user);
  std::ostringstream printed;
  printSignedInUser(printed, std::get<SignedInUser>(user));
  std::istringstream lines(printed.str());
  for (std::string line; std::getline(lines, line);) out << "  " << line << "\n";

  call(out, "getAccessTokenForScopes([\"profile\"], force_refresh YES)", "the token endpoint refreshes it");
  const auto token = signIn.token(false, true, kPatience);
  if (!std::holds_alternative<std::string>(token)) return failed(err, "token", token);
  out << "  access token: " << maskedToken(std::get<std::string>(token)) << " (a new one)\n";

  call(out, "getProfile", "the profile endpoint answers with the account");
  const auto profile = signIn.profile(false, kPatience);
  if (!std::holds_alternative<JsonObject>(profile)) return failed(err, "profile", profile);
  out << "  " << boost::json::serialize(std::get<JsonObject>(profile)) << "\n";
  return true;
}

bool showSignOut(std::ostream& out, std::ostream& err, DemoApp& app) {
  out << "\n== Signing out ==\n";
  SignInSession& signIn = app.session();
  call(out, "clearAuthorizationState", "deletes the tokens, the profile and the sign-in site's cookies");
  const auto signedOut = signIn.logout(kPatience);
  if (!std::holds_alternative<std::monostate>(signedOut)) return failed(err, "logout", signedOut);
  out << "  signed out\n";

  call(out, "getAccessTokenForScopes([\"profile\"])", "nothing is stored any more");
  const auto after = signIn.token(false, false, kPatience);
  const auto* failure = std::get_if<SignInFailure>(&after);
  if (failure == nullptr) {
    err << "tunevo demo: a token request after signing out did not fail\n";
    return false;
  }
  out << "  error   " << failure->domain << " code " << failure->code << ": " << failure->message << "\n";
  return true;
}

}  // namespace tunevo
