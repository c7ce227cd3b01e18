#pragma once

#include "applogic/export.h"

namespace applogic {

/// The empty value: what a write operation emits when it has nothing to say but "done".
struct APPLOGIC_EXPORT Unit {
  friend constexpr bool operator==(Unit, Unit) noexcept { return true; }
};

inline constexpr Unit unit{};

}  // namespace applogic
