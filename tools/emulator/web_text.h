#pragma once

// Text encodings the server reads and writes: URL query and form coding, HTML escaping, Base64.

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include "emulator/signin_server.h"

namespace applogic::emulator::detail {

/// Percent-decodes `text`, reading "+" as a blank; a "%" not followed by two hex digits stays.
std::string formDecode(std::string_view text);
/// The pairs of "a=1&b=2" (a missing "=" gives an empty value; empty pieces are skipped).
Pairs parseForm(std::string_view text);
/// Percent-encodes every byte but the RFC 3986 unreserved characters.
std::string percentEncode(std::string_view text);
/// The value of the first pair named `name`.
std::optional<std::string_view> find(const Pairs& pairs, std::string_view name);
/// The first name that occurs more than once.
std::optional<std::string_view> firstRepeatedName(const Pairs& pairs);

std::string htmlEscape(std::string_view text);

/// RFC 4648 base64url without padding.
std::string base64Url(std::string_view bytes);
/// Standard Base64 (padding optional); absent on any other character.
std::optional<std::string> base64Decode(std::string_view text);
/// The S256 code challenge of a verifier: base64url(SHA-256(verifier)).
std::string s256(std::string_view verifier);
/// `bytes` random bytes as base64url.
std::string randomToken(std::size_t bytes = 32);

/// `at` as ISO 8601 UTC to the second: "2026-11-24T08:15:00Z".
std::string isoUtc(std::chrono::system_clock::time_point at);

}  // namespace applogic::emulator::detail
