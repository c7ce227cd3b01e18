#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"

namespace applogic::platform {

/// Keys of the app's bundle information that the library reads.
inline constexpr std::string_view kCFBundleIdentifierKey = "CFBundleIdentifier";
inline constexpr std::string_view kCFBundleURLTypesKey = "CFBundleURLTypes";
inline constexpr std::string_view kCFBundleURLSchemesKey = "CFBundleURLSchemes";

/// The app's bundle information: who the app is (its bundle identifier), the custom keys it
/// carries ("APIKey", "IBAAppAPIKey") and the URL schemes it declares.
///
/// Thread contract: implementations are safe to call from any thread, concurrently. The values
/// are fixed for the life of the object (the information is read once).
class APPLOGIC_EXPORT BundleInfo {
 public:
  virtual ~BundleInfo() = default;

  /// The value of the top-level key `key` when it is a string; absent when the key is missing or
  /// holds anything else.
  virtual std::optional<std::string> stringValue(std::string_view key) const = 0;

  /// The URL schemes the app declares: the strings of "CFBundleURLSchemes" of every
  /// "CFBundleURLTypes" entry, entries and schemes in the order declared. Values that are not
  /// strings are left out; empty when the app declares none.
  virtual std::vector<std::string> urlSchemes() const = 0;

  /// The bundle identifier ("CFBundleIdentifier"); absent when it is missing.
  std::optional<std::string> bundleIdentifier() const { return stringValue(kCFBundleIdentifierKey); }
};

}  // namespace applogic::platform
