// The local sign-in server over real TLS, driven as the sign-in client and a browser drive it:
// cpp-httplib's client trusts only the CA the server wrote.

#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <set>
#include <sstream>
#include <thread>

#include <boost/json/parse.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "applogic/testing/manual_clock.h"
#include "emulator/signin_flow.h"

namespace applogic::emulator {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

Params without(Params params, std::string_view name) {
  std::erase_if(params, [&](const auto& pair) { return pair.first == name; });
  return params;
}

Params with(Params params, const std::string& name, const std::string& value) {
  params = without(std::move(params), name);
  params.emplace_back(name, value);
  return params;
}

class SignInServerTest : public ::testing::Test, public SignInSteps {
 protected:
  void SetUp() override {
    SignInServerOptions options;
    options.bundleId = "app.tunevo.test";
    options.clientId = kClientId;
    options.clock = clock_;
    ASSERT_TRUE(server_ = startSignInServer(std::move(options)));
    connect(*server_);
  }

  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>();
  std::unique_ptr<SignInServer> server_;
};

TEST_F(SignInServerTest, CodeFlowFromThePageToTheProfile) {
  const Reply page = signInPage(signInParams());
  ASSERT_EQ(page.status, 200);
  // The e-mail address is not case-sensitive.
  const Reply redirect = submitForm(page, "Listener@Tunevo.TEST", "tunevo-password");
  ASSERT_EQ(redirect.status, 302);
  EXPECT_THAT(redirect.location, StartsWith(std::string(kRedirectUri) + "&"));
  EXPECT_EQ(queryOf(redirect.location),
            (std::map<std::string, std::string>{
                {"methodName", "signin"}, {"state", kState}, {"scope", "profile"}, {"code", redirect["code"]}}));
  const Reply tokens = exchange(exchangeParams(redirect["code"]));
  ASSERT_EQ(tokens.status, 200) << tokens.body;
  EXPECT_EQ(tokens["token_type"] + " " + tokens["scope"] + " " + std::to_string(tokens.expiresIn()), "bearer profile 3600");
  EXPECT_FALSE(tokens["access_token"].empty());
  EXPECT_NE(tokens["access_token"], tokens["refresh_token"]);
  const Reply shown = profile(tokens["access_token"]);
  EXPECT_EQ(shown["user_id"] + " " + shown["email"] + " " + shown["name"],
            "tunevo.account.TESTLISTENER1 listener@tunevo.test Test Listener");

  // Every request is recorded as it arrived; control requests are not.
  const std::vector<RecordedRequest> requests = server_->requests();
  ASSERT_EQ(requests.size(), 4u);
  EXPECT_EQ(requests[0].method + " " + requests[0].path, "GET /ap/oa");
  EXPECT_EQ(requests[0].query, signInParams());
  EXPECT_EQ(requests[1].method + " " + requests[1].path, "POST /ap/oa");
  EXPECT_EQ(requests[2].form, exchangeParams(redirect["code"]));
  EXPECT_EQ(requests[2].body, encodeList(requests[2].form));
  EXPECT_THAT(requests[3].headers,
              ::testing::Contains(Params::value_type("Authorization", "Bearer " + tokens["access_token"])));
  for (const auto& [name, value] : requests[3].headers) EXPECT_NE(name, "REMOTE_ADDR");
  const boost::json::value list = boost::json::parse(get("/__control/requests").body);
  EXPECT_EQ(list.at(3).at("query").at("di.sdk.version"), "2.1.1");
  EXPECT_EQ(list.at(2).at("form").at("grant_type"), "authorization_code");
}

TEST_F(SignInServerTest, SignInPageRefusesRequestsItCannotServe) {
  const Params good = signInParams();
  const std::string challenge = kChallenge;
  // The error of the redirect, or "" for a 400 page.
  const std::tuple<const char*, Params, const char*> rows[] = {
      {"no client id", without(good, "client_id"), ""},
      {"other client id", with(good, "client_id", "client.other"), ""},
      {"no redirect address", without(good, "redirect_uri"), ""},
      {"another app's redirect", with(good, "redirect_uri", "amzn-other.app://?methodName=signin"), ""},
      {"bare amzn- scheme", with(good, "redirect_uri", "amzn-://?methodName=signin"), ""},
      {"redirect with a fragment", with(good, "redirect_uri", std::string(kRedirectUri) + "#x"), ""},
      {"not an app scheme", with(good, "redirect_uri", "https://example.test/back"), ""},
      {"no response type", without(good, "response_type"), "invalid_request"},
      {"token response type", with(good, "response_type", "token"), "unsupported_response_type"},
      {"no scope", without(good, "scope"), "invalid_request"},
      {"blank scope", with(good, "scope", " "), "invalid_scope"},
      {"unknown scope", with(good, "scope", "profile music"), "invalid_scope"},
      {"no state", without(good, "state"), "invalid_request"},
      {"no challenge", without(good, "code_challenge"), "invalid_request"},
      {"no challenge method", without(good, "code_challenge_method"), "invalid_request"},
      {"plain method", with(good, "code_challenge_method", "plain"), "invalid_request"},
      {"short challenge", with(good, "code_challenge", challenge.substr(1)), "invalid_request"},
      {"challenge with a blank", with(good, "code_challenge", challenge.substr(1) + " "), "invalid_request"},
      {"no sdk version", without(good, "di.sdk.version"), "invalid_request"},
      {"empty device model", with(good, "di.hw.name", ""), "invalid_request"},
      {"app identifier not Base64", with(good, "appIdentifier", "!!"), "invalid_request"},
      {"app identifier of another app", with(good, "appIdentifier", "eyJidW5kbGVJRCI6Im90aGVyIn0="), "invalid_request"},
      {"repeated parameter", [&] { Params p = good; p.emplace_back("scope", "profile"); return p; }(), "invalid_request"},
  };
  for (const auto& [name, params, error] : rows) {
    SCOPED_TRACE(name);
    const Reply answer = signInPage(params);
    EXPECT_EQ(answer.status, *error ? 302 : 400) << answer.body;
    if (!*error) {
      EXPECT_EQ(answer.location, "");
      continue;
    }
    EXPECT_THAT(answer.location, StartsWith(std::string(kRedirectUri) + "&error="));
    EXPECT_EQ(answer["error"], error);
    EXPECT_FALSE(answer["error_description"].empty());
    EXPECT_EQ(answer["state"], params == without(good, "state") ? "" : kState);
  }
  // The escaped Base64 the client sends ("=" as %3D, escaped once more by its list encoding) is
  // read like the plain form, and the scheme's case does not matter.
  EXPECT_EQ(signInPage(with(good, "appIdentifier", "eyJidW5kbGVJRCI6ImFwcC50dW5ldm8udGVzdCJ9%3D%3D")).status, 200);
  EXPECT_EQ(signInPage(with(good, "redirect_uri", "AMZN-App.Tunevo.Test://?methodName=signin")).status, 200);
}

TEST_F(SignInServerTest, SignInFormShowsWrongCredentialsAgainAndRedirectsACancel) {
  for (const auto& [email, password] : std::vector<std::pair<std::string, std::string>>{
           {"listener@tunevo.test", "guess"}, {"listener@tunevo.test", "TUNEVO-PASSWORD"},
           {"someone@tunevo.test", "tunevo-password"}}) {
    SCOPED_TRACE(email + " " + password);
    // A typo is the user's to correct on the page: the form again, for the same sign-in.
    const Reply answer = submit(email, password);
    EXPECT_EQ(answer.status, 200);
    EXPECT_THAT(answer.body, HasSubstr("<p role=\"alert\">The e-mail address or password is incorrect.</p>"));
    EXPECT_FALSE(submitForm(answer, "listener@tunevo.test", "tunevo-password")["code"].empty());
    // An answered sign-in's form gets a page, not a redirect.
    EXPECT_EQ(submitForm(answer, "listener@tunevo.test", "tunevo-password").status, 400);
  }
  const Reply cancelled = submit("", "", "cancel");
  // The redirect page's link holds the address as sent (cpp-httplib's client decodes Location).
  EXPECT_THAT(cancelled.body, HasSubstr(std::string(kRedirectUri) + "&amp;error=access_denied&amp;error_description=The%20"
                                        "user%20cancelled%20the%20sign-in.&amp;state=" + kState + "\""));
}

TEST_F(SignInServerTest, PagesCodesAndAccessTokensExpireExactlyAtTheirEnd) {
  // A sign-in page lives ten minutes, and so does a code.
  const Reply page = signInPage(signInParams());
  clock_->advance(std::chrono::minutes(10));
  EXPECT_EQ(submitForm(page, "listener@tunevo.test", "tunevo-password").status, 400);
  const std::string late = code();
  clock_->advance(std::chrono::minutes(10));
  EXPECT_EQ(exchange(exchangeParams(late))["error"], "invalid_grant");

  server_->setAccessTokenLifetime(std::chrono::seconds(60));
  const Reply tokens = signIn();
  EXPECT_EQ(tokens.expiresIn(), 60);
  clock_->advance(std::chrono::seconds(59));
  EXPECT_EQ(profile(tokens["access_token"]).status, 200);
  clock_->advance(std::chrono::seconds(1));
  EXPECT_EQ(profile(tokens["access_token"])["error_description"], "The access token has expired.");
  // The refresh token does not expire.
  EXPECT_EQ(refresh(tokens["refresh_token"]).status, 200);
}

TEST_F(SignInServerTest, TokenEndpointRefusesWhatDoesNotMatchTheGrant) {
  // The field changed (left out without a value), the error and its status.
  const std::tuple<const char*, std::optional<std::string>, const char*, int> rows[] = {
      {"code_verifier", kOtherVerifier, "invalid_grant", 400},
      {"code_verifier", std::string(kVerifier).substr(1), "invalid_grant", 400},
      {"redirect_uri", std::string(kRedirectUri) + "&x=1", "invalid_grant", 400},
      {"code", "ac.unknown", "invalid_grant", 400},
      {"client_id", "client.other", "invalid_client", 401},
      {"code_verifier", std::nullopt, "invalid_request", 400},
      {"code", std::nullopt, "invalid_request", 400},
      {"redirect_uri", std::nullopt, "invalid_request", 400},
      {"client_id", std::nullopt, "invalid_request", 400},
      {"grant_type", std::nullopt, "invalid_request", 400},
      {"grant_type", "password", "unsupported_grant_type", 400},
  };
  for (const auto& [field, value, error, status] : rows) {
    SCOPED_TRACE(std::string(field) + "=" + value.value_or("(none)"));
    const Params params = exchangeParams(code());
    const Reply answer = exchange(value ? with(params, field, *value) : without(params, field));
    EXPECT_EQ(answer.status, status) << answer.body;
    EXPECT_EQ(answer["error"], error);
    EXPECT_FALSE(answer["error_description"].empty());
  }
  EXPECT_EQ(post("/auth/o2/token", encodeList(exchangeParams(code())) + "&code=ac.other")["error"], "invalid_request");
  EXPECT_EQ(exchange(without(refreshParams(""), "refresh_token"))["error"], "invalid_request");
  EXPECT_EQ(refresh("rt.unknown")["error"], "invalid_grant");
  // A form without its content type is refused: the server cannot know it is a form.
  EXPECT_EQ(post("/auth/o2/token", encodeList(exchangeParams(code())), "")["error"], "invalid_request");
}

TEST_F(SignInServerTest, CodeAndRefreshTokenAreSpentByTheirFirstUseAndReuseRevokesTheGrant) {
  const std::string spent = code();
  EXPECT_EQ(exchange(with(exchangeParams(spent), "code_verifier", kOtherVerifier))["error"], "invalid_grant");
  EXPECT_EQ(exchange(exchangeParams(spent))["error"], "invalid_grant") << "a failed attempt spends the code";
  const std::string twice = code();
  const Reply revoked = exchange(exchangeParams(twice));
  EXPECT_EQ(exchange(exchangeParams(twice))["error"], "invalid_grant");
  EXPECT_EQ(profile(revoked["access_token"])["error"], "invalid_token");
  EXPECT_EQ(refresh(revoked["refresh_token"])["error"], "invalid_grant");

  const Reply first = signIn();
  const Reply second = refresh(first["refresh_token"]);
  EXPECT_NE(second["refresh_token"], first["refresh_token"]);
  EXPECT_NE(second["access_token"], first["access_token"]);
  EXPECT_EQ(second["scope"], "profile");
  EXPECT_EQ(profile(first["access_token"]).status, 200) << "a rotation leaves the earlier access token";
  EXPECT_EQ(profile(second["access_token"]).status, 200);

  EXPECT_EQ(refresh(first["refresh_token"])["error"], "invalid_grant");
  EXPECT_EQ(refresh(second["refresh_token"])["error"], "invalid_grant");
  EXPECT_EQ(profile(second["access_token"])["error"], "invalid_token");

  // A refresh may narrow the scopes, never widen them; without a scope it keeps the grant's.
  const Reply kept = exchange(refreshParams(signIn("profile postal_code")["refresh_token"], std::nullopt));
  EXPECT_EQ(kept["scope"], "profile postal_code");
  const Reply narrowed = refresh(kept["refresh_token"], "postal_code");
  EXPECT_EQ(narrowed["scope"], "postal_code");
  EXPECT_EQ(refresh(narrowed["refresh_token"], "profile profile:user_id")["error"], "invalid_scope");
}

TEST_F(SignInServerTest, ProfileAnswersByTokenAndScope) {
  const Reply full = signIn("profile postal_code");
  const std::string access = full["access_token"];
  const std::string noProfile = signIn("postal_code")["access_token"];
  // Authorization header, status, and the answer's keys or its error.
  const std::tuple<std::optional<std::string>, int, std::string> rows[] = {
      {"Bearer " + access, 200, "email name postal_code user_id"},
      {"bearer  " + access + " ", 200, "email name postal_code user_id"},
      {"Bearer " + signIn("profile:user_id")["access_token"], 200, "user_id"},
      {"Bearer " + noProfile, 403, "insufficient_scope"},
      {"Bearer at.unknown", 401, "invalid_token"},
      {"Bearer " + full["refresh_token"], 401, "invalid_token"},
      {"Basic " + access, 400, "invalid_request"},
      {"Bearer ", 400, "invalid_request"},
      {std::nullopt, 400, "invalid_request"},
  };
  for (const auto& [authorization, status, expected] : rows) {
    SCOPED_TRACE(authorization.value_or("no header"));
    httplib::Headers headers;
    if (authorization) headers.emplace("Authorization", *authorization);
    const Reply answer = get("/user/profile", headers);
    EXPECT_EQ(answer.status, status) << answer.body;
    std::set<std::string> keys;
    for (const auto& member : answer.json) keys.emplace(member.key());
    std::string joined;
    for (const std::string& key : keys) joined += (joined.empty() ? "" : " ") + key;
    EXPECT_EQ(status == 200 ? joined : answer["error"], expected);
  }
  // The client drops "profile" from its refresh token when the description says this.
  EXPECT_THAT(profile(noProfile)["error_description"], HasSubstr("scope required profile"));
  // Other methods and paths are not served.
  for (const char* method : {"POST", "PUT", "PATCH", "DELETE", "OPTIONS"}) {
    httplib::Request request;
    request.method = method;
    request.path = "/user/profile";
    EXPECT_EQ(replyOf(client->send(request)).status, 405) << method;
  }
  EXPECT_EQ(get("/auth/o2/token").status, 405);
  EXPECT_EQ(get("/elsewhere").status, 404);
}

// Injections through the control paths over HTTP (which call the C++ API), the parameters in the
// query as the README shows with curl (whose bodiless POST the README's tested example sends).
TEST_F(SignInServerTest, EachInjectionAnswersTheNextMatchingRequestsThenStops) {
  Reply current = signIn();
  const auto control = [&](const std::string& target) {
    return [this, target] { EXPECT_EQ(post("/__control/" + target, "").status, 204) << target; };
  };
  const std::function<Reply()> token = [&] { return refresh(current["refresh_token"]); };
  const std::function<Reply()> user = [&] { return profile(current["access_token"]); };
  const std::function<Reply()> page = [&] { return signInPage(signInParams()); };
  // A page fault waits for a request with a usable address.
  const std::function<Reply()> pageAfterABadOne = [&] {
    EXPECT_EQ(signInPage(without(signInParams(), "redirect_uri")).status, 400);
    return page();
  };
  // The injection, the request it answers, its status and error, and how many times.
  const std::tuple<std::function<void()>, std::function<Reply()>, int, const char*, int> rows[] = {
      {control("server-error?endpoint=token&times=2"), token, 500, "server_error", 2},
      {control("server-error?endpoint=profile"), user, 500, "server_error", 1},
      {control("server-error?endpoint=signin"), page, 500, "", 1},
      {control("fault?name=invalid_grant"), token, 400, "invalid_grant", 1},
      {control("fault?name=invalid_token"), user, 401, "invalid_token", 1},
      {control("fault?name=insufficient_scope"), user, 403, "insufficient_scope", 1},
      {control("fault?name=version_denied"), page, 302, "version_denied", 1},
      {control("fault?name=refusal"), pageAfterABadOne, 302, "access_denied", 1},
  };
  for (const auto& [inject, request, status, error, times] : rows) {
    SCOPED_TRACE(error);
    inject();
    for (int i = 0; i < times; ++i) {
      const Reply answer = request();
      EXPECT_EQ(answer.status, status) << answer.body;
      EXPECT_EQ(answer["error"], error);
      EXPECT_EQ(answer["state"], status == 302 ? kState : "");
    }
    // Injections change no state: the tokens still work once the injection is used up.
    const Reply after = request();
    EXPECT_EQ(after.status, 200) << after.body;
    if (!after["refresh_token"].empty()) current = after;
  }
}

TEST_F(SignInServerTest, DelayedRequestIsAnsweredAndStoppingCutsADelayShort) {
  const std::string access = signIn()["access_token"];
  server_->injectDelay(Endpoint::profile, std::chrono::milliseconds(1));
  EXPECT_EQ(profile(access).status, 200);
  EXPECT_EQ(post("/__control/delay?endpoint=profile&ms=3600000", "").status, 204);
  const std::size_t before = server_->requests().size();
  auto pending = std::async(std::launch::async, [&] { return profile(access).status; });
  // The request is recorded on arrival, before its delay.
  for (int i = 0; i < 10000 && server_->requests().size() == before; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(server_->requests().size(), before + 1);  // no ASSERT: the server must still be stopped below
  EXPECT_NE(pending.wait_for(std::chrono::milliseconds(200)), std::future_status::ready) << "answered before its delay";
  server_.reset();
  ASSERT_EQ(pending.wait_for(std::chrono::seconds(60)), std::future_status::ready) << "stopping hung";
  EXPECT_EQ(pending.get(), 200);
}

TEST_F(SignInServerTest, ResetForgetsEverythingAndBadControlRequestsChangeNothing) {
  const std::string access = signIn()["access_token"];
  // Reset over HTTP forgets the log, the tokens, the injections and the lifetime; a lifetime set
  // over HTTP applies to the next tokens.
  server_->setAccessTokenLifetime(std::chrono::seconds(5));
  server_->inject(Fault::invalidGrant);
  EXPECT_EQ(post("/__control/reset", "").status, 204);
  EXPECT_TRUE(server_->requests().empty());
  EXPECT_THAT(profile(access)["error_description"], HasSubstr("not known"));
  EXPECT_EQ(signIn().expiresIn(), 3600);
  EXPECT_EQ(post("/__control/access-token-lifetime", "seconds=7").status, 204);
  EXPECT_EQ(signIn().expiresIn(), 7);

  // Bad control requests are refused without effect, saying what a good one looks like.
  const std::size_t logged = server_->requests().size();
  const std::pair<Reply, const char*> refusals[] = {
      {post("/__control/server-error", "endpoint=elsewhere"), "400 Give endpoint=signin|token|profile and times=N."},
      {post("/__control/server-error", "endpoint=token&times=x"), "400 Give endpoint=signin|token|profile and times"},
      {post("/__control/fault?name=teapot", ""), "400 Give name=invalid_grant|"},
      {post("/__control/delay", "endpoint=token&ms=-1"), "400 Give endpoint=signin|token|profile and ms=N."},
      {post("/__control/access-token-lifetime", "seconds=1s"), "400 Give seconds=N."},
      {post("/__control/nothing", ""), "404 Unknown control: reset,"},
      {get("/__control/reset"), "400 POST to change"},
      {post("/__control/requests", ""), "400 GET the requests."},
  };
  for (const auto& [refusal, says] : refusals) {
    EXPECT_THAT(std::to_string(refusal.status) + " " + refusal.body, StartsWith(says));
  }
  EXPECT_EQ(server_->requests().size(), logged);
  EXPECT_EQ(refresh(signIn()["refresh_token"]).status, 200);
}

TEST(SignInServerStart, WritesItsCaWhereAskedAndReportsWhatFails) {
  const auto dir = std::filesystem::path(::testing::TempDir()) / "signin_server_start";
  std::filesystem::create_directories(dir);
  SignInServerOptions options;
  options.caOut = dir / "ca.pem";
  auto first = SignInServer::start(options);
  ASSERT_TRUE(first.ok()) << first.error();
  std::stringstream written;
  written << std::ifstream(dir / "ca.pem").rdbuf();
  EXPECT_EQ(written.str(), first.value()->caPem());

  SignInServerOptions samePort;
  samePort.port = first.value()->port();
  EXPECT_EQ(SignInServer::start(samePort).error(),
            (Error{kSignInServerErrorDomain, kSignInServerPortError,
                   {{kSignInServerErrorMessageKey, "cannot bind 127.0.0.1:" + std::to_string(samePort.port)}}}));

  // A CA in a directory of its own goes with the server (a given CA path stays: the tunevo
  // emulator's tests see to that, and to a CA path that cannot be written).
  auto second = SignInServer::start({});
  ASSERT_TRUE(second.ok());
  const std::filesystem::path temporary = second.value()->caPath();
  EXPECT_TRUE(std::filesystem::exists(temporary));
  second.value().reset();
  EXPECT_FALSE(std::filesystem::exists(temporary.parent_path()));
}

}  // namespace
}  // namespace applogic::emulator
