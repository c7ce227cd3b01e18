#pragma once

// The catalog service's generated media: playlist images (PNG) and Giphy renditions (GIF).

#include <cstdint>
#include <string>

namespace applogic::emulator::detail {

/// A `width` x `height` PNG (8-bit RGB, stored deflate blocks) of one colour made from `seed`.
std::string solidPng(int width, int height, std::uint32_t seed);
/// A `width` x `height` GIF89a of one colour, without compression (a clear code every two pixels).
std::string solidGif(int width, int height);

}  // namespace applogic::emulator::detail
