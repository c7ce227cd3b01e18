// The sign-in redirect on Linux: the desktop entry `tunevo url-handler install` writes, and the
// hand-in of a URL from the `tunevo handle-url` process to a listener in this process.

#include <sys/stat.h>

#include <memory>
#include <optional>

#include "applogic/testing/manual_main_thread.h"
#include "tools/tunevo_process.h"
#include "tunevo/redirect_socket.h"
#include "tunevo/url_handler.h"

namespace tunevo::test {
namespace {

namespace fs = std::filesystem;

struct ListenerFixture : ::testing::Test {
  ScratchDirectory runtime{"runtime_", "XDG_RUNTIME_DIR"};
  std::shared_ptr<applogic::testing::ManualMainThread> mainThread = std::make_shared<applogic::testing::ManualMainThread>();
  std::vector<std::string> received;
  fs::path socketPath() {
    std::string error;
    auto path = redirectSocketPath(&error);
    EXPECT_TRUE(path) << error;
    return path.value_or(fs::path());
  }
  std::unique_ptr<RedirectListener> listen(std::string* error) {
    return RedirectListener::start(socketPath(), mainThread, [this](const std::string& url) { received.push_back(url); },
                                   error);
  }
};

TEST_F(ListenerFixture, HandsTheUrlFromTheHandleUrlProcessToTheMainThread) {
  std::string error;
  const auto listener = listen(&error);
  ASSERT_NE(listener, nullptr) << error;
  struct stat info {};
  ASSERT_EQ(::stat(socketPath().parent_path().c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 0777, 0700u);

  const std::string url = "amzn-app.tunevo.desktop://?methodName=signin&code=ANcode&state=E621E1F8-C36C";
  const Outcome run = runTunevo("handle-url '" + url + "'");
  EXPECT_EQ(run.status, 0) << run.err;
  // Queued for the main thread, not delivered on the listener's own thread.
  EXPECT_TRUE(received.empty());
  mainThread->runPending();
  EXPECT_EQ(received, std::vector<std::string>{url});
}

TEST_F(ListenerFixture, RefusesWhenNoTunevoIsWaiting) {
  for (int gone = 0; gone < 2; ++gone) {
    std::string error;
    if (gone) listen(&error).reset();  // a listener that has gone leaves nothing to connect to
    const Outcome refused = runTunevo("handle-url 'amzn-x://?methodName=signin'");
    EXPECT_EQ(refused.status, 69);
    EXPECT_NE(refused.err.find("no tunevo is waiting"), std::string::npos) << refused.err;
  }
}

TEST_F(ListenerFixture, DropsWhatArrivesAfterTheListenerWentAndKeepsOneListenerPerUser) {
  std::string error;
  auto listener = listen(&error);
  ASSERT_NE(listener, nullptr) << error;
  EXPECT_EQ(listen(&error), nullptr);
  EXPECT_NE(error.find("already waiting"), std::string::npos) << error;

  ASSERT_EQ(handInRedirect(socketPath(), "amzn-x://late", &error), HandInResult::delivered) << error;
  listener.reset();
  mainThread->runPending();
  EXPECT_TRUE(received.empty());
}

TEST_F(ListenerFixture, RefusesADirectoryOthersCanEnter) {
  fs::create_directories(socketPath().parent_path());
  ::chmod(socketPath().parent_path().c_str(), 0755);
  std::string error;
  EXPECT_EQ(listen(&error), nullptr);
  EXPECT_NE(error.find("mode 0700"), std::string::npos) << error;
}

TEST(UrlHandler, InstallsAndRemovesTheDesktopEntryForTheAppSchemeAndRefusesBundleIdsThatAreNoScheme) {
  const ScratchDirectory data("data_", "XDG_DATA_HOME");
  const ScratchDirectory config("config_", "XDG_CONFIG_HOME");  // where xdg-mime would write
  const Outcome install = runTunevo("url-handler install --bundle-id app.tunevo.Desktop");
  ASSERT_EQ(install.status, 0) << install.err;
  const fs::path entry = data.path() / "applications" / "tunevo-amzn-app.tunevo.Desktop.desktop";
  EXPECT_EQ(readAll(entry),
            "[Desktop Entry]\n"
            "Type=Application\n"
            "Name=tunevo sign-in redirect\n"
            "Comment=Hands the sign-in answer for amzn-app.tunevo.Desktop to the waiting tunevo\n"
            "Exec=\"" + fs::canonical(TUNEVO_EXECUTABLE).string() + "\" handle-url %u\n"
            "Terminal=false\n"
            "NoDisplay=true\n"
            "MimeType=x-scheme-handler/amzn-app.tunevo.desktop;\n");

  // Remove undoes the entry and the default that xdg-mime wrote (here written by hand, with
  // other handlers that stay), and a second remove says there was nothing left.
  const fs::path mimeApps = config.path() / "mimeapps.list";
  const std::string scheme = "x-scheme-handler/amzn-app.tunevo.desktop";
  std::ofstream(mimeApps) << "[Default Applications]\n" + scheme + "=tunevo-amzn-app.tunevo.Desktop.desktop;\n"
                             "x-scheme-handler/https=firefox.desktop\n[Added Associations]\n" + scheme +
                             "=other.desktop;tunevo-amzn-app.tunevo.Desktop.desktop;\n";
  for (const std::string& out :
       {"removed " + entry.string() + "\nremoved the default handler of " + scheme + " from " + mimeApps.string() + "\n",
        "nothing to remove: no " + entry.string() + " and no default handler of " + scheme + "\n"}) {
    const Outcome remove = runTunevo("url-handler remove --bundle-id app.tunevo.Desktop");
    EXPECT_EQ(remove.status, 0) << remove.err;
    EXPECT_EQ(remove.out, out);
    EXPECT_FALSE(fs::exists(entry));
    EXPECT_EQ(readAll(mimeApps),
              "[Default Applications]\n"
              "x-scheme-handler/https=firefox.desktop\n"
              "[Added Associations]\n"
              "x-scheme-handler/amzn-app.tunevo.desktop=other.desktop;\n");
  }

  // The program's path is quoted in the entry; a bundle id that makes no scheme is refused.
  const std::string quoted = urlHandlerDesktopEntry("amzn-a", "/opt/my \"app\"/$HOME\\tunevo");
  EXPECT_NE(quoted.find("Exec=\"/opt/my \\\\\"app\\\\\"/\\\\$HOME\\\\\\\\tunevo\" handle-url %u\n"), std::string::npos)
      << quoted;
  EXPECT_EQ(appUrlScheme("app.tunevo.desktop"), "amzn-app.tunevo.desktop");
  for (const char* bad : {"", "app tunevo", "app;rm", "app/x", "äpp"}) {
    EXPECT_EQ(appUrlScheme(bad), std::nullopt) << bad;
  }
  // The bundle identifier's source is named when it gives none.
  const fs::path noId = data.path() / "no-id.json";
  std::ofstream(noId) << R"({"APIKey": "k"})";
  const std::tuple<std::string, int, std::string> refusals[] = {
      {"--bundle-id 'a b'", 65, "tunevo url-handler: 'amzn-a b' is not a valid URL scheme\n"},
      {"--manifest /nonexistent/app-manifest.json", 66,
       "tunevo url-handler: cannot read the app manifest /nonexistent/app-manifest.json: no such file or directory "
       "(give --manifest FILE or --bundle-id ID)\n"},
      {"--manifest '" + noId.string() + "'", 65,
       "tunevo url-handler: the app manifest " + noId.string() + " holds no CFBundleIdentifier\n"},
  };
  for (const auto& [arguments, status, err] : refusals) {
    const Outcome refused = runTunevo("url-handler install " + arguments);
    EXPECT_EQ(refused.status, status) << arguments;
    EXPECT_EQ(refused.err, err);
  }
}

}  // namespace
}  // namespace tunevo::test
