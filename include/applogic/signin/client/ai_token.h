#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"
#include "applogic/platform/clock.h"
#include "applogic/support/json.h"

namespace applogic::signin {

/// Token types: the `tokenType` of a token and the key of its storage item.
inline constexpr std::int32_t kTokenTypePlain = 0;
inline constexpr std::int32_t kTokenTypeRefreshToken = 1;
inline constexpr std::int32_t kTokenTypeAccessToken = 2;
inline constexpr std::int32_t kTokenTypeCode = 3;
inline constexpr std::int32_t kTokenTypeProfileData = 4;

/// Dates a token can hold lie within this many seconds either side of the epoch: the clock counts
/// nanoseconds in 64 bits, which ends in 2262. An archive with a date beyond is unreadable, and an
/// exchange answer whose expiry would lie beyond is invalid.
inline constexpr std::int64_t kAITokenDateLimitSeconds = 9'000'000'000;

/// A credential of the sign-in client; the base of the token family.
///
/// Validity is asked of an injected clock, never of the system clock. `getValue` archives a token
/// into bytes and `unarchiveFromNSData` gives back an object of the class that wrote them (the
/// archive is a JSON object with the class name under "$class", the archive keys of each class,
/// and dates as seconds since the epoch, kept to the microsecond).
///
/// Plain objects: not synchronised; the sign-in client uses them on the main thread.
class APPLOGIC_EXPORT AIToken {
 public:
  using TimePoint = platform::Clock::TimePoint;

  /// No token, type 0 (`init`).
  AIToken();
  /// `initWithToken:`: the token, type 0, `localTimeStamp` = now.
  AIToken(std::optional<std::string> token, const platform::Clock& clock);
  virtual ~AIToken() = default;

  const std::optional<std::string>& token() const noexcept { return token_; }
  std::int32_t tokenType() const noexcept { return tokenType_; }
  /// When the token was made on this device; absent for `AIToken()`.
  const std::optional<TimePoint>& localTimeStamp() const noexcept { return localTimeStamp_; }

  /// True when the token string is present.
  virtual bool isValid(const platform::Clock& clock) const;
  /// Same token string and same type (and, for the scoped kinds, the same scopes).
  virtual bool isEqual(const AIToken& other) const;
  /// The type: the key of the storage item.
  std::int32_t getKey() const noexcept { return tokenType_; }
  /// The token archived to bytes.
  std::vector<std::uint8_t> getValue() const;
  /// The object archived in `data`, of the class that archived it; null when `data` is not an
  /// archive this family can read (not JSON, unknown class, a key of the wrong type, a date out
  /// of range). Never throws.
  static std::unique_ptr<AIToken> unarchiveFromNSData(std::span<const std::uint8_t> data);

  /// The class name written under "$class" ("AIToken", "AIAccessToken", ...).
  virtual std::string_view className() const { return "AIToken"; }

 protected:
  explicit AIToken(std::int32_t tokenType) : tokenType_(tokenType) {}
  /// Writes the archive keys of this class; overrides add their own.
  virtual void encode(JsonObject& archive) const;
  /// Reads the archive keys of this class; false when one of them has the wrong type.
  virtual bool decode(const JsonObject& archive);
  /// The scopes of the scoped kinds; null for the others.
  virtual const std::vector<std::string>* scopeList() const { return nullptr; }

  void setTokenType(std::int32_t type) noexcept { tokenType_ = type; }
  void setLocalTimeStamp(std::optional<TimePoint> stamp) noexcept { localTimeStamp_ = stamp; }

  static void encodeDate(JsonObject& archive, std::string_view key, const std::optional<TimePoint>& date);
  static bool decodeDate(const JsonObject& archive, std::string_view key, std::optional<TimePoint>& date);
  static void encodeScopes(JsonObject& archive, const std::vector<std::string>& scopes);
  static bool decodeScopes(const JsonObject& archive, std::vector<std::string>& scopes);
  /// `isEqual` of the scoped kinds: base equality, as many scopes as `other` has, and every
  /// scope of this token among `other`'s.
  bool scopedEqual(const AIToken& other) const;
  /// Present and every requested scope among this token's (an empty request always matches).
  bool holdsScopes(const std::vector<std::string>& requested) const;

