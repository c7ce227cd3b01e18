#include <cmath>
#include <cstdint>

#include <boost/json/object.hpp>

#include "tunevo/json_output.h"

namespace tunevo {
namespace {

// Boost.JSON writes every double in exponent form ("4.8E2"); pixel sizes are nearly always whole
// and read better as integers.
boost::json::value dimension(float value) {
  if (!std::isfinite(value)) return nullptr;
  if (value == std::trunc(value) && std::fabs(value) < 0x1p63f) return static_cast<std::int64_t>(value);
  return static_cast<double>(value);
}

boost::json::value optionalText(const std::optional<std::string>& text) {
  if (!text) return nullptr;
  return boost::json::value(*text);
}

}  // namespace

boost::json::value toJson(const applogic::Giphy& giphy) {
  boost::json::object images;
  images.reserve(giphy.images.size());
  for (const auto& [key, info] : giphy.images) {
    boost::json::object rendition;
    rendition.reserve(3);
    rendition.emplace("width", dimension(info.width));
    rendition.emplace("height", dimension(info.height));
    rendition.emplace("urlString", info.urlString);
    images.emplace(key, std::move(rendition));
  }
  boost::json::object object;
  object.reserve(6);
  object.emplace("id", giphy.id);
  object.emplace("images", std::move(images));
  object.emplace("rating", giphy.rating ? boost::json::value(applogic::rawValue(*giphy.rating)) : nullptr);
  object.emplace("webURLString", optionalText(giphy.webURLString));
  object.emplace("bitlyWebURLString", optionalText(giphy.bitlyWebURLString));
  object.emplace("bitlyWebGifURLString", optionalText(giphy.bitlyWebGifURLString));
  return object;
}

}  // namespace tunevo
