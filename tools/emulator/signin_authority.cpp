#include "signin_authority.h"

#include <algorithm>
#include <utility>

#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include "applogic/support/strings.h"
#include "applogic/support/json.h"
#include "web_text.h"

namespace applogic::emulator::detail {
namespace {

// A sign-in page and the code it ends with live ten minutes, the longest RFC 6749 advises.
constexpr std::chrono::minutes kSignInLifetime{10};
constexpr std::chrono::minutes kCodeLifetime{10};

// The parameters that every sign-in page request of the client carries, besides the OAuth ones.
constexpr std::string_view kDeviceParameters[] = {"di.hw.name", "di.os.name", "di.os.version", "di.sdk.version",
                                                  "appIdentifier"};

constexpr std::string_view kInsufficientScopeDescription = "Insufficient scope: scope required profile.";
constexpr std::string_view kWrongCredentials = "The e-mail address or password is incorrect.";

std::vector<std::string> splitScopes(std::string_view text) {
  std::vector<std::string> scopes;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find(' '), text.size());
    if (end > 0) {
      std::string scope(text.substr(0, end));
      if (std::find(scopes.begin(), scopes.end(), scope) == scopes.end()) scopes.push_back(std::move(scope));
    }
    text.remove_prefix(std::min(end + 1, text.size()));
  }
  return scopes;
}

std::string joinScopes(const std::vector<std::string>& scopes) {
  std::string text;
  for (const std::string& scope : scopes) {
    if (!text.empty()) text += ' ';
    text += scope;
  }
  return text;
}

bool contains(const std::vector<std::string>& list, std::string_view item) {
  return std::find(list.begin(), list.end(), item) != list.end();
}

// RFC 7636: 43 to 128 characters of [A-Za-z0-9-._~].
bool isPkceText(std::string_view text) {
  return text.size() >= 43 && text.size() <= 128 && std::all_of(text.begin(), text.end(), [](char c) {
           return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' ||
                  c == '.' || c == '_' || c == '~';
         });
}

std::string percentDecodeOnly(std::string_view text) {
  std::string protectedPlus;
  for (const char c : text) protectedPlus += c == '+' ? std::string("%2B") : std::string(1, c);
  return formDecode(protectedPlus);
}

// The bundle identifier inside the client's appIdentifier: Base64 of {"bundleID": ...}, which may
// arrive percent-escaped once more (the client escapes it before the query is encoded).
std::optional<std::string> bundleOfAppIdentifier(std::string_view value) {
  std::string text(value);
  if (text.find('%') != std::string::npos) text = percentDecodeOnly(text);
  const std::optional<std::string> decoded = base64Decode(text);
  if (!decoded) return std::nullopt;
  boost::system::error_code error;
  const Json parsed = boost::json::parse(*decoded, error);
  if (error) return std::nullopt;
  const JsonObject* object = json::object(parsed);
  if (object == nullptr) return std::nullopt;
  const std::optional<std::string_view> bundle = json::string(*object, "bundleID");
  return bundle ? std::optional<std::string>(*bundle) : std::nullopt;
}

std::string appendQuery(std::string_view address, std::string_view query) {
  std::string out(address);
  out += address.find('?') == std::string_view::npos ? '?' : '&';
  out += query;
  return out;
}

Answer redirectTo(std::string location) {
  Answer answer;
  answer.status = 302;
  answer.contentType = "text/html; charset=utf-8";
  answer.body = "<!DOCTYPE html><title>Redirecting</title><p><a href=\"" + htmlEscape(location) +
                "\">Continue to the app</a></p>\n";
  answer.headers.emplace_back("Location", std::move(location));
  answer.headers.emplace_back("Cache-Control", "no-store");
  return answer;
}

Answer jsonAnswer(int status, const boost::json::object& body) {
  Answer answer;
  answer.status = status;
  answer.contentType = "application/json;charset=UTF-8";
  answer.body = boost::json::serialize(body);
  answer.headers.emplace_back("Cache-Control", "no-store");
  answer.headers.emplace_back("Pragma", "no-cache");
  return answer;
}

Answer bearerError(int status, std::string_view error, std::string_view description) {
  Answer answer = oauthJsonError(status, error, description);
  answer.headers.emplace_back("WWW-Authenticate", "Bearer error=\"" + std::string(error) + "\", error_description=\"" +
                                                      std::string(description) + "\"");
  return answer;
}

