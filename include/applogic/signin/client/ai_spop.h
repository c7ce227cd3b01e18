#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "applogic/export.h"
#include "applogic/platform/crypto.h"

namespace applogic::signin {

/// Request parameter names of the proof key.
inline constexpr std::string_view CODE_VERIFIER = "code_verifier";
inline constexpr std::string_view CODE_CHALLENGE = "code_challenge";
inline constexpr std::string_view CODE_CHALLENGE_METHOD = "code_challenge_method";

/// The proof key for code exchange (RFC 7636, method "S256") of the sign-in in progress: the
/// secret verifier sent with the code exchange and the challenge sent with the sign-in page
/// request.
///
/// There is one shared instance at a time (`spop`). It is replaced only when it has no verifier,
/// that is after the app supplied its own challenge (`generateWithChallenge`).
///
/// Thread contract: used from the main thread. Only the shared slot itself is guarded, so that
/// its creation on first use is thread-safe.
class APPLOGIC_EXPORT AISPOP {
 public:
  /// A fresh pair: `spopKey` from `generate32BytesKey`, its challenge, method "S256".
  AISPOP(std::shared_ptr<const platform::SecureRandom> random, std::shared_ptr<const platform::Crypto> crypto);

  /// The shared instance. When there is none, or the current one has no `spopKey`, a new one is
  /// made from `random` and `crypto` and becomes the shared one; otherwise the arguments are not
  /// used.
  static std::shared_ptr<AISPOP> spop(const std::shared_ptr<const platform::SecureRandom>& random,
                                      const std::shared_ptr<const platform::Crypto>& crypto);
  /// Forgets the shared instance, so that the next `spop` makes a new one: for tests that must
  /// start from a clean process. Thread-safe.
  static void resetSharedInstance();

  /// The code verifier: 43 characters (32 random bytes, base64url). Absent after
  /// `generateWithChallenge`, or when the random source failed.
  const std::optional<std::string>& spopKey() const noexcept { return spopKey_; }
  /// "S256" for the client's own pair, otherwise what the app supplied (possibly absent).
  const std::optional<std::string>& spopMethod() const noexcept { return spopMethod_; }
  /// The code challenge (43 characters for "S256"); absent when hashing failed.
  const std::optional<std::string>& spopChallenge() const noexcept { return spopChallenge_; }

  /// A new verifier and its challenge; the method stays as it is.
  void regenerateSpop();
  /// Takes the app's challenge and method: the verifier becomes absent (the app keeps it).
  void generateWithChallenge(std::optional<std::string> challenge, std::optional<std::string> challengeMethod);

  /// 32 bytes from the secure random source, base64url-encoded; absent when the source fails.
  std::optional<std::string> generate32BytesKey() const;
  /// SHA-256 over the ASCII bytes of `text`, base64url-encoded; absent when `text` is not ASCII or
  /// hashing fails.
  std::optional<std::string> getSHA256HashStringFrom(std::string_view text) const;

 private:
  std::shared_ptr<const platform::SecureRandom> random_;
  std::shared_ptr<const platform::Crypto> crypto_;
  std::optional<std::string> spopKey_;
  std::optional<std::string> spopMethod_;
  std::optional<std::string> spopChallenge_;
};

}  // namespace applogic::signin
