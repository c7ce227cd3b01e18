#include "tunevo/signin_commands.h"

#include <signal.h>

#include <atomic>
#include <boost/json/serialize.hpp>
#include <cerrno>
#include <charconv>
#include <condition_variable>
#include <cstring>
#include <iostream>
#include <mutex>
#include <thread>
#include <utility>

#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include "applogic/platform/app_manifest_bundle_info.h"
#include "applogic/services/service_configuration.h"
#include "applogic/signin/amazon_login_service.h"
#include "applogic/signin/client/ai_auth_portal_proxy.h"
#include "applogic/signin/client/ai_call_context.h"
#include "applogic/signin/client/ai_token.h"
#include "tunevo/exit_codes.h"
#include "tunevo/file_argument.h"
#include "tunevo/pem_argument.h"
#include "tunevo/redirect_socket.h"

namespace tunevo {
namespace {

namespace fs = std::filesystem;
using namespace applogic;
using namespace applogic::signin;

const std::vector<std::string> kScopes{"profile"};
constexpr std::chrono::seconds kLoginTimeout{300};
constexpr std::chrono::seconds kCallTimeout{60};
constexpr std::int64_t kMaxTimeoutSeconds = 86400;
// Tells the user's tools where a redirect came from; the client does not read it.
constexpr std::string_view kSourceApplication = "tunevo handle-url";

}  // namespace

const char* const kSignInOptionsHelp =
    "  --manifest FILE          the app manifest (CFBundleIdentifier, APIKey); default:\n"
    "                           app-manifest.json beside the tunevo executable\n"
    "  --public-key PEM         the key that verifies the API key's signature (a file, or the\n"
    "                           PEM text); without it no API key is valid\n"
    "  --profile-endpoint URL   the profile address, in place of all four built-in ones\n"
    "  --ca-file PEM            certificates to trust besides the system's (a local server's CA)\n"
    "  --browser CMD            the program that opens the sign-in page, run with its address as\n"
    "                           the one argument; default: xdg-open\n"
    "  --sandbox                use the service's sandbox\n"
    "  --store PATH             the SQLite file that keeps the tokens; default:\n"
    "                           $XDG_DATA_HOME/tunevo/secure-store.sqlite3\n";

namespace {

std::string usageOf(std::string_view command) {
  std::string text;
  if (command == "login") {
    text = "usage: tunevo login [OPTIONS]\n\n"
           "Signs in with an Amazon account for the scope \"profile\" and prints the e-mail address,\n"
           "the user id and the access token masked to its first 6 characters. When no stored\n"
           "refresh token is valid it opens the sign-in page in the browser and waits for its\n"
           "answer, which the desktop hands in with \"tunevo handle-url\" (see \"tunevo url-handler\n"
           "install\"). Ctrl-C cancels; --timeout ends the wait (default 300 s).\n";
  } else if (command == "token") {
    text = "usage: tunevo token [--force-refresh] [OPTIONS]\n\n"
           "Prints the access token for the scope \"profile\", refreshed when it has expired;\n"
           "--force-refresh refreshes it anyway. --timeout ends the wait (default 60 s).\n";
  } else if (command == "profile") {
    text = "usage: tunevo profile [OPTIONS]\n\n"
           "Prints the signed-in user's profile as JSON (kept for an hour after it was fetched).\n"
           "--timeout ends the wait (default 60 s).\n";
  } else {
    text = "usage: tunevo logout [OPTIONS]\n\n"
           "Signs out: deletes the stored tokens and profile and the sign-in site's cookies.\n";
  }
  text += "\noptions:\n";
  text += kSignInOptionsHelp;
  text += "  --timeout SECONDS        how long to wait for the answer\n";
  return text;
}

std::optional<std::chrono::seconds> parseSeconds(std::string_view text) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 1 || value > kMaxTimeoutSeconds) {
    return std::nullopt;
  }
  return std::chrono::seconds(value);
}

// Whether `text` holds at least one PEM certificate, as the HTTP client will read the CA file.
bool holdsCertificate(const std::string& text) {
  const std::unique_ptr<BIO, decltype(&BIO_free)> bio(BIO_new_mem_buf(text.data(), static_cast<int>(text.size())),
                                                      &BIO_free);
  X509* certificate = bio ? PEM_read_bio_X509(bio.get(), nullptr, nullptr, nullptr) : nullptr;
  ERR_clear_error();
  X509_free(certificate);
  return certificate != nullptr;
}

