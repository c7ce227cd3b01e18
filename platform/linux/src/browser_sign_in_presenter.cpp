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

// Only the browser: Linux has no register of "apps" apart from the browser worth asking for
// single sign-on; a scheme's handler is usually the browser itself, which would turn every
// single-sign-on attempt into a page the browser cannot show.
class BrowserSignInPresenter final : public BrowserOnlySignInPresenter {
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
      while (waitpid(pid, nullptr, 0) < 0 && errno == EINTR) {
      }
    }).detach();
    return true;
  }

 private:
  const std::filesystem::path command_;
};

}  // namespace

std::shared_ptr<SignInPresenter> makeBrowserSignInPresenter(std::optional<std::filesystem::path> browserCommand) {
  return std::make_shared<BrowserSignInPresenter>(browserCommand.value_or("xdg-open"));
}

}  // namespace applogic::platform
