// example_app: a small app on AppLogic, built against the installed package.
//
//   example_app                       the top-tracks screen over a scripted tracks service
//   example_app --signin BASE_URL --ca-file PEM --api-key KEY --public-key PEM --bundle-id ID
//                                     also signs in against that sign-in server
//                                     (`tunevo emulator signin`), refreshes the token, reads
//                                     the profile and signs out
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include <unistd.h>

#include "applogic/platform/linux_platform.h"
#include "applogic/signin/amazon_login_service.h"
#include "applogic/testing/bundle_values.h"
#include "applogic/testing/scripted_services.h"
#include "applogic/version.h"
#include "form_filling_browser.h"
#include "top_tracks.h"

namespace {

using namespace applogic;

int showTopTracks() {
  // Offline, the screen runs over the scripted service an app's tests use; in production it
  // would be the app's client of the music service.
  auto service = std::make_shared<testing::ScriptedTracksService>();
  service->script("getTopTracksData", testing::Answer::jsonText(R"({"tracks": [
      {"id": "t1", "name": "Harbour Lights", "artistName": "The Quays", "playbackSeconds": 214},
      {"id": "t2", "name": "Paper Moon", "artistName": "Ida Lowe", "playbackSeconds": 187}]})"));
  const example::TopTracksScreen screen(std::make_shared<TracksDataController>(service));
  std::cout << "top tracks (applogic " << libraryVersion() << "):\n";
  for (const std::string& line : screen.load(10)) std::cout << "  " << line << "\n";
  return 0;
}

std::string readFile(const std::string& path) {
  std::ifstream in(path);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// Runs the main thread's loop until `done` is called or 30 s pass; false on the timeout.
class Waiter {
 public:
  explicit Waiter(std::shared_ptr<platform::RunLoop> loop) : loop_(std::move(loop)) {}
  void done() {
    finished_ = true;
    loop_->quit();
  }
  bool run() {
    finished_ = false;
    std::mutex mutex;
    std::condition_variable stop;
    bool stopped = false;
    std::thread guard([&] {
      std::unique_lock lock(mutex);
      if (!stop.wait_for(lock, std::chrono::seconds(30), [&] { return stopped; })) loop_->post([this] { loop_->quit(); });
    });
    loop_->run();
    {
      std::lock_guard lock(mutex);
      stopped = true;
    }
    stop.notify_all();
    guard.join();
    return finished_;
  }

 private:
  std::shared_ptr<platform::RunLoop> loop_;
  bool finished_ = false;
};

int signIn(std::map<std::string, std::string> options) {
  platform::LinuxPlatformOptions hostOptions;
  hostOptions.httpCaFile = options["--ca-file"];
  hostOptions.secureStorePath = std::filesystem::temp_directory_path() /
                          ("applogic-example-" + std::to_string(::getpid()) + ".sqlite3");
  platform::LinuxPlatform host = platform::makeLinuxPlatformWithRunLoop(hostOptions);
  host.platform.bundleInfo = std::make_shared<testing::BundleValues>(options["--bundle-id"], options["--api-key"]);

  signin::ClientConfiguration configuration;
  configuration.apiKeyPublicKey = readFile(options["--public-key"]);
  configuration.profileEndpointUrl = configuration.sandboxProfileEndpointUrl =
      configuration.integrationProfileEndpointUrl = configuration.integrationSandboxProfileEndpointUrl =
          options["--signin"] + "/user/profile";

  std::shared_ptr<signin::AmazonLoginService> service;
  std::optional<signin::AIMobileLib> client;
  Waiter waiter(host.runLoop);
  auto browser = std::make_shared<example::FormFillingBrowser>(
      host.runLoop, options["--ca-file"], example::FormFillingBrowser::Account{"listener@tunevo.test", "tunevo-password"},
      [&client](const std::string& redirect) { client->handleOpenURL(redirect); });
  host.platform.signInPresenter = browser;
  client.emplace(host.platform, configuration);
  service = signin::AmazonLoginService::make(*client);

  int status = 0;
  const auto fail = [&](const std::string& step, const std::string& why) {
    std::cerr << "example_app: " << step << ": " << why << "\n";
    status = 1;
  };
  // 1. Sign in: the page, the code exchange, then the token and the profile.
  service->login(false, [&](Result<signin::AmazonLoginInfo> result) {
    if (result) {
      std::cout << "signed in as " << result.value().email << " (" << result.value().userID << ")\n";
    } else {
      fail("login", result.error().domain + " " + std::to_string(result.error().code));
    }
    waiter.done();
  });
  if (!waiter.run()) fail("login", "no answer");

  // 2. A forced refresh of the access token.
  if (status == 0) {
    JsonObject force;
    force["force_refresh"] = "YES";
    client->getAccessTokenForScopes(
        {"profile"}, force,
        std::make_shared<signin::AmazonLoginServiceGetAccessTokenDelegate>(
            [&](std::string token) {
              std::cout << "refreshed access token: " << token.substr(0, 6) << "...\n";
              waiter.done();
            },
            [&](std::optional<signin::APIError> error) {
              fail("token", error ? error->error().message() : "no token");
              waiter.done();
            }));
    if (!waiter.run()) fail("token", "no answer");
  }
  // 3. Sign out.
  service->logOut();
  host.runLoop->runUntilIdle();
  std::filesystem::remove(*hostOptions.secureStorePath);
  if (status == 0) std::cout << "signed out\n";
  return status;
}

}  // namespace

int main(int argc, char** argv) {
  std::map<std::string, std::string> options;
  for (int i = 1; i + 1 < argc; i += 2) options[argv[i]] = argv[i + 1];
  const int shown = showTopTracks();
  if (shown != 0 || !options.count("--signin")) return shown;
  for (const char* required : {"--ca-file", "--api-key", "--public-key", "--bundle-id"}) {
    if (!options.count(required)) {
      std::cerr << "example_app: --signin needs " << required << "\n";
      return 64;
    }
  }
  return signIn(options);
}