std::string signInForm(std::string_view requestId, const std::vector<std::string>& scopes, std::string_view note) {
  std::string scopeItems;
  for (const std::string& scope : scopes) scopeItems += "<li>" + htmlEscape(scope) + "</li>";
  return "<h1>Sign in</h1>\n"
         "<p>An app asks to use your account for:</p>\n<ul>" +
         scopeItems + "</ul>\n" + std::string(note) +
         "<form method=\"post\" action=\"/ap/oa\">\n"
         "<input type=\"hidden\" name=\"signin_request\" value=\"" +
         htmlEscape(requestId) +
         "\">\n"
         "<p><label for=\"email\">Email</label>\n"
         "<input id=\"email\" name=\"email\" type=\"email\" autocomplete=\"username\" required></p>\n"
         "<p><label for=\"password\">Password</label>\n"
         "<input id=\"password\" name=\"password\" type=\"password\" autocomplete=\"current-password\" "
         "required></p>\n"
         "<p><button type=\"submit\" name=\"action\" value=\"signin\">Sign in</button>\n"
         "<button type=\"submit\" name=\"action\" value=\"cancel\" formnovalidate>Cancel</button></p>\n"
         "</form>\n";
}

}  // namespace

Answer oauthJsonError(int status, std::string_view error, std::string_view description) {
  boost::json::object body;
  body["error"] = error;
  body["error_description"] = description;
  return jsonAnswer(status, body);
}

Answer htmlPage(int status, std::string_view title, std::string_view bodyHtml) {
  Answer answer;
  answer.status = status;
  answer.contentType = "text/html; charset=utf-8";
  answer.body = "<!DOCTYPE html>\n<html lang=\"en\">\n<head><meta charset=\"utf-8\"><title>" + htmlEscape(title) +
                "</title></head>\n<body>\n<main>\n" + std::string(bodyHtml) + "</main>\n</body>\n</html>\n";
  answer.headers.emplace_back("Cache-Control", "no-store");
  return answer;
}

Answer redirectWithError(const RedirectTarget& target, std::string_view error, std::string_view description) {
  std::string query = "error=" + percentEncode(error) + "&error_description=" + percentEncode(description);
  if (target.state) query += "&state=" + percentEncode(*target.state);
  return redirectTo(appendQuery(target.redirectUri, query));
}

Answer faultAnswer(Fault fault, const RedirectTarget& target) {
  switch (fault) {
    case Fault::invalidGrant:
      return oauthJsonError(400, "invalid_grant", "The grant is invalid, expired or revoked.");
    case Fault::invalidToken:
      return bearerError(401, "invalid_token", "The access token is invalid.");
    case Fault::insufficientScope:
      return bearerError(403, "insufficient_scope", kInsufficientScopeDescription);
    case Fault::versionDenied:
      return redirectWithError(target, "version_denied", "This sign-in view version is not supported.");
    case Fault::refusal:
      break;
  }
  return redirectWithError(target, "access_denied", "The request was refused.");
}

SignInAuthority::SignInAuthority(const SignInServerOptions& options)
    : options_(options), accessTokenLifetime_(options.accessTokenLifetime) {}

std::variant<RedirectTarget, Answer> SignInAuthority::checkClientAndRedirect(const Pairs& query) const {
  const auto page = [](std::string_view error, std::string_view description) {
    return htmlPage(400, "Sign-in error",
                    "<h1>This sign-in request cannot be answered</h1>\n<p>" + htmlEscape(error) + ": " +
                        htmlEscape(description) + "</p>\n");
  };
  const std::optional<std::string_view> clientId = find(query, "client_id");
  if (!clientId || clientId->empty()) return page("invalid_request", "client_id is missing.");
  if (!options_.clientId.empty() && *clientId != options_.clientId) return page("invalid_client", "Unknown client_id.");
  const std::optional<std::string_view> redirectUri = find(query, "redirect_uri");
  if (!redirectUri || redirectUri->empty()) return page("invalid_request", "redirect_uri is missing.");
  const std::size_t schemeEnd = redirectUri->find("://");
  const std::string_view scheme = redirectUri->substr(0, schemeEnd);
  const bool schemeOk = schemeEnd != std::string_view::npos && scheme.size() > 5 &&
                        equalsIgnoringAsciiCase(scheme.substr(0, 5), "amzn-") &&
                        (options_.bundleId.empty() || equalsIgnoringAsciiCase(scheme.substr(5), options_.bundleId));
  if (!schemeOk || redirectUri->find('#') != std::string_view::npos) {
    return page("invalid_request", "redirect_uri is not this app's address.");
  }
  RedirectTarget target{std::string(*redirectUri), std::nullopt};
  if (const auto state = find(query, "state")) target.state = std::string(*state);
  return target;
}

