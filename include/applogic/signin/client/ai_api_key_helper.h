#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "applogic/export.h"
#include "applogic/platform/bundle_info.h"
#include "applogic/platform/crypto.h"
#include "applogic/signin/client/ai_app_info.h"
#include "applogic/signin/client/client_configuration.h"

namespace applogic::signin {

/// Bundle keys that hold the app's API key.
inline constexpr std::string_view kAPIKeyBundleKey = "APIKey";
inline constexpr std::string_view kIBAAppAPIKeyBundleKey = "IBAAppAPIKey";

/// Why an API key gives no app information, in the order the checks run.
enum class AIAPIKeyProblem {
  none,            ///< valid
  tooFewParts,     ///< fewer than three parts separated by "."
  badSignature,    ///< the third part does not verify the first two under the configured key
  badBase64,       ///< the payload is not standard Base64
  notJson,         ///< the payload is not a UTF-8 JSON object
  unknownVersion,  ///< "ver" is not the string "3" or "2"
  otherPackage,    ///< "bundleSeedId" is not the package asked for
};

/// A short English description of `problem` ("bad signature", "too few parts"...).
APPLOGIC_EXPORT std::string_view describe(AIAPIKeyProblem problem);

/// The outcome of checking an API key: the app information when valid, otherwise why not.
struct APPLOGIC_EXPORT AIAPIKeyCheck {
  AIAPIKeyProblem problem = AIAPIKeyProblem::none;
  std::optional<AIAppInfo> appInfo;
};

/// Reads and verifies API keys: three parts joined by "." (header, payload, signature; the shape
/// of a JSON Web Signature), the signature being a PKCS #1 v1.5 SHA-256 RSA signature of the text
/// "header.payload" in standard Base64, and the payload standard Base64 of a UTF-8 JSON object:
///
/// - "ver": "3" or "2" (strings);
/// - version 3: "appFamilyId" (the app id and the parent app id), "appVariantId", and optionally
///   "endpoints", an object with "authz" and "tokenExchange";
/// - version 2: "appId";
/// - both: "bundleSeedId" (the package the key was issued for), "scopes", "perm" (arrays of
///   strings), "clientId".
///
/// A value of the wrong type counts as missing (a non-string list element is left out; an
/// "endpoints" that is not an object counts as absent).
///
/// Thread contract: immutable; any thread.
class APPLOGIC_EXPORT AIAPIKeyHelper {
 public:
  /// `crypto` verifies signatures (null: every key fails); `bundleInfo` answers the bundle's
  /// values (null: none); `configuration` gives the public key and the production addresses.
  AIAPIKeyHelper(std::shared_ptr<const platform::Crypto> crypto, std::shared_ptr<const platform::BundleInfo> bundleInfo,
                 ClientConfiguration configuration);

  /// The app information of `key` when its signature verifies under `getAPIKeyPublicKey()` and
  /// its payload reads as app information for `package` (`appInfoForValidAPIKey`); absent
  /// otherwise.
  std::optional<AIAppInfo> verifyAPIKey(std::string_view key, std::string_view package) const;

  /// The app information that the Base64 `payload` holds, when its package is `package`; absent
  /// for bad Base64, a payload that is not a JSON object, an unknown version or another package.
  /// The signature is not checked here.
  std::optional<AIAppInfo> appInfoForValidAPIKey(std::string_view payload, std::string_view package) const;

  /// `verifyAPIKey` with the reason for a missing answer.
  AIAPIKeyCheck checkAPIKey(std::string_view key, std::string_view package) const;
  /// `appInfoForValidAPIKey` with the reason for a missing answer.
  AIAPIKeyCheck checkPayload(std::string_view payload, std::string_view package) const;

  /// The bundle's "IBAAppAPIKey".
  std::optional<std::string> getAPIKeyCurrentApp() const;
  /// The bundle identifier ("CFBundleIdentifier").
  std::optional<std::string> getPackageName() const;
  /// The PEM text of the key that verifies API keys (`ClientConfiguration::apiKeyPublicKey`).
  const std::string& getAPIKeyPublicKey() const noexcept { return configuration_.apiKeyPublicKey; }

  const ClientConfiguration& configuration() const noexcept { return configuration_; }
  const std::shared_ptr<const platform::BundleInfo>& bundleInfo() const noexcept { return bundleInfo_; }

 private:
  std::shared_ptr<const platform::Crypto> crypto_;
  std::shared_ptr<const platform::BundleInfo> bundleInfo_;
  ClientConfiguration configuration_;
};

}  // namespace applogic::signin
