#include "applogic/support/strings.h"

#include <cstdlib>
#include <functional>
#include <memory>

#include <utf8proc.h>

namespace applogic {
namespace {

bool isAscii(std::string_view text) noexcept {
  for (const char c : text) {
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  }
  return true;
}

struct FreeDeleter {
  void operator()(utf8proc_uint8_t* p) const noexcept { std::free(p); }
};

// NFC through utf8proc; null (and the caller keeps the bytes) when the text is not valid UTF-8.
std::unique_ptr<utf8proc_uint8_t, FreeDeleter> nfc(std::string_view text, std::size_t& length) noexcept {
  utf8proc_uint8_t* out = nullptr;
  const auto written =
      utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                   static_cast<utf8proc_ssize_t>(text.size()), &out,
                   static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
  if (written < 0) {
    std::free(out);
    return nullptr;
  }
  length = static_cast<std::size_t>(written);
  return std::unique_ptr<utf8proc_uint8_t, FreeDeleter>(out);
}

}  // namespace

std::string canonicalForm(std::string_view text) {
  if (isAscii(text)) return std::string(text);
  std::size_t length = 0;
  const auto normalised = nfc(text, length);
  if (!normalised) return std::string(text);
  return std::string(reinterpret_cast<const char*>(normalised.get()), length);
}

bool canonicallyEqual(std::string_view a, std::string_view b) noexcept {
  if (a == b) return true;
  // Canonical equivalence never maps a non-ASCII text to an ASCII one of different bytes, so two
  // different texts of which one is ASCII are never equivalent.
  if (isAscii(a) || isAscii(b)) return false;
  std::size_t lengthA = 0;
  std::size_t lengthB = 0;
  const auto nfcA = nfc(a, lengthA);
  const auto nfcB = nfc(b, lengthB);
  if (!nfcA || !nfcB) return false;
  return std::string_view(reinterpret_cast<const char*>(nfcA.get()), lengthA) ==
         std::string_view(reinterpret_cast<const char*>(nfcB.get()), lengthB);
}

std::size_t canonicalHash(std::string_view text) noexcept {
  if (isAscii(text)) return std::hash<std::string_view>{}(text);
  std::size_t length = 0;
  const auto normalised = nfc(text, length);
  if (!normalised) return std::hash<std::string_view>{}(text);
  return std::hash<std::string_view>{}(
      std::string_view(reinterpret_cast<const char*>(normalised.get()), length));
}

std::string asciiLowercase(std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered) {
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  }
  return lowered;
}

bool startsWithIgnoringAsciiCase(std::string_view text, std::string_view prefix) noexcept {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    char a = text[i];
    char b = prefix[i];
    if (a >= 'A' && a <= 'Z') a = static_cast<char>(a - 'A' + 'a');
    if (b >= 'A' && b <= 'Z') b = static_cast<char>(b - 'A' + 'a');
    if (a != b) return false;
  }
  return true;
}

}  // namespace applogic
