#pragma once

#include <optional>
#include <string>
#include <vector>

#include "applogic/export.h"
#include "applogic/signin/client/client_configuration.h"

namespace applogic::signin {

/// Who the app is, as its verified API key says: app ids, the package the key was issued for,
/// allowed scopes and permissions, the OAuth client id, and the addresses of the sign-in page
/// (`authz`) and of the token endpoint (`tokenExchange`).
///
/// `authz` and `tokenExchange` are always set: a given address is kept only when it begins with
/// "https"; otherwise, and when none is given, the configuration's production address is used.
/// Absent string fields were not in the key; missing lists are empty. Equal when every field is
/// equal. Plain value; any thread.
class APPLOGIC_EXPORT AIAppInfo {
 public:
  /// `initWithAppId:packageName:scopes:permissions:clientId:`.
  AIAppInfo(const ClientConfiguration& configuration, std::optional<std::string> appId,
            std::optional<std::string> packageName, std::vector<std::string> scopes,
            std::vector<std::string> permissions, std::optional<std::string> clientId);
  /// `...clientId:appParentId:appVariantId:`.
  AIAppInfo(const ClientConfiguration& configuration, std::optional<std::string> appId,
            std::optional<std::string> packageName, std::vector<std::string> scopes,
            std::vector<std::string> permissions, std::optional<std::string> clientId,
            std::optional<std::string> appParentId, std::optional<std::string> appVariantId);
  /// `...appVariantId:authz:tokenExchange:`.
  AIAppInfo(const ClientConfiguration& configuration, std::optional<std::string> appId,
            std::optional<std::string> packageName, std::vector<std::string> scopes,
            std::vector<std::string> permissions, std::optional<std::string> clientId,
            std::optional<std::string> appParentId, std::optional<std::string> appVariantId,
            std::optional<std::string> authz, std::optional<std::string> tokenExchange);

  const std::optional<std::string>& appId() const noexcept { return appId_; }
  const std::optional<std::string>& packageName() const noexcept { return packageName_; }
  const std::vector<std::string>& scopes() const noexcept { return scopes_; }
  const std::vector<std::string>& permissions() const noexcept { return permissions_; }
  const std::optional<std::string>& clientId() const noexcept { return clientId_; }
  const std::optional<std::string>& appParentId() const noexcept { return appParentId_; }
  const std::optional<std::string>& appVariantId() const noexcept { return appVariantId_; }
  const std::string& authz() const noexcept { return authz_; }
  const std::string& tokenExchange() const noexcept { return tokenExchange_; }

  friend bool operator==(const AIAppInfo&, const AIAppInfo&) = default;

 private:
  std::optional<std::string> appId_;
  std::optional<std::string> packageName_;
  std::vector<std::string> scopes_;
  std::vector<std::string> permissions_;
  std::optional<std::string> clientId_;
  std::optional<std::string> appParentId_;
  std::optional<std::string> appVariantId_;
  std::string authz_;
  std::string tokenExchange_;
};

}  // namespace applogic::signin
