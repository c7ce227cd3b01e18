#pragma once

#include <memory>
#include <string>
#include <vector>

#include "applogic/controllers/controller_error.h"
#include "applogic/controllers/services.h"
#include "applogic/export.h"
#include "applogic/records/track.h"
#include "applogic/rx/observable.h"

namespace applogic {

/// Catalog tracks: one track by id, and the top tracks.
///
/// Holds its service and nothing else. Every operation calls the service at once and returns
/// the service's cold observable with the parsing step attached: nothing is requested until
/// subscription, each subscription requests again, and errors of the service arrive unchanged.
///
/// Thread contract: operations may be called from any thread. The controller applies no
/// scheduler: events arrive on the thread the service emits on.
class APPLOGIC_EXPORT TracksDataController {
 public:
  /// The code of this controller's typed error, whose domain is "TracksDataController".
  using ErrorCode = applogic::ErrorCode;

  /// `tracksService` must not be null.
  explicit TracksDataController(std::shared_ptr<QAPITracksService> tracksService);

  /// The track with id `trackId` (passed to the service unchanged): the first track of the
  /// answer, then completion. An answer that does not parse or holds no track fails with
  /// ("TracksDataController", 1); further tracks of the answer are ignored.
  rx::Observable<Track> getTrack(const std::string& trackId) const;

  /// The catalog's top tracks, at most `limit`: one list (possibly empty), then completion. An
  /// answer that does not parse fails with the generic error ("Unknown parsing error", 0).
  rx::Observable<std::vector<Track>> getTopTracks(int limit) const;

 private:
  std::shared_ptr<QAPITracksService> tracksService_;
};

}  // namespace applogic
