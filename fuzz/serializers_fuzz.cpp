// Feeds arbitrary bytes, parsed as JSON, to every catalog serializer and to the id prefixes, and
// checks the properties that must hold for any answer.

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>

#include <boost/json.hpp>

#include "applogic/records/genre.h"
#include "applogic/records/mo_prefix.h"
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
