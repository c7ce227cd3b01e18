#pragma once

#include <memory>
#include <vector>

#include "applogic/controllers/services.h"
#include "applogic/export.h"
#include "applogic/records/track.h"
#include "applogic/rx/observable.h"
#include "applogic/support/unit.h"

namespace applogic {

/// Recommendations for the signed-in user. Reports parsing failures only in the generic form.
///
/// Holds its service and nothing else (no paging position); the operation calls the service at
/// once and returns its cold observable with the parsing step attached. Errors of the service
/// arrive unchanged.
///
/// Thread contract: may be called from any thread. The controller applies no scheduler: events
/// arrive on the thread the service emits on.
class APPLOGIC_EXPORT PersonalizedDataController {
 public:
  /// `personalizedService` must not be null.
  explicit PersonalizedDataController(std::shared_ptr<QAPIPersonalizedService> personalizedService);

  /// New releases recommended to the signed-in user, one list per page: the service asks for a
  /// page on each emission of `nextPageTrigger`, starting at `offset` with `itemsPerPage` per
  /// page (all three passed unchanged). Each answer is parsed as the latest one: an answer that
  /// arrives while an older one is still being turned into its list supersedes it. An
  /// unparsable page fails the stream with ("Unknown parsing error", 0).
  rx::Observable<std::vector<Track>> getNewReleaseRecommendedTracks(int offset, int itemsPerPage,
                                                                    rx::Observable<Unit> nextPageTrigger) const;

 private:
  std::shared_ptr<QAPIPersonalizedService> personalizedService_;
};

}  // namespace applogic
