#include "applogic/signin/client/ai_spop.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <vector>

#include "applogic/platform/openssl_crypto.h"
#include "applogic/signin/client/ai_utils.h"
#include "applogic/testing/seeded_random.h"

namespace applogic::signin {
namespace {

// The random octets, verifier and challenge of RFC 7636, appendix B.
constexpr std::array<std::uint8_t, 32> kRfcOctets{116, 24,  223, 180, 151, 153, 224, 37,  79,  250, 96,
                                                  125, 216, 173, 187, 186, 22,  212, 37,  77,  105, 214,
                                                  191, 240, 91,  88,  5,   88,  83,  132, 141, 121};
constexpr const char* kRfcVerifier = "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk";
constexpr const char* kRfcChallenge = "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM";

class FixedBytes final : public platform::SecureRandom {
 public:
  bool fill(std::span<std::uint8_t> bytes) const override {
    std::fill(bytes.begin(), bytes.end(), 0);
    std::copy_n(kRfcOctets.begin(), std::min(bytes.size(), kRfcOctets.size()), bytes.begin());
    return true;
  }
};

class FailingCrypto final : public platform::Crypto {
 public:
  std::optional<Sha256Digest> sha256(std::span<const std::uint8_t>) const override { return std::nullopt; }
};

class AISPOPTest : public ::testing::Test {
 protected:
  void SetUp() override { AISPOP::resetSharedInstance(); }
  void TearDown() override { AISPOP::resetSharedInstance(); }

  std::shared_ptr<testing::SeededRandom> random_ = std::make_shared<testing::SeededRandom>();
  std::shared_ptr<const platform::Crypto> crypto_ = platform::makeOpenSslCrypto();
};

TEST_F(AISPOPTest, RfcAppendixBVectorHolds) {
  const AISPOP pop(std::make_shared<FixedBytes>(), crypto_);
  EXPECT_EQ(pop.spopKey(), kRfcVerifier);
  EXPECT_EQ(pop.spopChallenge(), kRfcChallenge);
  EXPECT_EQ(pop.spopMethod(), "S256");
  EXPECT_EQ(pop.getSHA256HashStringFrom(kRfcVerifier), kRfcChallenge);
}

TEST_F(AISPOPTest, RegeneratingGivesANewVerifierAndKeepsTheMethod) {
  AISPOP pop(random_, crypto_);
  const auto first = pop.spopKey();
  ASSERT_TRUE(first);
  EXPECT_EQ(first->size(), 43u);
  pop.generateWithChallenge("app-challenge", "plain");
  pop.regenerateSpop();
  ASSERT_TRUE(pop.spopKey());
  EXPECT_NE(pop.spopKey(), first);
  EXPECT_EQ(pop.spopChallenge(), pop.getSHA256HashStringFrom(*pop.spopKey()));
  EXPECT_EQ(pop.spopMethod(), "plain");
}

TEST_F(AISPOPTest, SharedInstanceStaysUntilTheAppSuppliesAChallenge) {
  const auto shared = AISPOP::spop(random_, crypto_);
  EXPECT_EQ(AISPOP::spop(random_, crypto_), shared);
  shared->regenerateSpop();
  EXPECT_EQ(AISPOP::spop(random_, crypto_), shared);

  shared->generateWithChallenge("app-challenge", "plain");
  EXPECT_FALSE(shared->spopKey());
  EXPECT_EQ(shared->spopChallenge(), "app-challenge");
  const auto fresh = AISPOP::spop(random_, crypto_);
  EXPECT_NE(fresh, shared);
  EXPECT_EQ(fresh->spopMethod(), "S256");
  EXPECT_TRUE(fresh->spopKey());
}

TEST_F(AISPOPTest, FailingRandomSourceLeavesNoVerifierAndTheSharedOneIsReplaced) {
  random_->setFailing(true);
  const auto broken = AISPOP::spop(random_, crypto_);
  EXPECT_FALSE(broken->spopKey());
  EXPECT_FALSE(broken->spopChallenge());
  random_->setFailing(false);
  const auto next = AISPOP::spop(random_, crypto_);
  EXPECT_NE(next, broken);
  EXPECT_TRUE(next->spopKey());
}

TEST_F(AISPOPTest, HashIsAbsentWhenHashingFailsOrTextIsNotAscii) {
  const AISPOP failing(random_, std::make_shared<FailingCrypto>());
  EXPECT_FALSE(failing.spopChallenge());
  const AISPOP pop(random_, crypto_);
  EXPECT_FALSE(pop.getSHA256HashStringFrom("caf\xc3\xa9"));
  EXPECT_EQ(pop.getSHA256HashStringFrom("")->size(), 43u);
}

// RFC 4648's vectors, without padding; standard Base64 "+/8=" and "//79" show the two replaced
// characters.
TEST(Base64URLEncode, IsUnpaddedUrlSafeBase64) {
  const std::pair<std::vector<std::uint8_t>, const char*> rows[] = {
      {{}, ""}, {{'f'}, "Zg"}, {{'f', 'o'}, "Zm8"}, {{'f', 'o', 'o'}, "Zm9v"}, {{'f', 'o', 'o', 'b'}, "Zm9vYg"},
      {{0xfb, 0xff}, "-_8"}, {{0xff, 0xfe, 0xfd}, "__79"}};
  for (const auto& [bytes, encoded] : rows) EXPECT_EQ(AIUtils::base64URLEncode(bytes), encoded) << encoded;
}

}  // namespace
}  // namespace applogic::signin
