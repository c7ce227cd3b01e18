#include "applogic/signin/client/ai_utils.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <set>

#include "applogic/platform/app_manifest_bundle_info.h"
#include "applogic/platform/openssl_crypto.h"
#include "applogic/signin/client/ai_app_identifier.h"
#include "applogic/testing/bundle_values.h"
#include "applogic/testing/fixed_locale.h"
#include "applogic/testing/seeded_random.h"
#include "signin/api_key_minting.h"

namespace applogic::signin {
namespace {

constexpr const char* kPackage = "com.tunevo.app";
constexpr const char* kPayload =
    R"({"ver":"3","appFamilyId":"amzn1.family","bundleSeedId":"com.tunevo.app","scopes":["profile"],"perm":[],)"
    R"("clientId":"amzn1.client","appVariantId":"v","endpoints":{"authz":"https://auth.example/ap/oa","tokenExchange":"http://t"}})";

class AIUtilsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    AIAppIdentifier::resetSharedInstance();
    platform_.crypto = platform::makeOpenSslCrypto();
    platform_.bundleInfo = bundle_;
    platform_.locale = std::make_shared<testing::FixedLocale>("de");
    platform_.secureRandom = random_;
    configuration_.apiKeyPublicKey = test::issuerKeys().publicPem;
  }
  void TearDown() override { AIAppIdentifier::resetSharedInstance(); }

  AIUtils utils() const { return AIUtils(platform_, configuration_); }

  std::shared_ptr<testing::BundleValues> bundle_ = std::make_shared<testing::BundleValues>(kPackage, test::mint(kPayload));
  std::shared_ptr<testing::SeededRandom> random_ = std::make_shared<testing::SeededRandom>();
  platform::Platform platform_;
  ClientConfiguration configuration_;
};

TEST_F(AIUtilsTest, TheAppInformationComesFromTheVerifiedAPIKey) {
  const AIUtils u = utils();
  EXPECT_FALSE(AIAppIdentifier::appIdentifier()->getAppInfoForPackage(kPackage));
  EXPECT_EQ(u.getClientId(), "amzn1.client");
  EXPECT_TRUE(AIAppIdentifier::appIdentifier()->getAppInfoForPackage(kPackage));
  EXPECT_EQ(u.getAuthzHost(), "https://auth.example/ap/oa");
  EXPECT_EQ(u.getExchangeHost(), configuration_.tokenEndpointUrl);
  EXPECT_EQ(u.getAPIKey(), test::mint(kPayload));
  EXPECT_EQ(u.getAppPackageName(), kPackage);
}

TEST_F(AIUtilsTest, AnInvalidOrMissingKeyGivesNoAppInformation) {
  bundle_->set("APIKey", test::mint(kPayload, test::otherKeys()));
  EXPECT_FALSE(utils().getAppInfo());
  EXPECT_FALSE(utils().getClientId());
  bundle_->set("APIKey", std::nullopt);
  EXPECT_FALSE(utils().getAuthzHost());
  bundle_->set(platform::kCFBundleIdentifierKey, std::nullopt);
  EXPECT_FALSE(utils().getAppInfo());
}

TEST_F(AIUtilsTest, AppIdIsTheEscapedBase64OfTheBundleIdentifierObject) {
  struct Row {
    const char* bundleIdentifier;
    const char* appId;
  };
  // {"bundleID":"..."} in Base64, with "+", "/" and "=" escaped.
  const Row rows[] = {
      {"com.tunevo.app", "eyJidW5kbGVJRCI6ImNvbS50dW5ldm8uYXBwIn0%3D"},
      {"x?", "eyJidW5kbGVJRCI6Ing%2FIn0%3D"},
      {"a>b?", "eyJidW5kbGVJRCI6ImE%2BYj8ifQ%3D%3D"},
      {"app.tunevo.desktop", "eyJidW5kbGVJRCI6ImFwcC50dW5ldm8uZGVza3RvcCJ9"},
  };
  for (const Row& row : rows) {
    bundle_->set(platform::kCFBundleIdentifierKey, row.bundleIdentifier);
    EXPECT_EQ(utils().getAppId(), row.appId) << row.bundleIdentifier;
  }
  bundle_->set(platform::kCFBundleIdentifierKey, std::nullopt);
  EXPECT_FALSE(utils().getAppId());
}

