#include "applogic/controllers/personalized_data_controller.h"

#include <utility>

#include "applogic/records/track_serializers.h"
#include "controllers/parse_step.h"

namespace applogic {

PersonalizedDataController::PersonalizedDataController(std::shared_ptr<QAPIPersonalizedService> personalizedService)
    : personalizedService_(std::move(personalizedService)) {}

rx::Observable<std::vector<Track>> PersonalizedDataController::getNewReleaseRecommendedTracks(
    int offset, int itemsPerPage, rx::Observable<Unit> nextPageTrigger) const {
  return personalizedService_->getNewReleaseRecommendedTracks(offset, itemsPerPage, std::move(nextPageTrigger))
      .flatMapLatest([](const Json& answer) {
        return detail::emitOrFail(TracksResponseToTracks(answer), detail::sharedGenericParsingError());
      });
}

}  // namespace applogic
