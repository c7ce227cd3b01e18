#include "applogic/signin/client/ai_utils.h"

#include <array>
#include <boost/json.hpp>
#include <cstdio>
#include <string_view>

#include "applogic/signin/client/ai_app_identifier.h"
#include "applogic/signin/client/base64.h"

namespace applogic::signin {
namespace {

// The app id's escape set. The id is Base64, so of these only '+', '/' and '=' ever occur in it.
constexpr std::string_view kAppIdEscapes = "!*'();:@&=+$,/?%#[]";

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

std::string percentDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
      out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
      i += 2;
    } else {
      out += text[i];
    }
  }
  return out;
}

}  // namespace

AIUtils::AIUtils(const platform::Platform& platform, ClientConfiguration configuration)
    : helper_(platform.crypto, platform.bundleInfo, std::move(configuration)),
      locale_(platform.locale),
      random_(platform.secureRandom) {}

std::optional<std::string> AIUtils::getAPIKey() const {
  return helper_.bundleInfo() ? helper_.bundleInfo()->stringValue(kAPIKeyBundleKey) : std::nullopt;
}

std::optional<std::string> AIUtils::getAppPackageName() const { return helper_.getPackageName(); }

std::optional<AIAppInfo> AIUtils::getAppInfo() const {
  const auto package = getAppPackageName();
  if (!package) return std::nullopt;
  const auto identifier = AIAppIdentifier::appIdentifier();
  if (auto info = identifier->getAppInfoForPackage(*package)) return info;
  (void)identifier->isAPIKey(getAPIKey(), *package, helper_);
  return identifier->getAppInfoForPackage(*package);
}

std::optional<std::string> AIUtils::getClientId() const {
  const auto info = getAppInfo();
  return info ? info->clientId() : std::nullopt;
}

std::optional<std::string> AIUtils::getAuthzHost() const {
  const auto info = getAppInfo();
  if (!info) return std::nullopt;
  return info->authz();
}

std::optional<std::string> AIUtils::getExchangeHost() const {
  const auto info = getAppInfo();
  if (!info) return std::nullopt;
  return info->tokenExchange();
}

std::optional<std::string> AIUtils::getRedirectToUrl() const {
  const auto package = getAppPackageName();
  if (!package) return std::nullopt;
  return "amzn-" + *package + "://?methodName=signin";
}

std::optional<std::string> AIUtils::getAppId() const {
  const auto package = getAppPackageName();
  if (!package) return std::nullopt;
  const std::string object = boost::json::serialize(boost::json::object{{"bundleID", *package}});
  const std::string encoded =
      base64::encode(std::span(reinterpret_cast<const std::uint8_t*>(object.data()), object.size()));
  std::string escaped;
  escaped.reserve(encoded.size() + encoded.size() / 2);
  for (const char c : encoded) {
    if (kAppIdEscapes.find(c) != std::string_view::npos) {
      std::array<char, 4> hex{};
      std::snprintf(hex.data(), hex.size(), "%%%02X", static_cast<unsigned char>(c));
      escaped += hex.data();
    } else {
      escaped += c;
    }
  }
  return escaped;
}

std::optional<std::string> AIUtils::getCurrentLocale() const {
  return locale_ ? locale_->languageCode() : std::nullopt;
}

std::optional<std::string> AIUtils::getUUID() const {
  std::array<std::uint8_t, 16> bytes{};
  if (!random_ || !random_->fill(bytes)) return std::nullopt;
  bytes[6] = static_cast<std::uint8_t>((bytes[6] & 0x0f) | 0x40);  // version 4
  bytes[8] = static_cast<std::uint8_t>((bytes[8] & 0x3f) | 0x80);  // RFC 4122 variant
  std::string text;
  text.reserve(36);
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    if (i == 4 || i == 6 || i == 8 || i == 10) text += '-';
    std::array<char, 3> hex{};
    std::snprintf(hex.data(), hex.size(), "%02X", bytes[i]);
    text += hex.data();
  }
  return text;
}

std::optional<std::string> AIUtils::getAppUrlScheme() const {
  if (!helper_.bundleInfo()) return std::nullopt;
  const auto schemes = helper_.bundleInfo()->urlSchemes();
  if (schemes.empty()) return std::nullopt;
  return schemes.front() + "://";
}

std::map<std::string, std::string> AIUtils::getKeyValueDictionaryParseString(std::string_view url) {
  std::map<std::string, std::string> parameters;
  const std::size_t question = url.find('?');
  if (question == std::string_view::npos) return parameters;
  std::string_view query = url.substr(question + 1);
  query = query.substr(0, query.find('#'));
  while (!query.empty()) {
    const std::size_t amp = query.find('&');
    const std::string_view pair = query.substr(0, amp);
    query = amp == std::string_view::npos ? std::string_view() : query.substr(amp + 1);
    if (pair.empty()) continue;
    const std::size_t equals = pair.find('=');
    std::string key = percentDecode(pair.substr(0, equals));
    std::string value = equals == std::string_view::npos ? std::string() : percentDecode(pair.substr(equals + 1));
    parameters.insert_or_assign(std::move(key), std::move(value));
  }
  return parameters;
}

std::string AIUtils::base64URLEncode(std::span<const std::uint8_t> bytes) {
  // Encoding with the URL-safe alphabet and no padding is the same as encoding with the standard
  // one, then replacing "+" and "/" and removing "=".
  return base64::encodeUrl(bytes);
}

}  // namespace applogic::signin