std::optional<RedirectTarget> SignInAuthority::takeRedirectTarget(bool isPost, const Pairs& params, TimePoint now) {
  if (!isPost) {
    auto checked = checkClientAndRedirect(params);
    if (auto* target = std::get_if<RedirectTarget>(&checked)) return std::move(*target);
    return std::nullopt;
  }
  const std::optional<std::string_view> id = find(params, "signin_request");
  if (!id) return std::nullopt;
  const auto found = signIns_.find(*id);
  if (found == signIns_.end() || found->second.expiresAt <= now) return std::nullopt;
  RedirectTarget target = std::move(found->second.target);
  signIns_.erase(found);
  return target;
}

Answer SignInAuthority::signInPage(const Pairs& query, TimePoint now) {
  auto checked = checkClientAndRedirect(query);
  if (auto* page = std::get_if<Answer>(&checked)) return std::move(*page);
  const RedirectTarget target = std::get<RedirectTarget>(std::move(checked));
  const auto refuse = [&](std::string_view error, const std::string& description) {
    return redirectWithError(target, error, description);
  };

  if (const auto repeated = firstRepeatedName(query)) {
    return refuse("invalid_request", std::string(*repeated) + " is given more than once.");
  }
  for (const std::string_view name : {"response_type", "scope", "state", "code_challenge", "code_challenge_method"}) {
    if (!find(query, name)) return refuse("invalid_request", std::string(name) + " is missing.");
  }
  for (const std::string_view name : kDeviceParameters) {
    if (const auto value = find(query, name); !value || value->empty()) {
      return refuse("invalid_request", std::string(name) + " is missing.");
    }
  }
  if (*find(query, "response_type") != "code") return refuse("unsupported_response_type", "response_type must be code.");
  const std::vector<std::string> scopes = splitScopes(*find(query, "scope"));
  if (scopes.empty()) return refuse("invalid_scope", "No scope is requested.");
  for (const std::string& scope : scopes) {
    if (!contains(options_.scopes, scope)) return refuse("invalid_scope", "Unknown scope " + scope + ".");
  }
  if (*find(query, "code_challenge_method") != "S256") {
    return refuse("invalid_request", "code_challenge_method must be S256.");
  }
  const std::string challenge(*find(query, "code_challenge"));
  if (challenge.size() != 43 || !isPkceText(challenge)) {
    return refuse("invalid_request", "code_challenge is not an S256 challenge.");
  }
  const std::optional<std::string> bundle = bundleOfAppIdentifier(*find(query, "appIdentifier"));
  if (!bundle) return refuse("invalid_request", "appIdentifier is not Base64 of a JSON object with bundleID.");
  const std::string_view redirectScheme = std::string_view(target.redirectUri).substr(0, target.redirectUri.find("://"));
  if (!equalsIgnoringAsciiCase(redirectScheme.substr(5), *bundle)) {
    return refuse("invalid_request", "appIdentifier and redirect_uri name different apps.");
  }

  std::string id = "sr." + randomToken();
  const std::string form = signInForm(id, scopes, "");
  signIns_[id] = SignInRequest{std::string(*find(query, "client_id")), target, scopes, challenge, now + kSignInLifetime};
  return htmlPage(200, "Sign in", form);
}

