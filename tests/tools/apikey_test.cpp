#include <memory>
#include <tuple>

#include "signin/api_key_minting.h"
#include "tunevo_process.h"

namespace tunevo::test {
namespace {

using applogic::signin::test::bioText;
using applogic::signin::test::issuerKeys;
using applogic::signin::test::otherKeys;

class ApiKeyCommandTest : public ::testing::Test {
 protected:
  void SetUp() override {
    std::ofstream(privatePath()) << issuerKeys().privatePem;
    std::ofstream(publicPath()) << issuerKeys().publicPem;
    std::ofstream(otherPublicPath()) << otherKeys().publicPem;
    const std::unique_ptr<EVP_PKEY, decltype(&EVP_PKEY_free)> ec(EVP_EC_gen("P-256"), &EVP_PKEY_free);
    const std::unique_ptr<BIO, decltype(&BIO_free)> pem(BIO_new(BIO_s_mem()), &BIO_free);
    ASSERT_EQ(PEM_write_bio_PUBKEY(pem.get(), ec.get()), 1);
    std::ofstream(ecPublicPath()) << bioText(pem.get());
  }
  std::string privatePath() const { return (dir_ / "issuer.key").string(); }
  std::string publicPath() const { return (dir_ / "issuer.pub").string(); }
  std::string otherPublicPath() const { return (dir_ / "other.pub").string(); }
  std::string ecPublicPath() const { return (dir_ / "ec.pub").string(); }

  // The minted key; what the command wrote on standard error goes to `err`.
  std::string mint(const std::string& extra, std::string* err = nullptr) {
    const Outcome minted = runTunevo("apikey mint --private-key '" + privatePath() +
                                     "' --bundle-id com.tunevo.app --client-id amzn1.client " + extra);
    EXPECT_EQ(minted.status, 0) << minted.err;
    if (err) *err = minted.err;
    return minted.out.substr(0, minted.out.find('\n'));
  }
  Outcome inspect(const std::string& key, const std::string& publicKey, const std::string& bundle = "com.tunevo.app") {
    return runTunevo("apikey inspect '" + key + "' --public-key '" + publicKey + "' --bundle-id " + bundle);
  }

  // Every test process generates its own key pairs: a directory shared between them would mix their keys.
  const ScratchDirectory dir_{"apikey_keys."};
};

// Minted keys inspect as valid; an address the sign-in client would ignore (not https) is minted
// with a warning.
TEST_F(ApiKeyCommandTest, MintedKeysInspectAsValid) {
  std::string warning;
  const Outcome v3 = inspect(mint("--app-id amzn1.family --app-variant-id v --scopes profile,music "
                                  "--authz https://auth.example/ap/oa --token-exchange http://token.example",
                                  &warning),
                             publicPath());
  EXPECT_EQ(warning, "tunevo apikey: warning: --token-exchange 'http://token.example' does not begin with https: the "
                     "sign-in client ignores it and uses the production address\n");
  EXPECT_EQ(v3.status, 0) << v3.err;
  EXPECT_NE(v3.out.find(R"(payload: {"ver":"3","appFamilyId":"amzn1.family","bundleSeedId":"com.tunevo.app")"),
            std::string::npos) << v3.out;
  EXPECT_NE(v3.out.find(R"(app info: {"appId":"amzn1.family","packageName":"com.tunevo.app",)"
                        R"("scopes":["profile","music"],"permissions":[],"clientId":"amzn1.client",)"
                        R"("appParentId":"amzn1.family","appVariantId":"v","authz":"https://auth.example/ap/oa",)"
                        R"("tokenExchange":"https://api.amazon.com/auth/o2/token"})"),
            std::string::npos)
      << v3.out;

  const Outcome v2 = inspect(mint("--ver 2 --app-id amzn1.app"), publicPath());
  EXPECT_EQ(v2.status, 0) << v2.err;
  EXPECT_NE(v2.out.find(R"("appId":"amzn1.app")"), std::string::npos) << v2.out;
}

TEST_F(ApiKeyCommandTest, InvalidKeysSayWhy) {
  const std::string key = mint("");
  std::string tampered = key;
  tampered[tampered.find('.') + 5] ^= 1;
  const std::tuple<std::string, std::string, std::string, std::string> rows[] = {
      {tampered, publicPath(), "com.tunevo.app", "bad signature"},
      {key, otherPublicPath(), "com.tunevo.app", "bad signature"},
      {key, publicPath(), "com.other.app", "other package"},
      {"only.two", publicPath(), "com.tunevo.app", "too few parts"},
  };
  for (const auto& [checked, publicKey, bundle, reason] : rows) {
    const Outcome run = inspect(checked, publicKey, bundle);
    EXPECT_EQ(run.status, 65) << reason;
    EXPECT_EQ(run.err, "tunevo apikey: not valid: " + reason + "\n");
  }
  // A public key of another kind is named as such, not taken for a bad signature.
  const Outcome ec = inspect(key, ecPublicPath());
  EXPECT_EQ(ec.status, 65);
  EXPECT_EQ(ec.err, "tunevo apikey: the public key is EC, not RSA: API keys are signed with RSA keys\n");
}

TEST_F(ApiKeyCommandTest, UsageAndInputErrors) {
  const std::string mint = "apikey mint --bundle-id b --client-id c --private-key ";
  const std::pair<std::string, int> rows[] = {
      {"apikey", 64}, {"apikey mint --bundle-id b --client-id c", 64}, {mint + privatePath() + " --ver 4", 64},
      {mint + privatePath() + " --ver 2 --authz https://a", 64}, {"apikey inspect --public-key x --bundle-id b", 64},
      {"apikey inspect k --bundle-id b --public-key", 64}, {mint + "/nonexistent/key.pem", 66},
      {mint + publicPath(), 65}, {mint + "'" + dir_.path().string() + "'", 66}};
  for (const auto& [arguments, status] : rows) EXPECT_EQ(runTunevo(arguments).status, status) << arguments;
}

}  // namespace
}  // namespace tunevo::test
