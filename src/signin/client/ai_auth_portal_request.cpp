#include "applogic/signin/client/ai_auth_portal_request.h"

#include <array>

namespace applogic::signin {
namespace {

// "?" is left out of the kept set although it may stand in a query: some servers (cpp-httplib's
// among them) refuse a request target with a second "?", and "%3F" means the same to every form
// decoder.
constexpr std::string_view kKeptInUrl = "!$&'()*+,-./:;=@_~";

bool keptInUrl(unsigned char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         kKeptInUrl.find(static_cast<char>(c)) != std::string_view::npos;
}

// Scopes joined by single blanks, then trimmed of blanks and line breaks at both ends.
std::string joinedScopes(const std::vector<std::string>& scopes) {
  std::string joined;
  for (std::size_t i = 0; i < scopes.size(); ++i) {
    if (i > 0) joined += ' ';
    joined += scopes[i];
  }
  constexpr std::string_view kBlank = " \t\n\r";
  const std::size_t first = joined.find_first_not_of(kBlank);
  if (first == std::string::npos) return {};
  return joined.substr(first, joined.find_last_not_of(kBlank) - first + 1);
}

// Fills in the request's own names over what is there.
void put(AIParameters& parameters, std::string_view name, std::string value) {
  parameters.insert_or_assign(std::string(name), std::move(value));
}

}  // namespace

AIAuthPortalRequest::AIAuthPortalRequest(std::shared_ptr<const AIClientServices> services)
    : services_(std::move(services)) {}

AIParameters AIAuthPortalRequest::getParameters(const AICallContext& context) const {
  AIParameters parameters;
  if (const auto& device = services_->platform().deviceInfo) {
    put(parameters, "di.hw.name", device->deviceModel());
    put(parameters, "di.os.name", device->systemName());
    put(parameters, "di.os.version", device->systemVersion());
  }
  put(parameters, "di.sdk.version", std::string(kAISDKVersion));
  if (context.isSandbox()) put(parameters, "sandbox", "true");
  if (auto appId = services_->utils().getAppId()) put(parameters, "appIdentifier", std::move(*appId));
  if (const auto scopeData = context.stringOption(kAIOptionScopeData)) {
    put(parameters, "scope_data", std::string(*scopeData));
  }
  return parameters;
}

std::string AIAuthPortalRequest::buildParamList(const AIParameters& parameters, bool encode) {
  std::string list;
  for (const auto& [name, value] : parameters) {
    if (!list.empty()) list += '&';
    list += name;
    list += '=';
    list += encode ? escapeForUrl(value) : value;
  }
  return list;
}

std::string AIAuthPortalRequest::escapeForUrl(std::string_view value) {
  constexpr std::string_view kHex = "0123456789ABCDEF";
  std::string out;
  out.reserve(value.size());
  for (const char c : value) {
    const auto byte = static_cast<unsigned char>(c);
    if (keptInUrl(byte)) {
      out += c;
    } else {
      out += '%';
      out += kHex[byte >> 4];
      out += kHex[byte & 0x0f];
    }
  }
  return out;
}

void AIAuthPortalRequest::setHeader(platform::HttpHeaders& headers) const {
  headers.emplace_back("Accept-Encoding", "gzip, deflate");
  headers.emplace_back("Accept-Language", "en-us,en;q=0.5");
  // "/;q=0.5" is the range this client has always sent; servers read it as it stands.
  headers.emplace_back("Accept",
                       "application/xml,application/xhtml+xml,text/html,application/json;q=0.9,text/plain;q=0.8,"
                       "image/png,/;q=0.5");
  headers.emplace_back("Accept-Charset", "utf-8, iso-8859-1, utf-16, *;q=0.7");
  headers.emplace_back("User-Agent", userAgent());
}

std::string AIAuthPortalRequest::userAgent() const {
  const auto& device = services_->platform().deviceInfo;
  std::string agent(kAIUserAgentProduct);
  agent += '/';
  agent += kAISDKVersion;
  // The third field is a fixed part of the format the servers read; the real system follows it.
  agent += "/iOS/";
  if (device) {
    agent += device->systemName() + "-" + device->systemVersion() + "/" + device->deviceModel();
  } else {
    agent += "-/";
  }
  return agent;
}

std::optional<std::string> AIAuthPortalRequest::getEndPointWithOption(const AICallContext&) const {
  return services_->utils().getAuthzHost();
}

std::optional<std::string> AIAuthPortalRequest::getBaseUrlWithOption(const AICallContext& context) const {
  return getEndPointWithOption(context);
}

// --- sign-in page request ---------------------------------------------------------------------

std::unique_ptr<AI3POpenIdRequest> AI3POpenIdRequest::initWithCallContext(
    std::shared_ptr<const AIClientServices> services, const std::shared_ptr<AICallContext>& context,
    AIOpenIdRequestStates* openIdRequestStates) {
  return make(std::move(services), context, openIdRequestStates, false);
}

std::unique_ptr<AI3POpenIdRequest> AI3POpenIdRequest::initWithCallContextSSO(
    std::shared_ptr<const AIClientServices> services, const std::shared_ptr<AICallContext>& context,
    AIOpenIdRequestStates* openIdRequestStates) {
  return make(std::move(services), context, openIdRequestStates, true);
}

std::unique_ptr<AI3POpenIdRequest> AI3POpenIdRequest::make(std::shared_ptr<const AIClientServices> services,
                                                           const std::shared_ptr<AICallContext>& context,
                                                           AIOpenIdRequestStates* openIdRequestStates, bool sso) {
  if (!context) return nullptr;
  const auto redirect = services->utils().getRedirectToUrl();
  if (!redirect || redirect->empty()) {
    context->error().setError(kAIInvalidInput, std::string(kAIMessageInvalidRedirectURI));
    return nullptr;
  }
  const auto clientId = services->utils().getClientId();
  if (!clientId || clientId->empty()) {
    context->error().setError(kAIInvalidInput, std::string(kAIMessageInvalidClientId));
    return nullptr;
  }
  if (context->UID().empty()) {
    // The state names the call when the browser comes back; without one (the secure random source
    // failed) a forged redirect carrying an empty state would be taken for this sign-in.
    context->error().setError(kAIInternalError, std::string(kAIMessageInternalErrorGeneral));
    return nullptr;
  }
  std::unique_ptr<AI3POpenIdRequest> request(new AI3POpenIdRequest(std::move(services)));
  AIParameters& p = request->mParams_;
  put(p, "response_type", "code");
  put(p, "scope", joinedScopes(context->scopes()));
  put(p, "client_id", *clientId);
  put(p, "redirect_uri", *redirect);
  put(p, "state", context->UID());
  if (sso) {
    put(p, "sso.version", "2.0");
    put(p, "skipSignIn", "1");
  } else if (!context->isSandbox()) {
    put(p, "amzn_respectRmrMeAuthState", "1");
    put(p, "amzn_showRmrMe", "1");
    put(p, "amzn_rmrMeDefaultSelected", "1");
  }
  if (openIdRequestStates != nullptr) openIdRequestStates->insert_or_assign(context->UID(), context);
  return request;
}

AIParameters AI3POpenIdRequest::getParameters(const AICallContext& context) const {
  AIParameters parameters = AIAuthPortalRequest::getParameters(context);
  for (const auto& [name, value] : mParams_) parameters.insert_or_assign(name, value);
  return parameters;
}

// --- exchange requests ------------------------------------------------------------------------

AIExchangeRequest::AIExchangeRequest(std::shared_ptr<const AIClientServices> services,
                                     std::shared_ptr<const AIToken> requestToken)
    : AIAuthPortalRequest(std::move(services)), requestToken_(std::move(requestToken)) {}

AIParameters AIExchangeRequest::getParameters(const AICallContext& context) const {
  AIParameters parameters = AIAuthPortalRequest::getParameters(context);
  if (const auto spop = services_->spop(); spop && spop->spopKey()) {
    put(parameters, CODE_VERIFIER, *spop->spopKey());
  }
  return parameters;
}

void AIExchangeRequest::addHeaders(platform::HttpHeaders&) const {}

std::optional<std::string> AIExchangeRequest::tokenString() const {
  return requestToken_ ? requestToken_->token() : std::nullopt;
}

std::optional<platform::HttpRequest> AIExchangeRequest::makeUrlRequest(const AICallContext& context,
                                                                       bool isPost) const {
  const AIParameters parameters = getParameters(context);
  const auto base = getBaseUrlWithOption(context);
  if (parameters.empty() || !base) {
    if (!context.error().hasErrorOccured()) {
      context.error().setError(kAIInternalError, std::string(kAIMessageInternalErrorGeneral));
    }
    return std::nullopt;
  }
  const std::string list = buildParamList(parameters, true);
  platform::HttpRequest request;
  request.method = isPost ? "POST" : "GET";
  request.url = isPost ? *base : *base + "?" + list;
  if (isPost) request.body = list;
  setHeader(request.headers);
  addHeaders(request.headers);
  return request;
}

namespace {

// The client id both token-endpoint requests need; writes code 6 into the context without one.
std::optional<std::string> requireClientId(const AIClientServices& services, const AICallContext& context) {
  auto clientId = services.utils().getClientId();
  if (!clientId || clientId->empty()) {
    context.error().setError(kAIInvalidInput, std::string(kAIMessageInvalidClientId));
    return std::nullopt;
  }
  return clientId;
}

}  // namespace

AIParameters AICodeExchangeRequest::getParameters(const AICallContext& context) const {
  const auto clientId = requireClientId(*services_, context);
  const auto code = tokenString();
  if (!clientId || !code) return {};
  AIParameters parameters = AIExchangeRequest::getParameters(context);
  put(parameters, "client_id", *clientId);
  put(parameters, "code", *code);
  put(parameters, "grant_type", "authorization_code");
  if (auto redirect = services_->utils().getRedirectToUrl()) put(parameters, "redirect_uri", std::move(*redirect));
  return parameters;
}

void AICodeExchangeRequest::addHeaders(platform::HttpHeaders& headers) const {
  headers.emplace_back("Content-Type", "application/x-www-form-urlencoded");
}

std::optional<std::string> AICodeExchangeRequest::getBaseUrlWithOption(const AICallContext&) const {
  return services_->utils().getExchangeHost();
}

AIParameters AIAccessTokenRequest::getParameters(const AICallContext& context) const {
  const auto clientId = requireClientId(*services_, context);
  const auto token = tokenString();
  if (!clientId || !token) return {};
  AIParameters parameters = AIExchangeRequest::getParameters(context);
  const auto* refreshToken = dynamic_cast<const AIRefreshToken*>(requestToken_.get());
  put(parameters, "scope", refreshToken ? joinedScopes(refreshToken->scopes()) : std::string());
  put(parameters, "grant_type", "refresh_token");
  put(parameters, "client_id", *clientId);
  put(parameters, "refresh_token", *token);
  return parameters;
}

std::optional<std::string> AIAccessTokenRequest::getBaseUrlWithOption(const AICallContext&) const {
  return services_->utils().getExchangeHost();
}

void AIProfileExchangerRequest::addHeaders(platform::HttpHeaders& headers) const {
  headers.emplace_back("Authorization", "Bearer " + tokenString().value_or(""));
}

std::optional<std::string> AIProfileExchangerRequest::getBaseUrlWithOption(const AICallContext& context) const {
  return profileEndpoint(services_->configuration(), context.isSandbox(),
                         services_->utils().getAuthzHost().value_or(""));
}

const std::string& AIProfileExchangerRequest::profileEndpoint(const ClientConfiguration& configuration, bool sandbox,
                                                              std::string_view authz) {
  if (authz.find("development") != std::string_view::npos) {
    return sandbox ? configuration.integrationSandboxProfileEndpointUrl : configuration.integrationProfileEndpointUrl;
  }
  return sandbox ? configuration.sandboxProfileEndpointUrl : configuration.profileEndpointUrl;
}

}  // namespace applogic::signin
