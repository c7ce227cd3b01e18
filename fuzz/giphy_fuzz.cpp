// Feeds arbitrary bytes, parsed as JSON, to both Giphy serializers, with every rendition kept and
// with the controller's aspect filter, and checks the properties that must hold for any answer.
// A picture without a string "id" stops the program by design, so a serializer is skipped only
// for inputs where it would meet one.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json.hpp>
#include <boost/url/parse.hpp>

#include "applogic/controllers/giphy_data_controller.h"
#include "applogic/records/giphy.h"

namespace {

using applogic::Giphy;
using applogic::GiphyImageInfo;
using applogic::Json;

constexpr std::string_view kHost = "proxy.fuzz";

void check(bool condition) {
  if (!condition) std::abort();
}

bool hasStringId(const Json& picture) {
  const auto* object = picture.if_object();
  if (object == nullptr) return false;
  const Json* id = object->if_contains("id");
  return id != nullptr && id->is_string();
}

const Json* dataOf(const Json& value) {
  const auto* object = value.if_object();
  return object == nullptr ? nullptr : object->if_contains("data");
}

// What GiphyResponseToGiphy would build a picture from: "data" as an object.
bool singleWouldStop(const Json& value) {
  const Json* data = dataOf(value);
  return data != nullptr && data->is_object() && !hasStringId(*data);
}

// What GiphysResponseToGiphy would build pictures from: "data" as an array of objects only.
bool listWouldStop(const Json& value) {
  const Json* data = dataOf(value);
  if (data == nullptr || !data->is_array()) return false;
  const auto& items = data->get_array();
  if (!std::all_of(items.begin(), items.end(), [](const Json& item) { return item.is_object(); })) return false;
  return !std::all_of(items.begin(), items.end(), hasStringId);
}

// Equality with NaN sizes treated as equal: the records' own equality never equals a NaN.
bool sameFloat(float a, float b) { return a == b || (a != a && b != b); }

bool sameRendition(const GiphyImageInfo& a, const GiphyImageInfo& b) {
  return sameFloat(a.width, b.width) && sameFloat(a.height, b.height) && a.urlString == b.urlString;
}

bool hasNaN(const Giphy& picture) {
  return std::any_of(picture.images.begin(), picture.images.end(), [](const auto& entry) {
    return entry.second.width != entry.second.width || entry.second.height != entry.second.height;
  });
}

void checkRendition(const std::string& key, const GiphyImageInfo& info, bool filtered) {
  if (filtered) check(applogic::GiphyDataController::filterImageByAspectRatio(key, info));
  const auto url = info.url();
  if (url) check(url->string() == info.urlString);
  if (info.urlString.empty()) check(!url);
  // An address with a host and a path that may follow one has the proxy host: every address that
  // could take the host was moved there. (Boost.URL reads "//h:x/a" as host "h" before the
  // relative path "x/a"; such an address is kept as received.)
  const auto parsed = boost::urls::parse_uri_reference(info.urlString);
  if (parsed && parsed->has_authority()) {
    const std::string_view path = parsed->encoded_path();
    check(parsed->encoded_host() == kHost || (!path.empty() && path.front() != '/'));
  }
}

void checkPicture(const Giphy& picture, const Giphy& unfiltered, bool filtered) {
  check(picture.id == unfiltered.id);
  check(picture.rating == unfiltered.rating);
  const Giphy copy = picture;
  check(copy == picture || hasNaN(picture));
  // The kept renditions are the accepted ones of the unfiltered picture, in the same order.
  std::size_t next = 0;
  for (const auto& [key, info] : picture.images) {
    checkRendition(key, info, filtered);
    while (next < unfiltered.images.size() && unfiltered.images[next].first != key) ++next;
    check(next < unfiltered.images.size());
    check(sameRendition(unfiltered.images[next].second, info));
    ++next;
  }
  for (const float width : {0.0f, 200.0f, 480.0f}) {
    for (const Giphy::Mode mode : {Giphy::Mode::still, Giphy::Mode::animated}) {
      const auto best = picture.getBestFit(mode, width);
      const bool anyOfMode = std::any_of(picture.images.begin(), picture.images.end(), [mode](const auto& entry) {
        return (entry.first.find("still") != std::string::npos) == (mode == Giphy::Mode::still);
      });
      check(best.has_value() == anyOfMode);
      if (best) check(picture.image(best->first) != nullptr);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view bytes(reinterpret_cast<const char*>(data), size);
  boost::system::error_code error;
  const Json value = boost::json::parse(bytes, error);
  if (error) return 0;

  const applogic::GiphyImageFilter aspect = &applogic::GiphyDataController::filterImageByAspectRatio;
  if (!singleWouldStop(value)) {
    const auto all = applogic::GiphyResponseToGiphy(value, {}, kHost);
    const auto kept = applogic::GiphyResponseToGiphy(value, aspect, kHost);
    check(all.has_value() == kept.has_value());
    if (all) {
      checkPicture(*all, *all, false);
      checkPicture(*kept, *all, true);
    }
  }
  if (!listWouldStop(value)) {
    const auto all = applogic::GiphysResponseToGiphy(value, {}, kHost);
    const auto kept = applogic::GiphysResponseToGiphy(value, aspect, kHost);
    check(all.has_value() == kept.has_value());
    if (all) {
      check(all->size() == kept->size());
      for (std::size_t i = 0; i < all->size(); ++i) {
        checkPicture((*all)[i], (*all)[i], false);
        checkPicture((*kept)[i], (*all)[i], true);
      }
    }
  }
  return 0;
}
