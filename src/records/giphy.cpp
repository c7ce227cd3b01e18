#include "applogic/records/giphy.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <ostream>
#include <system_error>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>
#include <boost/url/parse.hpp>
#include <boost/url/url.hpp>

#include "applogic/support/fatal.h"
#include "applogic/support/json.h"
#include "applogic/support/strings.h"

namespace applogic {
namespace {

struct RatingName {
  GiphyRating rating;
  std::string_view raw;
};

constexpr RatingName kRatingNames[] = {
    {GiphyRating::y, "y"}, {GiphyRating::g, "g"}, {GiphyRating::pg, "pg"},
    {GiphyRating::pg13, "pg-13"}, {GiphyRating::r, "r"},
};

float dimension(const JsonObject& raw, std::string_view key) {
  const std::optional<std::string_view> text = json::string(raw, key);
  if (!text) return 0;
  std::string_view number = *text;
  // from_chars reads no leading '+', which the platform's float parsing accepts; "+-1" stays
  // invalid.
  if (number.size() > 1 && number[0] == '+' && number[1] != '-') number.remove_prefix(1);
  float value = 0;
  const char* end = number.data() + number.size();
  const auto [stop, error] = std::from_chars(number.data(), end, value);
  if (error != std::errc() || stop != end) return 0;
  return value;
}

std::string onProxyHost(std::string_view address, std::string_view host) {
  if (address.empty()) return {};
  const auto parsed = boost::urls::parse_uri_reference(address);
  if (!parsed) return std::string(address);
  // With a host, a path must be empty or absolute. Boost.URL would glue a relative path onto the
  // new host ("media/a.gif" → "//hostmedia/a.gif"), so such an address is kept as received.
  const std::string_view path = parsed->encoded_path();
  if (!path.empty() && path.front() != '/') return std::string(address);
  boost::urls::url rewritten(*parsed);
  rewritten.set_host(host);
  return std::string(rewritten.buffer());
}

std::optional<std::string> optionalString(const JsonObject& raw, std::string_view key) {
  if (const auto text = json::string(raw, key)) return std::string(*text);
  return std::nullopt;
}

GiphyImages renditions(const JsonObject& raw, const GiphyImageFilter& filterImage, std::string_view host) {
  const JsonObject* all = json::object(raw, "images");
  if (all == nullptr) return {};
  // The whole dictionary must be of rendition objects; a single odd member voids it.
  for (const auto& member : *all) {
    if (!member.value().is_object()) return {};
  }
  GiphyImages kept;
  kept.reserve(all->size());
  for (const auto& member : *all) {
    GiphyImageInfo info = GiphyImageInfo::fromRaw(member.value().get_object(), host);
    if (filterImage && !filterImage(member.key(), info)) continue;
    kept.emplace_back(std::string(member.key()), std::move(info));
  }
  return kept;
}

bool sameText(const std::optional<std::string>& a, const std::optional<std::string>& b) noexcept {
  if (!a || !b) return a.has_value() == b.has_value();
  return canonicallyEqual(*a, *b);
}

bool sameImages(const GiphyImages& a, const GiphyImages& b) noexcept {
  if (a.size() != b.size()) return false;
  return std::all_of(a.begin(), a.end(), [&b](const auto& entry) {
    const auto found = std::find_if(b.begin(), b.end(), [&entry](const auto& other) {
      return canonicallyEqual(other.first, entry.first);
    });
    return found != b.end() && found->second == entry.second;
  });
}

void printOptional(std::ostream& out, const std::optional<std::string>& text) {
  if (text) {
    out << '"' << *text << '"';
  } else {
    out << "none";
  }
}

}  // namespace

std::optional<GiphyRating> giphyRatingFromRaw(std::string_view raw) noexcept {
  for (const RatingName& name : kRatingNames) {
    if (name.raw == raw) return name.rating;
  }
  return std::nullopt;
}

std::string_view rawValue(GiphyRating rating) noexcept {
  return kRatingNames[static_cast<std::size_t>(rating)].raw;
}

std::optional<GiphyMode> giphyModeFromRaw(int raw) noexcept {
  if (raw == static_cast<int>(GiphyMode::still)) return GiphyMode::still;
  if (raw == static_cast<int>(GiphyMode::animated)) return GiphyMode::animated;
  return std::nullopt;
}

std::optional<Url> GiphyImageInfo::url() const { return Url::parse(urlString); }

GiphyImageInfo GiphyImageInfo::fromRaw(const JsonObject& raw, std::string_view mediaProxyHost) {
  GiphyImageInfo info;
  info.height = dimension(raw, "height");
  info.width = dimension(raw, "width");
  info.urlString = onProxyHost(json::string(raw, "url").value_or(std::string_view()), mediaProxyHost);
  return info;
}

bool operator==(const GiphyImageInfo& a, const GiphyImageInfo& b) noexcept {
  return a.width == b.width && a.height == b.height && canonicallyEqual(a.urlString, b.urlString);
}

const GiphyImageInfo* Giphy::image(std::string_view key) const noexcept {
  const auto found = std::find_if(images.begin(), images.end(), [key](const auto& entry) { return entry.first == key; });
  return found == images.end() ? nullptr : &found->second;
}

std::optional<std::pair<std::string, GiphyImageInfo>> Giphy::getBestFit(Mode mode, float widthInPixel) const {
  const std::pair<std::string, GiphyImageInfo>* best = nullptr;
  const auto distance = [widthInPixel](const auto& entry) { return std::fabs(widthInPixel - entry.second.width); };
  for (const auto& entry : images) {
    const bool still = entry.first.find("still") != std::string::npos;
    if (still != (mode == Mode::still)) continue;
    if (best == nullptr || distance(entry) < distance(*best)) best = &entry;
  }
  if (best == nullptr) return std::nullopt;
  return *best;
}

Giphy Giphy::fromRaw(const JsonObject& raw, const GiphyImageFilter& filterImage, std::string_view mediaProxyHost) {
  const std::optional<std::string_view> id = json::string(raw, "id");
  if (!id) fatalError("Giphy picture without a string \"id\"");
  Giphy giphy;
  giphy.id = std::string(*id);
  giphy.webURLString = optionalString(raw, "url");
  giphy.bitlyWebURLString = optionalString(raw, "bitly_url");
  giphy.bitlyWebGifURLString = optionalString(raw, "bitly_gif_url");
  if (const auto rating = json::string(raw, "rating")) giphy.rating = giphyRatingFromRaw(*rating);
  giphy.images = renditions(raw, filterImage, mediaProxyHost);
  return giphy;
}

bool operator==(const Giphy& a, const Giphy& b) noexcept {
  return canonicallyEqual(a.id, b.id) && sameImages(a.images, b.images) && a.rating == b.rating &&
         sameText(a.webURLString, b.webURLString) && sameText(a.bitlyWebURLString, b.bitlyWebURLString) &&
         sameText(a.bitlyWebGifURLString, b.bitlyWebGifURLString);
}

std::ostream& operator<<(std::ostream& out, const GiphyImageInfo& info) {
  return out << info.width << "x" << info.height << " \"" << info.urlString << '"';
}

std::ostream& operator<<(std::ostream& out, const Giphy& giphy) {
  out << "Giphy{id \"" << giphy.id << "\", images {";
  for (std::size_t i = 0; i < giphy.images.size(); ++i) {
    out << (i == 0 ? "" : ", ") << giphy.images[i].first << ": " << giphy.images[i].second;
  }
  out << "}, rating " << (giphy.rating ? rawValue(*giphy.rating) : std::string_view("none")) << ", web ";
  printOptional(out, giphy.webURLString);
  out << ", bitly ";
  printOptional(out, giphy.bitlyWebURLString);
  out << ", bitly gif ";
  printOptional(out, giphy.bitlyWebGifURLString);
  return out << '}';
}

std::optional<Giphy> GiphyResponseToGiphy(const Json& input, const GiphyImageFilter& filterImage,
                                          std::string_view mediaProxyHost) {
  const JsonObject* answer = json::object(input);
  if (answer == nullptr) return std::nullopt;
  const JsonObject* data = json::object(*answer, "data");
  if (data == nullptr) return std::nullopt;
  return Giphy::fromRaw(*data, filterImage, mediaProxyHost);
}

std::optional<std::vector<Giphy>> GiphysResponseToGiphy(const Json& input, const GiphyImageFilter& filterImage,
                                                        std::string_view mediaProxyHost) {
  const JsonArray* data = json::arrayOfObjects(input, "data");
  if (data == nullptr) return std::nullopt;
  std::vector<Giphy> pictures;
  pictures.reserve(data->size());
  for (std::size_t i = 0; i < data->size(); ++i) {
    pictures.push_back(Giphy::fromRaw(json::objectAt(*data, i), filterImage, mediaProxyHost));
  }
  return pictures;
}

}  // namespace applogic