// A command that gives up waiting must not give up an exchange whose answer may rotate the
// refresh token: the server has spent the old one, and presenting it again revokes the grant.
bool isTokenExchange(const platform::HttpRequest& request) {
  if (request.method != "POST" || !request.body) return false;
  std::string_view form = *request.body;
  while (!form.empty()) {
    const std::size_t end = std::min(form.find('&'), form.size());
    const std::string_view pair = form.substr(0, end);
    if (pair == "grant_type=authorization_code" || pair == "grant_type=refresh_token") return true;
    form.remove_prefix(std::min(end + 1, form.size()));
  }
  return false;
}

// Counts the token exchanges on the wire: a request counts until the client lets its connection
// go, which the sign-in client does as the answer arrives, in the same task that stores it.
class ExchangeCountingClient final : public platform::HttpClient {
 public:
  ExchangeCountingClient(std::shared_ptr<platform::HttpClient> inner, std::shared_ptr<int> onTheWire)
      : inner_(std::move(inner)), onTheWire_(std::move(onTheWire)) {}
  std::unique_ptr<platform::HttpConnection> start(platform::HttpRequest request,
                                                  platform::HttpHandlers handlers) override {
    const bool counted = isTokenExchange(request);
    auto connection = inner_->start(std::move(request), std::move(handlers));
    if (!counted) return connection;
    return std::make_unique<CountedConnection>(std::move(connection), onTheWire_);
  }
  platform::HttpCookieStore& cookies() override { return inner_->cookies(); }

 private:
  class CountedConnection final : public platform::HttpConnection {
   public:
    CountedConnection(std::unique_ptr<platform::HttpConnection> inner, std::shared_ptr<int> onTheWire)
        : inner_(std::move(inner)), onTheWire_(std::move(onTheWire)) {
      ++*onTheWire_;
    }
    ~CountedConnection() override {
      inner_.reset();
      --*onTheWire_;
    }
    CountedConnection(const CountedConnection&) = delete;
    CountedConnection& operator=(const CountedConnection&) = delete;

   private:
    std::unique_ptr<platform::HttpConnection> inner_;
    std::shared_ptr<int> onTheWire_;
  };

  std::shared_ptr<platform::HttpClient> inner_;
  std::shared_ptr<int> onTheWire_;
};

platform::LinuxPlatform countingExchanges(platform::LinuxPlatform host, const std::shared_ptr<int>& onTheWire) {
  if (host.platform.httpClient) {
    host.platform.httpClient = std::make_shared<ExchangeCountingClient>(host.platform.httpClient, onTheWire);
  }
  return host;
}

// ---- waiting without waiting forever ----

std::atomic<bool> stopRequested{false};

extern "C" void onSignInStopSignal(int /*signal*/) { stopRequested.store(true); }

// Catches SIGINT and SIGTERM while it exists. A flag, not a blocked mask: the browser command is
// started meanwhile and must get the default dispositions (exec resets caught signals).
class StopSignals {
 public:
  StopSignals() {
    stopRequested.store(false);
    struct sigaction action {};
    action.sa_handler = &onSignInStopSignal;
    sigemptyset(&action.sa_mask);
    sigaction(SIGINT, &action, &previousInt_);
    sigaction(SIGTERM, &action, &previousTerm_);
  }
  ~StopSignals() {
    sigaction(SIGINT, &previousInt_, nullptr);
    sigaction(SIGTERM, &previousTerm_, nullptr);
  }
  StopSignals(const StopSignals&) = delete;
  StopSignals& operator=(const StopSignals&) = delete;

 private:
  struct sigaction previousInt_ {};
  struct sigaction previousTerm_ {};
};

// Answers through two callbacks, each at most once.
class CallbackDelegate final : public AIAuthenticationDelegate {
 public:
  CallbackDelegate(std::function<void(const APIResult&)> success, std::function<void(const APIError&)> failure)
      : success_(std::move(success)), failure_(std::move(failure)) {}
  void requestDidSucceed(const APIResult& result) override {
    if (auto callback = std::exchange(success_, nullptr)) callback(result);
  }
  void requestDidFail(const APIError& error) override {
    if (auto callback = std::exchange(failure_, nullptr)) callback(error);
  }

