// The API-key reader: any text, taken as a key, as a payload and as public-key text, is split,
// decoded, stripped and read without crashing, and whatever it yields keeps the reader's promises.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <string_view>

#include "applogic/platform/openssl_crypto.h"
#include "applogic/signin/client/ai_api_key_helper.h"
#include "applogic/signin/client/ai_rsa_signer.h"
#include "applogic/signin/client/base64.h"

namespace {

using namespace applogic::signin;

constexpr std::string_view kPackage = "com.tunevo.app";

const AIAPIKeyHelper& helper() {
  static const AIAPIKeyHelper instance(applogic::platform::makeOpenSslCrypto(), nullptr, [] {
    // A key whose private half was thrown away: nothing the fuzzer makes can be signed by it.
    ClientConfiguration configuration;
    configuration.apiKeyPublicKey =
        "-----BEGIN PUBLIC KEY-----\n"
        "MIIBIjANBgkqhkiG9w0BAQEFAAOCAQ8AMIIBCgKCAQEAkTIywQamauVZbq09cJ4R\n"
        "KaHZ4NzDgDk3sajR459arOUsHqoUxSJq2PrjDVY9Irj0KJAbZoK0KBZtSYWna8yk\n"
        "bH1Aq3AZo1gcp+QGo2NovwcOscuoxIg5/7BmFBYyjnRO+dyDajyPs3blx8DrrSEV\n"
        "s3sXr9mdxIp91fVlKiwO6J+nbYGKnKBsG+cy6Q/1RNfT3Y2+1451p+ZPpotyp+Oy\n"
        "YxBMljppPxnf/1yDY+7mOiKLYCxRQI3HdHgUNLrcE98EiEZdnBs3hC0irw6t1uR4\n"
        "+LiAeX9Hz0FWeM+P9rAiz0UqMx3ZWl1E+z0utLmAf/K/4FSHaKgGa2XqM0RLn/4a\n"
        "dwIDAQAB\n"
        "-----END PUBLIC KEY-----";
    return configuration;
  }());
  return instance;
}

void check(bool condition) {
  if (!condition) std::abort();
}

void checkAppInfo(const AIAPIKeyCheck& result) {
  check(result.appInfo.has_value() == (result.problem == AIAPIKeyProblem::none));
  if (!result.appInfo) return;
  check(result.appInfo->packageName() == kPackage);
  check(result.appInfo->authz().starts_with("https"));
  check(result.appInfo->tokenExchange().starts_with("https"));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);

  // As a whole key: nothing here is signed by the key above, so a key that splits into three
  // parts fails at the signature.
  const AIAPIKeyCheck asKey = helper().checkAPIKey(text, kPackage);
  check(asKey.problem == AIAPIKeyProblem::tooFewParts || asKey.problem == AIAPIKeyProblem::badSignature);

  // As a payload part, and as the JSON inside one.
  checkAppInfo(helper().checkPayload(text, kPackage));
  const std::string encoded = base64::encode(std::span(data, size));
  const AIAPIKeyCheck asJson = helper().checkPayload(encoded, kPackage);
  check(asJson.problem != AIAPIKeyProblem::badBase64);
  checkAppInfo(asJson);

  // Strict Base64 reads back what it wrote and refuses what it cannot write back.
  const auto decoded = base64::decode(encoded);
  check(decoded && decoded->size() == size && std::equal(decoded->begin(), decoded->end(), data));
  if (const auto strict = base64::decode(text)) check(base64::encode(*strict).size() == size);

  // As public-key text, and as DER.
  const std::string formatted = AIRSASigner::removeFormattingFromKey(text);
  check(formatted.find('\n') == std::string::npos && formatted.size() <= size);
  (void)AIRSASigner::convertKeyToData(text);
  if (const auto stripped = AIRSASigner::stripPublicKeyHeader(std::span(data, size))) {
    check(stripped->size() < size && std::equal(stripped->begin(), stripped->end(), data + (size - stripped->size())));
  }
  return 0;
}
