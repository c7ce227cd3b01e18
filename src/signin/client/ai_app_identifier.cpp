#include "applogic/signin/client/ai_app_identifier.h"

#include "applogic/support/log.h"

namespace applogic::signin {
namespace {

struct SharedSlot {
  std::mutex mutex;
  std::shared_ptr<AIAppIdentifier> instance;
};

SharedSlot& sharedSlot() {
  static SharedSlot slot;
  return slot;
}

// How the platform's string formatting writes an absent object.
std::string orNull(const std::optional<std::string>& value) { return value ? *value : "(null)"; }

}  // namespace

std::shared_ptr<AIAppIdentifier> AIAppIdentifier::appIdentifier() {
  auto& slot = sharedSlot();
  std::lock_guard lock(slot.mutex);
  if (!slot.instance) slot.instance = std::make_shared<AIAppIdentifier>();
  return slot.instance;
}

void AIAppIdentifier::resetSharedInstance() {
  auto& slot = sharedSlot();
  std::lock_guard lock(slot.mutex);
  slot.instance.reset();
}

bool AIAppIdentifier::isAPIKey(std::optional<std::string_view> key, std::optional<std::string_view> package,
                               const AIAPIKeyHelper& helper) {
  if (!key || !package) return false;
  {
    std::lock_guard lock(mutex_);
    const auto known = nameToAPIKeyMap_.find(*package);
    const auto verifiedUnder = nameToVerifyingKeyMap_.find(*package);
    if (known != nameToAPIKeyMap_.end() && known->second == *key && verifiedUnder != nameToVerifyingKeyMap_.end() &&
        verifiedUnder->second == helper.getAPIKeyPublicKey()) {
      return true;
    }
  }
  // Verified outside the lock: an RSA verification should not hold up readers of the maps.
  auto info = helper.verifyAPIKey(*key, *package);
  if (!info) return false;
  std::lock_guard lock(mutex_);
  nameToAppInfoMap_.insert_or_assign(std::string(*package), std::move(*info));
  nameToAPIKeyMap_.insert_or_assign(std::string(*package), std::string(*key));
  nameToVerifyingKeyMap_.insert_or_assign(std::string(*package), helper.getAPIKeyPublicKey());
  return true;
}

bool AIAppIdentifier::isAPIKeyValid(const AIAPIKeyHelper& helper) {
  const auto key = helper.getAPIKeyCurrentApp();
  const auto package = helper.getPackageName();
  log("APIKey name for the App is: " + orNull(key) + " and the package name is: " + orNull(package));
  return isAPIKey(key, package, helper);
}

std::optional<AIAppInfo> AIAppIdentifier::getAppInfoForPackage(std::optional<std::string_view> package) const {
  if (!package) return std::nullopt;
  std::lock_guard lock(mutex_);
  const auto found = nameToAppInfoMap_.find(*package);
  if (found == nameToAppInfoMap_.end()) return std::nullopt;
  return found->second;
}

std::optional<std::string> AIAppIdentifier::getAppIdForPackage(std::optional<std::string_view> package) const {
  const auto info = getAppInfoForPackage(package);
  return info ? info->appId() : std::nullopt;
}

std::optional<std::vector<std::string>> AIAppIdentifier::getAllowedScopesForPackage(
    std::optional<std::string_view> package) const {
  const auto info = getAppInfoForPackage(package);
  if (!info) return std::nullopt;
  return info->scopes();
}

std::optional<std::vector<std::string>> AIAppIdentifier::getAppPermissionsForPackage(
    std::optional<std::string_view> package) const {
  const auto info = getAppInfoForPackage(package);
  if (!info) return std::nullopt;
  return info->permissions();
}

std::optional<std::string> AIAppIdentifier::getAPIKeyForPackage(std::optional<std::string_view> package) const {
  if (!package) return std::nullopt;
  std::lock_guard lock(mutex_);
  const auto found = nameToAPIKeyMap_.find(*package);
  if (found == nameToAPIKeyMap_.end()) return std::nullopt;
  return found->second;
}

std::optional<std::string> AIAppIdentifier::getAppFamilyIdForPackage(std::optional<std::string_view> package) const {
  const auto info = getAppInfoForPackage(package);
  return info ? info->appParentId() : std::nullopt;
}

std::optional<std::string> AIAppIdentifier::getAppVariantIdForPackage(std::optional<std::string_view> package) const {
  const auto info = getAppInfoForPackage(package);
  return info ? info->appVariantId() : std::nullopt;
}

}  // namespace applogic::signin
