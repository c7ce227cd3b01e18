#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"
#include "applogic/platform/crypto.h"

namespace applogic::signin {

/// Verifies the signature of an API key with an RSA public key given as PEM text.
///
/// The key text goes through `convertKeyToData` (formatting removed, lenient Base64,
/// `stripPublicKeyHeader`); the resulting bare PKCS #1 key, possibly followed by a few bytes that
/// the end marker decodes to, is handed to `platform::Crypto`, which ignores bytes after the key.
///
/// Thread contract: immutable; any thread (as far as the `Crypto` allows, which is any).
class APPLOGIC_EXPORT AIRSASigner {
 public:
  /// `crypto` hashes and verifies; null verifies nothing (every signature fails).
  explicit AIRSASigner(std::shared_ptr<const platform::Crypto> crypto) : crypto_(std::move(crypto)) {}

  /// True exactly when `signature` (standard Base64) is a PKCS #1 v1.5 SHA-256 RSA signature of
  /// the UTF-8 bytes of `message` under `publicKey` (PEM). False when the key is absent or
  /// unreadable, the signature is not Base64 or does not match.
  bool verifyMessage(std::string_view message, std::string_view signature,
                     std::optional<std::string_view> publicKey) const;

  /// The key as the platform verifies with it: `convertKeyToData` of `key`; absent for an absent
  /// key or when the conversion fails. (There is no keychain to import into: the key bytes
  /// themselves are the platform key.)
  std::optional<std::vector<std::uint8_t>> getPublicKey(std::optional<std::string_view> key) const;

  /// `removeFormattingFromKey`, lenient Base64 decoding (characters outside the alphabet are
  /// skipped), then `stripPublicKeyHeader`.
  static std::optional<std::vector<std::uint8_t>> convertKeyToData(std::string_view key);

  /// Removes "-----BEGIN PUBLIC KEY-----\n" when the text starts with it; removes
  /// "-----END PUBLIC KEY-----" only when it stands at the very start of what is left (the search
  /// is limited to the first marker-length characters, so in a normal key text the end marker
  /// stays, and the lenient decoding later skips its dashes and blanks); then removes every
  /// "\n". Text shorter than a marker cannot hold it and keeps it.
  static std::string removeFormattingFromKey(std::string_view key);

  /// The bare RSA public key inside a DER SubjectPublicKeyInfo: absent for empty data; the first
  /// byte must be 0x30; its length is skipped (one byte when below 0x81, otherwise that byte and
  /// the (byte - 0x80) length bytes after it); the next 15 bytes must be the rsaEncryption
  /// algorithm identifier 30 0D 06 09 2A 86 48 86 F7 0D 01 01 01 05 00; the next byte must be
  /// 0x03; its length is skipped the same way; the next byte must be 0x00. Everything after it is
  /// returned. Absent when a check fails or the data ends before a byte that is read or skipped.
  static std::optional<std::vector<std::uint8_t>> stripPublicKeyHeader(std::span<const std::uint8_t> key);

 private:
  std::shared_ptr<const platform::Crypto> crypto_;
};

}  // namespace applogic::signin
