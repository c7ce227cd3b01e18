#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "applogic/export.h"
#include "applogic/foundation/serial_queue.h"
#include "applogic/rx/observable.h"
#include "applogic/support/json_fwd.h"
#include "applogic/support/unit.h"

namespace applogic {

/// A width and a height, in points, for asking the service for images of that size.
struct APPLOGIC_EXPORT Size {
  float width = 0;
  float height = 0;

  friend bool operator==(const Size&, const Size&) = default;
};

/// What `PlaylistsDataController` requires of the music-service client for playlists: one
/// playlist and its contents. The app creates the service and hands it to the controller.
///
/// Every operation follows the common contract of the services in "services.h": it returns a
/// cold observable (nothing is sent until subscription; each subscription sends the request
/// again), which emits the answer and completes, or fails with the transport's `Error`.
/// Reading operations and the Giphy-image and rejection writes emit the raw answer (one JSON
/// value); `uploadPlaylistImage`, `addTracks` and `setTracks` emit `Unit` instead.
///
/// `serialQueue`: the queue the service runs the request's work on, and so the thread its
/// events arrive on. Absent: a queue of the service's choosing. Ids and lists are sent as given,
/// without validation (an empty id or an empty list is sent as is).
///
/// Thread contract: operations may be called from any thread; events arrive on the queue the
/// request ran on.
class APPLOGIC_EXPORT QAPIPlaylistsService {
 public:
  virtual ~QAPIPlaylistsService() = default;

  /// The service's own queue: what a caller passes as `serialQueue` when it wants the service's
  /// default explicitly. The same queue on every call.
  virtual SerialQueue defaultQueue() const = 0;

  /// The answer {"playlists": [playlist, ...]} for playlist `playlistId`.
  virtual rx::Observable<Json> get(const std::string& playlistId, std::optional<SerialQueue> serialQueue) = 0;

  /// The answer {"meta": {...}, "tracks": [track, ...]}: at most `limit` tracks of playlist
  /// `playlistID`, starting at `offset`.
  virtual rx::Observable<Json> getPlaylistTracks(const std::string& playlistID, int limit, int offset,
                                                 std::optional<SerialQueue> serialQueue) = 0;

  /// The answer {"images": [image, ...]} with the images of playlist `playlistID`, rendered for
  /// `size`; absent: the service's own size.
  virtual rx::Observable<Json> getImages(const std::string& playlistID, std::optional<Size> size) = 0;

  /// Makes the Giphy picture `gifID` the playlist's animated image; emits the service's answer.
  virtual rx::Observable<Json> updatePlaylistGif(const std::string& playlistID, const std::string& gifID) = 0;

  /// Removes the playlist's Giphy picture; emits the service's answer.
  virtual rx::Observable<Json> deletePlaylistGif(const std::string& playlistID) = 0;

  /// Uploads `data` (the encoded picture) as the playlist's custom image. The bytes are taken
  /// by value and kept for every subscription.
  virtual rx::Observable<Unit> uploadPlaylistImage(const std::string& playlistID, std::vector<std::uint8_t> data) = 0;

  /// The answer {"tracks": [track, ...]} with tracks recommended for playlist `playlistID`.
  virtual rx::Observable<Json> getRecommendedTracks(const std::string& playlistID,
                                                    std::optional<SerialQueue> serialQueue) = 0;

  /// Tells the service not to recommend the tracks `trackIDs` again; emits the service's answer.
  virtual rx::Observable<Json> rejectRecommendedTracks(const std::vector<std::string>& trackIDs,
                                                       std::optional<SerialQueue> serialQueue) = 0;

  /// Appends the tracks `trackIDs`, in order, to playlist `playlistID`.
  virtual rx::Observable<Unit> addTracks(const std::string& playlistID, const std::vector<std::string>& trackIDs,
                                         std::optional<SerialQueue> serialQueue) = 0;

  /// Replaces the tracks of playlist `playlistID` with `trackIDs`, in order.
  virtual rx::Observable<Unit> setTracks(const std::string& playlistID, const std::vector<std::string>& trackIDs,
                                         std::optional<SerialQueue> serialQueue) = 0;
};

}  // namespace applogic
