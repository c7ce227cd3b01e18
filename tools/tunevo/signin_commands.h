#pragma once

// `tunevo login`, `tunevo token`, `tunevo profile` and `tunevo logout`: the account sign-in client
// on the Linux ports, driven from the command line.

#include <chrono>
#include <filesystem>
#include <functional>
#include <iosfwd>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "applogic/platform/linux_platform.h"
#include "applogic/signin/client/ai_mobile_lib.h"
#include "applogic/services/service_configuration.h"
#include "applogic/signin/client/client_configuration.h"
#include "applogic/support/json.h"

namespace tunevo {

/// The options the four commands share, as given on the command line (absent: the default).
struct SignInCommandOptions {
  std::optional<std::filesystem::path> manifest;         ///< --manifest FILE
  std::optional<std::string> publicKey;                  ///< --public-key PEM (a file, or the PEM text)
  std::optional<std::string> profileEndpoint;            ///< --profile-endpoint URL
  std::optional<std::filesystem::path> caFile;           ///< --ca-file PEM
  std::optional<std::filesystem::path> browser;          ///< --browser CMD
  bool sandbox = false;                                  ///< --sandbox
  std::optional<std::filesystem::path> store;            ///< --store PATH
  std::optional<std::chrono::seconds> timeout;           ///< --timeout SECONDS
  bool forceRefresh = false;                             ///< --force-refresh (`token` only)
  bool help = false;                                     ///< --help or -h
  std::string audioSink;                                 ///< not an option here: the media sink of the platform
};

/// Whether `option` is one of the sign-in options that take a value ("--manifest" ...).
bool signInOptionTakesValue(std::string_view option);

/// The sign-in options' help lines, as `tunevo token --help` prints them.
extern const char* const kSignInOptionsHelp;

/// Reads the options of `command` ("login", "token", "profile" or "logout") from `args` (the
/// arguments after the command's name). The problem, as one line, when an option is unknown
/// (`--force-refresh` belongs to `token` only), lacks its value (an empty one included), or is a
/// timeout that is not a whole number of seconds from 1 to 86400; positional arguments are
/// refused. An option given again replaces its earlier value.
std::variant<SignInCommandOptions, std::string> parseSignInOptions(std::string_view command,
                                                                   const std::vector<std::string>& args);

/// The access token as `login` shows it: its first 6 characters (bytes) followed by "…"
/// (U+2026), enough to recognise the token's kind ("Atza|I…") and nothing that could be used.
/// A token of 6 characters or fewer shows only "…".
std::string maskedToken(std::string_view token);

/// How a sign-in operation ended.
struct SignInFailure {
  std::string domain;  ///< "AIError" for the client's own errors, "AmazonLogin" from the login service
  std::int64_t code = 0;
  std::string message;
};

/// What `login` reports.
struct SignedInUser {
  std::string email;
  std::string userID;
  std::string accessToken;
};

/// The Linux ports, the run loop and the sign-in client's entry points of one tunevo process,
/// with a way to wait for each answer without waiting forever.
///
/// Thread contract: make it, call it and destroy it on the thread that made `host`'s run loop.
class SignInSession {
 public:
  /// How a wait ended when the operation did not answer. `timedOutAfterExchange`: the timeout
  /// came while a token exchange (code or refresh grant) was on the wire, and the wait went on
  /// until that exchange ended (at most twice an HTTP request's idle limit), so that a token the
  /// server rotated is stored; the operation's own answer is not reported.
  enum class Stop { none, timedOut, timedOutAfterExchange, interrupted };

  /// `host` with its platform complete; `configuration` for the client. Only one session per
  /// process talks to the client's process-wide coordinator: the first one made.
  SignInSession(applogic::platform::LinuxPlatform host, applogic::signin::ClientConfiguration configuration);
  ~SignInSession();
  SignInSession(const SignInSession&) = delete;
  SignInSession& operator=(const SignInSession&) = delete;

