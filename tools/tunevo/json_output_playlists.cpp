#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

#include "tunevo/json_output.h"

namespace tunevo {
namespace {

boost::json::value optionalText(const std::optional<std::string>& text) {
  if (!text) return nullptr;
  return boost::json::value(*text);
}

boost::json::value optionalTexts(const std::optional<std::vector<std::string>>& texts) {
  if (!texts) return nullptr;
  boost::json::array items;
  items.reserve(texts->size());
  for (const std::string& text : *texts) items.emplace_back(text);
  return items;
}

}  // namespace

boost::json::value toJson(const applogic::Metadata& metadata) {
  boost::json::object object;
  object.reserve(4);
  object.emplace("queryLimit", metadata.queryLimit);
  object.emplace("queryOffset", metadata.queryOffset);
  object.emplace("returnedCount", metadata.returnedCount);
  object.emplace("totalCount", metadata.totalCount);
  return object;
}

boost::json::value toJson(const applogic::DisplayImage& image) {
  boost::json::object object;
  object.reserve(4);
  object.emplace("id", image.id);
  object.emplace("version", image.version);
  object.emplace("isDefault", image.isDefault);
  object.emplace("imageType", image.imageType);
  return object;
}

boost::json::value toJson(const applogic::PlaylistImage& image) {
  boost::json::object object;
  if (const applogic::DisplayImage* display = image.displayImage()) {
    object.emplace("display", toJson(*display));
  } else {
    object.emplace("giphy", *image.giphyID());
  }
  return object;
}

boost::json::value toJson(const applogic::Playlist& playlist) {
  boost::json::object object;
  object.reserve(6);
  object.emplace("id", playlist.id);
  object.emplace("name", playlist.name);
  object.emplace("trackIds", optionalTexts(playlist.trackIds));
  object.emplace("isPublic", playlist.isPublic);
  object.emplace("ownerId", optionalText(playlist.ownerId));
  object.emplace("images", toJson(playlist.images));
  return object;
}

}  // namespace tunevo
