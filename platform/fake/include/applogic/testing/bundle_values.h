#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/platform/bundle_info.h"

namespace applogic::testing {

/// A `BundleInfo` holding the values a test sets: string keys and URL schemes. Starts empty
/// (no key, no scheme). Unlike the real ports, values may change while in use, so a test can
/// move the app to another package. Thread-safe.
class BundleValues final : public platform::BundleInfo {
 public:
  BundleValues() = default;
  /// A bundle with this identifier and, when given, this "APIKey" and "IBAAppAPIKey".
  explicit BundleValues(std::string bundleIdentifier, std::optional<std::string> apiKey = std::nullopt);

  std::optional<std::string> stringValue(std::string_view key) const override;
  std::vector<std::string> urlSchemes() const override;

  /// Sets `key` to `value`; absent removes it.
  void set(std::string_view key, std::optional<std::string> value);
  void setURLSchemes(std::vector<std::string> schemes);

 private:
  mutable std::mutex mutex_;
  std::map<std::string, std::string, std::less<>> values_;
  std::vector<std::string> schemes_;
};

}  // namespace applogic::testing
