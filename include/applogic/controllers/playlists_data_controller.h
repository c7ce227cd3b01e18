#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "applogic/controllers/controller_error.h"
#include "applogic/controllers/playlists_service.h"
#include "applogic/export.h"
#include "applogic/foundation/serial_queue.h"
#include "applogic/records/page.h"
#include "applogic/records/playlist.h"
#include "applogic/records/track.h"
#include "applogic/rx/observable.h"
#include "applogic/support/unit.h"

namespace applogic {

/// One playlist and its contents: the playlist record, pages of its tracks, its images, its
/// Giphy picture (set, remove), a custom image upload, adding or replacing tracks, and the
/// tracks recommended for it (fetch, reject).
///
/// Holds its service and `networkQueue`, nothing else (no cache, no paging position). Every
/// operation calls the service at once and returns the service's cold observable with at most
/// one step attached: nothing is requested until subscription, each subscription requests
/// again, and errors of the service arrive unchanged. Arguments go to the service unchanged
/// (an empty id or list included), and so does `serialQueue`, absent by default; only `get`
/// passes the service's `defaultQueue()`.
///
/// Parsing failures of the four reading operations fail with ("PlaylistsDataController", 1).
/// The write operations never fail with a parsing error.
///
/// Thread contract: operations may be called from any thread. The controller applies no
/// scheduler: events arrive on the thread the service emits on.
class APPLOGIC_EXPORT PlaylistsDataController {
 public:
  /// The code of this controller's typed error, whose domain is "PlaylistsDataController".
  using ErrorCode = applogic::ErrorCode;

  /// `playlistsService` must not be null. Creates `networkQueue`.
  explicit PlaylistsDataController(std::shared_ptr<QAPIPlaylistsService> playlistsService);

  /// A serial queue labelled "AppLogic.PlaylistsDataController", made with the controller and
  /// living as long as it. No operation hands it to the service; callers pass their own queue.
  const SerialQueue& networkQueue() const noexcept { return networkQueue_; }

  /// The playlist `playlistId`: the first playlist of the answer, then completion. An answer
  /// that does not parse or holds no playlist fails.
  rx::Observable<Playlist> get(const std::string& playlistId) const;

  /// At most `limit` tracks of playlist `playlistID` from `offset`, with the answer's paging
  /// block, from which the caller computes the next offset. One page, then completion; an
  /// answer without a readable track list fails.
  rx::Observable<Page<std::vector<Track>>> getPlaylistTracks(const std::string& playlistID, int limit, int offset,
                                                             std::optional<SerialQueue> serialQueue = std::nullopt) const;

  /// The playlist's images for `size` (absent stays absent: the service's own size, not a zero
  /// size): one list, possibly empty, then completion.
  rx::Observable<std::vector<PlaylistImage>> getImages(const std::string& playlistID,
                                                       std::optional<Size> size = std::nullopt) const;

  /// Sets the playlist's Giphy picture: one `Unit` per answer of the service, whatever it holds.
  rx::Observable<Unit> updatePlaylistGif(const std::string& playlistID, const std::string& gifID) const;

  /// Removes the playlist's Giphy picture: one `Unit` per answer of the service, whatever it holds.
  rx::Observable<Unit> deletePlaylistGif(const std::string& playlistID) const;

  /// The service's own observable for uploading `imageData` as the playlist's custom image.
  rx::Observable<Unit> uploadPlaylistImage(const std::string& playlistID, std::vector<std::uint8_t> imageData) const;

  /// The tracks recommended for the playlist: one list, possibly empty, then completion.
  rx::Observable<std::vector<Track>> getRecommendedTracks(const std::string& playlistID,
                                                          std::optional<SerialQueue> serialQueue = std::nullopt) const;

  /// Rejects recommended tracks: one `Unit` per answer of the service, whatever it holds.
  rx::Observable<Unit> rejectRecommendedTracks(const std::vector<std::string>& trackIDs,
                                               std::optional<SerialQueue> serialQueue = std::nullopt) const;

  /// The service's own observable for appending `trackIDs` to the playlist.
  rx::Observable<Unit> addTracks(const std::string& playlistID, const std::vector<std::string>& trackIDs,
                                 std::optional<SerialQueue> serialQueue = std::nullopt) const;

  /// The service's own observable for replacing the playlist's tracks with `trackIDs`.
  rx::Observable<Unit> setTracks(const std::string& playlistID, const std::vector<std::string>& trackIDs,
                                 std::optional<SerialQueue> serialQueue = std::nullopt) const;

 private:
  std::shared_ptr<QAPIPlaylistsService> playlistsService_;
  SerialQueue networkQueue_;
};

}  // namespace applogic