 private:
  std::function<void(const APIResult&)> success_;
  std::function<void(const APIError&)> failure_;
};

SignInFailure failureOf(const APIError& error) {
  return SignInFailure{"AIError", error.error().code(), error.error().message()};
}

JsonObject sandboxOptions(bool sandbox) {
  JsonObject options;
  if (sandbox) options[std::string(kAIOptionSandboxMode)] = true;
  return options;
}

}  // namespace

// ---- options ----

bool signInOptionTakesValue(std::string_view option) {
  return option == "--manifest" || option == "--public-key" || option == "--profile-endpoint" ||
         option == "--ca-file" || option == "--browser" || option == "--store" || option == "--timeout";
}

std::variant<SignInCommandOptions, std::string> parseSignInOptions(std::string_view command,
                                                                   const std::vector<std::string>& args) {
  SignInCommandOptions options;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg == "--help" || arg == "-h") {
      options.help = true;
      continue;
    }
    if (arg == "--sandbox" || (arg == "--force-refresh" && command == "token")) {
      (arg == "--sandbox" ? options.sandbox : options.forceRefresh) = true;
      continue;
    }
    const bool takesValue = signInOptionTakesValue(arg);
    if (!takesValue) {
      return arg.starts_with("-") ? "unknown option '" + arg + "'" : "unexpected argument '" + arg + "'";
    }
    if (i + 1 >= args.size() || args[i + 1].empty()) return arg + " needs a value";
    const std::string& value = args[++i];
    // A later occurrence replaces an earlier one, so a script can append to a base command line.
    if (arg == "--manifest") options.manifest = value;
    else if (arg == "--public-key") options.publicKey = value;
    else if (arg == "--profile-endpoint") options.profileEndpoint = value;
    else if (arg == "--ca-file") options.caFile = value;
    else if (arg == "--browser") options.browser = value;
    else if (arg == "--store") options.store = value;
    else if (const auto seconds = parseSeconds(value)) options.timeout = *seconds;
    else return "--timeout takes a whole number of seconds from 1 to " + std::to_string(kMaxTimeoutSeconds);
  }
  return options;
}

std::string maskedToken(std::string_view token) {
  constexpr std::size_t kShown = 6;
  return std::string(token.size() > kShown ? token.substr(0, kShown) : std::string_view()) + "\u2026";
}

void printSignedInUser(std::ostream& out, const SignedInUser& user) {
  out << "email: " << user.email << "\n"
      << "user id: " << user.userID << "\n"
      << "access token: " << maskedToken(user.accessToken) << "\n";
}

// ---- the session ----

struct SignInSession::Wait {
  bool finished = false;
  // Set when the wait gave up: an answer that arrives later changes nothing and quits nothing.
  bool abandoned = false;
  // Timed out, but a token exchange is still on the wire: the loop runs on until it ends.
  bool draining = false;
  std::chrono::steady_clock::time_point drainingUntil{};
  Stop stop = Stop::none;
  std::shared_ptr<platform::RunLoop> loop;

  // Called by the answer's callbacks.
  void finish() {
    if (finished || abandoned) return;
    finished = true;
    if (!draining) loop->quit();
  }
  bool settled() const { return stop != Stop::none || (finished && !draining); }
};

SignInSession::SignInSession(platform::LinuxPlatform host, ClientConfiguration configuration)
    : exchangesOnTheWire_(std::make_shared<int>(0)),
      host_(countingExchanges(std::move(host), exchangesOnTheWire_)),
      lib_(host_.platform, std::move(configuration)) {}

SignInSession::~SignInSession() {
  // The coordinator is process-wide and would outlive main(), holding the HTTP client's worker
  // thread into the static destructors; it is let go with the session that made it.
  AIAuthPortalProxy::resetSharedInstance();
}

bool SignInSession::handleOpenURL(const std::string& url) const {
  // The client answers false for a redirect that ends the sign-in with an error (a cancel) as
  // for one that is not its own; only the latter leaves this sign-in's state in place.
  const auto& states = lib_.proxy()->openIdRequestStates();
  const std::size_t waiting = states.size();
  const bool continued = lib_.handleOpenURL(url, kSourceApplication);
  return continued || states.size() < waiting;
}

