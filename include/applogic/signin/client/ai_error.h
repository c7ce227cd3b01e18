#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "applogic/export.h"

namespace applogic::signin {

/// Error codes of the account sign-in client (`AIError::code()`).
inline constexpr std::int64_t kAINoError = 0;
inline constexpr std::int64_t kAIApplicationNotAuthorized = 1;
inline constexpr std::int64_t kAIServerError = 2;
inline constexpr std::int64_t kAIErrorUserInterrupted = 3;
inline constexpr std::int64_t kAIAccessDenied = 4;
inline constexpr std::int64_t kAIDeviceError = 5;
inline constexpr std::int64_t kAIInvalidInput = 6;
inline constexpr std::int64_t kAINetworkError = 7;
inline constexpr std::int64_t kAIUnauthorizedClient = 8;
inline constexpr std::int64_t kAIInternalError = 9;
inline constexpr std::int64_t kAIVersionDenied = 10;

/// Fixed messages, each written with the code named beside it. The spellings "incountered"
/// and "Interupted" are part of the contract.
inline constexpr std::string_view kAIMessageNoError = "No error";                                      // 0
inline constexpr std::string_view kAIMessageJsonParseError = "Could not parse response from the server.";  // 2
inline constexpr std::string_view kAIMessageGeneralInvalidInput = "One or more input parameters are wrong.";  // 6
inline constexpr std::string_view kAIMessageInvalidAPIKey = "APIKey for the Application is invalid.";  // 6
inline constexpr std::string_view kAIMessageInvalidSignInURL = "Invalid Sign In URL.";                 // 6
inline constexpr std::string_view kAIMessageInvalidAuthenticationDelegate =
    "Application should implement authentication delegate.";  // 6
inline constexpr std::string_view kAIMessageApplicationNotAuthorized =
    "The refresh token is invalid, expired or revoked.";  // 1
inline constexpr std::string_view kAIMessageInvalidResponseFromServer =
    "Received invalid response from the server.";  // 2
inline constexpr std::string_view kAIMessageStorageInitializationError = "Unable to initialize storage.";  // 5
inline constexpr std::string_view kAIMessageInternalErrorGeneral = "SDK incountered internal Error.";     // 9
inline constexpr std::string_view kAIMessageUserInterupted = "User cancelled sign in.";                   // 3
inline constexpr std::string_view kAIMessageNetworkErrorGeneral = "Network error encountered.";          // 7
inline constexpr std::string_view kAIMessageInvalidClientId = "Client id is invalid.";                   // 6
inline constexpr std::string_view kAIMessageInvalidRedirectURI = "Redirect to uri is invalid.";          // 6
inline constexpr std::string_view kAIMessageMissingCodeChallenge =
    "A code challenge is required when requesting authorization code in return.";  // 6

/// The error of one sign-in call: a code (0 = no error) and a human-readable message.
///
/// One object is made "No error" at the start of a call and shared by every step of it; the
/// step that fails writes into it, later steps ask `hasErrorOccured()` and stop. A later failure
/// overwrites an earlier one. Equal when codes and messages are equal.
///
/// Plain value; not synchronised (the sign-in client is confined to the main thread).
class APPLOGIC_EXPORT AIError {
 public:
  /// Code 0 with "No error" (`initWithErrorNone`).
  AIError();
  AIError(std::int64_t code, std::string message);

  /// Code 0 with "No error".
  static AIError errorNone() { return AIError(); }

  std::int64_t code() const noexcept { return code_; }
  const std::string& message() const noexcept { return message_; }

  /// `setError:withMessage:`.
  void setError(std::int64_t code, std::string message);
  /// `setErrorWithError:`: copies code and message of `other`.
  void setErrorWithError(const AIError& other);
  /// `mergeWith:`: copies code and message of `other`; does nothing when `other` is null.
  void mergeWith(const AIError* other);
  /// A new error with the same code and message.
  AIError copy() const { return *this; }
  /// True when the code is not 0.
  bool hasErrorOccured() const noexcept { return code_ != kAINoError; }

  /// Sets the code from an OAuth error string (compared after ASCII lower-casing) and the message
  /// from `description` ("error_description"; absent gives an empty message). "invalid_request"
  /// always takes "One or more input parameters are wrong." instead of the description; a string
  /// the table does not name gives `kAIServerError`.
  void setErrorForErrorString(std::string_view errorString, std::optional<std::string_view> description);

  friend bool operator==(const AIError&, const AIError&) = default;

 private:
  std::int64_t code_;
  std::string message_;
};

}  // namespace applogic::signin
