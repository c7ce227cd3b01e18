#pragma once

// A sign-in through the local sign-in server as the sign-in client and a browser make it: the
// request parameters, and the steps from the page to an access token.

#include <httplib.h>

#include <map>
#include <string>
#include <utility>
#include <vector>

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>

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

// Signs the test account in through `client` (connected to the sign-in server) and returns
// the access token; empty when a step fails.
inline std::string signInForAccessToken(httplib::SSLClient& client) {
  const auto page = client.Get("/ap/oa?" + encodeList(signInParams()));
  if (!page || page->status != 200) return {};
  const std::string marker = "name=\"signin_request\" value=\"";
  const std::size_t start = page->body.find(marker);
  if (start == std::string::npos) return {};
  const std::size_t from = start + marker.size();
  const std::string id = page->body.substr(from, page->body.find('"', from) - from);
  const auto redirect = client.Post("/ap/oa",
                                    encodeList({{"signin_request", id},
                                                {"email", "listener@tunevo.test"},
                                                {"password", "tunevo-password"},
                                                {"action", "signin"}}),
                                    "application/x-www-form-urlencoded");
  if (!redirect || redirect->status != 302) return {};
  const std::string code = queryOf(redirect->get_header_value("Location"))["code"];
  const auto tokens = client.Post("/auth/o2/token",
                                  encodeList({{"code_verifier", kVerifier}, {"client_id", kClientId}, {"code", code},
                                              {"grant_type", "authorization_code"}, {"redirect_uri", kRedirectUri}}),
                                  "application/x-www-form-urlencoded");
  if (!tokens || tokens->status != 200) return {};
  boost::system::error_code error;
  const boost::json::value json = boost::json::parse(tokens->body, error);
  const auto* token = error || !json.is_object() ? nullptr : json.as_object().if_contains("access_token");
  return token != nullptr && token->is_string() ? std::string(token->as_string()) : std::string();
}

}  // namespace applogic::emulator
