#include "tunevo/demo_browser.h"

#include <httplib.h>

#include <charconv>
#include <string_view>
#include <utility>

namespace tunevo {
namespace {

using applogic::platform::MainThread;
using applogic::platform::SignInPresenter;

constexpr std::string_view kLoopbackPrefix = "https://127.0.0.1:";
constexpr time_t kPatienceSeconds = 5;

class DemoBrowser final : public SignInPresenter {
 public:
  DemoBrowser(std::string base, std::filesystem::path ca, std::string email, std::string password,
              std::shared_ptr<MainThread> mainThread, std::function<void(const std::string&)> onRedirect)
      : base_(std::move(base)),
        ca_(std::move(ca)),
        email_(std::move(email)),
        password_(std::move(password)),
        mainThread_(std::move(mainThread)),
        onRedirect_(std::move(onRedirect)) {}

  // Synchronous: the server answers from its own threads at once, and the demo has nothing else
  // to do meanwhile. The redirect still arrives later, through the main thread's queue.
  bool openURL(const std::string& url) override {
    if (!url.starts_with(base_ + "/") || !base_.starts_with(kLoopbackPrefix)) return false;
    int port = 0;
    const std::string_view digits = std::string_view(base_).substr(kLoopbackPrefix.size());
    if (std::from_chars(digits.data(), digits.data() + digits.size(), port).ec != std::errc()) return false;
    httplib::SSLClient browser("127.0.0.1", port);
    browser.set_ca_cert_path(ca_.c_str());
    browser.enable_server_certificate_verification(true);
    browser.set_connection_timeout(kPatienceSeconds);
    browser.set_read_timeout(kPatienceSeconds);
    const auto page = browser.Get(url.substr(base_.size()));
    if (!page || page->status != 200) return false;
    const std::string marker = "name=\"signin_request\" value=\"";
    const std::size_t start = page->body.find(marker);
    if (start == std::string::npos) return false;
    const std::size_t valueStart = start + marker.size();
    const std::string id = page->body.substr(valueStart, page->body.find('"', valueStart) - valueStart);
    const httplib::Params form{{"signin_request", id}, {"email", email_}, {"password", password_}, {"action", "signin"}};
    const auto answer = browser.Post("/ap/oa", form);
    if (!answer || answer->status != 302 || !answer->has_header("Location")) return false;
    mainThread_->post([onRedirect = onRedirect_, location = answer->get_header_value("Location")] {
      onRedirect(location);
    });
    return true;
  }
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
  const std::string base_;
  const std::filesystem::path ca_;
  const std::string email_;
  const std::string password_;
  const std::shared_ptr<MainThread> mainThread_;
  const std::function<void(const std::string&)> onRedirect_;
};

}  // namespace

std::shared_ptr<SignInPresenter> makeDemoBrowser(std::string serverBaseUrl, std::filesystem::path caFile,
                                                 std::string email, std::string password,
                                                 std::shared_ptr<MainThread> mainThread,
                                                 std::function<void(const std::string&)> onRedirect) {
  return std::make_shared<DemoBrowser>(std::move(serverBaseUrl), std::move(caFile), std::move(email),
                                       std::move(password), std::move(mainThread), std::move(onRedirect));
}

}  // namespace tunevo
