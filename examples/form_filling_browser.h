#pragma once

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include "applogic/platform/main_thread.h"
#include "applogic/platform/sign_in_presenter.h"

namespace example {

/// The example's stand-in for the system browser: it loads the sign-in page the library opens,
/// fills its form with the test account, and hands the address the page redirects to (the app's
/// own scheme) to `onRedirect` on the main thread, as the desktop hands an app its URL scheme.
/// A real app opens the browser (applogic::platform::makeBrowserSignInPresenter) instead.
class FormFillingBrowser final : public applogic::platform::BrowserOnlySignInPresenter {
 public:
  struct Account {
    std::string email;
    std::string password;
  };
  FormFillingBrowser(std::shared_ptr<applogic::platform::MainThread> mainThread, std::string caFile, Account account,
                     std::function<void(const std::string& redirect)> onRedirect);
  ~FormFillingBrowser() override;

  bool openURL(const std::string& url) override;

 private:
  std::shared_ptr<applogic::platform::MainThread> mainThread_;
  std::string caFile_;
  Account account_;
  std::function<void(const std::string&)> onRedirect_;
  std::thread worker_;
};

}  // namespace example
