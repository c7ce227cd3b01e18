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

TEST(AIAuthPortalRequestTest, BaseParametersFollowTheOptions) {
  ClientFixture f;
  const AIAuthPortalRequest request(f.services());
  struct Row {
    const char* name;
    JsonObject options;
    AIParameters expected;
  };
  const Row rows[] = {
      {"no options", {}, kDevice},
      {"sandbox", options({{"sandbox_mode", true}}), with(kDevice, {{"sandbox", "true"}})},
      {"sandbox off", options({{"sandbox_mode", false}}), kDevice},
      {"sandbox as the text YES", options({{"sandbox_mode", "YES"}}), with(kDevice, {{"sandbox", "true"}})},
      {"sandbox as the text NO", options({{"sandbox_mode", "NO"}}), kDevice},
      {"sandbox as a text read like the platform", options({{"sandbox_mode", " -007"}}), with(kDevice, {{"sandbox", "true"}})},
      {"sandbox as a text of zeros", options({{"sandbox_mode", "000"}}), kDevice},
      {"sandbox as another text", options({{"sandbox_mode", "sure"}}), kDevice},
      {"scope data", options({{"scope_data", R"({"profile":{"essential":false}})"}}),
       with(kDevice, {{"scope_data", R"({"profile":{"essential":false}})"}})},
      {"scope data of another type", options({{"scope_data", 3}}), kDevice},
  };
  for (const Row& row : rows) {
    const auto context = ClientFixture::context(AICallMethod::authorizeUser, {"profile"}, row.options);
    EXPECT_EQ(request.getParameters(*context), row.expected) << row.name;
  }
}

TEST(AIAuthPortalRequestTest, ParameterListsJoinPairsAndEncodeOnlyValues) {
  const AIParameters parameters = {{"a b", "x y"}, {"k", "a&b=c+d/e?f:g@h"}, {"z", "%2B#é~"}};
  EXPECT_EQ(AIAuthPortalRequest::buildParamList(parameters, false), "a b=x y&k=a&b=c+d/e?f:g@h&z=%2B#é~");
  EXPECT_EQ(AIAuthPortalRequest::buildParamList(parameters, true),
            "a b=x%20y&k=a&b=c+d/e%3Ff:g@h&z=%252B%23%C3%A9~");
  EXPECT_EQ(AIAuthPortalRequest::buildParamList({}, true), "");

  struct Row {
    const char* raw;
    const char* escaped;
  };
  const Row rows[] = {
      {"AZaz09", "AZaz09"},
      {"!$&'()*+,-./:;=@_~", "!$&'()*+,-./:;=@_~"},
      {" \"#%<>?[\\]^`{|}", "%20%22%23%25%3C%3E%3F%5B%5C%5D%5E%60%7B%7C%7D"},
      {"\n\x7f", "%0A%7F"},
      {"ü", "%C3%BC"},
  };
  for (const Row& row : rows) EXPECT_EQ(AIAuthPortalRequest::escapeForUrl(row.raw), row.escaped) << row.raw;
}

TEST(AIAuthPortalRequestTest, HeadersInOrderWithTheUserAgent) {
  ClientFixture f;
  const AIAuthPortalRequest request(f.services());
  platform::HttpHeaders headers;
  request.setHeader(headers);
  const platform::HttpHeaders expected = {
      {"Accept-Encoding", "gzip, deflate"},
      {"Accept-Language", "en-us,en;q=0.5"},
      {"Accept",
       "application/xml,application/xhtml+xml,text/html,application/json;q=0.9,text/plain;q=0.8,image/png,/;q=0.5"},
      {"Accept-Charset", "utf-8, iso-8859-1, utf-16, *;q=0.7"},
      {"User-Agent", "LWA/2.1.1/iOS/Linux-6.1.0-18-amd64/ThinkPad X1"},
  };
  EXPECT_EQ(headers, expected);
}

