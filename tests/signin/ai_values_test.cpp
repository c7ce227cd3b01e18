// The client's value rules: server error words, URL queries and app values (with the manifest
// port that feeds them), the PKCE proof key, and the public key text and bytes.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <optional>
#include <regex>
#include <string>
#include <vector>

#include "applogic/platform/app_manifest_bundle_info.h"
#include "applogic/signin/client/ai_error.h"
#include "applogic/signin/client/ai_rsa_signer.h"
#include "applogic/signin/client/base64.h"
#include "applogic/testing/fixed_locale.h"
#include "signin/client_fixture.h"

namespace applogic::signin {
namespace {

// The server's error word, compared after lower-casing, picks the code; the server's description
// never replaces the fixed text of invalid_request; anything else is a server error that keeps
// the description (absent gives empty).
TEST(SetErrorForErrorString, SetsCodeAndMessage) {
  struct Row {
    const char* errorString;
    std::optional<const char*> description;
    std::int64_t code;
    const char* message;
  };
  const Row rows[] = {
      {"invalid_request", "bad param x", 6, "One or more input parameters are wrong."},
      {"INVALID_REQUEST", std::nullopt, 6, "One or more input parameters are wrong."},
      {"invalid_client", "d", 6, "d"}, {"INVALID_GRANT", "revoked", 1, "revoked"},
      {"unauthorized_client", "d", 8, "d"}, {"unsupported_grant_type", "d", 9, "d"},
      {"invalid_scope", "d", 6, "d"}, {"Access_Denied", "no", 4, "no"},
      {"unsupported_response_type", "d", 9, "d"}, {"server_error", "d", 2, "d"},
      {"servererror", "d", 2, "d"}, {"temporarily_unavailable", "d", 2, "d"},
      {"insufficient_scope", "d", 1, "d"}, {"version_denied", "d", 10, "d"},
      {"slow_down", "wait", 2, "wait"}, {"", "empty", 2, "empty"},
      {"invalid_grant ", "trailing blank", 2, "trailing blank"}, {"invalid_gran", "short", 2, "short"},
      {"access_denied", std::nullopt, 4, ""}, {"nope", std::nullopt, 2, ""}};
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string("\"") + row.errorString + "\"");
    AIError error;
    error.setErrorForErrorString(row.errorString, row.description ? std::optional<std::string_view>(*row.description)
                                                                  : std::nullopt);
    EXPECT_EQ(error, AIError(row.code, row.message));
  }
}

TEST(AIUtilsTest, AppValuesComeFromTheBundleAndTheVerifiedAPIKey) {
  test::ClientFixture f;
  f.platform.locale = std::make_shared<testing::FixedLocale>("de");
  const auto utils = [&] { return AIUtils(f.platform, f.configuration); };
  EXPECT_EQ(utils().getClientId(), test::kClientId);
  EXPECT_EQ(utils().getAuthzHost(), "https://signin.test/ap/oa");
  EXPECT_EQ(utils().getRedirectToUrl(), test::kRedirect);
  EXPECT_EQ(utils().getCurrentLocale(), "de");
  EXPECT_FALSE(utils().getAppUrlScheme());
  f.bundle->setURLSchemes({"amzn-com.tunevo.app", "tunevo"});
  EXPECT_EQ(utils().getAppUrlScheme(), "amzn-com.tunevo.app://");

  // Version 4 UUIDs in capitals, each new; none without randomness.
  const std::regex uuid("[0-9A-F]{8}-[0-9A-F]{4}-4[0-9A-F]{3}-[89AB][0-9A-F]{3}-[0-9A-F]{12}");
  const auto first = utils().getUUID();
  ASSERT_TRUE(first);
  EXPECT_TRUE(std::regex_match(*first, uuid)) << *first;
  EXPECT_NE(utils().getUUID(), first);
  f.random->setFailing(true);
  EXPECT_FALSE(utils().getUUID());

  // The app id: {"bundleID":"..."} in Base64, with "+", "/" and "=" escaped.
  const std::pair<const char*, const char*> rows[] = {
      {"com.tunevo.app", "eyJidW5kbGVJRCI6ImNvbS50dW5ldm8uYXBwIn0%3D"},
      {"x?", "eyJidW5kbGVJRCI6Ing%2FIn0%3D"},
      {"a>b?", "eyJidW5kbGVJRCI6ImE%2BYj8ifQ%3D%3D"},
      {"app.tunevo.desktop", "eyJidW5kbGVJRCI6ImFwcC50dW5ldm8uZGVza3RvcCJ9"}};
  for (const auto& [bundleIdentifier, appId] : rows) {
    f.bundle->set(platform::kCFBundleIdentifierKey, bundleIdentifier);
    EXPECT_EQ(utils().getAppId(), appId) << bundleIdentifier;
  }
  EXPECT_EQ(base64::decode(""), std::vector<std::uint8_t>{}) << "nothing reads back as nothing";
  f.bundle->set(platform::kCFBundleIdentifierKey, std::nullopt);
  EXPECT_FALSE(utils().getAppId());
  EXPECT_FALSE(utils().getRedirectToUrl());
}