  /// Signs in through `AmazonLoginService` (for "profile", then the access token and the
  /// profile); `sandbox` is the service's sandbox flag. Errors have the domain "AmazonLogin". The
  /// service may not answer at all (a profile without a string "email" or "user_id"): the wait
  /// then ends at `timeout`.
  std::variant<SignedInUser, SignInFailure, Stop> login(bool sandbox, std::chrono::seconds timeout);
  /// The access token for "profile"; `forceRefresh` deletes the stored one first ("force_refresh").
  std::variant<std::string, SignInFailure, Stop> token(bool sandbox, bool forceRefresh, std::chrono::seconds timeout);
  /// The profile as the server returned it (or as stored, for an hour).
  std::variant<applogic::JsonObject, SignInFailure, Stop> profile(bool sandbox, std::chrono::seconds timeout);
  /// Deletes the stored tokens, the profile and the sign-in site's cookies.
  std::variant<std::monostate, SignInFailure, Stop> logout(std::chrono::seconds timeout);

  /// Hands a redirect of the app's URL scheme to the client (`handleOpenURL`); true when it was
  /// this sign-in's answer (a code, or an error such as a cancel, that ends it).
  bool handleOpenURL(const std::string& url) const;

  /// Called on this thread when a wait's timeout comes while a token exchange is on the wire,
  /// before the wait goes on for that exchange.
  void setExchangeOutlivesTimeoutNotice(std::function<void()> notice) { exchangeNotice_ = std::move(notice); }

  /// Runs the loop until `start` (called at once, on this thread) calls the `done` it is given,
  /// the timeout comes, or Ctrl-C. Anything `start` began keeps answering on this loop.
  Stop await(const std::function<void(std::function<void()> done)>& start, std::chrono::seconds timeout);

  /// The signed-in user's access tokens for the scope "profile", for the service clients.
  std::shared_ptr<applogic::services::AccessTokenSource> accessTokens() const;
  /// The Linux platform the session runs on.
  const applogic::platform::LinuxPlatform& host() const { return host_; }
  applogic::platform::LinuxPlatform& host() { return host_; }

  /// Whether the store holds a refresh token (false too when it cannot be read).
  bool holdsRefreshToken() const;

  const std::shared_ptr<applogic::platform::RunLoop>& runLoop() const { return host_.runLoop; }

 private:
  /// One operation's wait: answered at most once; the loop runs until it is, or gives up.
  struct Wait;
  Stop runUntil(const std::shared_ptr<Wait>& wait, std::chrono::seconds timeout);

  // How many token exchanges are on the wire; before `host_`, whose HTTP client counts them.
  std::shared_ptr<int> exchangesOnTheWire_;
  applogic::platform::LinuxPlatform host_;
  applogic::signin::AIMobileLib lib_;
  std::function<void()> exchangeNotice_;
};

/// The session `options` describe, for the command `name` whose waits last `timeout`; or the
/// exit status when an input cannot be read (66, after one line on standard error).
std::variant<std::unique_ptr<SignInSession>, int> openSignInSession(std::string_view name,
                                                                    const SignInCommandOptions& options,
                                                                    std::chrono::seconds timeout);

/// Prints what `login` prints: "email: ", "user id: " and "access token: " (masked) lines.
void printSignedInUser(std::ostream& out, const SignedInUser& user);

/// `tunevo login|token|profile|logout [OPTIONS]`; argv[0] is the command's name. Exit statuses:
/// 0 done; 1 the sign-in client answered with an error (its domain, code and message on standard
/// error); 64 usage; 66 a file argument (the manifest, given or the default one, the public key,
/// the CA file) cannot be read, or the CA file holds no PEM certificate: checked before anything
/// is sent or opened; 69 nobody can hand the redirect in (`login`: XDG_RUNTIME_DIR unset, or
/// another tunevo is waiting); 75 no answer within the timeout (a token exchange already on the
/// wire is let end first, so that a rotated token is kept); 130 interrupted (Ctrl-C). Every
/// failure is one line on standard error.
int runLogin(int argc, char** argv);
int runToken(int argc, char** argv);
int runProfile(int argc, char** argv);
int runLogout(int argc, char** argv);

}  // namespace tunevo