Answer SignInAuthority::submitSignIn(const Pairs& form, TimePoint now) {
  const std::optional<std::string_view> id = find(form, "signin_request");
  const auto found = id ? signIns_.find(*id) : signIns_.end();
  if (found == signIns_.end() || found->second.expiresAt <= now) {
    return htmlPage(400, "Sign-in expired",
                    "<h1>This sign-in page has expired</h1>\n<p>Start the sign-in again from the app.</p>\n");
  }
  if (find(form, "action") == std::optional<std::string_view>("cancel")) {
    const RedirectTarget target = found->second.target;
    signIns_.erase(found);
    return redirectWithError(target, "access_denied", "The user cancelled the sign-in.");
  }
  const std::optional<std::string_view> email = find(form, "email");
  const std::optional<std::string_view> password = find(form, "password");
  if (!email || !password || !equalsIgnoringAsciiCase(*email, options_.email) || *password != options_.password) {
    // As a real sign-in page does: the user may type again; the app hears nothing of a typo.
    return htmlPage(200, "Sign in",
                    signInForm(found->first, found->second.scopes,
                               "<p role=\"alert\">" + htmlEscape(kWrongCredentials) + "</p>\n"));
  }
  SignInRequest request = std::move(found->second);
  signIns_.erase(found);

  const std::uint64_t grant = nextGrant_++;
  grants_[grant] = Grant{request.clientId, request.scopes, false};
  std::string code = "ac." + randomToken();
  codes_[code] = Code{grant, request.clientId, request.target.redirectUri, request.challenge, now + kCodeLifetime, false};
  std::string query = "code=" + percentEncode(code) + "&scope=" + percentEncode(joinScopes(request.scopes));
  if (request.target.state) query += "&state=" + percentEncode(*request.target.state);
  return redirectTo(appendQuery(request.target.redirectUri, query));
}

Answer SignInAuthority::token(const Pairs& form, bool isForm, TimePoint now) {
  if (!isForm) {
    return oauthJsonError(400, "invalid_request", "The body must be application/x-www-form-urlencoded.");
  }
  if (const auto repeated = firstRepeatedName(form)) {
    return oauthJsonError(400, "invalid_request", std::string(*repeated) + " is given more than once.");
  }
  const std::optional<std::string_view> grantType = find(form, "grant_type");
  if (!grantType) return oauthJsonError(400, "invalid_request", "grant_type is missing.");
  const std::optional<std::string_view> clientId = find(form, "client_id");
  if (!clientId || clientId->empty()) return oauthJsonError(400, "invalid_request", "client_id is missing.");
  if (!options_.clientId.empty() && *clientId != options_.clientId) {
    return oauthJsonError(401, "invalid_client", "Unknown client_id.");
  }
  if (*grantType == "authorization_code") return codeGrant(form, now);
  if (*grantType == "refresh_token") return refreshGrant(form, now);
  return oauthJsonError(400, "unsupported_grant_type", "grant_type must be authorization_code or refresh_token.");
}

Answer SignInAuthority::codeGrant(const Pairs& form, TimePoint now) {
  for (const std::string_view name : {"code", "redirect_uri", "code_verifier"}) {
    if (!find(form, name)) return oauthJsonError(400, "invalid_request", std::string(name) + " is missing.");
  }
  const auto found = codes_.find(*find(form, "code"));
  if (found == codes_.end()) return oauthJsonError(400, "invalid_grant", "The authorization code is not known.");
  Code& code = found->second;
  if (code.spent) {
    // A second use suggests the code leaked: what the first use issued is revoked (RFC 6749 4.1.2).
    revoke(code.grant);
    return oauthJsonError(400, "invalid_grant", "The authorization code was already used.");
  }
  // The first attempt spends the code, whatever its outcome, so a verifier cannot be guessed.
  code.spent = true;
  if (code.expiresAt <= now) return oauthJsonError(400, "invalid_grant", "The authorization code has expired.");
  if (*find(form, "client_id") != code.clientId) {
    return oauthJsonError(400, "invalid_grant", "The authorization code was issued to another client.");
  }
  if (*find(form, "redirect_uri") != code.redirectUri) {
    return oauthJsonError(400, "invalid_grant", "redirect_uri differs from the sign-in request's.");
  }
  const std::string_view verifier = *find(form, "code_verifier");
  if (!isPkceText(verifier) || s256(verifier) != code.challenge) {
    return oauthJsonError(400, "invalid_grant", "The code verifier does not match the code challenge.");
  }
  return issueTokens(code.grant, grants_[code.grant].scopes, now);
}

