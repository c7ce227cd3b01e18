#include "applogic/testing/bundle_values.h"

namespace applogic::testing {

BundleValues::BundleValues(std::string bundleIdentifier, std::optional<std::string> apiKey) {
  set(platform::kCFBundleIdentifierKey, std::move(bundleIdentifier));
  if (apiKey) {
    set("APIKey", *apiKey);
    set("IBAAppAPIKey", std::move(apiKey));
  }
}

std::optional<std::string> BundleValues::stringValue(std::string_view key) const {
  std::lock_guard lock(mutex_);
  const auto found = values_.find(key);
  if (found == values_.end()) return std::nullopt;
  return found->second;
}

std::vector<std::string> BundleValues::urlSchemes() const {
  std::lock_guard lock(mutex_);
  return schemes_;
}

void BundleValues::set(std::string_view key, std::optional<std::string> value) {
  std::lock_guard lock(mutex_);
  if (value) {
    values_.insert_or_assign(std::string(key), std::move(*value));
  } else if (const auto found = values_.find(key); found != values_.end()) {
    values_.erase(found);
  }
}

void BundleValues::setURLSchemes(std::vector<std::string> schemes) {
  std::lock_guard lock(mutex_);
  schemes_ = std::move(schemes);
}

}  // namespace applogic::testing
