#include "applogic/controllers/playlists_data_controller.h"

#include <utility>

#include <boost/json/value.hpp>

#include "applogic/records/track_serializers.h"
#include "controllers/parse_step.h"

namespace applogic {
namespace {

const Error& unparsable() {
  static const Error error = typedParsingError("PlaylistsDataController");
  return error;
}

std::optional<Playlist> firstPlaylist(const Json& answer) {
  std::optional<std::vector<Playlist>> playlists = PlaylistsResponseToPlaylists(answer);
  if (!playlists || playlists->empty()) return std::nullopt;
  return std::move(playlists->front());
}

// The one parsing step of the reading operations, parameterised by what reads the answer.
template <auto Parse>
auto parsed(const rx::Observable<Json>& answers) {
  return answers.flatMap([](const Json& answer) { return detail::emitOrFail(Parse(answer), unparsable()); });
}

// The answer of these writes says nothing the app needs: it is not read, so they cannot fail
// to parse.
rx::Observable<Unit> acknowledged(const rx::Observable<Json>& answers) {
  return answers.map([](const Json&) { return unit; });
}

}  // namespace

PlaylistsDataController::PlaylistsDataController(std::shared_ptr<QAPIPlaylistsService> playlistsService)
    : playlistsService_(std::move(playlistsService)), networkQueue_("AppLogic.PlaylistsDataController") {}

rx::Observable<Playlist> PlaylistsDataController::get(const std::string& playlistId) const {
  return parsed<firstPlaylist>(playlistsService_->get(playlistId, playlistsService_->defaultQueue()));
}

rx::Observable<Page<std::vector<Track>>> PlaylistsDataController::getPlaylistTracks(
    const std::string& playlistID, int limit, int offset, std::optional<SerialQueue> serialQueue) const {
  return parsed<PlaylistTracksResponseToPageTracks>(
      playlistsService_->getPlaylistTracks(playlistID, limit, offset, std::move(serialQueue)));
}

rx::Observable<std::vector<PlaylistImage>> PlaylistsDataController::getImages(const std::string& playlistID,
                                                                              std::optional<Size> size) const {
  return parsed<PlaylistImagesResponseToPlaylistImage>(playlistsService_->getImages(playlistID, size));
}

rx::Observable<Unit> PlaylistsDataController::updatePlaylistGif(const std::string& playlistID,
                                                                const std::string& gifID) const {
  return acknowledged(playlistsService_->updatePlaylistGif(playlistID, gifID));
}

rx::Observable<Unit> PlaylistsDataController::deletePlaylistGif(const std::string& playlistID) const {
  return acknowledged(playlistsService_->deletePlaylistGif(playlistID));
}

rx::Observable<Unit> PlaylistsDataController::uploadPlaylistImage(const std::string& playlistID,
                                                                  std::vector<std::uint8_t> imageData) const {
  return playlistsService_->uploadPlaylistImage(playlistID, std::move(imageData));
}

rx::Observable<std::vector<Track>> PlaylistsDataController::getRecommendedTracks(
    const std::string& playlistID, std::optional<SerialQueue> serialQueue) const {
  return parsed<TracksResponseToTracks>(playlistsService_->getRecommendedTracks(playlistID, std::move(serialQueue)));
}

rx::Observable<Unit> PlaylistsDataController::rejectRecommendedTracks(const std::vector<std::string>& trackIDs,
                                                                      std::optional<SerialQueue> serialQueue) const {
  return acknowledged(playlistsService_->rejectRecommendedTracks(trackIDs, std::move(serialQueue)));
}

rx::Observable<Unit> PlaylistsDataController::addTracks(const std::string& playlistID,
                                                        const std::vector<std::string>& trackIDs,
                                                        std::optional<SerialQueue> serialQueue) const {
  return playlistsService_->addTracks(playlistID, trackIDs, std::move(serialQueue));
}

rx::Observable<Unit> PlaylistsDataController::setTracks(const std::string& playlistID,
                                                        const std::vector<std::string>& trackIDs,
                                                        std::optional<SerialQueue> serialQueue) const {
  return playlistsService_->setTracks(playlistID, trackIDs, std::move(serialQueue));
}

}  // namespace applogic