Answer SignInAuthority::refreshGrant(const Pairs& form, TimePoint now) {
  const std::optional<std::string_view> refreshToken = find(form, "refresh_token");
  if (!refreshToken) return oauthJsonError(400, "invalid_request", "refresh_token is missing.");
  const auto found = refreshTokens_.find(*refreshToken);
  if (found == refreshTokens_.end()) return oauthJsonError(400, "invalid_grant", "The refresh token is not known.");
  const std::uint64_t grantId = found->second.grant;
  Grant& grant = grants_[grantId];
  if (grant.revoked) return oauthJsonError(400, "invalid_grant", "The refresh token has been revoked.");
  if (!found->second.current) {
    // Rotated tokens are used again only by a client that lost an answer or by a thief.
    revoke(grantId);
    return oauthJsonError(400, "invalid_grant", "The refresh token was already used; the grant is revoked.");
  }
  if (*find(form, "client_id") != grant.clientId) {
    return oauthJsonError(400, "invalid_grant", "The refresh token was issued to another client.");
  }
  std::vector<std::string> scopes = grant.scopes;
  if (const auto requested = find(form, "scope")) {
    scopes = splitScopes(*requested);
    for (const std::string& scope : scopes) {
      if (!contains(grant.scopes, scope)) return oauthJsonError(400, "invalid_scope", "The grant does not cover " + scope + ".");
    }
    if (scopes.empty()) scopes = grant.scopes;
  }
  found->second.current = false;
  return issueTokens(grantId, std::move(scopes), now);
}

Answer SignInAuthority::issueTokens(std::uint64_t grant, std::vector<std::string> scopes, TimePoint now) {
  std::string accessToken = "at." + randomToken();
  std::string refreshToken = "rt." + randomToken();
  boost::json::object body;
  body["access_token"] = accessToken;
  body["refresh_token"] = refreshToken;
  body["token_type"] = "bearer";
  body["expires_in"] = static_cast<std::int64_t>(accessTokenLifetime_.count());
  body["scope"] = joinScopes(scopes);
  accessTokens_[std::move(accessToken)] = AccessToken{grant, std::move(scopes), now + accessTokenLifetime_};
  refreshTokens_[std::move(refreshToken)] = RefreshToken{grant, true};
  return jsonAnswer(200, body);
}

void SignInAuthority::revoke(std::uint64_t grant) { grants_[grant].revoked = true; }

std::optional<AccessTokenInfo> SignInAuthority::checkAccessToken(std::string_view token, TimePoint now) const {
  const auto found = accessTokens_.find(token);
  if (found == accessTokens_.end() || found->second.expiresAt <= now) return std::nullopt;
  const auto grant = grants_.find(found->second.grant);
  if (grant == grants_.end() || grant->second.revoked) return std::nullopt;
  return AccessTokenInfo{options_.userId, found->second.scopes, found->second.expiresAt};
}

Answer SignInAuthority::profile(std::optional<std::string_view> authorization, TimePoint now) {
  std::string_view token;
  if (authorization && authorization->size() > 7 && equalsIgnoringAsciiCase(authorization->substr(0, 7), "Bearer ")) {
    token = authorization->substr(7);
    while (!token.empty() && token.front() == ' ') token.remove_prefix(1);
    while (!token.empty() && token.back() == ' ') token.remove_suffix(1);
  }
  if (token.empty()) return oauthJsonError(400, "invalid_request", "The access token is missing.");
  const auto found = accessTokens_.find(token);
  if (found == accessTokens_.end()) return bearerError(401, "invalid_token", "The access token is not known.");
  if (grants_[found->second.grant].revoked) return bearerError(401, "invalid_token", "The access token has been revoked.");
  if (found->second.expiresAt <= now) return bearerError(401, "invalid_token", "The access token has expired.");
  const std::vector<std::string>& scopes = found->second.scopes;
  const bool fullProfile = contains(scopes, "profile");
  if (!fullProfile && !contains(scopes, "profile:user_id")) {
    return bearerError(403, "insufficient_scope", kInsufficientScopeDescription);
  }
  boost::json::object body;
  body["user_id"] = options_.userId;
  if (fullProfile) {
    body["name"] = options_.name;
    body["email"] = options_.email;
  }
  if (contains(scopes, "postal_code")) body["postal_code"] = options_.postalCode;
  return jsonAnswer(200, body);
}

void SignInAuthority::reset() {
  accessTokenLifetime_ = options_.accessTokenLifetime;
  signIns_.clear();
  codes_.clear();
  grants_.clear();
  refreshTokens_.clear();
  accessTokens_.clear();
}

}  // namespace applogic::emulator::detail
