#include "applogic/signin/client/base64.h"

#include <array>

namespace applogic::signin::base64 {
namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr std::uint8_t kNotInAlphabet = 0xff;

constexpr std::array<std::uint8_t, 256> makeValues() {
  std::array<std::uint8_t, 256> values{};
  values.fill(kNotInAlphabet);
  for (std::size_t i = 0; i < kAlphabet.size(); ++i) values[static_cast<unsigned char>(kAlphabet[i])] = static_cast<std::uint8_t>(i);
  return values;
}

constexpr std::array<std::uint8_t, 256> kValues = makeValues();

std::uint8_t valueOf(char c) { return kValues[static_cast<unsigned char>(c)]; }

// Appends the bytes of `count` (2 to 4) sextets.
void appendGroup(std::vector<std::uint8_t>& out, const std::uint8_t* sextets, std::size_t count) {
  const std::uint32_t n = (std::uint32_t{sextets[0]} << 18) | (std::uint32_t{sextets[1]} << 12) |
                          (count > 2 ? std::uint32_t{sextets[2]} << 6 : 0) | (count > 3 ? sextets[3] : 0);
  out.push_back(static_cast<std::uint8_t>(n >> 16));
  if (count > 2) out.push_back(static_cast<std::uint8_t>(n >> 8));
  if (count > 3) out.push_back(static_cast<std::uint8_t>(n));
}

// Both alphabets share the grouping; only the characters and the padding differ.
std::string encodeWith(std::span<const std::uint8_t> bytes, std::string_view alphabet, bool pad) {
  std::string out;
  out.reserve((bytes.size() + 2) / 3 * 4);
  std::size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    const std::uint32_t n = (std::uint32_t{bytes[i]} << 16) | (std::uint32_t{bytes[i + 1]} << 8) | bytes[i + 2];
    out += alphabet[(n >> 18) & 63];
    out += alphabet[(n >> 12) & 63];
    out += alphabet[(n >> 6) & 63];
    out += alphabet[n & 63];
  }
  const std::size_t rest = bytes.size() - i;
  if (rest > 0) {
    std::uint32_t n = std::uint32_t{bytes[i]} << 16;
    if (rest == 2) n |= std::uint32_t{bytes[i + 1]} << 8;
    out += alphabet[(n >> 18) & 63];
    out += alphabet[(n >> 12) & 63];
    if (rest == 2) out += alphabet[(n >> 6) & 63];
    if (pad) out.append(rest == 2 ? 1 : 2, '=');
  }
  return out;
}

// Decodes the alphabet characters of `text` as one stream. A character outside the alphabet
// ends the decoding (absent) unless `skipUnknown`; a last lone character is dropped.
std::optional<std::vector<std::uint8_t>> decodeStream(std::string_view text, bool skipUnknown) {
  std::vector<std::uint8_t> out;
  out.reserve(text.size() / 4 * 3 + 2);
  std::array<std::uint8_t, 4> group{};
  std::size_t filled = 0;
  for (const char c : text) {
    const std::uint8_t value = valueOf(c);
    if (value == kNotInAlphabet) {
      if (skipUnknown) continue;
      return std::nullopt;
    }
    group[filled++] = value;
    if (filled == 4) {
      appendGroup(out, group.data(), 4);
      filled = 0;
    }
  }
  if (filled >= 2) appendGroup(out, group.data(), filled);
  return out;
}

}  // namespace

std::string encode(std::span<const std::uint8_t> bytes) { return encodeWith(bytes, kAlphabet, true); }

std::string encodeUrl(std::span<const std::uint8_t> bytes) {
  return encodeWith(bytes, "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_", false);
}

std::optional<std::vector<std::uint8_t>> decode(std::string_view text) {
  if (text.size() % 4 != 0) return std::nullopt;
  std::size_t padding = 0;
  while (padding < 2 && padding < text.size() && text[text.size() - 1 - padding] == '=') ++padding;
  // With a length that is a multiple of 4 and at most two "=", the last group holds 2 or 3
  // characters (or none), so nothing is dropped at the end.
  return decodeStream(text.substr(0, text.size() - padding), false);
}

std::vector<std::uint8_t> decodeIgnoringUnknownCharacters(std::string_view text) {
  return *decodeStream(text, true);
}

}  // namespace applogic::signin::base64