TEST_F(AIUtilsTest, RedirectAddressEndPointLocaleUUIDAndURLScheme) {
  EXPECT_EQ(utils().getRedirectToUrl(), "amzn-com.tunevo.app://?methodName=signin");
  EXPECT_EQ(utils().getEndPoint(), "amazon.com");
  EXPECT_EQ(utils().getCurrentLocale(), "de");
  const std::regex uuid("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  const auto first = utils().getUUID();
  ASSERT_TRUE(first);
  EXPECT_TRUE(std::regex_match(*first, uuid)) << *first;
  EXPECT_NE(utils().getUUID(), first);
  random_->setFailing(true);
  EXPECT_FALSE(utils().getUUID());

  EXPECT_FALSE(utils().getAppUrlScheme());
  bundle_->setURLSchemes({"amzn-com.tunevo.app", "tunevo"});
  EXPECT_EQ(utils().getAppUrlScheme(), "amzn-com.tunevo.app://");
  bundle_->set(platform::kCFBundleIdentifierKey, std::nullopt);
  EXPECT_FALSE(utils().getRedirectToUrl());
}

TEST(AIUtilsParseTest, QueryParametersOfAURL) {
  using Map = std::map<std::string, std::string>;
  struct Row {
    const char* url;
    Map expected;
  };
  const Row rows[] = {
      {"amzn-com.tunevo.app://?methodName=signin&code=ANdN&state=E621E1F8",
       {{"methodName", "signin"}, {"code", "ANdN"}, {"state", "E621E1F8"}}},
      {"x://h/p?error=access_denied&error_description=User%20said+no%21#frag=1",
       {{"error", "access_denied"}, {"error_description", "User said+no!"}}},
      {"x://?a=1&&a=2&flag&=v&b=%zz%4", {{"a", "2"}, {"flag", ""}, {"", "v"}, {"b", "%zz%4"}}},
      {"x://?k=a=b", {{"k", "a=b"}}},
      {"x://no-query", {}},
      {"", {}},
  };
  for (const Row& row : rows) EXPECT_EQ(AIUtils::getKeyValueDictionaryParseString(row.url), row.expected) << row.url;
}

TEST(AppManifestBundleInfoTest, ReadsTheBundleKeysOfTheManifest) {
  const auto dir = std::filesystem::path(::testing::TempDir()) / "app_manifest_test";
  std::filesystem::create_directories(dir);
  const auto path = dir / "app-manifest.json";
  std::ofstream(path) << R"({"CFBundleIdentifier":"com.tunevo.app","APIKey":"k","IBAAppAPIKey":7,)"
                      << R"("CFBundleURLTypes":[{"CFBundleURLSchemes":["amzn-com.tunevo.app",3,"tunevo"]},)"
                      << R"("not an entry",{"CFBundleURLName":"x"},{"CFBundleURLSchemes":["second"]}]})";
  const auto bundle = platform::makeAppManifestBundleInfo(path);
  EXPECT_EQ(bundle->bundleIdentifier(), "com.tunevo.app");
  EXPECT_EQ(bundle->stringValue("APIKey"), "k");
  EXPECT_FALSE(bundle->stringValue("IBAAppAPIKey"));
  EXPECT_EQ(bundle->urlSchemes(), (std::vector<std::string>{"amzn-com.tunevo.app", "tunevo", "second"}));

  for (const char* text : {"[1]", "{\"CFBundleIdentifier\":", ""}) {
    std::ofstream(dir / "broken.json") << text;
    const auto broken = platform::makeAppManifestBundleInfo(dir / "broken.json");
    EXPECT_FALSE(broken->bundleIdentifier()) << text;
    EXPECT_TRUE(broken->urlSchemes().empty());
  }
  // A missing manifest and a directory in its place read as an empty bundle; nothing throws.
  EXPECT_FALSE(platform::makeAppManifestBundleInfo(dir / "missing.json")->bundleIdentifier());
  EXPECT_FALSE(platform::makeAppManifestBundleInfo(dir)->bundleIdentifier());
  EXPECT_EQ(platform::defaultAppManifestPath().filename(), "app-manifest.json");
}

}  // namespace
}  // namespace applogic::signin