bool SignInSession::holdsRefreshToken() const {
  AIError error;
  return lib_.proxy()->services()->tokenManager().getTokenFromStorage(kTokenTypeRefreshToken, error) != nullptr;
}

SignInSession::Stop SignInSession::runUntil(const std::shared_ptr<Wait>& wait, std::chrono::seconds timeout) {
  const StopSignals signals;
  std::mutex mutex;
  std::condition_variable wake;
  bool done = false;
  // The request's idle limit ends a silent exchange; this bounds one that trickles.
  const auto drainingLimit = platform::HttpRequest{}.timeout * 2;
  const auto post = [&, onTheWire = exchangesOnTheWire_, notice = exchangeNotice_](Stop why) {
    host_.runLoop->post([wait, why, onTheWire, notice, drainingLimit]() mutable {
      if (wait->abandoned || wait->settled()) return;
      if (why == Stop::timedOut) {
        const auto now = std::chrono::steady_clock::now();
        if (!wait->draining && *onTheWire > 0) {
          wait->draining = true;
          wait->drainingUntil = now + drainingLimit;
          if (notice) notice();
        }
        if (wait->draining && *onTheWire > 0 && now < wait->drainingUntil) return;
        if (wait->draining) why = Stop::timedOutAfterExchange;
      }
      wait->stop = why;
      wait->loop->quit();
    });
  };
  // Watches the clock and the stop flag; its verdict goes through the loop, so that it is
  // weighed against an answer in the order they reached the main thread. Past the deadline it
  // keeps asking, for as long as a token exchange holds the wait open.
  std::thread watcher([&] {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    std::unique_lock lock(mutex);
    while (!done) {
      if (stopRequested.load()) {
        post(Stop::interrupted);
        return;
      }
      if (std::chrono::steady_clock::now() >= deadline) post(Stop::timedOut);
      wake.wait_for(lock, std::chrono::milliseconds(100));
    }
  });
  // An answer given at once has already asked the loop to quit: run() then returns at once and
  // uses that request up, so that it cannot end the next wait early.
  do {
    host_.runLoop->run();
  } while (!wait->settled());
  {
    const std::lock_guard lock(mutex);
    done = true;
  }
  wake.notify_all();
  watcher.join();
  if (!wait->finished) wait->abandoned = true;
  return wait->stop;
}

SignInSession::Stop SignInSession::await(const std::function<void(std::function<void()> done)>& start,
                                         std::chrono::seconds timeout) {
  auto wait = std::make_shared<Wait>();
  wait->loop = host_.runLoop;
  start([wait] { wait->finish(); });
  return runUntil(wait, timeout);
}

std::shared_ptr<services::AccessTokenSource> SignInSession::accessTokens() const {
  return services::makeSignInAccessTokenSource(lib_, kScopes);
}

std::variant<SignedInUser, SignInFailure, SignInSession::Stop> SignInSession::login(bool sandbox,
                                                                                     std::chrono::seconds timeout) {
  auto wait = std::make_shared<Wait>();
  wait->loop = host_.runLoop;
  auto outcome = std::make_shared<std::optional<std::variant<SignedInUser, SignInFailure>>>();
  // Held until the wait ends: the service's steps stop quietly once it is released.
  const auto service = AmazonLoginService::make(lib_);
  service->login(sandbox, [wait, outcome](Result<AmazonLoginInfo> result) {
    if (result.ok()) {
      AmazonLoginInfo& info = result.value();
      *outcome = SignedInUser{std::move(info.email), std::move(info.userID), std::move(info.accessToken)};
    } else {
      const Error& error = result.error();
      const auto message = error.userInfo.find("message");
      const std::string* text = message != error.userInfo.end() ? std::get_if<std::string>(&message->second) : nullptr;
      *outcome = SignInFailure{error.domain, error.code, text ? *text : std::string()};
    }
    wait->finish();
  });
  if (const Stop stop = runUntil(wait, timeout); stop != Stop::none) return stop;
  if (auto* user = std::get_if<SignedInUser>(&**outcome)) return std::move(*user);
  return std::get<SignInFailure>(**outcome);
}

