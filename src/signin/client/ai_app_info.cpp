#include "applogic/signin/client/ai_app_info.h"

#include <string_view>

namespace applogic::signin {
namespace {

std::string httpsOr(std::optional<std::string> address, const std::string& fallback) {
  if (address && std::string_view(*address).starts_with("https")) return std::move(*address);
  return fallback;
}

}  // namespace

AIAppInfo::AIAppInfo(const ClientConfiguration& configuration, std::optional<std::string> appId,
                     std::optional<std::string> packageName, std::vector<std::string> scopes,
                     std::vector<std::string> permissions, std::optional<std::string> clientId)
    : AIAppInfo(configuration, std::move(appId), std::move(packageName), std::move(scopes), std::move(permissions),
                std::move(clientId), std::nullopt, std::nullopt, std::nullopt, std::nullopt) {}

AIAppInfo::AIAppInfo(const ClientConfiguration& configuration, std::optional<std::string> appId,
                     std::optional<std::string> packageName, std::vector<std::string> scopes,
                     std::vector<std::string> permissions, std::optional<std::string> clientId,
                     std::optional<std::string> appParentId, std::optional<std::string> appVariantId)
    : AIAppInfo(configuration, std::move(appId), std::move(packageName), std::move(scopes), std::move(permissions),
                std::move(clientId), std::move(appParentId), std::move(appVariantId), std::nullopt, std::nullopt) {}

AIAppInfo::AIAppInfo(const ClientConfiguration& configuration, std::optional<std::string> appId,
                     std::optional<std::string> packageName, std::vector<std::string> scopes,
                     std::vector<std::string> permissions, std::optional<std::string> clientId,
                     std::optional<std::string> appParentId, std::optional<std::string> appVariantId,
                     std::optional<std::string> authz, std::optional<std::string> tokenExchange)
    : appId_(std::move(appId)),
      packageName_(std::move(packageName)),
      scopes_(std::move(scopes)),
      permissions_(std::move(permissions)),
      clientId_(std::move(clientId)),
      appParentId_(std::move(appParentId)),
      appVariantId_(std::move(appVariantId)),
      authz_(httpsOr(std::move(authz), configuration.signInPageUrl)),
      tokenExchange_(httpsOr(std::move(tokenExchange), configuration.tokenEndpointUrl)) {}

}  // namespace applogic::signin
