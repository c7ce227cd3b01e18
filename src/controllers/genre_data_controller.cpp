#include "applogic/controllers/genre_data_controller.h"

#include <utility>

#include "applogic/records/track_serializers.h"
#include "controllers/parse_step.h"

namespace applogic {

GenreDataController::GenreDataController(std::shared_ptr<QAPIGenreService> genreService)
    : genreService_(std::move(genreService)) {}

rx::Observable<std::vector<Genre>> GenreDataController::getTopGenresObservable(const std::string& language) const {
  return genreService_->getTopGenres(language).flatMapLatest([](const Json& answer) {
    return detail::emitOrFail(GenreResponseToGenres(answer), detail::sharedGenericParsingError());
  });
}

rx::Observable<std::vector<Track>> GenreDataController::getGenreTopTracksObservable(const std::string& genreId,
                                                                                    int limit) const {
  return genreService_->getGenreTopTracks(genreId, limit).flatMapLatest([](const Json& answer) {
    return detail::emitOrFail(TracksResponseToTracks(answer), detail::sharedGenericParsingError());
  });
}

}  // namespace applogic
