#pragma once

#include <string_view>

namespace applogic {

/// Stops the program on a condition that can only be a programming error of the caller.
/// Writes `"Fatal error: " + message` to the log sink and to standard error, then aborts.
/// Tests reach it with death tests.
[[noreturn]] void fatalError(std::string_view message);

}  // namespace applogic
