#include "applogic/controllers/tracks_data_controller.h"

#include <optional>
#include <utility>

#include "applogic/records/track_serializers.h"
#include "controllers/parse_step.h"

namespace applogic {
namespace {

const Error& unparsable() {
  static const Error error = typedParsingError("TracksDataController");
  return error;
}

std::optional<Track> firstTrack(std::optional<std::vector<Track>> tracks) {
  if (!tracks || tracks->empty()) return std::nullopt;
  return std::move(tracks->front());
}

}  // namespace

TracksDataController::TracksDataController(std::shared_ptr<QAPITracksService> tracksService)
    : tracksService_(std::move(tracksService)) {}

rx::Observable<Track> TracksDataController::getTrack(const std::string& trackId) const {
  return tracksService_->getTrackData(trackId).flatMap([](const Json& answer) {
    return detail::emitOrFail(firstTrack(TracksResponseToTracks(answer)), unparsable());
  });
}

rx::Observable<std::vector<Track>> TracksDataController::getTopTracks(int limit) const {
  // The generic error, not this controller's typed one: the top tracks always reported it so.
  return tracksService_->getTopTracksData(limit).flatMap([](const Json& answer) {
    return detail::emitOrFail(TracksResponseToTracks(answer), detail::sharedGenericParsingError());
  });
}

}  // namespace applogic
