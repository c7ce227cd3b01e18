#include "applogic/controllers/current_user.h"

#include <gtest/gtest.h>

namespace applogic {
namespace {

class FixedUser : public CurrentUserProvider {
 public:
  explicit FixedUser(std::optional<std::string> guid) : guid_(std::move(guid)) {}
  std::optional<std::string> userGuid() const override { return guid_; }

 private:
  std::optional<std::string> guid_;
};

TEST(IsCurrentUser, ComparesTheSignedInIdAsText) {
  const struct {
    std::optional<std::string> signedIn;
    const char* userID;
    bool expected;
  } rows[] = {
      {std::nullopt, "", false}, {std::nullopt, "u-1", false}, {"u-1", "u-1", true}, {"", "", true},
      {"u-1", "U-1", false},     {"u-1", "u-1 ", false},       {"u-1", "", false},    {"", "u-1", false},
      // canonically equivalent spellings of "café"
      {"caf\xC3\xA9", "cafe\xCC\x81", true}, {"caf\xC3\xA9", "cafe", false}};
  for (const auto& row : rows) {
    EXPECT_EQ(FixedUser(row.signedIn).isCurrentUser(row.userID), row.expected)
        << row.signedIn.value_or("nobody") << " vs \"" << row.userID << '"';
  }
}

TEST(UserHint, CasesAndExplicitIdsDecideEquality) {
  EXPECT_EQ(UserHint::user("a"), UserHint::user("a"));
  EXPECT_EQ(UserHint::currentUser(), UserHint::currentUser());
  EXPECT_EQ(UserHint::user("caf\xC3\xA9"), UserHint::user("cafe\xCC\x81"));
  EXPECT_FALSE(UserHint::user("a") == UserHint::user("b"));
  EXPECT_FALSE(UserHint::user("") == UserHint::currentUser());
  EXPECT_FALSE(UserHint::currentUser() == UserHint::user(""));

  const UserHint explicitUser = UserHint::user("u-1");
  ASSERT_NE(explicitUser.explicitUserID(), nullptr);
  EXPECT_EQ(*explicitUser.explicitUserID(), "u-1");
  EXPECT_EQ(UserHint::currentUser().explicitUserID(), nullptr);
}

}  // namespace
}  // namespace applogic
