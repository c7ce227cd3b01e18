#include <gtest/gtest.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "applogic/platform/openssl_crypto.h"
#include "applogic/signin/client/ai_api_key_helper.h"
#include "applogic/signin/client/ai_app_identifier.h"
#include "signin/api_key_minting.h"

namespace applogic::signin {
namespace {

using test::issuerKeys;
using test::mint;
using test::mintWithPayloadPart;

constexpr const char* kPackage = "com.tunevo.app";

// The OpenSSL port, counting the signature verifications asked of it.
class CountingCrypto final : public platform::Crypto {
 public:
  std::optional<Sha256Digest> sha256(std::span<const std::uint8_t> bytes) const override {
    return inner_->sha256(bytes);
  }
  bool verifyRsaSha256Signature(std::span<const std::uint8_t> key, const Sha256Digest& digest,
                                std::span<const std::uint8_t> signature) const override {
    ++verifications;
    return inner_->verifyRsaSha256Signature(key, digest, signature);
  }
  mutable std::atomic<int> verifications{0};

 private:
  std::shared_ptr<const platform::Crypto> inner_ = platform::makeOpenSslCrypto();
};

ClientConfiguration issuerConfiguration() {
  ClientConfiguration configuration;
  configuration.apiKeyPublicKey = issuerKeys().publicPem;
  return configuration;
}

AIAPIKeyHelper helperFor(std::shared_ptr<const platform::Crypto> crypto,
                         std::shared_ptr<const platform::BundleInfo> bundle = nullptr) {
  return AIAPIKeyHelper(std::move(crypto), std::move(bundle), issuerConfiguration());
}

constexpr const char* kVersion3 =
    R"({"ver":"3","appFamilyId":"amzn1.family","bundleSeedId":"com.tunevo.app","scopes":["profile","music"],)"
    R"("perm":["read"],"clientId":"amzn1.client","appVariantId":"amzn1.variant"})";

std::string withPayloadByteChanged(std::string key) {
  const std::size_t dot = key.find('.');
  key[dot + 4] = key[dot + 4] == 'A' ? 'B' : 'A';
  return key;
}

TEST(APIKeyCheckTest, ReportsTheFirstProblem) {
  struct Row {
    const char* name;
    std::string (*key)();
    AIAPIKeyProblem problem;
  };
  const Row rows[] = {
      {"Version3", []() -> std::string { return mint(kVersion3); }, AIAPIKeyProblem::none},
      {"Version2", []() -> std::string { return mint(R"({"ver":"2","appId":"amzn1.app","bundleSeedId":"com.tunevo.app"})"); },
             AIAPIKeyProblem::none},
      {"TwoParts", []() -> std::string { return "eyJhbGciOiJSUzI1NiJ9.eyJ2ZXIiOiIzIn0"; }, AIAPIKeyProblem::tooFewParts},
      {"TamperedPayload", []() -> std::string { return withPayloadByteChanged(mint(kVersion3)); }, AIAPIKeyProblem::badSignature},
      {"SignedByAnotherKey", []() -> std::string { return mint(kVersion3, test::otherKeys()); }, AIAPIKeyProblem::badSignature},
      {"SignatureNotBase64", []() -> std::string { return test::base64Of(R"({"alg":"RS256"})") + ".e30=.!!!!"; }, AIAPIKeyProblem::badSignature},
      {"PayloadNotBase64", []() -> std::string { return mintWithPayloadPart("e30!"); }, AIAPIKeyProblem::badBase64},
      {"PayloadUnpadded", []() -> std::string { return mintWithPayloadPart("e30"); }, AIAPIKeyProblem::badBase64},
      {"PayloadNotJson", []() -> std::string { return mint("ver=3"); }, AIAPIKeyProblem::notJson},
      {"VersionFour", []() -> std::string { return mint(R"({"ver":"4","bundleSeedId":"com.tunevo.app"})"); }, AIAPIKeyProblem::unknownVersion},
      {"VersionAsNumber", []() -> std::string { return mint(R"({"ver":3,"bundleSeedId":"com.tunevo.app"})"); }, AIAPIKeyProblem::unknownVersion},
      {"NoVersion", []() -> std::string { return mint(R"({"bundleSeedId":"com.tunevo.app"})"); }, AIAPIKeyProblem::unknownVersion},
      {"AnotherPackage", []() -> std::string { return mint(R"({"ver":"3","bundleSeedId":"com.other.app"})"); }, AIAPIKeyProblem::otherPackage},
      {"NoPackage", []() -> std::string { return mint(R"({"ver":"2","appId":"amzn1.app"})"); }, AIAPIKeyProblem::otherPackage}};
  const auto helper = helperFor(platform::makeOpenSslCrypto());
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const std::string key = row.key();
    const AIAPIKeyCheck check = helper.checkAPIKey(key, kPackage);
    EXPECT_EQ(check.problem, row.problem) << describe(check.problem);
    EXPECT_EQ(check.appInfo.has_value(), row.problem == AIAPIKeyProblem::none);
    EXPECT_EQ(helper.verifyAPIKey(key, kPackage), check.appInfo);
  }
}

TEST(APIKeyHelperTest, PayloadsBecomeAppInformation) {
  const auto helper = helperFor(platform::makeOpenSslCrypto());
  const ClientConfiguration& configuration = helper.configuration();
  struct Row {
    const char* payload;
    AIAppInfo expected;
  };
  const Row rows[] = {
      {kVersion3, AIAppInfo(configuration, "amzn1.family", kPackage, {"profile", "music"}, {"read"}, "amzn1.client",
                            "amzn1.family", "amzn1.variant")},
      // Addresses that do not begin with "https" give way to the production defaults, each alone.

      {R"({"ver":"3","appFamilyId":"f","bundleSeedId":"com.tunevo.app","clientId":"c","appVariantId":"v",)"
       R"("endpoints":{"authz":"http://auth.example/ap/oa","tokenExchange":"https://api.example/t"}})",
       AIAppInfo(configuration, "f", kPackage, {}, {}, "c", "f", "v", std::nullopt, "https://api.example/t")},
      // An "endpoints" that is not an object counts as absent; wrong types read as missing.
      {R"({"ver":"3","bundleSeedId":"com.tunevo.app","endpoints":"https://a.example","clientId":7,"scopes":["s",1]})",
       AIAppInfo(configuration, std::nullopt, kPackage, {"s"}, {}, std::nullopt, std::nullopt, std::nullopt)},
      {R"({"ver":"2","appId":"amzn1.app","bundleSeedId":"com.tunevo.app","scopes":["profile"],"perm":[],)"
       R"("clientId":"c","appFamilyId":"ignored","endpoints":{"authz":"https://ignored"}})",
       AIAppInfo(configuration, "amzn1.app", kPackage, {"profile"}, {}, "c")},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.payload);
    const auto info = helper.appInfoForValidAPIKey(test::base64Of(row.payload), kPackage);
    ASSERT_TRUE(info);
    EXPECT_EQ(*info, row.expected);
  }
  const auto mixed = helper.appInfoForValidAPIKey(
      test::base64Of(R"({"ver":"3","bundleSeedId":"com.tunevo.app","endpoints":{"authz":"HTTPS://a","tokenExchange":"httpsx"}})"),
      kPackage);
  EXPECT_EQ(mixed->authz(), configuration.signInPageUrl);
  EXPECT_EQ(mixed->tokenExchange(), "httpsx");
}

class AIAppIdentifierTest : public ::testing::Test {
 protected:
  void SetUp() override { AIAppIdentifier::resetSharedInstance(); }
  void TearDown() override { AIAppIdentifier::resetSharedInstance(); }

