#include "applogic/signin/client/ai_utils.h"

#include <string_view>

namespace applogic::signin {

std::string AIUtils::base64URLEncode(std::span<const std::uint8_t> bytes) {
  // Writing the URL-safe alphabet directly and stopping before the padding is the same as
  // encoding with the standard one and then replacing and removing characters.
  constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_";
  std::string out;
  out.reserve((bytes.size() * 4 + 2) / 3);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const std::uint32_t n = (std::uint32_t{bytes[i]} << 16) | (std::uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
    out += kAlphabet[(n >> 18) & 63];
    out += kAlphabet[(n >> 12) & 63];
    out += kAlphabet[(n >> 6) & 63];
    out += kAlphabet[n & 63];
  }
  const std::size_t rest = bytes.size() - i;
  if (rest > 0) {
    std::uint32_t n = std::uint32_t{bytes[i]} << 16;
    if (rest == 2) n |= std::uint32_t{bytes[i + 1]} << 8;
    out += kAlphabet[(n >> 18) & 63];
    out += kAlphabet[(n >> 12) & 63];
    if (rest == 2) out += kAlphabet[(n >> 6) & 63];
  }
  return out;
}

}  // namespace applogic::signin
