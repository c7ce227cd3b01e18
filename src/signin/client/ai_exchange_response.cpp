#include "applogic/signin/client/ai_exchange_response.h"

#include <boost/json.hpp>
#include <chrono>

#include "applogic/signin/client/ai_token.h"

namespace applogic::signin {
namespace {

// "expires_in" seconds from now; absent when the member is missing or not an integer, or when the
// expiry would lie beyond the dates a token can hold. The bounds are taken from now in whole
// seconds first (now itself lies within the clock's range, well inside 64-bit seconds), so that
// neither the check nor the sum can overflow.
std::optional<platform::Clock::TimePoint> expiryFrom(const JsonObject& answer, const platform::Clock& clock) {
  const auto seconds = json::integer(answer, "expires_in");
  const auto now = clock.now();
  const std::int64_t nowSeconds = std::chrono::floor<std::chrono::seconds>(now.time_since_epoch()).count();
  if (!seconds || *seconds > kAITokenDateLimitSeconds - nowSeconds || *seconds < -kAITokenDateLimitSeconds - nowSeconds) {
    return std::nullopt;
  }
  return now + std::chrono::seconds(*seconds);
}

std::optional<std::string> stringMember(const JsonObject& answer, std::string_view key) {
  const auto value = json::string(answer, key);
  return value ? std::optional<std::string>(*value) : std::nullopt;
}

// Split at every single blank, as the server's list is read: "a  b" has an empty scope between.
std::vector<std::string> splitAtBlanks(std::string_view text) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  for (std::size_t blank; (blank = text.find(' ', start)) != std::string_view::npos; start = blank + 1) {
    parts.emplace_back(text.substr(start, blank - start));
  }
  parts.emplace_back(text.substr(start));
  return parts;
}

}  // namespace

std::optional<JsonObject> AIExchangeResponse::getResponseDictionaryFromJSON(AIError& error) {
  hasError_ = true;
  boost::system::error_code parseError;
  Json parsed = jsonData_.empty() ? Json() : boost::json::parse(jsonData_, parseError);
  JsonObject* answer = parseError ? nullptr : parsed.if_object();
  if (answer == nullptr) {
    error.setError(kAIServerError, std::string(kAIMessageJsonParseError));
    return std::nullopt;
  }
  if (const auto code = json::string(*answer, "error")) {
    errorCode_ = std::string(*code);
    errorMessage_ = stringMember(*answer, "error_description");
    error.setErrorForErrorString(*errorCode_, errorMessage_);
    return std::nullopt;
  }
  hasError_ = false;
  return std::move(*answer);
}

void AIExchangeResponse::invalidResponse(AIError& error) {
  hasError_ = true;
  error.setError(kAIServerError, std::string(kAIMessageInvalidResponseFromServer));
}

void AICodeExchangeResponse::parseServerResponse(const AICallContext& context) {
  const auto answer = getResponseDictionaryFromJSON(context.error());
  if (!answer) return;
  const auto expiry = expiryFrom(*answer, *clock_);
  if (!expiry) {
    invalidResponse(context.error());
    return;
  }
  if (const auto token = stringMember(*answer, "access_token")) {
    accessToken_ = std::make_shared<AIAccessToken>(token, context.scopes(), expiry, *clock_);
  }
  if (const auto token = stringMember(*answer, "refresh_token")) {
    refreshToken_ = std::make_shared<AIRefreshToken>(token, context.scopes(), *clock_);
  }
  if (!refreshToken_ || !accessToken_ || !accessToken_->isValid(*clock_)) invalidResponse(context.error());
}

void AIAccessTokenResponse::parseServerResponse(const AICallContext& context) {
  const auto answer = getResponseDictionaryFromJSON(context.error());
  if (!answer) return;
  if (const auto token = stringMember(*answer, "access_token")) {
    const auto scope = json::string(*answer, "scope");
    accessToken_ = std::make_shared<AIAccessToken>(
        token, scope ? splitAtBlanks(*scope) : std::vector<std::string>{}, expiryFrom(*answer, *clock_), *clock_);
  }
  if (const auto token = stringMember(*answer, "refresh_token")) {
    refreshToken_ = std::make_shared<AIRefreshToken>(token, storedRefreshScopes_, *clock_);
  }
  if (!accessToken_ || !accessToken_->isValid(*clock_) || (refreshToken_ && !refreshToken_->isValid(*clock_))) {
    invalidResponse(context.error());
  }
}

void AIProfileExchangerResponse::parseServerResponse(const AICallContext& context) {
  profile_ = getResponseDictionaryFromJSON(context.error());
}

}  // namespace applogic::signin
