// Feeds arbitrary bytes, parsed as JSON, to every catalog serializer and to the id prefixes, and
// checks the properties that must hold for any answer.

#include <cstddef>
#include <cstdint>
#include <algorithm>
#include <cstdlib>
#include <string>
#include <string_view>

#include <boost/json.hpp>

#include "applogic/records/genre.h"
#include "applogic/records/mo_prefix.h"
#include "applogic/records/page.h"
#include "applogic/records/playlist.h"
#include "applogic/records/track_serializers.h"

namespace {

using applogic::Json;
using applogic::MOPrefix;
using applogic::Track;

void check(bool condition) {
  if (!condition) std::abort();
}

bool anyKind(std::string_view id) {
  return MOPrefix::isTrackId(id) || MOPrefix::isAlbumId(id) || MOPrefix::isArtistId(id) ||
         MOPrefix::isEditorialId(id) || MOPrefix::isStationId(id) || MOPrefix::isGenreId(id) ||
         MOPrefix::isTagId(id) || MOPrefix::isPlaylistId(id);
}

void checkId(std::string_view id) {
  const std::string fixed = MOPrefix::fixId(std::string(id));
  check(fixed.size() == id.size());
  check(MOPrefix::fixId(fixed) == fixed);
  check(anyKind(fixed) == anyKind(id));
  if (!anyKind(id)) check(fixed == id);
}

void checkTracks(const std::optional<std::vector<Track>>& tracks) {
  if (!tracks) return;
  for (const Track& track : *tracks) {
    check(MOPrefix::fixId(track.id) == track.id);
    const Track copy = track;
    check(copy == track);
    check(std::hash<Track>{}(copy) == std::hash<Track>{}(track));
  }
}

void checkStrings(const Json& value, int depth) {
  if (depth > 8) return;
  if (const auto* text = value.if_string()) {
    checkId(*text);
  } else if (const auto* object = value.if_object()) {
    for (const auto& member : *object) {
      checkId(member.key());
      checkStrings(member.value(), depth + 1);
    }
  } else if (const auto* array = value.if_array()) {
    for (const Json& item : *array) checkStrings(item, depth + 1);
  }
}

// ---- playlists and paging ----

// The deliberate stop of the playlist serializers is a display image without a string id. These
// predicates walk the paths the serializers walk, with Boost.JSON itself rather than the
// library's lookups, so that the inputs skipped below are exactly those that must stop.
bool isArrayOfObjects(const Json* value) {
  const auto* items = value == nullptr ? nullptr : value->if_array();
  if (items == nullptr) return false;
  for (const Json& item : *items) {
    if (!item.is_object()) return false;
  }
  return true;
}

bool displayImageStops(const applogic::JsonObject& image) {
  const Json* type = image.if_contains("imageType");
  if (type == nullptr || !type->is_string() || type->get_string() != "displayImage") return false;
  const Json* id = image.if_contains("id");
  return id == nullptr || !id->is_string();
}

// `owner`."images", read by `Playlist::fromRaw` and by `PlaylistImagesResponseToPlaylistImage`.
bool imagesStop(const applogic::JsonObject& owner) {
  const Json* images = owner.if_contains("images");
  if (!isArrayOfObjects(images)) return false;
  for (const Json& image : images->get_array()) {
    if (displayImageStops(image.get_object())) return true;
  }
  return false;
}

bool playlistsStop(const applogic::JsonObject& answer) {
  const Json* playlists = answer.if_contains("playlists");
  if (!isArrayOfObjects(playlists)) return false;
  for (const Json& playlist : playlists->get_array()) {
    if (imagesStop(playlist.get_object())) return true;
  }
  return false;
}

void checkImages(const std::vector<applogic::PlaylistImage>& images) {
  for (const applogic::PlaylistImage& image : images) {
    check((image.displayImage() == nullptr) != (image.giphyID() == nullptr));
    if (const applogic::DisplayImage* display = image.displayImage()) check(display->imageType == "displayImage");
    const applogic::PlaylistImage copy = image;
    check(copy == image);
  }
}

void checkPlaylists(const std::optional<std::vector<applogic::Playlist>>& playlists) {
  if (!playlists) return;
  for (const applogic::Playlist& playlist : *playlists) {
    check(MOPrefix::fixId(playlist.id) == playlist.id);
    check(!playlist.trackIds);
    if (playlist.images) checkImages(*playlist.images);
    if (const auto custom = playlist.getCustomImage()) check(!custom->isDefault);
    check(playlist.getGiphyImageID().has_value() ==
          (playlist.images && std::any_of(playlist.images->begin(), playlist.images->end(),
                                          [](const applogic::PlaylistImage& image) { return image.giphyID() != nullptr; })));
    const applogic::Playlist copy = playlist;
    check(copy == playlist);
  }
}

void checkPlaylistsAndPaging(const Json& value, const std::optional<std::vector<Track>>& tracks) {
  const auto metadata = applogic::V2ResponseToMetaData(value);
  check(metadata.has_value() == value.is_object());
  const auto page = applogic::PlaylistTracksResponseToPageTracks(value);
  check(page.has_value() == tracks.has_value());
  if (page) {
    check(page->metadata == *metadata);
    check(page->payload == *tracks);
  }

  const applogic::JsonObject* answer = value.if_object();
  if (answer == nullptr) {
    check(!applogic::PlaylistsResponseToPlaylists(value));
    check(!applogic::PlaylistImagesResponseToPlaylistImage(value));
    check(applogic::Playlist::fromRaw(value) == applogic::Playlist());
    return;
  }
  if (!playlistsStop(*answer)) checkPlaylists(applogic::PlaylistsResponseToPlaylists(value));
  if (!imagesStop(*answer)) {
    if (const auto images = applogic::PlaylistImagesResponseToPlaylistImage(value)) checkImages(*images);
    checkPlaylists(std::vector{applogic::Playlist::fromRaw(*answer)});
  }
  if (!displayImageStops(*answer)) {
    if (const auto image = applogic::PlaylistImage::create(*answer)) checkImages({*image});
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  checkId(bytes);

  boost::system::error_code error;
  const Json value = boost::json::parse(bytes, error);
  if (error) return 0;

  const auto tracks = applogic::TracksResponseToTracks(value);
  checkTracks(tracks);
  check(applogic::ListeningHistoryResponseToTracksSerializer(value) == tracks);
  check(applogic::PlaylistTracksResponseToTracks(value) == tracks);
  checkTracks(applogic::SearchTracksResponseToTracks(value));
  checkTracks(applogic::UserTopChartTracksResponseToTracksSerializer(value));
  checkTracks(applogic::FavoriteResponseToTracksSerializer(value));
  (void)Track::fromRaw(value);

  if (const auto genres = applogic::GenreResponseToGenres(value)) {
    for (const applogic::Genre& genre : *genres) check(MOPrefix::fixId(genre.id) == genre.id);
  }
  (void)applogic::Genre::fromRaw(value);

  checkPlaylistsAndPaging(value, tracks);

  checkStrings(value, 0);
  if (const auto* object = value.if_object()) {
    const applogic::JsonObject fixed = MOPrefix::fixPayloadId(*object, "id");
    check(fixed.size() == object->size());
  }
  if (const auto* array = value.if_array()) {
    std::size_t objects = 0;
    for (const Json& item : *array) objects += item.is_object() ? 1 : 0;
    check(MOPrefix::fixPayloadIds(*array, "id").size() == objects);
  }
  return 0;
}
