#include "top_tracks.h"

#include <chrono>
#include <cstdio>
#include <utility>

#include "applogic/rx/blocking.h"

namespace example {

TopTracksScreen::TopTracksScreen(std::shared_ptr<applogic::TracksDataController> tracks)
    : tracks_(std::move(tracks)) {}

std::vector<std::string> TopTracksScreen::load(int limit) const {
  const auto events = applogic::rx::blockingCollect(tracks_->getTopTracks(limit), std::chrono::seconds(10));
  if (events.error || events.values.empty()) {
    const std::string why = events.error ? events.error->domain + " " + std::to_string(events.error->code)
                                         : std::string("no answer");
    return {"cannot load the top tracks: " + why};
  }
  std::vector<std::string> lines;
  int rank = 0;
  for (const applogic::Track& track : events.values.front()) {
    char duration[16];
    std::snprintf(duration, sizeof duration, "%lld:%02lld", static_cast<long long>(track.playbackSeconds / 60),
                  static_cast<long long>(track.playbackSeconds % 60));
    lines.push_back(std::to_string(++rank) + ". " + track.name + " - " + track.artistName + " (" + duration + ")");
  }
  return lines;
}

}  // namespace example
