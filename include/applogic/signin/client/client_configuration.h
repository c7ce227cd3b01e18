#pragma once

#include <string>

#include "applogic/export.h"

namespace applogic::signin {

/// What the account sign-in client is configured with, beside the app's own bundle information.
/// Every member has a default; a host changes the ones it needs (a test server, another
/// issuer of API keys). Plain value.
struct APPLOGIC_EXPORT ClientConfiguration {
  /// The RSA public key (2048 bits, PEM "-----BEGIN PUBLIC KEY-----" text) that verifies the
  /// signature of the app's API key. Empty by default: the issuer's key is not shipped with the
  /// library, and with no key every API key is invalid, so the app has no client id until the
  /// host sets the key of whoever issued its API keys (`tunevo apikey mint` issues keys for a key
  /// pair of your own).
  std::string apiKeyPublicKey;

  /// The production sign-in page, used when the API key names none or one that is not https.
  std::string signInPageUrl = "https://www.amazon.com/ap/oa";
  /// The production token endpoint, used when the API key names none or one that is not https.
  std::string tokenEndpointUrl = "https://api.amazon.com/auth/o2/token";

  /// The profile endpoint in its four variants: production or integration (the sign-in page
  /// address contains "development"), each with or without the sandbox. The integration hosts
  /// are not published; their defaults follow the production names and a host that signs in
  /// against integration sets them.
  std::string profileEndpointUrl = "https://api.amazon.com/user/profile";
  std::string sandboxProfileEndpointUrl = "https://api.sandbox.amazon.com/user/profile";
  std::string integrationProfileEndpointUrl = "https://api.integ.amazon.com/user/profile";
  std::string integrationSandboxProfileEndpointUrl = "https://api.sandbox.integ.amazon.com/user/profile";

  /// The cookie domain of the sign-in site; signing out deletes the cookies of its secure
  /// "www" host ("https://www." followed by the domain).
  std::string cookieDomain = "amazon.com";

  /// The scheme of the Amazon shopping app's single sign-on, to which the sign-in page's address
  /// is appended when the sign-in view mode tries that app. The app's own value is not published
  /// to us; this default only has to be a scheme no other app claims.
  std::string singleSignOnScheme = "amazon-sso://";
};

}  // namespace applogic::signin