std::variant<std::string, SignInFailure, SignInSession::Stop> SignInSession::token(bool sandbox, bool forceRefresh,
                                                                                    std::chrono::seconds timeout) {
  auto wait = std::make_shared<Wait>();
  wait->loop = host_.runLoop;
  auto outcome = std::make_shared<std::optional<std::variant<std::string, SignInFailure>>>();
  JsonObject overrides = sandboxOptions(sandbox);
  if (forceRefresh) overrides[std::string(kAIOverrideForceRefresh)] = "YES";
  lib_.getAccessTokenForScopes(kScopes, overrides,
                               std::make_shared<CallbackDelegate>(
                                   [wait, outcome](const APIResult& result) {
                                     const auto token = result.resultString();
                                     *outcome = token ? std::variant<std::string, SignInFailure>(std::string(*token))
                                                      : SignInFailure{"AIError", kAIServerError,
                                                                      "The access token is not a string."};
                                     wait->finish();
                                   },
                                   [wait, outcome](const APIError& error) {
                                     *outcome = failureOf(error);
                                     wait->finish();
                                   }));
  if (const Stop stop = runUntil(wait, timeout); stop != Stop::none) return stop;
  if (auto* token = std::get_if<std::string>(&**outcome)) return std::move(*token);
  return std::get<SignInFailure>(**outcome);
}

std::variant<JsonObject, SignInFailure, SignInSession::Stop> SignInSession::profile(bool sandbox,
                                                                                    std::chrono::seconds timeout) {
  auto wait = std::make_shared<Wait>();
  wait->loop = host_.runLoop;
  auto outcome = std::make_shared<std::optional<std::variant<JsonObject, SignInFailure>>>();
  lib_.getProfile(std::make_shared<CallbackDelegate>(
                      [wait, outcome](const APIResult& result) {
                        const JsonObject* profile = result.resultObject();
                        *outcome = profile ? std::variant<JsonObject, SignInFailure>(*profile)
                                           : SignInFailure{"AIError", kAIServerError, "The profile is not an object."};
                        wait->finish();
                      },
                      [wait, outcome](const APIError& error) {
                        *outcome = failureOf(error);
                        wait->finish();
                      }),
                  sandboxOptions(sandbox));
  if (const Stop stop = runUntil(wait, timeout); stop != Stop::none) return stop;
  if (auto* profile = std::get_if<JsonObject>(&**outcome)) return std::move(*profile);
  return std::get<SignInFailure>(**outcome);
}

std::variant<std::monostate, SignInFailure, SignInSession::Stop> SignInSession::logout(std::chrono::seconds timeout) {
  auto wait = std::make_shared<Wait>();
  wait->loop = host_.runLoop;
  auto outcome = std::make_shared<std::optional<SignInFailure>>();
  lib_.clearAuthorizationState(std::make_shared<CallbackDelegate>([wait](const APIResult&) { wait->finish(); },
                                                                  [wait, outcome](const APIError& error) {
                                                                    *outcome = failureOf(error);
                                                                    wait->finish();
                                                                  }));
  if (const Stop stop = runUntil(wait, timeout); stop != Stop::none) return stop;
  if (*outcome) return **outcome;
  return std::monostate{};
}

// ---- the commands ----

namespace {

// Tells the user when the sign-in page is opened, and when the browser cannot even be started.
class AnnouncingPresenter final : public platform::SignInPresenter {
 public:
  AnnouncingPresenter(std::shared_ptr<platform::SignInPresenter> inner, std::string browser,
                      std::chrono::seconds timeout)
      : inner_(std::move(inner)), browser_(std::move(browser)), timeout_(timeout) {}
  bool openURL(const std::string& url) override {
    const bool opened = inner_->openURL(url);
    if (opened) {
      std::cerr << "tunevo login: the sign-in page is open in the browser (" << browser_ << "); waiting up to "
                << timeout_.count() << " s for its answer, Ctrl-C cancels" << std::endl;
    } else {
      std::cerr << "tunevo login: cannot start the browser (" << browser_ << ")" << std::endl;
    }
    return opened;
  }
  bool canOpenAppURL(const std::string& url) const override { return inner_->canOpenAppURL(url); }
  bool openAppURL(const std::string& url) override { return inner_->openAppURL(url); }
  bool inAppBrowserAvailable() const override { return inner_->inAppBrowserAvailable(); }
  bool presentInAppBrowser(const std::string& url) override { return inner_->presentInAppBrowser(url); }
  bool webViewAvailable() const override { return inner_->webViewAvailable(); }
  bool presentWebView(const std::string& url, const std::string& returnToURL,
                      std::function<void(const std::string& url)> onReturn) override {
    return inner_->presentWebView(url, returnToURL, std::move(onReturn));
  }
  void dismiss() override { inner_->dismiss(); }
  void setCancelHandler(std::function<void()> handler) override { inner_->setCancelHandler(std::move(handler)); }

