#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace applogic::signin {

/// Small helpers of the sign-in client. Pure functions; any thread.
class AIUtils {
 public:
  AIUtils() = delete;

  /// RFC 4648 base64url without padding: standard Base64 with no line breaks, every "=" removed,
  /// "+" turned into "-" and "/" into "_".
  static std::string base64URLEncode(std::span<const std::uint8_t> bytes);
};

}  // namespace applogic::signin
