#include "applogic/signin/client/ai_error.h"

#include <gtest/gtest.h>

#include <optional>
#include <string>

#include "applogic/signin/client/ai_key_chain_data_storage.h"

namespace applogic::signin {
namespace {

struct ErrorStringCase {
  const char* errorString;
  std::optional<const char*> description;
  std::int64_t code;
  const char* message;
};

class SetErrorForErrorString : public ::testing::TestWithParam<ErrorStringCase> {};

TEST_P(SetErrorForErrorString, SetsCodeAndMessage) {
  const auto& row = GetParam();
  AIError error;
  error.setErrorForErrorString(row.errorString, row.description ? std::optional<std::string_view>(*row.description)
                                                                : std::nullopt);
  EXPECT_EQ(error.code(), row.code);
  EXPECT_EQ(error.message(), row.message);
}

INSTANTIATE_TEST_SUITE_P(
    EveryRow, SetErrorForErrorString,
    ::testing::Values(
        // The server's description never replaces the fixed text of invalid_request.
        ErrorStringCase{"invalid_request", "bad param x", 6, "One or more input parameters are wrong."},
        ErrorStringCase{"invalid_request", std::nullopt, 6, "One or more input parameters are wrong."},
        ErrorStringCase{"invalid_client", "d", 6, "d"}, ErrorStringCase{"invalid_grant", "d", 1, "d"},
        ErrorStringCase{"unauthorized_client", "d", 8, "d"}, ErrorStringCase{"unsupported_grant_type", "d", 9, "d"},
        ErrorStringCase{"invalid_scope", "d", 6, "d"}, ErrorStringCase{"access_denied", "d", 4, "d"},
        ErrorStringCase{"unsupported_response_type", "d", 9, "d"}, ErrorStringCase{"server_error", "d", 2, "d"},
        ErrorStringCase{"servererror", "d", 2, "d"}, ErrorStringCase{"temporarily_unavailable", "d", 2, "d"},
        ErrorStringCase{"insufficient_scope", "d", 1, "d"}, ErrorStringCase{"version_denied", "d", 10, "d"},
        // Compared after lower-casing.
        ErrorStringCase{"INVALID_GRANT", "revoked", 1, "revoked"},
        ErrorStringCase{"Access_Denied", "no", 4, "no"},
        ErrorStringCase{"INVALID_REQUEST", "x", 6, "One or more input parameters are wrong."},
        // Anything else is a server error that keeps the description; absent gives empty.
        ErrorStringCase{"slow_down", "wait", 2, "wait"}, ErrorStringCase{"", "empty", 2, "empty"},
        ErrorStringCase{"invalid_grant ", "trailing blank", 2, "trailing blank"},
        ErrorStringCase{"access_denied", std::nullopt, 4, ""}, ErrorStringCase{"nope", std::nullopt, 2, ""}));

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

struct StatusCase {
  platform::SecureStoreStatus status;
  const char* message;
};

class KeychainStatusMessage : public ::testing::TestWithParam<StatusCase> {};

TEST_P(KeychainStatusMessage, IsTheTableText) {
  EXPECT_EQ(AIKeyChainDataStorage::getErrorString(GetParam().status), GetParam().message);
}

INSTANTIATE_TEST_SUITE_P(
    EveryStatus, KeychainStatusMessage,
    ::testing::Values(StatusCase{-4, "Function or operation not implemented."},
                      StatusCase{-50, "One or more parameters passed to the function were not valid."},
                      StatusCase{-108, "Failed to allocate memory."}, StatusCase{-25291, "No trust results are available."},
                      StatusCase{-25293, "Authorization/Authentication failed."},
                      StatusCase{-25299, "The item already exists."}, StatusCase{-25300, "The item cannot be found."},
                      StatusCase{-25308, "Interaction with the Security Server is not allowed."},
                      StatusCase{-26275, "Unable to decode the provided data."}, StatusCase{0, "Unknown Error Code."},
                      StatusCase{-25301, "Unknown Error Code."}, StatusCase{-51, "Unknown Error Code."}));

}  // namespace
}  // namespace applogic::signin
