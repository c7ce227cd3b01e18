#include "applogic/signin/client/ai_auth_portal_request.h"

#include <gtest/gtest.h>

#include "signin/client_fixture.h"

namespace applogic::signin {
namespace {

using test::ClientFixture;

JsonObject options(std::initializer_list<std::pair<std::string_view, Json>> entries) {
  JsonObject object;
  for (const auto& [key, value] : entries) object[key] = value;
  return object;
}

const AIParameters kDevice = {{"di.hw.name", "ThinkPad X1"},
                              {"di.os.name", "Linux"},
                              {"di.os.version", "6.1.0-18-amd64"},
                              {"di.sdk.version", "2.1.1"},
                              {"appIdentifier", test::kAppId}};

AIParameters with(AIParameters base, const AIParameters& more) {
  for (const auto& [name, value] : more) base.insert_or_assign(name, value);
  return base;
}

// The device fields and the app id always; "sandbox" when the option reads as true the way the
// platform reads a boolean (a sign, leading zeros, then Y, T or a non-zero digit).
TEST(AIAuthPortalRequestTest, BaseParametersFollowTheOptions) {
  ClientFixture f;
  const AIAuthPortalRequest request(f.services());
  const std::pair<Json, bool> sandboxRows[] = {{true, true},  {"YES", true},  {"t", true},    {" -007", true},
                                               {false, false}, {"000", false}, {"sure", false}};
  for (const auto& [value, sandbox] : sandboxRows) {
    const auto context = ClientFixture::context(AICallMethod::authorizeUser, {"profile"}, options({{"sandbox_mode", value}}));
    EXPECT_EQ(request.getParameters(*context), sandbox ? with(kDevice, {{"sandbox", "true"}}) : kDevice) << value;
  }
  const auto scoped = ClientFixture::context(AICallMethod::authorizeUser, {"profile"}, options({{"scope_data", "{}"}}));
  EXPECT_EQ(request.getParameters(*scoped), with(kDevice, {{"scope_data", "{}"}}));
}

TEST(AIAuthPortalRequestTest, ParameterListsJoinPairsAndEncodeOnlyValues) {
  const AIParameters parameters = {{"a b", "x y"}, {"k", "a&b=c+d/e?f:g@h"}};
  EXPECT_EQ(AIAuthPortalRequest::buildParamList(parameters, false), "a b=x y&k=a&b=c+d/e?f:g@h");
  EXPECT_EQ(AIAuthPortalRequest::buildParamList(parameters, true), "a b=x%20y&k=a&b=c+d/e%3Ff:g@h");
  const std::pair<const char*, const char*> rows[] = {
      {"AZaz09", "AZaz09"},
      {"!$&'()*+,-./:;=@_~", "!$&'()*+,-./:;=@_~"},
      {" \"#%<>?[\\]^`{|}", "%20%22%23%25%3C%3E%3F%5B%5C%5D%5E%60%7B%7C%7D"},
      {"\n\x7f", "%0A%7F"},
      {"ü", "%C3%BC"},
  };
  for (const auto& [raw, escaped] : rows) EXPECT_EQ(AIAuthPortalRequest::escapeForUrl(raw), escaped) << raw;
}

TEST(AI3POpenIdRequestTest, OrdinaryAndSingleSignOnParameters) {
  const AIParameters common = {{"response_type", "code"},
                               {"scope", "profile postal_code"},
                               {"client_id", test::kClientId},
                               {"redirect_uri", test::kRedirect},
                               {"state", "STATE-1"}};
  const AIParameters remember = {
      {"amzn_respectRmrMeAuthState", "1"}, {"amzn_showRmrMe", "1"}, {"amzn_rmrMeDefaultSelected", "1"}};
  const AIParameters sso = {{"sso.version", "2.0"}, {"skipSignIn", "1"}};
  struct Row {
    const char* name;
    bool sso;
    JsonObject options;
    AIParameters expectedMParams;
    AIParameters expectedBase;
  };
  const Row rows[] = {
      {"ordinary", false, {}, with(common, remember), kDevice},
      {"ordinary, sandbox", false, options({{"sandbox_mode", true}}), common, with(kDevice, {{"sandbox", "true"}})},
      {"single sign-on", true, {}, with(common, sso), kDevice},
  };
  for (const Row& row : rows) {
    ClientFixture f;
    const auto context = ClientFixture::context(AICallMethod::authorizeUser, {" profile", "postal_code "}, row.options,
                                                nullptr, "STATE-1");
    AIOpenIdRequestStates states;
    const auto request = row.sso ? AI3POpenIdRequest::initWithCallContextSSO(f.services(), context, &states)
                                 : AI3POpenIdRequest::initWithCallContext(f.services(), context, &states);
    ASSERT_TRUE(request) << row.name;
    EXPECT_FALSE(context->error().hasErrorOccured()) << row.name;
    EXPECT_EQ(request->mParams(), row.expectedMParams) << row.name;
    EXPECT_EQ(request->getParameters(*context), with(row.expectedBase, row.expectedMParams)) << row.name;
    EXPECT_EQ(request->getBaseUrlWithOption(*context), "https://signin.test/ap/oa") << row.name;
    ASSERT_EQ(states.size(), 1u) << row.name;
    EXPECT_EQ(states.at("STATE-1"), context) << row.name;
  }
}

TEST(AI3POpenIdRequestTest, MissingRedirectOrClientIdGivesNoRequest) {
  struct Row {
    const char* name;
    void (*change)(ClientFixture&);
    AIError expected;
  };
  const Row rows[] = {
      {"no bundle identifier", [](ClientFixture& f) { f.bundle->set(platform::kCFBundleIdentifierKey, std::nullopt); },
       AIError(kAIInvalidInput, "Redirect to uri is invalid.")},
      {"empty client id", [](ClientFixture& f) { f.bundle->set("APIKey", test::apiKeyFor("https://a/ap/oa", "https://t", "")); },
       AIError(kAIInvalidInput, "Client id is invalid.")},
  };
  for (const Row& row : rows) {
    for (const bool sso : {false, true}) {
      ClientFixture f;
      row.change(f);
      const auto context = ClientFixture::context(AICallMethod::authorizeUser);
      AIOpenIdRequestStates states;
      const auto request = sso ? AI3POpenIdRequest::initWithCallContextSSO(f.services(), context, &states)
                               : AI3POpenIdRequest::initWithCallContext(f.services(), context, &states);
      EXPECT_FALSE(request) << row.name;
      EXPECT_EQ(context->error(), row.expected) << row.name;
      EXPECT_TRUE(states.empty()) << row.name;
    }
  }
}

TEST(AIExchangeRequestTest, EachExchangeSendsItsParametersAndHeaders) {
  ClientFixture f;
  const auto services = f.services();
  const std::string verifier = services->spop()->spopKey().value();
  // The headers of every exchange.
  const platform::HttpHeaders client{
      {"Accept-Encoding", "gzip, deflate"},
      {"Accept-Language", "en-us,en;q=0.5"},
      {"Accept", "application/xml,application/xhtml+xml,text/html,application/json;q=0.9,text/plain;q=0.8,image/png,/;q=0.5"},
      {"Accept-Charset", "utf-8, iso-8859-1, utf-16, *;q=0.7"},
      {"User-Agent", "LWA/2.1.1/iOS/Linux-6.1.0-18-amd64/ThinkPad X1"}};
  auto plus = [&](platform::HttpHeaders more) {
    platform::HttpHeaders headers = client;
    headers.insert(headers.end(), more.begin(), more.end());
    return headers;
  };
  const std::string base = "appIdentifier=eyJidW5kbGVJRCI6ImNvbS50dW5ldm8uYXBwIn0%253D&";
  const std::string device =
      "code_verifier=" + verifier +
      "&di.hw.name=ThinkPad%20X1&di.os.name=Linux&di.os.version=6.1.0-18-amd64&di.sdk.version=2.1.1";

  const AICodeExchangeRequest code(services, std::make_shared<AICode>("ac.CODE", *f.clock));
  const AIAccessTokenRequest refresh(
      services, std::make_shared<AIRefreshToken>("rt.TOKEN", std::vector<std::string>{"profile", "postal_code"}, *f.clock));
  const AIProfileExchangerRequest profile(
      services, std::make_shared<AIAccessToken>("at.TOKEN", f.clock->now() + std::chrono::hours(1), *f.clock));
  struct Row {
    const char* name;
    const AIExchangeRequest* request;
    bool isPost;
    platform::HttpRequest expected;
  };
  const Row rows[] = {
      {"code exchange", &code, true,
       {.url = "https://api.test/auth/o2/token",
        .method = "POST",
        .headers = plus({{"Content-Type", "application/x-www-form-urlencoded"}}),
        .body = base + "client_id=" + test::kClientId + "&code=ac.CODE&" + device +
                "&grant_type=authorization_code&redirect_uri=amzn-com.tunevo.app://%3FmethodName=signin"}},
      {"refresh", &refresh, true,
       {.url = "https://api.test/auth/o2/token",
        .method = "POST",
        .headers = client,
        .body = base + "client_id=" + test::kClientId + "&" + device +
                "&grant_type=refresh_token&refresh_token=rt.TOKEN&scope=profile%20postal_code"}},
      {"profile", &profile, false,
       {.url = "https://api.test/user/profile?" + base + device,
        .method = "GET",
        .headers = plus({{"Authorization", "Bearer at.TOKEN"}})}},
  };
  for (const Row& row : rows) {
    const auto context = ClientFixture::context(AICallMethod::getAccessToken);
    const auto request = row.request->makeUrlRequest(*context, row.isPost);
    ASSERT_TRUE(request) << row.name;
    EXPECT_EQ(*request, row.expected) << row.name;
    EXPECT_FALSE(context->error().hasErrorOccured()) << row.name;
  }
}

}  // namespace
}  // namespace applogic::signin
