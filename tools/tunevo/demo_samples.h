#pragma once

#include <optional>
#include <string_view>

namespace tunevo {

/// The text of the bundled sample answer `name` (the stem of tools/tunevo/samples/NAME.json),
/// embedded at build time; absent when no such sample was bundled.
std::optional<std::string_view> demoSample(std::string_view name);

}  // namespace tunevo
