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

// The one ASCII case folding of this file: 'A'..'Z' to 'a'..'z', every other byte kept.
char lowerAscii(char c) noexcept { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; }

struct FreeDeleter {
  void operator()(utf8proc_uint8_t* p) const noexcept { std::free(p); }
};

// The canonical form of a text, which equality and hash both compare: its NFC (through
// utf8proc), or the text itself when it is ASCII (its own NFC) or not valid UTF-8. Refers to
// the text itself then, and owns the normalised copy otherwise.
class CanonicalView {
 public:
  explicit CanonicalView(std::string_view text) noexcept : view_(text) {
    if (isAscii(text)) return;
    utf8proc_uint8_t* out = nullptr;
    const auto written =
        utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()),
                     static_cast<utf8proc_ssize_t>(text.size()), &out,
                     static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
    owned_.reset(out);
    // utf8proc hands out a buffer only on success (the length is negative, an error code, otherwise).
    if (out != nullptr) {
      view_ = std::string_view(reinterpret_cast<const char*>(out), static_cast<std::size_t>(written));
    }
  }

  std::string_view view() const noexcept { return view_; }

 private:
  std::unique_ptr<utf8proc_uint8_t, FreeDeleter> owned_;
  std::string_view view_;
};

}  // namespace

std::string canonicalForm(std::string_view text) { return std::string(CanonicalView(text).view()); }

bool canonicallyEqual(std::string_view a, std::string_view b) noexcept {
  if (a == b) return true;
  // Two different ASCII texts are never equivalent. One ASCII side alone decides nothing: some
  // non-ASCII texts normalise to ASCII (U+212A KELVIN SIGN is 'K', U+037E is ';', U+1FEF is '`').
  if (isAscii(a) && isAscii(b)) return false;
  return CanonicalView(a).view() == CanonicalView(b).view();
}

std::size_t canonicalHash(std::string_view text) noexcept {
  return std::hash<std::string_view>{}(CanonicalView(text).view());
}

std::string asciiLowercase(std::string_view text) {
  std::string lowered(text);
  for (char& c : lowered) c = lowerAscii(c);
  return lowered;
}

bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) noexcept {
  return a.size() == b.size() && startsWithIgnoringAsciiCase(a, b);
}

bool startsWithIgnoringAsciiCase(std::string_view text, std::string_view prefix) noexcept {
  if (text.size() < prefix.size()) return false;
  for (std::size_t i = 0; i < prefix.size(); ++i) {
    if (lowerAscii(text[i]) != lowerAscii(prefix[i])) return false;
  }
  return true;
}

}  // namespace applogic
