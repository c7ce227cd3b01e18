#include "applogic/records/playlist.h"

#include <algorithm>
#include <ostream>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include "applogic/foundation/find_first.h"
#include "applogic/records/mo_prefix.h"
#include "applogic/support/fatal.h"
#include "applogic/support/json.h"
#include "applogic/support/strings.h"

namespace applogic {
namespace {

bool imageTypeIs(const JsonObject& raw, std::string_view type) noexcept {
  return json::string(raw, "imageType") == type;
}

std::string text(const JsonObject& raw, std::string_view key) {
  return std::string(json::string(raw, key).value_or(std::string_view()));
}

bool sameOptionalText(const std::optional<std::string>& a, const std::optional<std::string>& b) noexcept {
  if (a.has_value() != b.has_value()) return false;
  return !a || canonicallyEqual(*a, *b);
}

bool sameOptionalTexts(const std::optional<std::vector<std::string>>& a,
                       const std::optional<std::vector<std::string>>& b) noexcept {
  if (a.has_value() != b.has_value()) return false;
  return !a || std::ranges::equal(*a, *b, [](const std::string& x, const std::string& y) {
           return canonicallyEqual(x, y);
         });
}

std::vector<PlaylistImage> imagesOf(const JsonArray& items) {
  std::vector<PlaylistImage> images;
  images.reserve(items.size());
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (std::optional<PlaylistImage> image = PlaylistImage::create(json::objectAt(items, i))) {
      images.push_back(std::move(*image));
    }
  }
  return images;
}

}  // namespace

DisplayImage DisplayImage::fromRaw(const JsonObject& raw) {
  const std::optional<std::string_view> id = json::string(raw, "id");
  // Stored images are strict where everything else is lenient: an image that cannot be named
  // cannot be fetched or deleted later, so it is not papered over with a default.
  if (!id) fatalError("DisplayImage: a display image without a string \"id\"");
  return DisplayImage{std::string(*id), json::integer(raw, "version").value_or(0),
                      json::boolean(raw, "isDefault").value_or(false), text(raw, "imageType")};
}

bool operator==(const DisplayImage& a, const DisplayImage& b) noexcept {
  return canonicallyEqual(a.id, b.id) && a.version == b.version && a.isDefault == b.isDefault &&
         canonicallyEqual(a.imageType, b.imageType);
}

bool IsRawDisplayImage(const JsonObject& raw) noexcept { return imageTypeIs(raw, "displayImage"); }

bool IsRawGiphyImage(const JsonObject& raw) noexcept { return imageTypeIs(raw, "giphyImage"); }

PlaylistImage PlaylistImage::display(DisplayImage image) { return PlaylistImage(std::move(image)); }

PlaylistImage PlaylistImage::giphy(std::string giphyID) { return PlaylistImage(std::move(giphyID)); }

std::optional<PlaylistImage> PlaylistImage::create(const JsonObject& raw) {
  if (IsRawDisplayImage(raw)) return display(DisplayImage::fromRaw(raw));
  if (IsRawGiphyImage(raw)) {
    if (const std::optional<std::string_view> id = json::string(raw, "id")) return giphy(std::string(*id));
  }
  return std::nullopt;
}

bool operator==(const PlaylistImage& a, const PlaylistImage& b) noexcept {
  if (const DisplayImage* image = a.displayImage()) {
    const DisplayImage* other = b.displayImage();
    return other != nullptr && *image == *other;
  }
  const std::string* other = b.giphyID();
  return other != nullptr && canonicallyEqual(*a.giphyID(), *other);
}

Playlist::Playlist(std::string id, std::string name, std::optional<std::vector<std::string>> trackIds,
                   bool isPublic, std::optional<std::string> ownerId,
                   std::optional<std::vector<PlaylistImage>> images)
    : id(MOPrefix::fixId(std::move(id))),
      name(std::move(name)),
      trackIds(std::move(trackIds)),
      isPublic(isPublic),
      ownerId(std::move(ownerId)),
      images(std::move(images)) {}