TEST(AIAuthPortalRequestTest, WithoutDeviceInformationTheDeviceFieldsAreLeftOut) {
  ClientFixture f;
  f.platform.deviceInfo = nullptr;
  const AIAuthPortalRequest request(f.services());
  const auto context = ClientFixture::context(AICallMethod::authorizeUser);
  EXPECT_EQ(request.getParameters(*context), (AIParameters{{"di.sdk.version", "2.1.1"}, {"appIdentifier", test::kAppId}}));
  EXPECT_EQ(request.userAgent(), "LWA/2.1.1/iOS/-/");
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
      {"single sign-on, sandbox", true, options({{"sandbox_mode", true}}), with(common, sso),
       with(kDevice, {{"sandbox", "true"}})},
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

TEST(AI3POpenIdRequestTest, SignInParametersOverrideBaseOnesAndAddedOnesAreEncoded) {
  ClientFixture f;
  const auto context = ClientFixture::context(AICallMethod::authorizeUser, {"profile"}, {}, nullptr, "S");
  auto request = AI3POpenIdRequest::initWithCallContext(f.services(), context, nullptr);
  ASSERT_TRUE(request);
  request->mParams()["code_challenge"] = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM";
  request->mParams()["di.sdk.version"] = "9";
  const AIParameters parameters = request->getParameters(*context);
  EXPECT_EQ(parameters.at("di.sdk.version"), "9");
  const std::string list = AIAuthPortalRequest::buildParamList(parameters, true);
  EXPECT_NE(list.find("appIdentifier=eyJidW5kbGVJRCI6ImNvbS50dW5ldm8uYXBwIn0%253D"), std::string::npos) << list;
  EXPECT_NE(list.find("redirect_uri=amzn-com.tunevo.app://%3FmethodName=signin"), std::string::npos) << list;
  EXPECT_NE(list.find("code_challenge=E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM"), std::string::npos) << list;
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
      {"API key not valid", [](ClientFixture& f) { f.configuration.apiKeyPublicKey = test::otherKeys().publicPem; },
       AIError(kAIInvalidInput, "Client id is invalid.")},
      {"empty client id",
       [](ClientFixture& f) { f.bundle->set("APIKey", test::apiKeyFor("https://a/ap/oa", "https://t", "")); },
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
  const platform::HttpHeaders client = [&] {
    platform::HttpHeaders headers;
    AIAuthPortalRequest(services).setHeader(headers);
    return headers;
  }();
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

TEST(AIExchangeRequestTest, NoClientIdOrNoTokenSendsNothing) {
  ClientFixture f;
  f.configuration.apiKeyPublicKey = test::otherKeys().publicPem;  // no valid key: no client id
  const auto services = f.services();
  const auto refreshToken = std::make_shared<AIRefreshToken>("rt", *f.clock);
  for (const bool isCode : {true, false}) {
    const auto context = ClientFixture::context(AICallMethod::getAccessToken);
    const auto request = isCode ? AICodeExchangeRequest(services, std::make_shared<AICode>("c", *f.clock))
                                      .makeUrlRequest(*context, true)
                                : AIAccessTokenRequest(services, refreshToken).makeUrlRequest(*context, true);
    EXPECT_FALSE(request);
    EXPECT_EQ(context->error(), AIError(kAIInvalidInput, "Client id is invalid.")) << isCode;
  }

  ClientFixture g;
  const auto context = ClientFixture::context(AICallMethod::getAccessToken);
  EXPECT_FALSE(AIAccessTokenRequest(g.services(), nullptr).makeUrlRequest(*context, true));
  EXPECT_EQ(context->error(), AIError(kAIInternalError, "SDK incountered internal Error."));
}

TEST(AIProfileExchangerRequestTest, EndpointVariantBySandboxAndDevelopmentSignInPage) {
  ClientFixture f;
  const ClientConfiguration& c = f.configuration;
  struct Row {
    bool sandbox;
    const char* authz;
    const std::string& expected;
  };
  const Row rows[] = {
      {false, "https://www.amazon.com/ap/oa", c.profileEndpointUrl},
      {true, "https://www.amazon.com/ap/oa", c.sandboxProfileEndpointUrl},
      {false, "https://development.amazon.com/ap/oa", c.integrationProfileEndpointUrl},
      {true, "https://na.account.amazon.com/development/ap/oa", c.integrationSandboxProfileEndpointUrl},
      {false, "", c.profileEndpointUrl},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(AIProfileExchangerRequest::profileEndpoint(c, row.sandbox, row.authz), row.expected)
        << row.sandbox << " " << row.authz;
  }

  // The request reads the sandbox option and the app's sign-in page.
  ClientFixture dev("https://development.signin.test/ap/oa");
  const AIProfileExchangerRequest request(dev.services(), nullptr);
  const auto sandbox = ClientFixture::context(AICallMethod::getProfile, {}, options({{"sandbox_mode", true}}));
  EXPECT_EQ(request.getBaseUrlWithOption(*sandbox), dev.configuration.integrationSandboxProfileEndpointUrl);
}

}  // namespace
}  // namespace applogic::signin
