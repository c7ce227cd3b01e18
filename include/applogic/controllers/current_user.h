#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "applogic/export.h"

namespace applogic {

/// Names whose data a service update concerns: an explicit user, or the signed-in user,
/// whoever that is when the hint is resolved (see `UserHintToUserID`). Plain value; any thread.
class APPLOGIC_EXPORT UserHint {
 public:
  /// The user with this id.
  static UserHint user(std::string userID) { return UserHint(std::move(userID)); }
  /// The signed-in user.
  static UserHint currentUser() noexcept { return UserHint(); }

  /// The explicit user's id, or null for the signed-in-user hint.
  const std::string* explicitUserID() const noexcept { return userID_ ? &*userID_ : nullptr; }

  /// Same case and, for explicit users, canonically equal ids.
  friend APPLOGIC_EXPORT bool operator==(const UserHint& a, const UserHint& b) noexcept;

 private:
  UserHint() noexcept = default;
  explicit UserHint(std::string userID) : userID_(std::move(userID)) {}

  std::optional<std::string> userID_;
};

/// Tells who is signed in. Implemented by the app (its account layer) and handed to the data
/// controllers that need it.
///
/// Thread contract: `userGuid()` is called on whatever thread the caller runs on; the
/// controllers call it on the thread their service emits on. Implementations must therefore be
/// safe to call from any thread, must not block for long, and must not call back into the
/// controller that asks.
class APPLOGIC_EXPORT CurrentUserProvider {
 public:
  virtual ~CurrentUserProvider() = default;

  /// The signed-in user's id, or absent when nobody is signed in.
  virtual std::optional<std::string> userGuid() const = 0;

  /// True when a user is signed in and `userID` is that user's id. The ids compare as text
  /// (no case folding, no trimming), canonically equivalent texts counting as equal. With nobody
  /// signed in the answer is false, even for an empty `userID`.
  bool isCurrentUser(std::string_view userID) const;

 protected:
  CurrentUserProvider() = default;
  CurrentUserProvider(const CurrentUserProvider&) = default;
  CurrentUserProvider& operator=(const CurrentUserProvider&) = default;
};

}  // namespace applogic