TEST(AIUtilsParseTest, QueryParametersOfAURL) {
  using Map = std::map<std::string, std::string>;
  const std::pair<const char*, Map> rows[] = {
      {"amzn-com.tunevo.app://?methodName=signin&code=ANdN&state=E621E1F8",
       {{"methodName", "signin"}, {"code", "ANdN"}, {"state", "E621E1F8"}}},
      {"x://h/p?error=access_denied&error_description=User%20said+no%21%0A#frag=1",
       {{"error", "access_denied"}, {"error_description", "User said+no!\n"}}},
      {"x://?a=1&&a=2&flag&=v&b=%zz%4", {{"a", "2"}, {"flag", ""}, {"", "v"}, {"b", "%zz%4"}}},
      {"x://?k=a=b&hex=%2a%2F%3f%3A%30%39%2G", {{"k", "a=b"}, {"hex", "*/?:09%2G"}}},  // the ends of each hex range
      {"x://no-query", {}},
  };
  for (const auto& [url, expected] : rows) EXPECT_EQ(AIUtils::getKeyValueDictionaryParseString(url), expected) << url;
}

// The manifest port feeds the bundle values the client reads.
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

// The random octets of RFC 7636, appendix B.
class RfcOctets final : public platform::SecureRandom {
 public:
  bool fill(std::span<std::uint8_t> bytes) const override {
    constexpr std::array<std::uint8_t, 32> kOctets{116, 24, 223, 180, 151, 153, 224, 37,  79, 250, 96,
                                                   125, 216, 173, 187, 186, 22, 212, 37, 77, 105, 214,
                                                   191, 240, 91, 88, 5, 88, 83, 132, 141, 121};
    std::fill(bytes.begin(), bytes.end(), 0);
    std::copy_n(kOctets.begin(), std::min(bytes.size(), kOctets.size()), bytes.begin());
    return true;
  }
};

// A text option reads as the platform reads a boolean: blanks, a sign and zeros, then "Y", "y",
// "T", "t" or 1-9; a JSON boolean is itself, anything else false.
TEST(AICallContextTest, OptionTextReadsAsTrueByItsFirstSignificantCharacter) {
  const std::pair<Json, bool> rows[] = {
      {"YES", true}, {"yes", true}, {"True", true}, {"t", true}, {"1", true}, {"9", true}, {" \t\n\r+0001x", true},
      {"-7", true}, {"NO", false}, {"0", false}, {"000", false}, {"", false}, {"+", false}, {" ", false},
      {"x1", false}, {"+-1", false}, {":", false}, {"/", false}, {true, true}, {false, false}, {1, false}, {nullptr, false}};
  for (const auto& [value, expected] : rows) {
    EXPECT_EQ(test::ClientFixture::context(AICallMethod::authorizeUser, {}, JsonObject{{"sandbox_mode", value}})->isSandbox(),
              expected) << value;
  }
}

