#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "applogic/platform/main_thread.h"
#include "applogic/platform/sign_in_presenter.h"

namespace applogic::emulator {

/// What the scripted user does on the sign-in page.
enum class ScriptedUser {
  signIn,  ///< fills in the e-mail address and password and presses "Sign in"
  cancel,  ///< presses "Cancel": the server redirects with error=access_denied
  leave,   ///< loads the page and never answers it, like closing the browser tab: no redirect
};

struct ScriptedBrowserOptions {
  /// The account typed into the form; the defaults are the local sign-in server's test account.
  /// A wrong password makes the server show the form again with its error, which goes to the
  /// failure handler ("the sign-in page says: ...").
  std::string email = "listener@tunevo.test";
  std::string password = "tunevo-password";
  ScriptedUser user = ScriptedUser::signIn;
  /// The CA certificate (PEM file) to trust for https pages, usually `SignInServer::caPath()`.
  /// Empty: the system's CAs.
  std::filesystem::path caFile;
};

/// A `SignInPresenter` whose browser is a scripted user of the local sign-in server
/// (`SignInServer`), for `tunevo demo` and tests.
///
/// `openURL(url)` returns at once and plays the user on a thread of its own: it loads the page
/// at `url` (http or https), reads the page's form (its action, method, hidden fields, the
/// e-mail and password inputs and the buttons), submits it as a browser would
/// (`application/x-www-form-urlencoded`, the fields in page order with the pressed button's
/// name and value), and follows http(s) redirects until one leads to another scheme: the app's
/// `amzn-...` address. That address is handed to the redirect handler, on the main thread
/// (posted to the `MainThread`): the host calls `AIMobileLib::handleOpenURL` with it.
///
/// Whatever else happens (the server cannot be reached, a page that is not a sign-in form, an
/// answer that is neither a page nor a redirect) goes to the failure handler with a one-line
/// description, also on the main thread. Each `openURL` ends in at most one of the two, and in
/// neither for `ScriptedUser::leave`. Handlers are looked up when the result arrives, so they can
/// be set after `openURL` (the host usually makes the browser first, puts it into the `Platform`
/// and then makes the client); a result with no handler set is dropped. A handler that holds the
/// client holds this browser through the client's platform: set the handlers to null when done
/// (or capture the client weakly) so that both can be released.
///
/// Only the browser exists: no other app, no in-app browser, no web view. `dismiss` does
/// nothing and the cancel handler is never run, as a real browser cannot report either.
///
/// Thread contract: construction, the `SignInPresenter` members, the setters and destruction on
/// the main thread. Destruction waits for the user threads still running (each network step
/// gives up after 10 s) and drops their results.
class ScriptedBrowser final : public platform::BrowserOnlySignInPresenter {
 public:
  using RedirectHandler = std::function<void(const std::string& url)>;
  using FailureHandler = std::function<void(const std::string& description)>;

  ScriptedBrowser(std::shared_ptr<platform::MainThread> mainThread, ScriptedBrowserOptions options = {});
  ~ScriptedBrowser() override;
  ScriptedBrowser(const ScriptedBrowser&) = delete;
  ScriptedBrowser& operator=(const ScriptedBrowser&) = delete;

  void setRedirectHandler(RedirectHandler handler);
  void setFailureHandler(FailureHandler handler);
  /// What the user does on pages opened from now on.
  void setUser(ScriptedUser user);

  /// Every address `openURL` was given, in order.
  const std::vector<std::string>& opened() const { return opened_; }

  /// False only for an address that is not http or https (nothing is started then).
  bool openURL(const std::string& url) override;

 private:
  struct Shared;
  std::shared_ptr<platform::MainThread> mainThread_;
  ScriptedBrowserOptions options_;
  std::shared_ptr<Shared> shared_;
  std::vector<std::string> opened_;
};

}  // namespace applogic::emulator
