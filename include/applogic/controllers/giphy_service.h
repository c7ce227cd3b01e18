#pragma once

#include <string>

#include "applogic/export.h"
#include "applogic/records/giphy.h"
#include "applogic/rx/observable.h"
#include "applogic/support/json_fwd.h"
#include "applogic/support/unit.h"

namespace applogic {

/// What `GiphyDataController` requires of the Giphy client library. The app creates the service
/// and hands it to the controller, which never configures it.
///
/// Every operation returns a cold observable: nothing is requested until subscription, and each
/// subscription requests again. A request emits the raw answer ({"data": picture} for `get`,
/// {"data": [picture, ...]} for the others) and completes, or fails with the transport's `Error`.
/// `searchPaginated` subscribes to `nextPageTrigger` and asks for the next page on each of its
/// emissions, one answer per page; it completes when the trigger has completed and the last page
/// was answered.
///
/// Thread contract: the operations may be called from any thread; events arrive on a thread of
/// the service's choosing.
class APPLOGIC_EXPORT GiphyAPIService {
 public:
  virtual ~GiphyAPIService() = default;

  /// Trending pictures allowed by `rating`, at most `limit`.
  virtual rx::Observable<Json> getTrending(GiphyRating rating, int limit) = 0;
  /// Pictures matching `term` in `language` (a language code such as "en"), allowed by `rating`,
  /// at most `limit` starting at `offset`.
  virtual rx::Observable<Json> search(const std::string& term, GiphyRating rating, const std::string& language,
                                      int offset, int limit) = 0;
  /// Paged: pictures matching `term`, `itemPerPage` per page, one page per emission of
  /// `nextPageTrigger`.
  virtual rx::Observable<Json> searchPaginated(const std::string& term, GiphyRating rating,
                                               const std::string& language, int itemPerPage,
                                               rx::Observable<Unit> nextPageTrigger) = 0;
  /// The picture whose Giphy id is `id`.
  virtual rx::Observable<Json> get(const std::string& id) = 0;
};

}  // namespace applogic
