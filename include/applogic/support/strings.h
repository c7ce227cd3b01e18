#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "applogic/export.h"

namespace applogic {

/// True when `a` and `b` are canonically equivalent Unicode texts (equal after NFC), which is how
/// the platform compares strings. Two ASCII inputs are compared byte by byte without normalising;
/// an ASCII input against a non-ASCII one is not (U+212A KELVIN SIGN normalises to 'K'). Invalid
/// UTF-8 stands for its own bytes. Pure; any thread.
APPLOGIC_EXPORT bool canonicallyEqual(std::string_view a, std::string_view b) noexcept;

/// A hash consistent with `canonicallyEqual`: canonically equivalent texts hash equal.
APPLOGIC_EXPORT std::size_t canonicalHash(std::string_view text) noexcept;

/// The NFC form of `text`; invalid UTF-8 is returned unchanged.
APPLOGIC_EXPORT std::string canonicalForm(std::string_view text);

/// ASCII lower-casing of the bytes; other bytes are kept.
APPLOGIC_EXPORT std::string asciiLowercase(std::string_view text);

/// Whether `a` and `b` are equal but for the case of their ASCII letters.
APPLOGIC_EXPORT bool equalsIgnoringAsciiCase(std::string_view a, std::string_view b) noexcept;

/// Case-insensitive comparison of the first `prefix.size()` bytes of `text` with `prefix`,
/// ASCII letters only.
APPLOGIC_EXPORT bool startsWithIgnoringAsciiCase(std::string_view text, std::string_view prefix) noexcept;

}  // namespace applogic