 private:
  std::optional<std::string> token_;
  std::int32_t tokenType_ = kTokenTypePlain;
  std::optional<TimePoint> localTimeStamp_;
};

/// An access token (type 2): valid while its expiration date lies strictly after now. No
/// safety margin is applied.
class APPLOGIC_EXPORT AIAccessToken : public AIToken {
 public:
  AIAccessToken() : AIToken(kTokenTypeAccessToken) {}
  /// `initWithToken:expirationDate:`.
  AIAccessToken(std::optional<std::string> token, std::optional<TimePoint> expirationDate,
                const platform::Clock& clock);
  /// `initWithToken:andScopes:expirationDate:`.
  AIAccessToken(std::optional<std::string> token, std::vector<std::string> scopes,
                std::optional<TimePoint> expirationDate, const platform::Clock& clock);

  const std::optional<TimePoint>& expirationDate() const noexcept { return expirationDate_; }
  const std::vector<std::string>& scopes() const noexcept { return scopes_; }

  /// Token present, expiration date present and strictly after `clock.now()`.
  bool isValid(const platform::Clock& clock) const override;
  /// `isValid` and every requested scope among the token's.
  bool isValidForScopes(const std::vector<std::string>& requested, const platform::Clock& clock) const;
  bool isEqual(const AIToken& other) const override { return scopedEqual(other); }
  std::string_view className() const override { return "AIAccessToken"; }

 protected:
  void encode(JsonObject& archive) const override;
  bool decode(const JsonObject& archive) override;
  const std::vector<std::string>* scopeList() const override { return &scopes_; }

 private:
  std::optional<TimePoint> expirationDate_;
  std::vector<std::string> scopes_;
};

/// A refresh token (type 1). It has no expiry: valid while the token string is present.
class APPLOGIC_EXPORT AIRefreshToken : public AIToken {
 public:
  AIRefreshToken() : AIToken(kTokenTypeRefreshToken) {}
  /// `initWithToken:`.
  AIRefreshToken(std::optional<std::string> token, const platform::Clock& clock);
  /// `initWithToken:andScopes:`.
  AIRefreshToken(std::optional<std::string> token, std::vector<std::string> scopes, const platform::Clock& clock);

  const std::vector<std::string>& scopes() const noexcept { return scopes_; }

  /// `isValid` and every requested scope among the token's.
  bool isValidForScopes(const std::vector<std::string>& requested, const platform::Clock& clock) const;
  bool isEqual(const AIToken& other) const override { return scopedEqual(other); }
  std::string_view className() const override { return "AIRefreshToken"; }

 protected:
  void encode(JsonObject& archive) const override;
  bool decode(const JsonObject& archive) override;
  const std::vector<std::string>* scopeList() const override { return &scopes_; }

 private:
  std::vector<std::string> scopes_;
};

/// The authorization code between the browser's return and its exchange (type 3).
class APPLOGIC_EXPORT AICode : public AIToken {
 public:
  AICode() : AIToken(kTokenTypeCode) {}
  /// `initWithToken:`.
  AICode(std::optional<std::string> token, const platform::Clock& clock);
  std::string_view className() const override { return "AICode"; }
};

/// The cached profile of the signed-in user (type 4), trusted for one hour after it was made.
/// Its archive holds only "expirationDate" and "profile".
class APPLOGIC_EXPORT AIProfileData : public AIToken {
 public:
  /// Seconds a fetched profile is trusted.
  static constexpr std::chrono::seconds kLifetime{3600};

  AIProfileData() : AIToken(kTokenTypeProfileData) {}
  /// `initWithProfileData:`: no token, `localTimeStamp` = now, expiration = now + 3600 s.
  AIProfileData(std::optional<JsonObject> profileData, const platform::Clock& clock);

  const std::optional<TimePoint>& expirationDate() const noexcept { return expirationDate_; }
  const std::optional<JsonObject>& profileData() const noexcept { return profileData_; }

  /// Profile present, expiration date present and strictly after `clock.now()`.
  bool isValid(const platform::Clock& clock) const override;
  std::string_view className() const override { return "AIProfileData"; }

 protected:
  void encode(JsonObject& archive) const override;
  bool decode(const JsonObject& archive) override;

 private:
  std::optional<TimePoint> expirationDate_;
  std::optional<JsonObject> profileData_;
};

}  // namespace applogic::signin
