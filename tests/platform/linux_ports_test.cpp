// The small Linux ports: the platform's assembly, the run loop, the locale, the device's names and
// the browser that shows the sign-in page.
#include <gtest/gtest.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "applogic/platform/browser_sign_in_presenter.h"
#include "applogic/platform/linux_device_info.h"
#include "applogic/platform/platform.h"
#include "applogic/platform/posix_locale.h"
#include "applogic/platform/run_loop.h"

namespace applogic {
namespace {

namespace fs = std::filesystem;

// By default the secure store is the SQLite file, made on first use where the options say.
TEST(LinuxPlatform, TheSecureStoreIsTheSqliteFileByDefault) {
  const fs::path store = fs::path(::testing::TempDir()) / ("applogic-platform-" + std::to_string(::getpid())) / "store";
  platform::LinuxPlatformOptions options;
  options.secureStorePath = store;
  const platform::Platform system = platform::makeLinuxPlatform(options);
  system.secureStore->remove(platform::SecureItem{platform::SecureItemClass::genericPassword, "x", {}, {}});
  EXPECT_TRUE(fs::exists(store));
  fs::remove_all(store.parent_path());
}

TEST(RunLoop, RunsTasksInOrderAndTasksPostedByTasksAfterThem) {
  platform::RunLoop loop;
  std::vector<std::string> ran;
  loop.post([&] {
    ran.push_back("a");
    loop.post([&] { ran.push_back("c"); });
  });
  loop.post([&] { ran.push_back("b"); });
  loop.post(nullptr);
  EXPECT_TRUE(ran.empty());
  EXPECT_EQ(loop.runUntilIdle(), 3u);
  EXPECT_EQ(ran, (std::vector<std::string>{"a", "b", "c"}));
}

using Environment = std::map<std::string, std::string>;

platform::EnvironmentLookup lookupIn(const Environment& environment) {
  return [&environment](const char* name) -> const char* {
    const auto found = environment.find(name);
    return found == environment.end() ? nullptr : found->second.c_str();
  };
}

struct LocaleRow {
  Environment environment;
  std::optional<std::string> language;
};

TEST(PosixLocale, LanguageOfTheFirstNonEmptyVariable) {
  const LocaleRow rows[] = {
      {{{"LANG", "FR_fr.UTF-8"}}, "fr"},
      {{{"LC_ALL", "fr_FR.UTF-8"}, {"LC_MESSAGES", "it_IT"}, {"LANG", "de_DE"}}, "fr"},
      {{{"LC_MESSAGES", "it_IT"}, {"LANG", "de_DE"}}, "it"},
      {{{"LC_ALL", ""}, {"LC_MESSAGES", ""}, {"LANG", "de_DE"}}, "de"},
      {{{"LANG", "POSIX"}}, std::nullopt},
      {{{"LANG", "_DE"}}, std::nullopt},
      {{{"LC_ALL", "C"}, {"LANG", "de_DE"}}, std::nullopt},  // the first non-empty one decides
  };
  for (const LocaleRow& row : rows) {
    std::string described;
    for (const auto& [name, value] : row.environment) described += name + "=" + value + " ";
    EXPECT_EQ(platform::PosixLocale(lookupIn(row.environment)).languageCode(), row.language) << described;
  }
}

TEST(LinuxDeviceInfo, TheModelComesFromTheFirmwareThenTheDeviceTreeThenTheArchitecture) {
  using namespace std::string_literals;
  struct Row {
    const char* name;
    std::optional<std::string> productName;
    std::optional<std::string> deviceTreeModel;
    const char* model;
  };
  const Row rows[] = {
      {"firmware name, trimmed", "  ThinkPad X1 Carbon Gen 9\n", "Board\0"s, "ThinkPad X1 Carbon Gen 9"},
      {"device tree, up to its NUL", std::nullopt, "Raspberry Pi 4 Model B Rev 1.4\0"s, "Raspberry Pi 4 Model B Rev 1.4"},
      {"an unfilled firmware name is no name", "To Be Filled By O.E.M.\n", "Board\0"s, "Board"},
      {"blank firmware name", " \n", std::nullopt, "x86_64"},
      {"nothing known", std::nullopt, std::nullopt, "x86_64"},
  };
  // A directory standing for "/", with the model files each row asks for.
  const fs::path root = fs::path(::testing::TempDir()) / ("applogic-device-" + std::to_string(::getpid()));
  for (const auto& row : rows) {
    fs::remove_all(root);
    for (const auto& [relative, text] : {std::pair{"sys/class/dmi/id/product_name", row.productName},
                                         std::pair{"sys/firmware/devicetree/base/model", row.deviceTreeModel}}) {
      if (!text) continue;
      fs::create_directories((root / relative).parent_path());
      std::ofstream(root / relative, std::ios::binary) << *text;
    }
    const platform::LinuxDeviceInfo info(root, "x86_64", "Linux", "6.1.0-18-amd64");
    EXPECT_EQ(info.deviceModel(), row.model) << row.name;
    EXPECT_EQ(info.systemName(), "Linux");
    EXPECT_EQ(info.systemVersion(), "6.1.0-18-amd64");
  }
  fs::remove_all(root);
  // Nothing known about the machine at all is "unknown", not an empty name.
  const platform::LinuxDeviceInfo nameless(root, "", "", "");
  EXPECT_EQ(nameless.deviceModel() + nameless.systemName() + nameless.systemVersion(), "unknownunknownunknown");
}

TEST(LinuxDeviceInfo, TheRunningSystemNamesItselfAndAModel) {
  const platform::LinuxDeviceInfo info;
  EXPECT_EQ(info.systemName(), "Linux");
  EXPECT_FALSE(info.systemVersion().empty());
  EXPECT_FALSE(info.deviceModel().empty());
}

// The configured command gets the address as its one argument (characters a shell would act on
// arrive unchanged: no shell is involved); what it cannot start, or what could pass for an
// option, is refused. Only the browser is offered.
TEST(BrowserSignInPresenter, StartsTheBrowserWithTheAddressAsItsOneArgumentAndOffersNothingElse) {
  const fs::path dir = fs::path(::testing::TempDir()) / ("presenter_" + std::to_string(::getpid()));
  fs::create_directories(dir);
  // A "browser" that writes its arguments, one per line, beside it, then renames the file into
  // place so that the test never reads a half-written file.
  const fs::path script = dir / "browser";
  std::ofstream(script) << "#!/bin/sh\nfor a in \"$@\"; do printf '%s\\n' \"$a\"; done > '" << (dir / "args.tmp").string()
                        << "'\nmv '" << (dir / "args.tmp").string() << "' '" << (dir / "args").string() << "'\n";
  fs::permissions(script, fs::perms::owner_all);
  const auto presenter = platform::makeBrowserSignInPresenter(script);
  EXPECT_FALSE(presenter->openURL(""));
  EXPECT_FALSE(presenter->openURL("--help"));
  const std::string url = "https://127.0.0.1:8443/ap/oa?a=1&b=$(x) 'q'";
  ASSERT_TRUE(presenter->openURL(url));
  // Not a timing assertion: the child is waited for, with a bound only so a broken run ends.
  for (int i = 0; i < 1000 && !fs::exists(dir / "args"); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(10));
  std::ifstream in(dir / "args");
  EXPECT_EQ(std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()), url + "\n");
  fs::remove_all(dir);

  EXPECT_FALSE(platform::makeBrowserSignInPresenter(dir / "no-such-browser")->openURL("https://example.com/"));
  EXPECT_FALSE(platform::makeBrowserSignInPresenter("no-such-browser-in-path")->openURL("https://example.com/"));
  const auto standard = platform::makeBrowserSignInPresenter();
  EXPECT_FALSE(standard->canOpenAppURL("amzn-sso://x"));
  EXPECT_FALSE(standard->inAppBrowserAvailable());
  EXPECT_FALSE(standard->webViewAvailable());
}

}  // namespace
}  // namespace applogic
