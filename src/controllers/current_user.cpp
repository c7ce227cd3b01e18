#include "applogic/controllers/current_user.h"

#include "applogic/support/strings.h"

namespace applogic {

bool operator==(const UserHint& a, const UserHint& b) noexcept {
  if (!a.userID_ || !b.userID_) return !a.userID_ && !b.userID_;
  return canonicallyEqual(*a.userID_, *b.userID_);
}

bool CurrentUserProvider::isCurrentUser(std::string_view userID) const {
  const std::optional<std::string> signedIn = userGuid();
  return signedIn && canonicallyEqual(*signedIn, userID);
}

}  // namespace applogic
