#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"

/// Standard Base64 (RFC 4648 section 4, the "+/" alphabet) as the sign-in client reads and writes
/// it. Pure; any thread.
namespace applogic::signin::base64 {

/// With "=" padding and no line breaks.
APPLOGIC_EXPORT std::string encode(std::span<const std::uint8_t> bytes);

/// The URL-safe alphabet ("-_" for "+/", RFC 4648 section 5), without padding.
APPLOGIC_EXPORT std::string encodeUrl(std::span<const std::uint8_t> bytes);

/// Strict decoding: only alphabet characters, a length that is a multiple of 4, at most two
/// "=" and only at the end. Absent for anything else (bits left over in the last character are
/// not checked).
APPLOGIC_EXPORT std::optional<std::vector<std::uint8_t>> decode(std::string_view text);

/// Lenient decoding: every character outside the alphabet ("=" included) is skipped and the
/// remaining characters decode as one stream; a last group of 2 or 3 characters gives 1 or 2
/// bytes, a single last character is dropped. Because the stream is the concatenation of the
/// alphabet characters, bytes before an inner "=" come out unchanged.
APPLOGIC_EXPORT std::vector<std::uint8_t> decodeIgnoringUnknownCharacters(std::string_view text);

}  // namespace applogic::signin::base64
