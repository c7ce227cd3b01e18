#pragma once

#include <optional>
#include <string>
#include <vector>

#include "applogic/export.h"
#include "applogic/records/track.h"
#include "applogic/support/json_fwd.h"

namespace applogic {

class CurrentUserProvider;
class UserHint;

/// Track-list serializers: each turns one service answer into its tracks, in the answer's order.
///
/// Absent means the answer's top levels did not have the expected shape: `input` is not an
/// object, or its list member is missing, null, not an array, or holds an element that is not an
/// object. An empty list member gives an empty list, which is not a failure. A single odd element
/// never fails a list: the plain serializers turn it into a track of defaults (`Track::fromRaw`),
/// the chart and favourites serializers drop it. None of them throws or logs; all are pure and
/// may run on any thread.

/// {"tracks": [track, ...]}
APPLOGIC_EXPORT std::optional<std::vector<Track>> TracksResponseToTracks(const Json& input);

/// {"tracks": [track, ...]}, the tracks of a playlist.
APPLOGIC_EXPORT std::optional<std::vector<Track>> PlaylistTracksResponseToTracks(const Json& input);

/// {"data": [track, ...]}
APPLOGIC_EXPORT std::optional<std::vector<Track>> SearchTracksResponseToTracks(const Json& input);

/// Always the same result as `TracksResponseToTracks` for the same input.
APPLOGIC_EXPORT std::optional<std::vector<Track>> ListeningHistoryResponseToTracksSerializer(const Json& input);

/// {"charts": [{"linked": {"tracks": [track, ...]}}, ...]}: the first linked track of each chart
/// entry. An entry whose "linked" is not an object, whose "linked"."tracks" is not an array of
/// objects, or whose "linked"."tracks" is empty, is skipped; further linked tracks are ignored.
APPLOGIC_EXPORT std::optional<std::vector<Track>> UserTopChartTracksResponseToTracksSerializer(const Json& input);

/// {"favorites": [{"linked": {"tracks": [track, ...]}}, ...]}, with the rules of the chart
/// serializer.
APPLOGIC_EXPORT std::optional<std::vector<Track>> FavoriteResponseToTracksSerializer(const Json& input);

/// The id of the user that `hint` names: the explicit id unchanged, or the provider's signed-in
/// user. A signed-in-user hint while nobody is signed in is a programming error of the caller
/// and stops the program (`fatalError`); there is no fallback.
APPLOGIC_EXPORT std::string UserHintToUserID(const UserHint& hint, const CurrentUserProvider& provider);

}  // namespace applogic
