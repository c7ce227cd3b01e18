#pragma once

namespace applogic {

/// The empty value: what a write operation emits when it has nothing to say but "done".
struct Unit {
  friend constexpr bool operator==(Unit, Unit) noexcept { return true; }
};

inline constexpr Unit unit{};

}  // namespace applogic