 private:
  std::shared_ptr<platform::SignInPresenter> inner_;
  std::string browser_;
  std::chrono::seconds timeout_;
};

struct Command {
  std::string_view name;
  SignInCommandOptions options;
  std::chrono::seconds timeout;
};

// Parses the arguments; an exit status when the command ends here (help, usage, unreadable input).
std::variant<Command, int> prepare(int argc, char** argv) {
  const std::string_view name = argv[0];
  auto parsed = parseSignInOptions(name, std::vector<std::string>(argv + 1, argv + argc));
  if (const auto* problem = std::get_if<std::string>(&parsed)) {
    std::cerr << "tunevo " << name << ": " << *problem << "\n" << usageOf(name);
    return kExitUsage;
  }
  auto& options = std::get<SignInCommandOptions>(parsed);
  if (options.help) {
    std::cout << usageOf(name);
    return kExitOk;
  }
  const auto timeout = options.timeout.value_or(name == "login" ? kLoginTimeout : kCallTimeout);
  return Command{name, std::move(options), timeout};
}

}  // namespace

std::variant<std::unique_ptr<SignInSession>, int> openSignInSession(std::string_view name,
                                                                    const SignInCommandOptions& options,
                                                                    std::chrono::seconds timeout) {
  const struct {
    std::string_view name;
    std::chrono::seconds timeout;
  } command{name, timeout};
  // Every file is checked here, before anything is sent or the browser opens: a sign-in the user
  // completes in the browser must not fail afterwards on a file given with it.
  const auto unusable = [&](std::string_view problem) {
    std::cerr << "tunevo " << command.name << ": " << problem << "\n";
    return kExitNoInput;
  };
  ClientConfiguration configuration;
  if (options.publicKey) {
    FileArgument key = readPemArgument(*options.publicKey, "public key");
    if (!key.text) return unusable(key.problem);
    configuration.apiKeyPublicKey = std::move(*key.text);
  }
  // Without a manifest no API key is valid, and the client would say only that.
  const fs::path manifest = options.manifest.value_or(platform::defaultAppManifestPath());
  if (const FileArgument read = readFileArgument(manifest, "app manifest"); !read.text) {
    return unusable(options.manifest ? read.problem : read.problem + " (the default; give one with --manifest)");
  }
  if (options.caFile) {
    const FileArgument ca = readFileArgument(*options.caFile, "CA file");
    if (!ca.text) return unusable(ca.problem);
    if (!holdsCertificate(*ca.text)) {
      return unusable("the CA file " + options.caFile->string() + " holds no PEM certificate");
    }
  }
  if (options.profileEndpoint) {
    configuration.profileEndpointUrl = configuration.sandboxProfileEndpointUrl =
        configuration.integrationProfileEndpointUrl = configuration.integrationSandboxProfileEndpointUrl =
            *options.profileEndpoint;
  }
  platform::LinuxPlatformOptions platformOptions;
  platformOptions.appManifestPath = options.manifest;
  platformOptions.httpCaFile = options.caFile;
  platformOptions.browserCommand = options.browser;
  platformOptions.secureStorePath = options.store;
  platformOptions.audioSink = options.audioSink;
  platform::LinuxPlatform host = platform::makeLinuxPlatformWithRunLoop(platformOptions);
  if (command.name == "login") {
    host.platform.signInPresenter = std::make_shared<AnnouncingPresenter>(
        host.platform.signInPresenter, options.browser.value_or("xdg-open").string(), command.timeout);
  }
  auto session = std::make_unique<SignInSession>(std::move(host), std::move(configuration));
  session->setExchangeOutlivesTimeoutNotice([name = std::string(name), timeout] {
    std::cerr << "tunevo " << name << ": no answer within " << timeout.count()
              << " s; waiting for the token exchange already sent to end, so that a token the server "
                 "rotated is kept"
              << std::endl;
  });
  return session;
}