Playlist Playlist::fromRaw(const JsonObject& raw) {
  std::optional<std::vector<PlaylistImage>> images;
  if (const JsonArray* items = json::arrayOfObjects(raw, "images")) images = imagesOf(*items);
  std::optional<std::string> ownerId;
  if (const std::optional<std::string_view> artistId = json::string(raw, "artistId")) ownerId = std::string(*artistId);
  return Playlist(text(raw, "id"), text(raw, "name"), std::nullopt, json::string(raw, "privacy") == "public",
                  std::move(ownerId), std::move(images));
}

Playlist Playlist::fromRaw(const Json& raw) {
  if (const JsonObject* object = json::object(raw)) return fromRaw(*object);
  return Playlist();
}

std::optional<DisplayImage> Playlist::getCustomImage() const {
  if (!images) return std::nullopt;
  const PlaylistImage* found = findFirst(*images, [](const PlaylistImage& image) {
    const DisplayImage* display = image.displayImage();
    return display != nullptr && !display->isDefault;
  });
  if (found == nullptr) return std::nullopt;
  return *found->displayImage();
}

std::optional<std::string> Playlist::getGiphyImageID() const {
  if (!images) return std::nullopt;
  const PlaylistImage* found =
      findFirst(*images, [](const PlaylistImage& image) { return image.giphyID() != nullptr; });
  if (found == nullptr) return std::nullopt;
  return *found->giphyID();
}

bool operator==(const Playlist& a, const Playlist& b) noexcept {
  return canonicallyEqual(a.id, b.id) && canonicallyEqual(a.name, b.name) &&
         sameOptionalTexts(a.trackIds, b.trackIds) && a.isPublic == b.isPublic &&
         sameOptionalText(a.ownerId, b.ownerId) && a.images == b.images;
}

std::ostream& operator<<(std::ostream& out, const DisplayImage& image) {
  return out << "DisplayImage{id \"" << image.id << "\", version " << image.version << ", isDefault "
             << image.isDefault << ", imageType \"" << image.imageType << "\"}";
}

std::ostream& operator<<(std::ostream& out, const PlaylistImage& image) {
  if (const DisplayImage* display = image.displayImage()) return out << "display(" << *display << ")";
  return out << "giphy(\"" << *image.giphyID() << "\")";
}

std::ostream& operator<<(std::ostream& out, const Playlist& playlist) {
  out << "Playlist{id \"" << playlist.id << "\", name \"" << playlist.name << "\", trackIds ";
  if (playlist.trackIds) {
    out << '[';
    for (std::size_t i = 0; i < playlist.trackIds->size(); ++i) out << (i == 0 ? "\"" : ", \"") << (*playlist.trackIds)[i] << '"';
    out << ']';
  } else {
    out << "absent";
  }
  out << ", isPublic " << playlist.isPublic << ", ownerId ";
  if (playlist.ownerId) {
    out << '"' << *playlist.ownerId << '"';
  } else {
    out << "absent";
  }
  out << ", images ";
  if (playlist.images) {
    out << '[';
    for (std::size_t i = 0; i < playlist.images->size(); ++i) out << (i == 0 ? "" : ", ") << (*playlist.images)[i];
    out << ']';
  } else {
    out << "absent";
  }
  return out << '}';
}

std::optional<std::vector<Playlist>> PlaylistsResponseToPlaylists(const Json& input) {
  const JsonArray* items = json::arrayOfObjects(input, "playlists");
  if (items == nullptr) return std::nullopt;
  std::vector<Playlist> playlists;
  playlists.reserve(items->size());
  for (std::size_t i = 0; i < items->size(); ++i) playlists.push_back(Playlist::fromRaw(json::objectAt(*items, i)));
  return playlists;
}

std::optional<std::vector<PlaylistImage>> PlaylistImagesResponseToPlaylistImage(const Json& input) {
  const JsonArray* items = json::arrayOfObjects(input, "images");
  if (items == nullptr) return std::nullopt;
  return imagesOf(*items);
}

}  // namespace applogic
