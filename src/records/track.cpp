#include "applogic/records/track.h"

#include <ostream>
#include <utility>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include "applogic/records/mo_prefix.h"
#include "records/track_internal.h"
#include "applogic/support/json.h"
#include "applogic/support/strings.h"

namespace applogic {

Track::Track(std::string id, std::string name, std::int64_t playbackSeconds, bool isExplicit,
             std::string artistID, std::string artistName, std::string albumID,
             std::string albumName, bool isStreamable, std::string previewURL)
    : id(MOPrefix::fixId(std::move(id))),
      name(std::move(name)),
      playbackSeconds(playbackSeconds),
      isExplicit(isExplicit),
      artistID(std::move(artistID)),
      artistName(std::move(artistName)),
      albumID(std::move(albumID)),
      albumName(std::move(albumName)),
      isStreamable(isStreamable),
      previewURL(std::move(previewURL)) {}

namespace {

enum class Field { none, id, name, playbackSeconds, isExplicit, artistID, artistName, albumID,
                   albumName, isStreamable, previewURL };

// The answer's keys for the ten fields. Sorting by length first leaves at most two candidates.
Field fieldOf(std::string_view key) noexcept {
  switch (key.size()) {
    case 2: return key == "id" ? Field::id : Field::none;
    case 4: return key == "name" ? Field::name : Field::none;
    case 7: return key == "albumId" ? Field::albumID : Field::none;
    case 8:
      if (key == "artistId") return Field::artistID;
      return key == "explicit" ? Field::isExplicit : Field::none;
    case 9: return key == "albumName" ? Field::albumName : Field::none;
    case 10:
      if (key == "artistName") return Field::artistName;
      return key == "previewURL" ? Field::previewURL : Field::none;
    case 12: return key == "isStreamable" ? Field::isStreamable : Field::none;
    case 15: return key == "playbackSeconds" ? Field::playbackSeconds : Field::none;
    default: return Field::none;
  }
}

}  // namespace

namespace detail {

void readTrack(const JsonObject& raw, Track& track) {
  // One walk over the members instead of ten hashed lookups: this runs for every track of every
  // answer, and the answers carry about twice as many members as a track reads. An object never
  // holds a key twice, so each field is still read from the one member that has its key.
  std::string_view texts[static_cast<std::size_t>(Field::previewURL) + 1];
  track.playbackSeconds = 0;
  track.isExplicit = false;
  track.isStreamable = false;
  for (const auto& member : raw) {
    const Field field = fieldOf(member.key());
    if (field == Field::none) continue;
    const Json& value = member.value();
    switch (field) {
      case Field::playbackSeconds:
        track.playbackSeconds = json::integer(value).value_or(0);
        break;
      case Field::isExplicit:
        track.isExplicit = json::boolean(value).value_or(false);
        break;
      case Field::isStreamable:
        track.isStreamable = json::boolean(value).value_or(false);
        break;
      default:
        texts[static_cast<std::size_t>(field)] = json::string(value).value_or(std::string_view());
        break;
    }
  }
  const auto text = [&texts](Field field) { return texts[static_cast<std::size_t>(field)]; };
  // Assigned in place rather than passed through the field-by-field constructor, which would
  // move every string twice more; the id gets the constructor's normalisation all the same.
  track.id = MOPrefix::fixId(std::string(text(Field::id)));
  track.name.assign(text(Field::name));
  track.artistID.assign(text(Field::artistID));
  track.artistName.assign(text(Field::artistName));
  track.albumID.assign(text(Field::albumID));
  track.albumName.assign(text(Field::albumName));
  track.previewURL.assign(text(Field::previewURL));
}

}  // namespace detail

Track Track::fromRaw(const JsonObject& raw) {
  Track track;
  detail::readTrack(raw, track);
  return track;
}

Track Track::fromRaw(const Json& raw) {
  if (const JsonObject* object = json::object(raw)) return fromRaw(*object);
  return Track();
}

bool operator==(const Track& a, const Track& b) noexcept {
  return canonicallyEqual(a.id, b.id) && canonicallyEqual(a.name, b.name) &&
         a.playbackSeconds == b.playbackSeconds && a.isExplicit == b.isExplicit &&
         canonicallyEqual(a.artistID, b.artistID) && canonicallyEqual(a.artistName, b.artistName) &&
         canonicallyEqual(a.albumID, b.albumID) && canonicallyEqual(a.albumName, b.albumName) &&
         a.isStreamable == b.isStreamable && canonicallyEqual(a.previewURL, b.previewURL);
}

std::ostream& operator<<(std::ostream& out, const Track& track) {
  return out << "Track{id: \"" << track.id << "\", name: \"" << track.name
             << "\", playbackSeconds: " << track.playbackSeconds
             << ", explicit: " << std::boolalpha << track.isExplicit << ", artistID: \""
             << track.artistID << "\", artistName: \"" << track.artistName << "\", albumID: \""
             << track.albumID << "\", albumName: \"" << track.albumName
             << "\", isStreamable: " << track.isStreamable << ", previewURL: \""
             << track.previewURL << "\"}" << std::noboolalpha;
}

}  // namespace applogic

std::size_t std::hash<applogic::Track>::operator()(const applogic::Track& track) const noexcept {
  using applogic::canonicalHash;
  return canonicalHash(track.id) ^ canonicalHash(track.name) ^
         std::hash<std::int64_t>{}(track.playbackSeconds) ^ std::hash<bool>{}(track.isExplicit) ^
         canonicalHash(track.artistID) ^ canonicalHash(track.artistName) ^
         canonicalHash(track.albumID) ^ canonicalHash(track.albumName) ^
         std::hash<bool>{}(track.isStreamable) ^ canonicalHash(track.previewURL);
}
