#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "applogic/export.h"
#include "applogic/platform/platform.h"
#include "applogic/signin/client/ai_api_key_helper.h"
#include "applogic/signin/client/ai_app_info.h"
#include "applogic/signin/client/api_result.h"
#include "applogic/signin/client/client_configuration.h"

namespace applogic::signin {

/// The small values the rest of the sign-in client needs: who the app is (from its bundle and its
/// API key), its client id and server addresses, its redirect address and app identifier, a
/// locale and fresh UUIDs.
///
/// Made over the platform services it reads (`bundleInfo`, `crypto`, `locale`, `secureRandom`;
/// a null one reads as absent) and the client's configuration. The app information is cached by
/// the process's `AIAppIdentifier::appIdentifier()`.
///
/// Thread contract: immutable; any thread (the cache has its own lock).
class APPLOGIC_EXPORT AIUtils {
 public:
  AIUtils(const platform::Platform& platform, ClientConfiguration configuration);

  /// The bundle's "APIKey".
  std::optional<std::string> getAPIKey() const;
  /// The bundle identifier.
  std::optional<std::string> getAppPackageName() const;
  /// The cached app information for the package; when there is none yet, "APIKey" is checked for
  /// the package first (`AIAppIdentifier::isAPIKey`). Absent without a package or a valid key.
  std::optional<AIAppInfo> getAppInfo() const;
  /// `getAppInfo()`'s `clientId`, `authz` and `tokenExchange`.
  std::optional<std::string> getClientId() const;
  std::optional<std::string> getAuthzHost() const;
  std::optional<std::string> getExchangeHost() const;
  /// "amzn-<bundle identifier>://?methodName=signin"; absent without a bundle identifier.
  std::optional<std::string> getRedirectToUrl() const;
  /// The sign-in site's cookie domain (`ClientConfiguration::cookieDomain`).
  const std::string& getEndPoint() const noexcept { return helper_.configuration().cookieDomain; }
  /// The JSON object {"bundleID":"<bundle identifier>"} (compact), in standard Base64, then
  /// percent-escaped in UTF-8: every character of "!*'();:@&=+$,/?%#[]", and every character that
  /// may not stand in a URL (controls, space, '"', '<', '>', '\', '^', '`', '{', '|', '}' and
  /// non-ASCII bytes), becomes "%" and two upper-case hex digits. Absent without a bundle
  /// identifier.
  std::optional<std::string> getAppId() const;
  /// The current locale's identifier: the platform locale's language code ("de"); absent when the
  /// locale names no language.
  std::optional<std::string> getCurrentLocale() const;
  /// A new random (version 4) UUID in the platform's textual form, upper-case hex
  /// ("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"); absent when the random source fails.
  std::optional<std::string> getUUID() const;
  /// The first URL scheme the app declares ("CFBundleURLTypes" entries in order, then their
  /// "CFBundleURLSchemes" in order) followed by "://"; absent when it declares none.
  std::optional<std::string> getAppUrlScheme() const;

  /// The query parameters of a URL string: the text after the first "?" up to the first "#",
  /// split at "&" into pairs split at their first "=" (a pair without "=" has the empty value),
  /// keys and values percent-decoded ("+" stays "+"; a "%" without two hex digits stays as it
  /// is). Empty pairs are skipped; a key given twice keeps its last value. Pure.
  static std::map<std::string, std::string> getKeyValueDictionaryParseString(std::string_view url);

  /// RFC 4648 base64url without padding: standard Base64 with no line breaks, every "=" removed,
  /// "+" turned into "-" and "/" into "_". Pure.
  static std::string base64URLEncode(std::span<const std::uint8_t> bytes);

  /// The answer objects of the entry points (`resultObjectForAPI:andResult:`,
  /// `errorObjectForAPI:andError:`): the operation number with the result, or with a copy of the
  /// error as it stands. Pure.
  static APIResult resultObjectForAPI(std::uint32_t api, Json result) { return APIResult(api, std::move(result)); }
  static APIError errorObjectForAPI(std::uint32_t api, const AIError& error) { return APIError(api, error); }

  /// The helper that reads and verifies the app's API key.
  const AIAPIKeyHelper& apiKeyHelper() const noexcept { return helper_; }

 private:
  AIAPIKeyHelper helper_;
  std::shared_ptr<const platform::Locale> locale_;
  std::shared_ptr<const platform::SecureRandom> random_;
};

}  // namespace applogic::signin
