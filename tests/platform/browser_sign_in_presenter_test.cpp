#include "applogic/platform/browser_sign_in_presenter.h"

#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>

#include <gtest/gtest.h>

namespace applogic {
namespace {

namespace fs = std::filesystem;

// A "browser" that writes its arguments, one per line, to a file beside it, then renames it into
// place so that the test never reads a half-written file.
fs::path writeRecordingBrowser(const fs::path& dir) {
  fs::create_directories(dir);
  const fs::path script = dir / "browser";
  std::ofstream(script) << "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done > '" << (dir / "args.tmp").string()
                        << "'\nmv '" << (dir / "args.tmp").string() << "' '" << (dir / "args").string() << "'\n";
  fs::permissions(script, fs::perms::owner_all);
  return script;
}

std::string waitForFile(const fs::path& path) {
  // Not a timing assertion: the child is waited for, with a bound only so a broken run ends.
  for (int i = 0; i < 1000 && !fs::exists(path); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

fs::path testDir() {
  return fs::path(::testing::TempDir()) / ("presenter_" + std::to_string(::getpid()) + "_" +
                                           ::testing::UnitTest::GetInstance()->current_test_info()->name());
}

TEST(BrowserSignInPresenter, StartsTheConfiguredCommandWithTheAddressAsItsOneArgument) {
  const fs::path dir = testDir();
  const auto presenter = platform::makeBrowserSignInPresenter(writeRecordingBrowser(dir));
  // Characters a shell would act on arrive unchanged: no shell is involved.
  const std::string url = "https://127.0.0.1:8443/ap/oa?a=1&b=$(x) 'q'";
  ASSERT_TRUE(presenter->openURL(url));
  EXPECT_EQ(waitForFile(dir / "args"), url + "\n");
  fs::remove_all(dir);
}

// Only the browser is offered, and what it cannot start is reported.
TEST(BrowserSignInPresenter, OffersOnlyTheBrowserAndReportsWhatCannotBeStarted) {
  const auto missing = platform::makeBrowserSignInPresenter(testDir() / "no-such-browser");
  EXPECT_FALSE(missing->openURL("https://example.com/"));
  const auto notInPath = platform::makeBrowserSignInPresenter("no-such-browser-in-path");
  EXPECT_FALSE(notInPath->openURL("https://example.com/"));

  const fs::path dir = testDir();
  const auto presenter = platform::makeBrowserSignInPresenter(writeRecordingBrowser(dir));
  EXPECT_FALSE(presenter->openURL(""));
  EXPECT_FALSE(presenter->openURL("--help"));
  fs::remove_all(dir);

  const auto standard = platform::makeBrowserSignInPresenter();
  EXPECT_FALSE(standard->canOpenAppURL("amzn-sso://x"));
  EXPECT_FALSE(standard->openAppURL("amzn-sso://x"));
  EXPECT_FALSE(standard->inAppBrowserAvailable());
  EXPECT_FALSE(standard->presentInAppBrowser("https://example.com/"));
  EXPECT_FALSE(standard->webViewAvailable());
  EXPECT_FALSE(standard->presentWebView("https://example.com/", "amzn-x://", [](const std::string&) {}));
  standard->dismiss();
}

}  // namespace
}  // namespace applogic
