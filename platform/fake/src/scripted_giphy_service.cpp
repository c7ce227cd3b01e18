#include "applogic/testing/scripted_giphy_service.h"

#include <utility>

namespace applogic::testing {

ScriptedGiphyService::ScriptedGiphyService() : ScriptedService({"getTrending", "search", "searchPaginated", "get"}) {}

rx::Observable<Json> ScriptedGiphyService::getTrending(GiphyRating rating, int limit) {
  return request("getTrending", {std::string(rawValue(rating)), std::to_string(limit)});
}

rx::Observable<Json> ScriptedGiphyService::search(const std::string& term, GiphyRating rating,
                                                  const std::string& language, int offset, int limit) {
  return request("search",
                 {term, std::string(rawValue(rating)), language, std::to_string(offset), std::to_string(limit)});
}

rx::Observable<Json> ScriptedGiphyService::searchPaginated(const std::string& term, GiphyRating rating,
                                                           const std::string& language, int itemPerPage,
                                                           rx::Observable<Unit> nextPageTrigger) {
  return pagedRequest("searchPaginated", {term, std::string(rawValue(rating)), language, std::to_string(itemPerPage)},
                      std::move(nextPageTrigger));
}

rx::Observable<Json> ScriptedGiphyService::get(const std::string& id) { return request("get", {id}); }

}  // namespace applogic::testing
