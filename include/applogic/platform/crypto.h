#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

namespace applogic::platform {

/// The platform's cryptographically secure random source.
///
/// Thread contract: implementations are safe to call from any thread, concurrently.
class SecureRandom {
 public:
  virtual ~SecureRandom() = default;
  /// Fills `bytes` with random bytes; false (and `bytes` unspecified) when the source fails.
  [[nodiscard]] virtual bool fill(std::span<std::uint8_t> bytes) const = 0;
};

/// The platform's cryptographic primitives.
///
/// Thread contract: implementations are safe to call from any thread, concurrently.
class Crypto {
 public:
  using Sha256Digest = std::array<std::uint8_t, 32>;

  virtual ~Crypto() = default;
  /// The SHA-256 digest of `bytes`, or absent when hashing fails.
  virtual std::optional<Sha256Digest> sha256(std::span<const std::uint8_t> bytes) const = 0;
};

}  // namespace applogic::platform