namespace {

// Prints why an operation gave no answer, or the error it answered with; the exit status.
// One line per failure.
template <class T>
int reportFailure(const Command& command, const SignInSession& session,
                  const std::variant<T, SignInFailure, SignInSession::Stop>& outcome) {
  if (const auto* stop = std::get_if<SignInSession::Stop>(&outcome)) {
    switch (*stop) {
      case SignInSession::Stop::interrupted:
        std::cerr << "tunevo " << command.name << ": cancelled\n";
        return kExitInterrupted;
      case SignInSession::Stop::timedOutAfterExchange:
        return kExitTimedOut;  // said when the wait went on for the exchange
      default:
        std::cerr << "tunevo " << command.name << ": no answer within " << command.timeout.count() << " s\n";
        return kExitTimedOut;
    }
  }
  const auto& failure = std::get<SignInFailure>(outcome);
  std::cerr << "tunevo " << command.name << ": " << failure.domain << " code " << failure.code << ": "
            << failure.message;
  if (failure.code == kAIInvalidInput && failure.message == kAIMessageInvalidAPIKey) {
    std::cerr << " (the API key and bundle identifier come from the app manifest, --manifest; the key's "
                 "signature is checked with --public-key)";
  } else if ((command.name == "token" || command.name == "profile") && !session.holdsRefreshToken()) {
    std::cerr << " (not signed in: run `tunevo login`)";
  }
  std::cerr << "\n";
  return kExitSignInError;
}

template <class Run>
int runCommand(int argc, char** argv, Run run) {
  auto prepared = prepare(argc, argv);
  if (const int* status = std::get_if<int>(&prepared)) return *status;
  const Command& command = std::get<Command>(prepared);
  auto opened = openSignInSession(command.name, command.options, command.timeout);
  if (const int* status = std::get_if<int>(&opened)) return *status;
  return run(command, *std::get<std::unique_ptr<SignInSession>>(opened));
}

}  // namespace

int runLogin(int argc, char** argv) {
  return runCommand(argc, argv, [](const Command& command, SignInSession& session) {
    std::string error;
    const auto socket = redirectSocketPath(&error);
    std::unique_ptr<RedirectListener> listener;
    if (socket) {
      listener = RedirectListener::start(
          *socket, session.runLoop(),
          [&session](const std::string& url) {
            if (!session.handleOpenURL(url)) {
              std::cerr << "tunevo login: the redirect handed in is not this sign-in's answer; still waiting"
                        << std::endl;
            }
          },
          &error);
    }
    if (!listener) {
      std::cerr << "tunevo login: nothing could hand the sign-in answer in: " << error << "\n";
      return kExitUnavailable;
    }
    const auto outcome = session.login(command.options.sandbox, command.timeout);
    if (const auto* user = std::get_if<SignedInUser>(&outcome)) {
      printSignedInUser(std::cout, *user);
      return kExitOk;
    }
    return reportFailure(command, session, outcome);
  });
}

int runToken(int argc, char** argv) {
  return runCommand(argc, argv, [](const Command& command, SignInSession& session) {
    const auto outcome = session.token(command.options.sandbox, command.options.forceRefresh, command.timeout);
    if (const auto* token = std::get_if<std::string>(&outcome)) {
      std::cout << *token << "\n";
      return kExitOk;
    }
    return reportFailure(command, session, outcome);
  });
}

int runProfile(int argc, char** argv) {
  return runCommand(argc, argv, [](const Command& command, SignInSession& session) {
    const auto outcome = session.profile(command.options.sandbox, command.timeout);
    if (const auto* profile = std::get_if<JsonObject>(&outcome)) {
      std::cout << boost::json::serialize(*profile) << "\n";
      return kExitOk;
    }
    return reportFailure(command, session, outcome);
  });
}

int runLogout(int argc, char** argv) {
  return runCommand(argc, argv, [](const Command& command, SignInSession& session) {
    const auto outcome = session.logout(command.timeout);
    if (std::holds_alternative<std::monostate>(outcome)) {
      std::cout << "signed out\n";
      return kExitOk;
    }
    return reportFailure(command, session, outcome);
  });
}

}  // namespace tunevo
