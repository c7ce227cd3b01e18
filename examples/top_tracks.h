#pragma once

#include <memory>
#include <string>
#include <vector>

#include "applogic/controllers/tracks_data_controller.h"

namespace example {

/// The lines of the app's "top tracks" screen: "1. Name - Artist (3:25)", one per track, or one
/// line "cannot load the top tracks: DOMAIN CODE" when the service fails.
class TopTracksScreen {
 public:
  explicit TopTracksScreen(std::shared_ptr<applogic::TracksDataController> tracks);

  /// Asks for the top `limit` tracks and waits (at most 10 s) for the answer. Call it from a
  /// thread that is not the one delivering the service's answers.
  std::vector<std::string> load(int limit) const;

 private:
  std::shared_ptr<applogic::TracksDataController> tracks_;
};

}  // namespace example
