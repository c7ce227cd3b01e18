#include "applogic/signin/client/ai_rsa_signer.h"

#include <gtest/gtest.h>

#include <openssl/x509.h>

#include <string>
#include <vector>

#include "applogic/platform/openssl_crypto.h"
#include "applogic/signin/client/base64.h"
#include "signin/api_key_minting.h"

namespace applogic::signin {
namespace {

using Bytes = std::vector<std::uint8_t>;

// 30 0D 06 09 2A 86 48 86 F7 0D 01 01 01 05 00: the rsaEncryption algorithm identifier.
const Bytes kAlgorithm = {0x30, 0x0D, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x01, 0x05, 0x00};

Bytes join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

const Bytes kKey = {0x30, 0x06, 0x02, 0x01, 0x05, 0x02, 0x01, 0x03};

TEST(StripPublicKeyHeaderTest, FollowsTheByteRules) {
  struct Row {
    const char* name;
    Bytes input;
    std::optional<Bytes> expected;
  };
  const Row rows[] = {
      {"ShortLengths", join({{0x30, 0x1A}, kAlgorithm, {0x03, 0x09, 0x00}, kKey}), kKey},
      // 0x80 is below 0x81: one length byte.
      {"LengthByte0x80IsShort", join({{0x30, 0x80}, kAlgorithm, {0x03, 0x80, 0x00}, kKey}), kKey},
      {"LongLengths", join({{0x30, 0x82, 0x01, 0x22}, kAlgorithm, {0x03, 0x82, 0x01, 0x0F, 0x00}, kKey}), kKey},
      {"OneLongLengthByte", join({{0x30, 0x81, 0xFF}, kAlgorithm, {0x03, 0x81, 0x09, 0x00}, kKey}), kKey},
      // The lengths are skipped, never checked against the data.
      {"LengthsAreNotChecked", join({{0x30, 0x01}, kAlgorithm, {0x03, 0x7F, 0x00}, kKey}), kKey},
      {"NothingAfterTheUnusedBitsByte", join({{0x30, 0x11}, kAlgorithm, {0x03, 0x01, 0x00}}), Bytes{}},
      {"Empty", {}, std::nullopt},
      {"NotASequence", join({{0x31, 0x1A}, kAlgorithm, {0x03, 0x09, 0x00}, kKey}), std::nullopt},
      {"AnotherAlgorithm",
               join({{0x30, 0x1A}, {0x30, 0x0D, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86, 0xF7, 0x0D, 0x01, 0x01, 0x0B, 0x05, 0x00},
                     {0x03, 0x09, 0x00}, kKey}),
               std::nullopt},
      {"NotABitString", join({{0x30, 0x1A}, kAlgorithm, {0x04, 0x09, 0x00}, kKey}), std::nullopt},
      {"UnusedBitsNotZero", join({{0x30, 0x1A}, kAlgorithm, {0x03, 0x09, 0x01}, kKey}), std::nullopt},
      {"EndsInTheAlgorithm", join({{0x30, 0x1A}, Bytes(kAlgorithm.begin(), kAlgorithm.begin() + 14)}),
               std::nullopt},
      {"EndsInALongLength", Bytes{0x30, 0x84, 0x01}, std::nullopt},
      {"EndsBeforeTheUnusedBitsByte", join({{0x30, 0x1A}, kAlgorithm, {0x03, 0x09}}), std::nullopt}};
  for (const Row& row : rows) EXPECT_EQ(AIRSASigner::stripPublicKeyHeader(row.input), row.expected) << row.name;
}

TEST(RemoveFormattingFromKeyTest, KeepsTheEndMarkerOfAKeyText) {
  struct Row {
    const char* input;
    const char* expected;
  };
  const Row rows[] = {
      {"-----BEGIN PUBLIC KEY-----\nAAAA\nBBBB\n-----END PUBLIC KEY-----", "AAAABBBB-----END PUBLIC KEY-----"},
      {"-----BEGIN PUBLIC KEY-----\n-----END PUBLIC KEY-----\n", ""},
      // Without the newline the begin marker is not the one removed; the end marker stays.
      {"-----BEGIN PUBLIC KEY-----AAAA", "-----BEGIN PUBLIC KEY-----AAAA"},
      {" -----BEGIN PUBLIC KEY-----\nAAAA", " -----BEGIN PUBLIC KEY-----AAAA"},
      {"AAAA\r\nBBBB", "AAAA\rBBBB"},
      {"-----END PUBLIC KEY-----AAAA", "AAAA"},
      {"-----END", "-----END"},
      {"", ""},
  };
  for (const Row& row : rows) EXPECT_EQ(AIRSASigner::removeFormattingFromKey(row.input), row.expected) << row.input;
}

TEST(Base64Test, StrictAndLenientDecoding) {
  EXPECT_EQ(base64::decode("TWFu"), (Bytes{'M', 'a', 'n'}));
  EXPECT_EQ(base64::decode("TWE="), (Bytes{'M', 'a'}));
  EXPECT_EQ(base64::decode("TQ=="), (Bytes{'M'}));
  EXPECT_EQ(base64::decode(""), Bytes{});
  for (const char* bad : {"TWE", "TQ=", "T===", "TW=u", "TWFu\n", "TW-u", "====", "TQ==TWFu"}) {
    EXPECT_FALSE(base64::decode(bad)) << bad;
  }
  EXPECT_EQ(base64::encode(Bytes{'M'}), "TQ==");
  EXPECT_EQ(base64::decodeIgnoringUnknownCharacters("T W-F\nu"), (Bytes{'M', 'a', 'n'}));
  // An inner "=" is skipped: the bytes before it come out unchanged, the rest runs on.
  EXPECT_EQ(base64::decodeIgnoringUnknownCharacters("TQ==TWFu").front(), 'M');
  EXPECT_EQ(base64::decodeIgnoringUnknownCharacters("TWFuT"), (Bytes{'M', 'a', 'n'}));
}

TEST(AIRSASignerTest, AKeyTextBecomesTheBareKeyWithTheEndMarkersBytesBehindIt) {
  const std::string& pem = test::issuerKeys().publicPem;
  const auto data = AIRSASigner::convertKeyToData(pem);
  ASSERT_TRUE(data);
  unsigned char* der = nullptr;
  const int length = i2d_PublicKey(test::issuerKeys().key.get(), &der);
  ASSERT_GT(length, 0);
  const Bytes bare(der, der + length);
  OPENSSL_free(der);
  // "ENDPUBLICKEY": 12 alphabet characters, 9 bytes.
  ASSERT_EQ(data->size(), bare.size() + 9);
  EXPECT_TRUE(std::equal(bare.begin(), bare.end(), data->begin()));
}

TEST(AIRSASignerTest, VerifiesPkcs1Sha256Signatures) {
  const AIRSASigner signer(platform::makeOpenSslCrypto());
  const std::string& pem = test::issuerKeys().publicPem;
  const std::string signature = test::sign(test::issuerKeys(), "head.payload");
  EXPECT_TRUE(signer.verifyMessage("head.payload", signature, pem));
  EXPECT_FALSE(signer.verifyMessage("head.payloaD", signature, pem));
  EXPECT_FALSE(signer.verifyMessage("head.payload", signature, test::otherKeys().publicPem));
  EXPECT_FALSE(signer.verifyMessage("head.payload", signature, std::nullopt));
  EXPECT_FALSE(signer.verifyMessage("head.payload", signature, "not a key"));
  EXPECT_FALSE(signer.verifyMessage("head.payload", signature.substr(1), pem));
  EXPECT_FALSE(AIRSASigner(nullptr).verifyMessage("head.payload", signature, pem));
  // A platform without RSA verification accepts nothing.
  class NoRsa final : public platform::Crypto {
   public:
    std::optional<Sha256Digest> sha256(std::span<const std::uint8_t>) const override { return Sha256Digest{}; }
  };
  EXPECT_FALSE(AIRSASigner(std::make_shared<NoRsa>()).verifyMessage("head.payload", signature, pem));
}

}  // namespace
}  // namespace applogic::signin
