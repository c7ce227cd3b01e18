#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <span>

#include "applogic/export.h"

namespace applogic::platform {

/// The platform's cryptographically secure random source.
///
/// Thread contract: implementations are safe to call from any thread, concurrently.
class APPLOGIC_EXPORT SecureRandom {
 public:
  virtual ~SecureRandom() = default;
  /// Fills `bytes` with random bytes; false (and `bytes` unspecified) when the source fails.
  [[nodiscard]] virtual bool fill(std::span<std::uint8_t> bytes) const = 0;
};

/// The platform's cryptographic primitives.
///
/// Thread contract: implementations are safe to call from any thread, concurrently.
class APPLOGIC_EXPORT Crypto {
 public:
  using Sha256Digest = std::array<std::uint8_t, 32>;

  virtual ~Crypto() = default;
  /// The SHA-256 digest of `bytes`, or absent when hashing fails.
  virtual std::optional<Sha256Digest> sha256(std::span<const std::uint8_t> bytes) const = 0;

  /// Whether `signature` is an RSA signature of `digest` under `publicKey` with PKCS #1 v1.5
  /// padding for SHA-256 (RSASSA-PKCS1-v1_5, the digest wrapped in SHA-256's DigestInfo).
  ///
  /// `publicKey` is a bare PKCS #1 `RSAPublicKey` in DER (modulus and exponent, no algorithm
  /// identifier). Bytes after the end of its DER are ignored, so key data with trailing bytes
  /// is accepted. False when the key cannot be read or the signature does not match; never
  /// throws. The default answers false: a platform without RSA verification accepts no signature.
  virtual bool verifyRsaSha256Signature(std::span<const std::uint8_t> /*publicKey*/, const Sha256Digest& /*digest*/,
                                        std::span<const std::uint8_t> /*signature*/) const {
    return false;
  }
};

}  // namespace applogic::platform
