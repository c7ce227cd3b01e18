#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/controllers/controller_error.h"
#include "applogic/controllers/giphy_service.h"
#include "applogic/export.h"
#include "applogic/foundation/zds_deferred.h"
#include "applogic/platform/locale.h"
#include "applogic/records/giphy.h"
#include "applogic/rx/disposable.h"
#include "applogic/rx/observable.h"
#include "applogic/support/unit.h"
#include "applogic/support/url.h"

namespace applogic {

/// Giphy pictures for playlist covers: trending, one-shot and paged search, one picture by id,
/// and the address of a still frame for a width.
///
/// Every answer is parsed with the Giphy serializers, keeping only the renditions that
/// `filterImageByAspectRatio` accepts, and a picture left without renditions is dropped. Lists
/// are requested with the rating `GiphyRating::g` and 25 pictures per request or page; searches
/// in the locale's language, or "en" when it names none (read at each call).
///
/// Errors: ("GiphyDataController", 1) for a list answer of the wrong shape and for a single
/// picture that is unparsable or has no acceptable rendition; ("No still image url", 0) from
/// `getGiphySillImageUrl`. Errors of the service arrive unchanged. None carries user
/// information.
///
/// Holds its service and no other state; each operation calls the service at once and returns
/// its cold observable with the parsing step attached (each subscription requests again).
///
/// Thread contract: may be called from any thread. The controller applies no scheduler: events
/// arrive on the thread the service emits on.
class APPLOGIC_EXPORT GiphyDataController {
 public:
  /// The code of this controller's typed error, whose domain is "GiphyDataController".
  using ErrorCode = applogic::ErrorCode;

  /// `giphyAPIService` and `locale` must not be null. Rendition addresses are moved onto
  /// `mediaProxyHost`.
  explicit GiphyDataController(std::shared_ptr<GiphyAPIService> giphyAPIService,
                               std::shared_ptr<const platform::Locale> locale = platform::systemLocale(),
                               std::string mediaProxyHost = std::string(kDefaultGiphyMediaProxyHost));

  /// Trending pictures: one list per answer (possibly empty), then completion.
  rx::Observable<std::vector<Giphy>> getTrending() const;

  /// The first 25 pictures matching `term` (passed unchanged): one list per answer.
  rx::Observable<std::vector<Giphy>> search(const std::string& term) const;

  /// Pictures matching `term`, one list per page; each emission of `nextPageTrigger` asks the
  /// service for the next page. A page of the wrong shape fails the stream.
  rx::Observable<std::vector<Giphy>> searchPaginated(const std::string& term,
                                                     rx::Observable<Unit> nextPageTrigger) const;

  /// The picture `id` (passed unchanged): emits it, then completes.
  rx::Observable<Giphy> get(const std::string& id) const;

  /// The address of the still rendition of picture `id` whose width is closest to `width`
  /// pixels (ties go to the one met first in the answer), among the renditions that passed the
  /// aspect filter. Requests the picture at once; the deferred resolves with the address, or is
  /// rejected with `get`'s errors, or with ("No still image url", 0) when the picture has no
  /// still rendition or its address is not a URI reference. It settles on the thread the service
  /// answers on.
  ZDSDeferred<Url> getGiphySillImageUrl(const std::string& id, float width) const;

  /// Whether a rendition suits a playlist cover; the key is not looked at. True when width and
  /// height are positive, the address is not empty, and width / height (divided as `float`) lies
  /// within [1.0, 2.3333333] (the float nearest 7/3), both bounds included: square up to 7:3
  /// landscape. Pure; any thread.
  static bool filterImageByAspectRatio(std::string_view key, const GiphyImageInfo& info);

 private:
  std::shared_ptr<GiphyAPIService> giphyAPIService_;
  rx::DisposeBag disposeBag_;
  std::shared_ptr<const platform::Locale> locale_;
  std::string mediaProxyHost_;
};

}  // namespace applogic
