#include "applogic/signin/client/ai_error.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "applogic/signin/client/ai_key_chain_data_storage.h"

namespace applogic::signin {
namespace {

// Every row of the error-string table, compared after lower-casing; the server's description never
// replaces the fixed text of invalid_request; anything else is a server error that keeps the
// description (absent gives empty).
TEST(SetErrorForErrorString, SetsCodeAndMessageForEveryRow) {
  struct Row {
    const char* errorString;
    std::optional<const char*> description;
    std::int64_t code;
    const char* message;
  };
  const Row rows[] = {
      {"invalid_request", "bad param x", 6, "One or more input parameters are wrong."},
      {"invalid_request", std::nullopt, 6, "One or more input parameters are wrong."},
      {"invalid_client", "d", 6, "d"}, {"invalid_grant", "d", 1, "d"},
      {"unauthorized_client", "d", 8, "d"}, {"unsupported_grant_type", "d", 9, "d"},
      {"invalid_scope", "d", 6, "d"}, {"access_denied", "d", 4, "d"},
      {"unsupported_response_type", "d", 9, "d"}, {"server_error", "d", 2, "d"},
      {"servererror", "d", 2, "d"}, {"temporarily_unavailable", "d", 2, "d"},
      {"insufficient_scope", "d", 1, "d"}, {"version_denied", "d", 10, "d"},
      // Compared after lower-casing.
      {"INVALID_GRANT", "revoked", 1, "revoked"},
      {"Access_Denied", "no", 4, "no"},
      {"INVALID_REQUEST", "x", 6, "One or more input parameters are wrong."},
      // Anything else is a server error that keeps the description; absent gives empty.
      {"slow_down", "wait", 2, "wait"}, {"", "empty", 2, "empty"},
      {"invalid_grant ", "trailing blank", 2, "trailing blank"},
      {"access_denied", std::nullopt, 4, ""}, {"nope", std::nullopt, 2, ""}};
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string("\"") + row.errorString + "\" " + (row.description ? *row.description : "(none)"));
    AIError error;
    error.setErrorForErrorString(row.errorString, row.description ? std::optional<std::string_view>(*row.description)
                                                                  : std::nullopt);
    EXPECT_EQ(error.code(), row.code);
    EXPECT_EQ(error.message(), row.message);
  }
}

TEST(AIError, StartsWithoutErrorAndReportsOnlyNonZeroCodes) {
  AIError error;
  EXPECT_EQ(error, AIError(kAINoError, "No error"));
  EXPECT_FALSE(error.hasErrorOccured());
  error.setError(kAINetworkError, std::string(kAIMessageNetworkErrorGeneral));
  EXPECT_TRUE(error.hasErrorOccured());
  error.setError(kAINoError, "cleared");
  EXPECT_FALSE(error.hasErrorOccured());
}

TEST(AIError, MergeWithCopiesAndIgnoresNull) {
  AIError error(kAIDeviceError, "disk");
  error.mergeWith(nullptr);
  EXPECT_EQ(error, AIError(kAIDeviceError, "disk"));
  const AIError other(kAIAccessDenied, "denied");
  error.mergeWith(&other);
  EXPECT_EQ(error, other);
}

TEST(AIError, EqualityNeedsCodeAndMessage) {
  EXPECT_NE(AIError(1, "a"), AIError(2, "a"));
  EXPECT_NE(AIError(1, "a"), AIError(1, "b"));
}

TEST(KeychainStatusMessage, IsTheTableTextForEveryStatus) {
  const std::pair<platform::SecureStoreStatus, const char*> rows[] = {
      {-4, "Function or operation not implemented."},
      {-50, "One or more parameters passed to the function were not valid."},
      {-108, "Failed to allocate memory."}, {-25291, "No trust results are available."},
      {-25293, "Authorization/Authentication failed."},
      {-25299, "The item already exists."}, {-25300, "The item cannot be found."},
      {-25308, "Interaction with the Security Server is not allowed."},
      {-26275, "Unable to decode the provided data."}, {0, "Unknown Error Code."},
      {-25301, "Unknown Error Code."}, {-51, "Unknown Error Code."}};
  for (const auto& [status, message] : rows) {
    EXPECT_EQ(AIKeyChainDataStorage::getErrorString(status), message) << status;
  }
}

}  // namespace
}  // namespace applogic::signin