  std::shared_ptr<CountingCrypto> crypto_ = std::make_shared<CountingCrypto>();
  AIAPIKeyHelper helper_ = helperFor(crypto_);
  AIAppIdentifier identifier_;
};

TEST_F(AIAppIdentifierTest, ASecondCheckOfTheSameKeyDoesNotVerifyAgain) {
  const std::string key = mint(kVersion3);
  EXPECT_TRUE(identifier_.isAPIKey(key, kPackage, helper_));
  EXPECT_TRUE(identifier_.isAPIKey(key, kPackage, helper_));
  EXPECT_EQ(crypto_->verifications, 1);
  // Another text for the same package is verified, and replaces the recorded one.
  const std::string other = mint(R"({"ver":"2","appId":"amzn1.app","bundleSeedId":"com.tunevo.app"})");
  EXPECT_TRUE(identifier_.isAPIKey(other, kPackage, helper_));
  EXPECT_EQ(crypto_->verifications, 2);
  EXPECT_EQ(identifier_.getAPIKeyForPackage(kPackage), other);
  EXPECT_EQ(identifier_.getAppIdForPackage(kPackage), "amzn1.app");
  EXPECT_EQ(identifier_.getAppPermissionsForPackage(kPackage), std::vector<std::string>{});
  EXPECT_EQ(identifier_.getAppPermissionsForPackage("com.other.app"), std::nullopt);
  EXPECT_FALSE(identifier_.isAPIKey(std::nullopt, kPackage, helper_));
  EXPECT_FALSE(identifier_.isAPIKey(key, std::nullopt, helper_));
  // A key verified under one issuer's public key is checked again, and refused, under another's.
  ClientConfiguration otherIssuer;
  otherIssuer.apiKeyPublicKey = test::otherKeys().publicPem;
  EXPECT_FALSE(identifier_.isAPIKey(other, kPackage, AIAPIKeyHelper(crypto_, nullptr, otherIssuer)));
  EXPECT_EQ(crypto_->verifications, 3);
}

}  // namespace
}  // namespace applogic::signin
