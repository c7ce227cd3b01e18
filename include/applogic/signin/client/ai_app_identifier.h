#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"
#include "applogic/signin/client/ai_api_key_helper.h"
#include "applogic/signin/client/ai_app_info.h"

namespace applogic::signin {

/// The process's register of verified API keys: per package, the key text that was verified for
/// it (`nameToAPIKeyMap`) and the app information it gave (`nameToAppInfoMap`). Because a
/// verified key is remembered by its exact text, its signature is verified once per process and
/// key.
///
/// There is one per process (`appIdentifier()`, made on first use); tests may also make their
/// own. Verification services are passed to the calls that need them.
///
/// Thread contract: any thread; the maps are guarded by the object's own lock. Two threads that
/// check the same new key at the same time may both verify it.
class APPLOGIC_EXPORT AIAppIdentifier {
 public:
  AIAppIdentifier() = default;
  AIAppIdentifier(const AIAppIdentifier&) = delete;
  AIAppIdentifier& operator=(const AIAppIdentifier&) = delete;

  /// The process's instance, made on first use. Thread-safe.
  static std::shared_ptr<AIAppIdentifier> appIdentifier();
  /// Forgets the process's instance (and so every verified key), so that the next
  /// `appIdentifier()` makes a new, empty one: for tests that must start from a clean process.
  /// Holders of the old instance keep it. Thread-safe.
  static void resetSharedInstance();

  /// False when `key` or `package` is absent. True at once when this very key text was verified
  /// for `package` before under the same public key (`helper.getAPIKeyPublicKey()`): a key
  /// verified under one issuer's key is never taken under another's. Otherwise verifies it with
  /// `helper.verifyAPIKey`; on success records the key and its app information under `package`
  /// and answers true.
  bool isAPIKey(std::optional<std::string_view> key, std::optional<std::string_view> package,
                const AIAPIKeyHelper& helper);
  /// Logs "APIKey name for the App is: <key> and the package name is: <package>" ("(null)" for
  /// an absent value), then checks the bundle's "IBAAppAPIKey" for the bundle identifier.
  bool isAPIKeyValid(const AIAPIKeyHelper& helper);

  /// The recorded values for `package`; absent for an absent package or one without a verified
  /// key.
  std::optional<AIAppInfo> getAppInfoForPackage(std::optional<std::string_view> package) const;
  std::optional<std::string> getAppIdForPackage(std::optional<std::string_view> package) const;
  std::optional<std::vector<std::string>> getAllowedScopesForPackage(std::optional<std::string_view> package) const;
  std::optional<std::vector<std::string>> getAppPermissionsForPackage(std::optional<std::string_view> package) const;
  std::optional<std::string> getAPIKeyForPackage(std::optional<std::string_view> package) const;
  /// The app's parent id (version 3 keys: their "appFamilyId").
  std::optional<std::string> getAppFamilyIdForPackage(std::optional<std::string_view> package) const;
  std::optional<std::string> getAppVariantIdForPackage(std::optional<std::string_view> package) const;

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::string, std::less<>> nameToAPIKeyMap_;
  std::map<std::string, AIAppInfo, std::less<>> nameToAppInfoMap_;
  // The public key each recorded key was verified under, by package.
  std::map<std::string, std::string, std::less<>> nameToVerifyingKeyMap_;
};

}  // namespace applogic::signin
