#pragma once

#include <string_view>

#include "applogic/export.h"

namespace applogic {

/// The version of the library the program runs with ("MAJOR.MINOR.PATCH"), which may be newer
/// than the headers it was built against when the shared library was upgraded.
APPLOGIC_EXPORT std::string_view libraryVersion() noexcept;

}  // namespace applogic
