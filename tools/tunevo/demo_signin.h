#pragma once

#include <iosfwd>
#include <memory>
#include <string>

#include "emulator/catalog_server.h"
#include "emulator/scripted_browser.h"
#include "emulator/signin_server.h"
#include "tunevo/signin_commands.h"

// The app that `tunevo demo` runs: the local sign-in and catalog services, and the app signed in
// against them.
namespace tunevo {

/// The local services of this process (one CA for both, in a temporary directory), the demo
/// app's API key issued for the run with a key pair made for it, and the app on the Linux ports
/// (libcurl over TLS, the SQLite store in the temporary directory, the null sink when there is no
/// sound device) with a scripted browser that signs in on the sign-in server's page.
///
/// Thread contract: make, use and destroy it on one thread, which runs the session's loop.
class DemoApp {
 public:
  /// The app, or null after writing why to `err`.
  static std::unique_ptr<DemoApp> start(std::ostream& err);
  ~DemoApp();
  DemoApp(const DemoApp&) = delete;
  DemoApp& operator=(const DemoApp&) = delete;

  applogic::emulator::SignInServer& signInServer() { return *signInServer_; }
  applogic::emulator::CatalogServer& catalog() { return *catalog_; }
  SignInSession& session() { return *session_; }
  const std::string& email() const { return email_; }
  /// The key the catalog's Giphy endpoints accept.
  const std::string& giphyApiKey() const { return giphyApiKey_; }
  /// The test account's user id.
  const std::string& userId() const { return userId_; }
  /// Whether the previews play on the system's output (else on the null sink).
  bool audioDevice() const { return audioDevice_; }

 private:
  DemoApp() = default;

  struct TemporaryDirectory;
  std::unique_ptr<TemporaryDirectory> directory_;
  std::unique_ptr<applogic::emulator::SignInServer> signInServer_;
  std::unique_ptr<applogic::emulator::CatalogServer> catalog_;
  std::shared_ptr<applogic::emulator::ScriptedBrowser> browser_;
  std::unique_ptr<SignInSession> session_;
  std::string email_;
  std::string userId_;
  std::string giphyApiKey_;
  bool audioDevice_ = false;
};

/// Signs in as `tunevo login` does (the scripted browser fills in the page), then forces a token
/// refresh and reads the profile; writes each step to `out`. False, after writing the reason to
/// `err`, when a step failed or gave no answer within 10 s.
bool showSignIn(std::ostream& out, std::ostream& err, DemoApp& app);

/// Signs out, then shows the error a token request gets afterwards.
bool showSignOut(std::ostream& out, std::ostream& err, DemoApp& app);

}  // namespace tunevo
