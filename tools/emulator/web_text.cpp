#include "web_text.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>
#include <set>
#include <stdexcept>

#include <openssl/rand.h>
#include <openssl/sha.h>

namespace applogic::emulator::detail {
namespace {

int hexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

bool isUnreserved(unsigned char c) {
  return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '-' || c == '.' ||
         c == '_' || c == '~';
}

constexpr std::string_view kBase64 = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

}  // namespace

std::string formDecode(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '+') {
      out += ' ';
    } else if (c == '%' && i + 2 < text.size() && hexValue(text[i + 1]) >= 0 && hexValue(text[i + 2]) >= 0) {
      out += static_cast<char>(hexValue(text[i + 1]) * 16 + hexValue(text[i + 2]));
      i += 2;
    } else {
      out += c;
    }
  }
  return out;
}

Pairs parseForm(std::string_view text) {
  Pairs pairs;
  while (!text.empty()) {
    const std::size_t end = std::min(text.find('&'), text.size());
    const std::string_view piece = text.substr(0, end);
    text.remove_prefix(std::min(end + 1, text.size()));
    if (piece.empty()) continue;
    const std::size_t equals = piece.find('=');
    if (equals == std::string_view::npos) {
      pairs.emplace_back(formDecode(piece), std::string());
    } else {
      pairs.emplace_back(formDecode(piece.substr(0, equals)), formDecode(piece.substr(equals + 1)));
    }
  }
  return pairs;
}

std::string percentEncode(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (isUnreserved(byte)) {
      out += c;
    } else {
      out += '%';
      out += kHex[byte >> 4];
      out += kHex[byte & 0xf];
    }
  }
  return out;
}

std::optional<std::string_view> find(const Pairs& pairs, std::string_view name) {
  for (const auto& [key, value] : pairs) {
    if (key == name) return std::string_view(value);
  }
  return std::nullopt;
}

std::optional<std::string_view> firstRepeatedName(const Pairs& pairs) {
  std::set<std::string_view> seen;
  for (const auto& pair : pairs) {
    if (!seen.insert(pair.first).second) return std::string_view(pair.first);
  }
  return std::nullopt;
}

std::string htmlEscape(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    switch (c) {
      case '&': out += "&amp;"; break;
      case '<': out += "&lt;"; break;
      case '>': out += "&gt;"; break;
      case '"': out += "&quot;"; break;
      case '\'': out += "&#39;"; break;
      default: out += c;
    }
  }
  return out;
}

std::string base64Url(std::string_view bytes) {
  std::string out;
  out.reserve((bytes.size() * 4 + 2) / 3);
  std::uint32_t buffer = 0;
  int bits = 0;
  for (const char c : bytes) {
    buffer = (buffer << 8) | static_cast<unsigned char>(c);
    bits += 8;
    while (bits >= 6) {
      bits -= 6;
      out += kBase64[(buffer >> bits) & 0x3f];
    }
  }
  if (bits > 0) out += kBase64[(buffer << (6 - bits)) & 0x3f];
  std::replace(out.begin(), out.end(), '+', '-');
  std::replace(out.begin(), out.end(), '/', '_');
  return out;
}

std::optional<std::string> base64Decode(std::string_view text) {
  while (!text.empty() && text.back() == '=') text.remove_suffix(1);
  std::string out;
  std::uint32_t buffer = 0;
  int bits = 0;
  for (const char c : text) {
    const std::size_t value = kBase64.find(c);
    if (value == std::string_view::npos) return std::nullopt;
    buffer = (buffer << 6) | static_cast<std::uint32_t>(value);
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      out += static_cast<char>((buffer >> bits) & 0xff);
    }
  }
  return out;
}

std::string s256(std::string_view verifier) {
  std::array<unsigned char, SHA256_DIGEST_LENGTH> digest{};
  SHA256(reinterpret_cast<const unsigned char*>(verifier.data()), verifier.size(), digest.data());
  return base64Url(std::string_view(reinterpret_cast<const char*>(digest.data()), digest.size()));
}

std::string randomToken(std::size_t bytes) {
  std::string buffer(bytes, '\0');
  if (RAND_bytes(reinterpret_cast<unsigned char*>(buffer.data()), static_cast<int>(bytes)) != 1) {
    // The server cannot issue guessable credentials; handlers turn this into a 500.
    throw std::runtime_error("no secure random bytes");
  }
  return base64Url(buffer);
}

std::string isoUtc(std::chrono::system_clock::time_point at) {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(at);
  std::tm utc{};
  gmtime_r(&seconds, &utc);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &utc);
  return text;
}

}  // namespace applogic::emulator::detail
