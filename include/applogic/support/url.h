#pragma once

#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "applogic/export.h"

namespace applogic {

/// An address known to be a URI reference (RFC 3986): absolute ("https://host/path") or relative
/// ("//host/path", "/path", "path?query"). Holds the text exactly as it was given, without
/// normalising it; parse `string()` with Boost.URL (`boost::urls::parse_uri_reference`) to take
/// it apart.
///
/// Plain value: copy it, compare it (byte equality of the texts). Any thread.
class APPLOGIC_EXPORT Url {
 public:
  /// `text` as an address, or absent when it is empty or not a URI reference (a space, a bad
  /// percent-escape, a malformed authority ...). Never throws.
  [[nodiscard]] static std::optional<Url> parse(std::string_view text);

  const std::string& string() const noexcept { return text_; }

  friend bool operator==(const Url&, const Url&) = default;

 private:
  explicit Url(std::string text) : text_(std::move(text)) {}

  std::string text_;
};

/// Prints the text.
APPLOGIC_EXPORT std::ostream& operator<<(std::ostream& out, const Url& url);

}  // namespace applogic
