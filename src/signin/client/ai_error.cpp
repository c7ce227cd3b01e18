#include "applogic/signin/client/ai_error.h"

#include <algorithm>
#include <array>
#include <utility>

#include "applogic/support/strings.h"

namespace applogic::signin {
namespace {

struct ErrorStringRow {
  std::string_view errorString;
  std::int64_t code;
  bool keepsDescription;
};

// Compared in this order; the first match wins.
constexpr std::array<ErrorStringRow, 13> kErrorStrings{{
    {"invalid_request", kAIInvalidInput, false},
    {"invalid_client", kAIInvalidInput, true},
    {"invalid_grant", kAIApplicationNotAuthorized, true},
    {"unauthorized_client", kAIUnauthorizedClient, true},
    {"unsupported_grant_type", kAIInternalError, true},
    {"invalid_scope", kAIInvalidInput, true},
    {"access_denied", kAIAccessDenied, true},
    {"unsupported_response_type", kAIInternalError, true},
    {"server_error", kAIServerError, true},
    {"servererror", kAIServerError, true},
    {"temporarily_unavailable", kAIServerError, true},
    {"insufficient_scope", kAIApplicationNotAuthorized, true},
    {"version_denied", kAIVersionDenied, true},
}};

}  // namespace

AIError::AIError() : code_(kAINoError), message_(kAIMessageNoError) {}

AIError::AIError(std::int64_t code, std::string message) : code_(code), message_(std::move(message)) {}

void AIError::setError(std::int64_t code, std::string message) {
  code_ = code;
  message_ = std::move(message);
}

void AIError::setErrorWithError(const AIError& other) {
  code_ = other.code_;
  message_ = other.message_;
}

void AIError::mergeWith(const AIError* other) {
  if (other != nullptr) setErrorWithError(*other);
}

void AIError::setErrorForErrorString(std::string_view errorString, std::optional<std::string_view> description) {
  const auto row = std::find_if(kErrorStrings.begin(), kErrorStrings.end(), [&](const ErrorStringRow& r) {
    return equalsIgnoringAsciiCase(errorString, r.errorString);
  });
  const std::string describedAs(description.value_or(std::string_view{}));
  if (row == kErrorStrings.end()) {
    setError(kAIServerError, describedAs);
  } else {
    setError(row->code, row->keepsDescription ? describedAs : std::string(kAIMessageGeneralInvalidInput));
  }
}

}  // namespace applogic::signin
