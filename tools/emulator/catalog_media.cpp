#include "catalog_media.h"

#include <algorithm>
#include <array>

namespace applogic::emulator::detail {
namespace {

void put32(std::string& out, std::uint32_t value) {
  for (int shift = 24; shift >= 0; shift -= 8) out.push_back(static_cast<char>((value >> shift) & 0xff));
}
void put16le(std::string& out, int value) {
  out.push_back(static_cast<char>(value & 0xff));
  out.push_back(static_cast<char>((value >> 8) & 0xff));
}

std::uint32_t crc32(std::string_view bytes) {
  std::uint32_t crc = 0xffffffffu;
  for (const char byte : bytes) {
    crc ^= static_cast<unsigned char>(byte);
    for (int bit = 0; bit < 8; ++bit) crc = (crc >> 1) ^ (0xedb88320u & (0u - (crc & 1u)));
  }
  return crc ^ 0xffffffffu;
}

void chunk(std::string& out, std::string_view type, std::string_view data) {
  put32(out, static_cast<std::uint32_t>(data.size()));
  std::string typed(type);
  typed += data;
  out += typed;
  put32(out, crc32(typed));
}

}  // namespace

std::string solidPng(int width, int height, std::uint32_t seed) {
  width = std::max(width, 1);
  height = std::max(height, 1);
  const std::array<char, 3> rgb{static_cast<char>(seed * 67 + 40), static_cast<char>(seed * 131 + 90),
                                static_cast<char>(seed * 29 + 160)};
  std::string raw;
  for (int y = 0; y < height; ++y) {
    raw.push_back(0);  // no filter
    for (int x = 0; x < width; ++x) raw.append(rgb.data(), rgb.size());
  }
  // zlib stream of stored blocks.
  std::string zlib{"\x78\x01", 2};
  for (std::size_t at = 0; at < raw.size() || at == 0;) {
    const std::size_t length = std::min<std::size_t>(raw.size() - at, 65535);
    zlib.push_back(at + length == raw.size() ? 1 : 0);
    put16le(zlib, static_cast<int>(length));
    put16le(zlib, static_cast<int>(~length & 0xffff));
    zlib.append(raw, at, length);
    at += length;
    if (length == 0) break;
  }
  std::uint32_t a = 1, b = 0;
  for (const char byte : raw) {
    a = (a + static_cast<unsigned char>(byte)) % 65521;
    b = (b + a) % 65521;
  }
  put32(zlib, (b << 16) | a);

  std::string png{"\x89PNG\r\n\x1a\n", 8};
  std::string header;
  put32(header, static_cast<std::uint32_t>(width));
  put32(header, static_cast<std::uint32_t>(height));
  header += std::string{"\x08\x02\x00\x00\x00", 5};  // 8-bit RGB
  chunk(png, "IHDR", header);
  chunk(png, "IDAT", zlib);
  chunk(png, "IEND", "");
  return png;
}

std::string solidGif(int width, int height) {
  width = std::max(width, 1);
  height = std::max(height, 1);
  std::string gif = "GIF89a";
  put16le(gif, width);
  put16le(gif, height);
  gif += std::string{"\x80\x00\x00", 3};           // a global table of two colours
  gif += std::string{"\x6a\x3d\xc8\xff\xff\xff", 6};  // purple, white
  gif.push_back(',');
  put16le(gif, 0);
  put16le(gif, 0);
  put16le(gif, width);
  put16le(gif, height);
  gif.push_back(0);
  gif.push_back(2);  // LZW minimum code size: 3-bit codes, clear = 4, end = 5
  // Codes: clear, pixel, pixel, ... so that the table never grows past 3-bit codes.
  std::string data;
  std::uint32_t bits = 0;
  int count = 0;
  const auto code = [&](std::uint32_t value) {
    bits |= value << count;
    count += 3;
    while (count >= 8) {
      data.push_back(static_cast<char>(bits & 0xff));
      bits >>= 8;
      count -= 8;
    }
  };
  const long pixels = static_cast<long>(width) * height;
  for (long i = 0; i < pixels; ++i) {
    if (i % 2 == 0) code(4);
    code(0);
  }
  code(5);
  if (count > 0) data.push_back(static_cast<char>(bits & 0xff));
  for (std::size_t at = 0; at < data.size(); at += 255) {
    const std::size_t length = std::min<std::size_t>(255, data.size() - at);
    gif.push_back(static_cast<char>(length));
    gif.append(data, at, length);
  }
  gif.push_back(0);
  gif.push_back(';');
  return gif;
}

}  // namespace applogic::emulator::detail
