#pragma once

#include <string>

#include "applogic/controllers/giphy_service.h"
#include "applogic/testing/scripted_services.h"

namespace applogic::testing {

/// A scripted `GiphyAPIService` with the rules of every scripted service (see
/// "applogic/testing/scripted_services.h"). Operations: "getTrending", "search",
/// "searchPaginated", "get". Calls are recorded with the rating as its raw string ("g"), then the
/// other arguments as given: getTrending(rating, limit), search(term, rating, language, offset,
/// limit), searchPaginated(term, rating, language, itemPerPage), get(id).
///
/// Thread contract: every member may be called from any thread.
class ScriptedGiphyService final : public GiphyAPIService, public ScriptedService {
 public:
  ScriptedGiphyService();
  rx::Observable<Json> getTrending(GiphyRating rating, int limit) override;
  rx::Observable<Json> search(const std::string& term, GiphyRating rating, const std::string& language, int offset,
                              int limit) override;
  rx::Observable<Json> searchPaginated(const std::string& term, GiphyRating rating, const std::string& language,
                                       int itemPerPage, rx::Observable<Unit> nextPageTrigger) override;
  rx::Observable<Json> get(const std::string& id) override;
};

}  // namespace applogic::testing
