#pragma once

// The sign-in client against the local sign-in server over real TLS: the client fixture with the
// libcurl port (the server's CA as the extra CA file) on a run loop as the main thread, the
// system's time and real randomness, and the scripted browser as the presenter, its redirects
// handed to the client.

#include <chrono>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "applogic/platform/curl_http_client.h"
#include "applogic/platform/openssl_crypto.h"
#include "applogic/platform/run_loop.h"
#include "emulator/scripted_browser.h"
#include "emulator/signin_flow.h"
#include "emulator/signin_server.h"
#include "signin/client_fixture.h"

namespace applogic::signin::test {

// A sign-in server that knows the fixture's app; null (and a failed test) when it cannot start.
inline std::unique_ptr<emulator::SignInServer> startServerForTheFixture() {
  emulator::SignInServerOptions options;
  options.bundleId = kPackage;
  options.clientId = kClientId;
  return emulator::startSignInServer(std::move(options));
}

class TlsClientFixture {
 public:
  explicit TlsClientFixture(const emulator::SignInServer& server, emulator::ScriptedBrowserOptions options = {})
      : client(server.baseUrl() + "/ap/oa", server.baseUrl() + "/auth/o2/token") {
    options.caFile = server.caPath();
    browser = std::make_shared<emulator::ScriptedBrowser>(loop, std::move(options));
    client.clock->set(std::chrono::system_clock::now());
    client.platform.secureRandom = platform::makeOpenSslSecureRandom();
    client.platform.mainThread = loop;
    client.platform.signInPresenter = browser;
    platform::CurlHttpOptions http;
    http.caFile = server.caPath();
    client.platform.httpClient = platform::makeCurlHttpClient(loop, http);
    client.configuration.profileEndpointUrl = server.baseUrl() + "/user/profile";
    // The handlers hold no reference to the client, which holds the browser through its platform.
    browser->setRedirectHandler(
        [this](const std::string& url) { handled.push_back(client.lib().handleOpenURL(url, "browser")); });
    browser->setFailureHandler([this](const std::string& description) {
      problems.push_back(description);
      loop->quit();
    });
  }
  ~TlsClientFixture() { loop->runUntilIdle(); }
  TlsClientFixture(const TlsClientFixture&) = delete;
  TlsClientFixture& operator=(const TlsClientFixture&) = delete;

  std::shared_ptr<platform::RunLoop> loop = std::make_shared<platform::RunLoop>();
  ClientFixture client;
  std::shared_ptr<emulator::ScriptedBrowser> browser;
  // What the client's handleOpenURL said of each redirect, and what the browser reported instead.
  std::vector<bool> handled;
  std::vector<std::string> problems;
};

}  // namespace applogic::signin::test
