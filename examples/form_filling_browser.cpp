#include "form_filling_browser.h"

#include <curl/curl.h>

#include <cstdio>
#include <regex>
#include <utility>

namespace example {
namespace {

size_t append(char* data, size_t size, size_t count, void* body) {
  static_cast<std::string*>(body)->append(data, size * count);
  return size * count;
}

std::string escaped(CURL* curl, const std::string& text) {
  char* escapedText = curl_easy_escape(curl, text.c_str(), static_cast<int>(text.size()));
  std::string result = escapedText != nullptr ? escapedText : "";
  curl_free(escapedText);
  return result;
}

// GETs the page, POSTs its form (to the page's own address, as its form does), and returns where
// the answer redirects: the app's redirect address, or empty.
std::string signIn(const std::string& pageUrl, const std::string& caFile, const FormFillingBrowser::Account& account) {
  std::unique_ptr<CURL, decltype(&curl_easy_cleanup)> curl(curl_easy_init(), &curl_easy_cleanup);
  if (!curl) return {};
  std::string page;
  curl_easy_setopt(curl.get(), CURLOPT_URL, pageUrl.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_CAINFO, caFile.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_WRITEFUNCTION, &append);
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &page);
  if (curl_easy_perform(curl.get()) != CURLE_OK) return {};
  std::smatch request;
  if (!std::regex_search(page, request, std::regex(R"re(name="signin_request" value="([^"]*)")re"))) return {};

  const std::string form = "signin_request=" + escaped(curl.get(), request[1]) +
                           "&email=" + escaped(curl.get(), account.email) +
                           "&password=" + escaped(curl.get(), account.password) + "&action=signin";
  const std::string formUrl = pageUrl.substr(0, pageUrl.find('?'));
  std::string answer;
  curl_easy_setopt(curl.get(), CURLOPT_URL, formUrl.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_POSTFIELDS, form.c_str());
  curl_easy_setopt(curl.get(), CURLOPT_WRITEDATA, &answer);
  if (curl_easy_perform(curl.get()) != CURLE_OK) return {};
  char* location = nullptr;
  curl_easy_getinfo(curl.get(), CURLINFO_REDIRECT_URL, &location);
  return location != nullptr ? location : "";
}

}  // namespace

FormFillingBrowser::FormFillingBrowser(std::shared_ptr<applogic::platform::MainThread> mainThread, std::string caFile,
                                       Account account, std::function<void(const std::string&)> onRedirect)
    : mainThread_(std::move(mainThread)),
      caFile_(std::move(caFile)),
      account_(std::move(account)),
      onRedirect_(std::move(onRedirect)) {}

FormFillingBrowser::~FormFillingBrowser() {
  if (worker_.joinable()) worker_.join();
}

// Called on the main thread, which must not wait for the network: the page is filled in on a
// worker, and the redirect comes back through the main thread, as the desktop's would.
bool FormFillingBrowser::openURL(const std::string& url) {
  if (url.empty()) return false;
  if (worker_.joinable()) worker_.join();
  worker_ = std::thread([this, url] {
    const std::string redirect = signIn(url, caFile_, account_);
    if (redirect.empty()) std::fprintf(stderr, "example_app: the sign-in page gave no redirect\n");
    mainThread_->post([this, redirect] { onRedirect_(redirect); });
  });
  return true;
}

}  // namespace example
