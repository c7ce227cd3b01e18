#include "applogic/controllers/search_data_controller.h"

#include <utility>

#include "applogic/records/track_serializers.h"
#include "controllers/parse_step.h"

namespace applogic {
namespace {

const Error& unparsable() {
  static const Error error = typedParsingError("SearchDataController");
  return error;
}

}  // namespace

SearchDataController::SearchDataController(std::shared_ptr<QAPISearchService> searchService)
    : searchService_(std::move(searchService)) {}

rx::Observable<std::vector<Track>> SearchDataController::searchTracks(const std::string& query, int limit) const {
  return searchService_->searchTracks(query, limit).flatMap([](const Json& answer) {
    return detail::emitOrFail(SearchTracksResponseToTracks(answer), unparsable());
  });
}

}  // namespace applogic
