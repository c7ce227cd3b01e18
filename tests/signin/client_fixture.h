#pragma once

// A sign-in client over the doubles: a fixed device, a bundle with a verified API key whose
// sign-in page and token endpoint are `authz` and `tokenExchange`, an in-memory store, a manual
// clock, seeded randomness with the real crypto, a scripted presenter (the browser only), and a
// scripted HTTP client on a manual main thread. The process-wide coordinator is made anew.

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "applogic/platform/openssl_crypto.h"
#include "applogic/signin/client/ai_app_identifier.h"
#include "applogic/signin/client/ai_call_context.h"
#include "applogic/signin/client/api_result.h"
#include "applogic/signin/client/ai_client_services.h"
#include "applogic/signin/client/ai_spop.h"
#include "applogic/signin/client/ai_mobile_lib.h"
#include "applogic/signin/client/ai_token_manager.h"
#include "applogic/signin/client/ai_utils.h"
#include "applogic/testing/bundle_values.h"
#include "applogic/testing/fixed_device_info.h"
#include "applogic/testing/in_memory_secure_store.h"
#include "applogic/testing/manual_clock.h"
#include "applogic/testing/manual_main_thread.h"
#include "applogic/testing/scripted_sign_in_presenter.h"
#include "applogic/testing/scripted_http_client.h"
#include "applogic/testing/seeded_random.h"
#include "signin/api_key_minting.h"

namespace applogic::signin::test {

inline constexpr const char* kPackage = "com.tunevo.app";
inline constexpr const char* kClientId = "amzn1.application-oa2-client.tunevo";
inline constexpr const char* kRedirect = "amzn-com.tunevo.app://?methodName=signin";
// Base64 of {"bundleID":"com.tunevo.app"}, its "=" escaped.
inline constexpr const char* kAppId = "eyJidW5kbGVJRCI6ImNvbS50dW5ldm8uYXBwIn0%3D";
inline constexpr const char* kTokenUrl = "https://api.test/auth/o2/token";
inline constexpr const char* kProfileUrl = "https://api.test/user/profile";

inline std::string apiKeyFor(const std::string& authz, const std::string& tokenExchange,
                             const std::string& clientId = kClientId) {
  return mint(R"({"ver":"3","appFamilyId":"amzn1.family","bundleSeedId":"com.tunevo.app","scopes":["profile"],)"
              R"("perm":[],"clientId":")" +
              clientId + R"(","appVariantId":"v","endpoints":{"authz":")" + authz + R"(","tokenExchange":")" +
              tokenExchange + R"("}})");
}

// Stores `token` under its own kind; a storage error fails the current test.
inline void storeToken(const AITokenManager& tokens, const AIToken& token) {
  AIError error;
  tokens.saveTokenToStorage(token, token.getKey(), error);
  ASSERT_FALSE(error.hasErrorOccured()) << "storing a token of kind " << token.getKey();
}

// The stored token of kind `type`; null when none is stored.
inline std::unique_ptr<AIToken> storedToken(const AITokenManager& tokens, std::int32_t type) {
  AIError error;
  return tokens.getTokenFromStorage(type, error);
}

// Records every answer, also into an order shared by several delegates (to see who came first).
class RecordingDelegate : public AIAuthenticationDelegate {
 public:
  explicit RecordingDelegate(std::string name = "d", std::shared_ptr<std::vector<std::string>> order = nullptr)
      : name_(std::move(name)), order_(order ? std::move(order) : std::make_shared<std::vector<std::string>>()) {}
  void requestDidSucceed(const APIResult& result) override {
    successes.push_back(result);
    order_->push_back(name_);
    if (onAnswer) onAnswer();
  }
  void requestDidFail(const APIError& error) override {
    failures.push_back(error);
    order_->push_back(name_);
    if (onAnswer) onAnswer();
  }
  std::size_t answers() const { return successes.size() + failures.size(); }

  std::vector<APIResult> successes;
  std::vector<APIError> failures;
  std::function<void()> onAnswer;

 private:
  std::string name_;
  std::shared_ptr<std::vector<std::string>> order_;
};