TEST(AISPOPTest, RfcAppendixBVectorHolds) {
  const AISPOP pop(std::make_shared<RfcOctets>(), platform::makeOpenSslCrypto());
  EXPECT_EQ(pop.spopKey(), "dBjftJeZ4CVP-mB92K27uhbUJU1p1r_wW1gFWFOEjXk");
  EXPECT_EQ(pop.spopChallenge(), "E9Melhoa2OwvFrEMTJguCHaoeK1t8URWbuGJSstw-cM");
  EXPECT_EQ(pop.spopMethod(), "S256");
  // Text that is not ASCII has no hash; DEL is ASCII.
  EXPECT_FALSE(pop.getSHA256HashStringFrom("caf\xc3\xa9"));
  EXPECT_TRUE(pop.getSHA256HashStringFrom("\x7f"));
}

TEST(AISPOPTest, AFailingRandomSourceLeavesNoVerifierAndTheSharedOneIsReplaced) {
  test::ClientFixture f;
  const auto& [random, crypto] = std::pair(f.random, f.platform.crypto);
  random->setFailing(true);
  const auto broken = AISPOP::spop(random, crypto);
  EXPECT_FALSE(broken->spopKey());
  EXPECT_FALSE(broken->spopChallenge());
  random->setFailing(false);
  const auto next = AISPOP::spop(random, crypto);
  EXPECT_NE(next, broken);
  EXPECT_EQ(next->spopKey()->size(), 43u);
  EXPECT_EQ(AISPOP::spop(random, crypto), next);
}

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
      {"NothingAfterTheUnusedBitsByte", join({{0x30, 0x11}, kAlgorithm, {0x03, 0x01, 0x00}}), Bytes{}},
      {"Empty", {}, std::nullopt},
      {"NotASequence", join({{0x31, 0x1A}, kAlgorithm, {0x03, 0x09, 0x00}, kKey}), std::nullopt},
      {"NotABitString", join({{0x30, 0x1A}, kAlgorithm, {0x04, 0x09, 0x00}, kKey}), std::nullopt},
      {"UnusedBitsNotZero", join({{0x30, 0x1A}, kAlgorithm, {0x03, 0x09, 0x01}, kKey}), std::nullopt},
      {"EndsAfterTheAlgorithm", join({{0x30, 0x0F}, kAlgorithm}), std::nullopt},
      {"EndsInTheAlgorithm", join({{0x30, 0x1A}, Bytes(kAlgorithm.begin(), kAlgorithm.begin() + 14)}),
               std::nullopt},
      {"EndsInALongLength", Bytes{0x30, 0x84, 0x01}, std::nullopt},
      {"EndsBeforeTheUnusedBitsByte", join({{0x30, 0x1A}, kAlgorithm, {0x03, 0x09}}), std::nullopt}};
  for (const Row& row : rows) EXPECT_EQ(AIRSASigner::stripPublicKeyHeader(row.input), row.expected) << row.name;
}

TEST(AIRSASignerTest, VerifiesOnlyWithCryptoAndTheIssuersKey) {
  const std::string signature = test::sign(test::issuerKeys(), "head.payload");
  EXPECT_TRUE(AIRSASigner(platform::makeOpenSslCrypto()).verifyMessage("head.payload", signature, test::issuerKeys().publicPem));
  EXPECT_FALSE(AIRSASigner(nullptr).verifyMessage("head.payload", signature, test::issuerKeys().publicPem));
}

TEST(RemoveFormattingFromKeyTest, KeepsTheEndMarkerOfAKeyText) {
  const std::pair<const char*, const char*> rows[] = {
      {"-----BEGIN PUBLIC KEY-----\nAAAA\nBBBB\n-----END PUBLIC KEY-----", "AAAABBBB-----END PUBLIC KEY-----"},
      {"-----BEGIN PUBLIC KEY-----\n-----END PUBLIC KEY-----\n", ""},
      // Without the newline the begin marker is not the one removed; the end marker stays.
      {"-----BEGIN PUBLIC KEY-----AAAA", "-----BEGIN PUBLIC KEY-----AAAA"},
      {" -----BEGIN PUBLIC KEY-----\nAAAA", " -----BEGIN PUBLIC KEY-----AAAA"},
      {"AAAA\r\nBBBB", "AAAA\rBBBB"},
      {"-----END PUBLIC KEY-----AAAA", "AAAA"},
  };
  for (const auto& [input, expected] : rows) EXPECT_EQ(AIRSASigner::removeFormattingFromKey(input), expected) << input;
}

}  // namespace
}  // namespace applogic::signin
