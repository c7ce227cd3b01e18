#include "applogic/platform/browser_sign_in_presenter.h"

#include <spawn.h>
#include <sys/wait.h>

#include <cerrno>
#include <string>
#include <thread>
#include <utility>
#include <vector>

extern char** environ;

namespace applogic::platform {
namespace {

class BrowserSignInPresenter final : public SignInPresenter {
 public:
  explicit BrowserSignInPresenter(std::filesystem::path command) : command_(std::move(command)) {}

  bool openURL(const std::string& url) override {
    if (url.empty() || url.front() == '-') return false;
    std::string program = command_.string();
    std::string argument = url;
    char* argv[] = {program.data(), argument.data(), nullptr};
    pid_t pid = 0;
    // glibc's posix_spawn reports a program that cannot be executed as its own failure, so a
    // missing browser is known here, without waiting for the child.
    const int failed = program.find('/') == std::string::npos
                           ? posix_spawnp(&pid, program.c_str(), nullptr, nullptr, argv, environ)
                           : posix_spawn(&pid, program.c_str(), nullptr, nullptr, argv, environ);
    if (failed != 0) return false;
    // xdg-open may run as long as the browser it starts; it is reaped off the main thread so
    // that neither a zombie nor a wait is left behind.
    std::thread([pid] {
      int status = 0;
      while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
      }
    }).detach();
    return true;
  }

  // Linux has no register of "apps" apart from the browser worth asking here: a scheme's
  // handler is usually the browser itself, which would turn every single-sign-on attempt into a
  // page the browser cannot show.
  bool canOpenAppURL(const std::string&) const override { return false; }
  bool openAppURL(const std::string&) override { return false; }
  bool inAppBrowserAvailable() const override { return false; }
  bool presentInAppBrowser(const std::string&) override { return false; }
  bool webViewAvailable() const override { return false; }
  bool presentWebView(const std::string&, const std::string&, std::function<void(const std::string&)>) override {
    return false;
  }
  void dismiss() override {}
  void setCancelHandler(std::function<void()>) override {}

 private:
  const std::filesystem::path command_;
};

}  // namespace

std::shared_ptr<SignInPresenter> makeBrowserSignInPresenter(std::optional<std::filesystem::path> browserCommand) {
  return std::make_shared<BrowserSignInPresenter>(browserCommand.value_or("xdg-open"));
}

}  // namespace applogic::platform