// A token endpoint's answer with both tokens.
inline std::string tokenAnswer(const std::string& access, const std::string& refresh,
                               const std::string& scope = "profile") {
  return R"({"access_token":")" + access + R"(","refresh_token":")" + refresh +
         R"(","token_type":"bearer","expires_in":3600,"scope":")" + scope + R"("})";
}

class ClientFixture {
 public:
  explicit ClientFixture(std::string authz = "https://signin.test/ap/oa",
                         std::string tokenExchange = "https://api.test/auth/o2/token")
      : authz_(std::move(authz)), tokenExchange_(std::move(tokenExchange)) {
    AIAppIdentifier::resetSharedInstance();
    AISPOP::resetSharedInstance();
    AIAuthPortalProxy::resetSharedInstance();
    bundle->set("APIKey", apiKeyFor(authz_, tokenExchange_));
    platform.clock = clock;
    platform.crypto = platform::makeOpenSslCrypto();
    platform.secureRandom = random;
    platform.bundleInfo = bundle;
    platform.deviceInfo = device;
    platform.secureStore = store;
    platform.mainThread = mainThread;
    platform.httpClient = http;
    platform.signInPresenter = presenter;
    configuration.apiKeyPublicKey = issuerKeys().publicPem;
    configuration.profileEndpointUrl = "https://api.test/user/profile";
    configuration.sandboxProfileEndpointUrl = "https://api.sandbox.test/user/profile";
  }
  ~ClientFixture() {
    AIAppIdentifier::resetSharedInstance();
    AISPOP::resetSharedInstance();
    AIAuthPortalProxy::resetSharedInstance();
  }

  AIMobileLib lib() const { return AIMobileLib(platform, configuration); }
  AITokenManager tokens() const { return lib().proxy()->services()->tokenManager(); }
  void save(const AIToken& token) const { storeToken(tokens(), token); }
  std::unique_ptr<AIToken> stored(std::int32_t type) const { return storedToken(tokens(), type); }
  void pump() const { mainThread->runPending(); }
  // The query of the sign-in page shown last.
  std::map<std::string, std::string> shown() const {
    return presenter->opened().empty() ? std::map<std::string, std::string>{}
                                       : AIUtils::getKeyValueDictionaryParseString(presenter->opened().back().url);
  }
  static std::string redirect(const std::string& query) { return std::string(kRedirect) + "&" + query; }

  std::shared_ptr<const AIClientServices> services() const {
    return std::make_shared<AIClientServices>(platform, configuration);
  }

  static std::shared_ptr<AICallContext> context(AICallMethod method, std::vector<std::string> scopes = {"profile"},
                                                JsonObject options = {},
                                                std::shared_ptr<AIAuthenticationDelegate> delegate = nullptr,
                                                std::string uid = "3F2504E0-4F89-41D3-9A0C-0305E82C3301") {
    return std::make_shared<AICallContext>(method, std::move(delegate), JsonObject{}, std::move(options), nullptr,
                                           std::move(scopes), std::move(uid));
  }

  std::string authz_;
  std::string tokenExchange_;
  std::shared_ptr<testing::ManualClock> clock = std::make_shared<testing::ManualClock>();
  std::shared_ptr<testing::SeededRandom> random = std::make_shared<testing::SeededRandom>();
  std::shared_ptr<testing::BundleValues> bundle = std::make_shared<testing::BundleValues>(kPackage);
  std::shared_ptr<testing::FixedDeviceInfo> device =
      std::make_shared<testing::FixedDeviceInfo>("ThinkPad X1", "Linux", "6.1.0-18-amd64");
  std::shared_ptr<testing::InMemorySecureStore> store = std::make_shared<testing::InMemorySecureStore>();
  std::shared_ptr<testing::ManualMainThread> mainThread = std::make_shared<testing::ManualMainThread>();
  std::shared_ptr<testing::ScriptedHttpClient> http = std::make_shared<testing::ScriptedHttpClient>(mainThread);
  std::shared_ptr<testing::ScriptedSignInPresenter> presenter = std::make_shared<testing::ScriptedSignInPresenter>();
  platform::Platform platform;
  ClientConfiguration configuration;
};

}  // namespace applogic::signin::test
