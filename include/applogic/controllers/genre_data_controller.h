#pragma once

#include <memory>
#include <string>
#include <vector>

#include "applogic/controllers/services.h"
#include "applogic/export.h"
#include "applogic/records/genre.h"
#include "applogic/records/track.h"
#include "applogic/rx/observable.h"

namespace applogic {

/// Catalog genres: the top genres for a language and the top tracks of one genre. Reports
/// parsing failures only in the generic form.
///
/// Holds its service and nothing else; each operation calls the service at once and returns
/// its cold observable with the parsing step attached. Every answer the service emits becomes
/// one list; an answer that arrives while an older one is still being turned into its list
/// supersedes it. Errors of the service arrive unchanged.
///
/// Thread contract: may be called from any thread. The controller applies no scheduler: events
/// arrive on the thread the service emits on.
class APPLOGIC_EXPORT GenreDataController {
 public:
  /// `genreService` must not be null.
  explicit GenreDataController(std::shared_ptr<QAPIGenreService> genreService);

  /// The top genres for `language` (passed unchanged): a list per answer (possibly empty). An
  /// unparsable answer fails with ("Unknown parsing error", 0).
  rx::Observable<std::vector<Genre>> getTopGenresObservable(const std::string& language) const;

  /// The top tracks of genre `genreId`, at most `limit` (both passed unchanged): a list per
  /// answer (possibly empty). An unparsable answer fails with ("Unknown parsing error", 0).
  rx::Observable<std::vector<Track>> getGenreTopTracksObservable(const std::string& genreId, int limit) const;

 private:
  std::shared_ptr<QAPIGenreService> genreService_;
};

}  // namespace applogic
