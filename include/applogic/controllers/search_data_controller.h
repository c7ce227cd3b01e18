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

/// Catalog track search.
///
/// Holds its service and nothing else; the operation calls the service at once and returns its
/// cold observable with the parsing step attached (each subscription searches again; errors of
/// the service arrive unchanged).
///
/// Thread contract: may be called from any thread. The controller applies no scheduler: events
/// arrive on the thread the service emits on.
class APPLOGIC_EXPORT SearchDataController {
 public:
  /// The code of this controller's typed error, whose domain is "SearchDataController".
  using ErrorCode = applogic::ErrorCode;

  /// `searchService` must not be null.
  explicit SearchDataController(std::shared_ptr<QAPISearchService> searchService);

  /// The tracks matching `query`, at most `limit`; both go to the service unchanged (no
  /// trimming, no minimum length, no escaping). Emits one list (empty when nothing matched),
  /// then completes. An answer that does not parse fails with ("SearchDataController", 1).
  rx::Observable<std::vector<Track>> searchTracks(const std::string& query, int limit) const;

 private:
  std::shared_ptr<QAPISearchService> searchService_;
};

}  // namespace applogic
