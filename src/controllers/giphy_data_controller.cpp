#include "applogic/controllers/giphy_data_controller.h"

#include <algorithm>
#include <cmath>
#include <optional>
#include <utility>

#include <boost/json/value.hpp>

#include "applogic/foundation/zds_deferred_util.h"
#include "controllers/parse_step.h"

namespace applogic {
namespace {

constexpr GiphyRating kRating = GiphyRating::g;
constexpr int kPageSize = 25;
constexpr std::string_view kFallbackLanguage = "en";
// Float division rounds correctly, so this is the float nearest 7/3.
constexpr float kWidestAspectRatio = 7.0f / 3.0f;
static_assert(kWidestAspectRatio == 2.3333333f);

const Error& unparsable() {
  static const Error error = typedParsingError("GiphyDataController");
  return error;
}

const Error& noStillImageUrl() {
  static const Error error{"No still image url", 0, {}};
  return error;
}

std::vector<Giphy> withImages(std::vector<Giphy> pictures) {
  std::erase_if(pictures, [](const Giphy& giphy) { return giphy.images.empty(); });
  return pictures;
}

std::optional<std::vector<Giphy>> listOfPictures(const Json& answer, std::string_view host) {
  auto pictures = GiphysResponseToGiphy(answer, &GiphyDataController::filterImageByAspectRatio, host);
  if (!pictures) return std::nullopt;
  return withImages(std::move(*pictures));
}

// An unparsable single answer is no error at this step: it becomes an empty list, which `get`
// then reports exactly like a picture whose renditions were all filtered out.
std::vector<Giphy> singlePicture(const Json& answer, std::string_view host) {
  std::optional<Giphy> picture = GiphyResponseToGiphy(answer, &GiphyDataController::filterImageByAspectRatio, host);
  if (!picture) return {};
  std::vector<Giphy> pictures;
  pictures.push_back(std::move(*picture));
  return withImages(std::move(pictures));
}

rx::Observable<std::vector<Giphy>> parseList(const rx::Observable<Json>& answers, std::string host) {
  return answers.flatMap([host = std::move(host)](const Json& answer) {
    return detail::emitOrFail(listOfPictures(answer, host), unparsable());
  });
}

}  // namespace

GiphyDataController::GiphyDataController(std::shared_ptr<GiphyAPIService> giphyAPIService,
                                         std::shared_ptr<const platform::Locale> locale, std::string mediaProxyHost)
    : giphyAPIService_(std::move(giphyAPIService)),
      locale_(std::move(locale)),
      mediaProxyHost_(std::move(mediaProxyHost)) {}

rx::Observable<std::vector<Giphy>> GiphyDataController::getTrending() const {
  return parseList(giphyAPIService_->getTrending(kRating, kPageSize), mediaProxyHost_);
}

rx::Observable<std::vector<Giphy>> GiphyDataController::search(const std::string& term) const {
  const std::string language = locale_->languageCode().value_or(std::string(kFallbackLanguage));
  return parseList(giphyAPIService_->search(term, kRating, language, 0, kPageSize), mediaProxyHost_);
}

rx::Observable<std::vector<Giphy>> GiphyDataController::searchPaginated(const std::string& term,
                                                                        rx::Observable<Unit> nextPageTrigger) const {
  const std::string language = locale_->languageCode().value_or(std::string(kFallbackLanguage));
  return parseList(
      giphyAPIService_->searchPaginated(term, kRating, language, kPageSize, std::move(nextPageTrigger)),
      mediaProxyHost_);
}

rx::Observable<Giphy> GiphyDataController::get(const std::string& id) const {
  return giphyAPIService_->get(id).flatMap([host = mediaProxyHost_](const Json& answer) {
    std::vector<Giphy> pictures = singlePicture(answer, host);
    if (pictures.empty()) return rx::error<Giphy>(unparsable());
    return rx::just(std::move(pictures.front()));
  });
}

ZDSDeferred<Url> GiphyDataController::getGiphySillImageUrl(const std::string& id, float width) const {
  const rx::Observable<Url> address = get(id).flatMap([width](const Giphy& giphy) {
    const auto still = giphy.getBestFit(Giphy::Mode::still, width);
    std::optional<Url> url = still ? still->second.url() : std::nullopt;
    return detail::emitOrFail(std::move(url), noStillImageUrl());
  });
  return ZDSDeferredUtil::fromObservable(address);
}

bool GiphyDataController::filterImageByAspectRatio(std::string_view, const GiphyImageInfo& info) {
  // A zero, infinite or NaN size makes a ratio outside the bounds; of the negative sizes only
  // two together make one inside them.
  if (std::signbit(info.width) || info.urlString.empty()) return false;
  const float ratio = info.width / info.height;
  return ratio >= 1.0f && ratio <= kWidestAspectRatio;
}

}  // namespace applogic
