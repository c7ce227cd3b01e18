#pragma once

// A sign-in through the local sign-in server as the sign-in client and a browser make it: the
// request parameters, cpp-httplib's loopback TLS client, and the steps from the page to the tokens.

#include <httplib.h>

#include <algorithm>
#include <cstdint>
#include <filesystem>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <gtest/gtest.h>

#include "emulator/signin_server.h"

namespace applogic::emulator {

using Params = std::vector<std::pair<std::string, std::string>>;

inline constexpr char kClientId[] = "client.tunevo.test";
inline constexpr char kRedirectUri[] = "amzn-app.tunevo.test://?methodName=signin";
inline constexpr char kState[] = "6F9619FF-8B86-D011-B42D-00C04FC964FF";
// A verifier and its S256 challenge, computed apart from the server's code.
inline constexpr char kVerifier[] = "M25iVXpKU3puUjFaYWg3T1NDTDQtcW1ROUY2dGV4ZVQ";
inline constexpr char kChallenge[] = "VWiDhXHIrC4ohL0Q3wF165dq9Km9W0qLwR5wmrVFncg";
inline constexpr char kOtherVerifier[] = "other-verifier-that-is-long-enough-0123456789";

inline std::string encodeList(const Params& params) {
  std::string out;
  for (const auto& [name, value] : params) {
    out += (out.empty() ? "" : "&") + name + "=" + httplib::detail::encode_query_param(value);
  }
  return out;
}

// The decoded query parameters of an address.
inline std::map<std::string, std::string> queryOf(const std::string& address) {
  httplib::Params params;
  if (const std::size_t start = address.find('?'); start != std::string::npos) {
    httplib::detail::parse_query_text(address.substr(start + 1), params);
  }
  return {params.begin(), params.end()};
}

// What the client's sign-in page request carries; the appIdentifier is Base64 of
// {"bundleID":"app.tunevo.test"}.
inline Params signInParams(std::string scope = "profile") {
  return {{"di.hw.name", "x86_64"}, {"di.os.name", "Linux"}, {"di.os.version", "6.1"}, {"di.sdk.version", "2.1.1"},
          {"appIdentifier", "eyJidW5kbGVJRCI6ImFwcC50dW5ldm8udGVzdCJ9"}, {"response_type", "code"},
          {"scope", std::move(scope)}, {"client_id", kClientId}, {"redirect_uri", kRedirectUri}, {"state", kState},
          {"code_challenge", kChallenge}, {"code_challenge_method", "S256"}};
}

// A started sign-in server; null (and a failed test) when it cannot start.
inline std::unique_ptr<SignInServer> startSignInServer(SignInServerOptions options = {}) {
  auto started = SignInServer::start(std::move(options));
  EXPECT_TRUE(started.ok()) << started.error();
  return started.ok() ? std::move(started).value() : nullptr;
}

// cpp-httplib's client of a server on 127.0.0.1 that trusts only the CA in `ca`.
inline std::unique_ptr<httplib::SSLClient> loopbackClient(std::uint16_t port, const std::filesystem::path& ca) {
  auto client = std::make_unique<httplib::SSLClient>("127.0.0.1", port);
  client->set_ca_cert_path(ca.c_str());
  client->enable_server_certificate_verification(true);
  // Guards against a hang; no test depends on these times.
  client->set_connection_timeout(10);
  client->set_read_timeout(30);
  return client;
}

// An answer; `reply["name"]` is a string of its JSON body or a parameter of its redirect.
struct Reply {
  int status = 0;
  std::string body;
  std::string location;
  boost::json::object json;
  std::string operator[](const std::string& name) const {
    const boost::json::value* value = json.if_contains(name);
    if (value != nullptr) return value->is_string() ? std::string(value->get_string()) : "";
    return queryOf(location)[name];
  }
  std::int64_t expiresIn() const { return json.contains("expires_in") ? json.at("expires_in").as_int64() : -1; }
};

inline Reply replyOf(const httplib::Result& result) {
  if (!result) {
    ADD_FAILURE() << "no answer: " << httplib::to_string(result.error());
    return {};
  }
  boost::system::error_code error;
  const boost::json::value json = boost::json::parse(result->body, error);
  return {result->status, result->body, result->get_header_value("Location"),
          json.is_object() ? json.as_object() : boost::json::object()};
}

// The requests of a sign-in, each step as the client or the browser makes it, over `client`
// (the one `connect` makes, or one of the caller's).
class SignInSteps {
 public:
  void connect(const SignInServer& server) {
    owned = loopbackClient(server.port(), server.caPath());
    client = owned.get();
  }

  Reply get(const std::string& path, const httplib::Headers& headers = {}) { return replyOf(client->Get(path, headers)); }
  Reply post(const std::string& path, const std::string& body, const char* type = "application/x-www-form-urlencoded") {
    return replyOf(client->Post(path, body, type));
  }

  Reply signInPage(const Params& params) { return get("/ap/oa?" + encodeList(params)); }
  // Submits the form of a page shown.
  Reply submitForm(const Reply& shown, const std::string& email, const std::string& password,
                   const std::string& action = "signin") {
    const std::string marker = "name=\"signin_request\" value=\"";
    const std::size_t start = std::min(shown.body.find(marker), shown.body.size() - marker.size()) + marker.size();
    const std::string id = shown.body.substr(start, shown.body.find('"', start) - start);
    return post("/ap/oa", encodeList({{"signin_request", id}, {"email", email}, {"password", password}, {"action", action}}));
  }
  Reply submit(const std::string& email, const std::string& password, const std::string& action = "signin",
               const std::string& scope = "profile") {
    const Reply shown = signInPage(signInParams(scope));
    EXPECT_EQ(shown.status, 200) << shown.body;
    return submitForm(shown, email, password, action);
  }
  std::string code(const std::string& scope = "profile") {
    const Reply redirect = submit("listener@tunevo.test", "tunevo-password", "signin", scope);
    EXPECT_EQ(redirect.status, 302);
    return redirect["code"];
  }

  static Params exchangeParams(const std::string& code) {
    return {{"code_verifier", kVerifier}, {"client_id", kClientId}, {"code", code},
            {"grant_type", "authorization_code"}, {"redirect_uri", kRedirectUri}};
  }
  static Params refreshParams(const std::string& refreshToken, std::optional<std::string> scope = "profile") {
    Params params{{"grant_type", "refresh_token"}, {"client_id", kClientId}, {"refresh_token", refreshToken}};
    if (scope) params.emplace_back("scope", *scope);
    return params;
  }
  Reply exchange(const Params& params) { return post("/auth/o2/token", encodeList(params)); }
  Reply refresh(const std::string& refreshToken, const std::string& scope = "profile") {
    return exchange(refreshParams(refreshToken, scope));
  }
  Reply profile(const std::string& accessToken) {
    return get("/user/profile?di.sdk.version=2.1.1", {{"Authorization", "Bearer " + accessToken}});
  }
  // The whole sign-in with the test account: the token endpoint's answer.
  Reply signIn(const std::string& scope = "profile") {
    Reply tokens = exchange(exchangeParams(code(scope)));
    EXPECT_EQ(tokens.status, 200) << tokens.body;
    return tokens;
  }

  httplib::SSLClient* client = nullptr;
  std::unique_ptr<httplib::SSLClient> owned;
};

// Signs the test account in through `client` (connected to the sign-in server) and returns the
// access token; empty when a step fails.
inline std::string signInForAccessToken(httplib::SSLClient& client) {
  SignInSteps steps;
  steps.client = &client;
  return steps.signIn()["access_token"];
}

}  // namespace applogic::emulator
