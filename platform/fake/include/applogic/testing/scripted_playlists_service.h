#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "applogic/controllers/playlists_service.h"
#include "applogic/foundation/serial_queue.h"
#include "applogic/testing/scripted_services.h"

namespace applogic::testing {

/// A scripted `QAPIPlaylistsService`, with the scripting, recording and threading rules of
/// `ScriptedService` ("scripted_services.h"). Operations are scripted under their own names
/// ("get", "getPlaylistTracks", "getImages", "updatePlaylistGif", "deletePlaylistGif",
/// "uploadPlaylistImage", "getRecommendedTracks", "rejectRecommendedTracks", "addTracks",
/// "setTracks").
///
/// `uploadPlaylistImage`, `addTracks` and `setTracks` emit one `Unit` for every value their
/// answer emits, whatever it holds: script them with `Answer::unit()` (or any other answer;
/// failures and held answers work as for the others).
///
/// Arguments are recorded in order, as given, with these forms:
/// - a queue: its label, or "none" when absent;
/// - a size: "WIDTHxHEIGHT" in the shortest decimal form of each float ("320x240.5"), or "none"
///   when absent;
/// - a list of ids: "[a, b]", "[]" when empty;
/// - bytes: lower-case hexadecimal, "" when empty.
class ScriptedPlaylistsService final : public QAPIPlaylistsService, public ScriptedService {
 public:
  /// `defaultQueue()` is a queue labelled "ScriptedPlaylistsService.default".
  ScriptedPlaylistsService();

  SerialQueue defaultQueue() const override { return defaultQueue_; }
  rx::Observable<Json> get(const std::string& playlistId, std::optional<SerialQueue> serialQueue) override;
  rx::Observable<Json> getPlaylistTracks(const std::string& playlistID, int limit, int offset,
                                         std::optional<SerialQueue> serialQueue) override;
  rx::Observable<Json> getImages(const std::string& playlistID, std::optional<Size> size) override;
  rx::Observable<Json> updatePlaylistGif(const std::string& playlistID, const std::string& gifID) override;
  rx::Observable<Json> deletePlaylistGif(const std::string& playlistID) override;
  rx::Observable<Unit> uploadPlaylistImage(const std::string& playlistID, std::vector<std::uint8_t> data) override;
  rx::Observable<Json> getRecommendedTracks(const std::string& playlistID,
                                            std::optional<SerialQueue> serialQueue) override;
  rx::Observable<Json> rejectRecommendedTracks(const std::vector<std::string>& trackIDs,
                                               std::optional<SerialQueue> serialQueue) override;
  rx::Observable<Unit> addTracks(const std::string& playlistID, const std::vector<std::string>& trackIDs,
                                 std::optional<SerialQueue> serialQueue) override;
  rx::Observable<Unit> setTracks(const std::string& playlistID, const std::vector<std::string>& trackIDs,
                                 std::optional<SerialQueue> serialQueue) override;

 private:
  SerialQueue defaultQueue_;
};

}  // namespace applogic::testing
