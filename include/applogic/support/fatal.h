#pragma once

#include <string_view>

#include "applogic/export.h"

namespace applogic {

/// Stops the program on a condition that can only be a programming error of the caller.
/// Writes `"Fatal error: " + message` to the log sink and to standard error, then aborts.
/// Tests reach it with death tests.
[[noreturn]] APPLOGIC_EXPORT void fatalError(std::string_view message);

}  // namespace applogic
