#pragma once

#include <cstddef>
#include <functional>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "applogic/export.h"
#include "applogic/support/json_fwd.h"
#include "applogic/support/url.h"

/// Giphy pictures: the records that the Giphy service's answers are turned into, and the two
/// serializers that make them. Every rendition address is moved onto the Giphy media proxy host,
/// so that media is fetched through the proxy rather than from Giphy directly.
namespace applogic {

/// The host that rendition addresses are moved onto when the caller names no other: the
/// service operator's Giphy media proxy.
inline constexpr std::string_view kDefaultGiphyMediaProxyHost = "giphy-media.tunevo.app";

/// The Giphy service's content rating, in the service library's declaration order (case index 1
/// is `g`).
enum class GiphyRating { y, g, pg, pg13, r };

/// The rating whose raw string is `raw` ("y", "g", "pg", "pg-13", "r"; exact, case-sensitive),
/// or absent for any other string.
[[nodiscard]] APPLOGIC_EXPORT std::optional<GiphyRating> giphyRatingFromRaw(std::string_view raw) noexcept;

/// The raw string of `rating`, as the service writes it ("pg-13" for `pg13`).
APPLOGIC_EXPORT std::string_view rawValue(GiphyRating rating) noexcept;

/// Which kind of rendition a caller wants; the library's operations take `Giphy::Mode`, this
/// integer-backed twin exists for callers that store the choice as a number.
enum class GiphyMode : int { still = 0, animated = 1 };

/// `still` for 0, `animated` for 1, absent for any other value (negative ones included).
[[nodiscard]] APPLOGIC_EXPORT std::optional<GiphyMode> giphyModeFromRaw(int raw) noexcept;

/// One rendition of a picture: its size in pixels and its address on the media proxy host.
/// Plain value; any thread.
struct APPLOGIC_EXPORT GiphyImageInfo {
  float width = 0;
  float height = 0;
  /// The rendition's address after the host rewrite; empty when the answer had none.
  std::string urlString;

  /// `urlString` as an address: absent when it is empty or not a URI reference.
  [[nodiscard]] std::optional<Url> url() const;

  /// Builds a rendition from one answer object; never fails.
  ///
  /// "width" and "height" are read only as strings holding a number ("480", "270.5", "1e3",
  /// "inf", "nan"; a leading '+' is accepted, surrounding spaces are not); anything else, a JSON
  /// number included, a missing value, text that is not wholly a number, or a number beyond the
  /// range of `float`, gives 0.
  ///
  /// "url", when it is a non-empty string that parses as a URI reference, has its host replaced
  /// by `mediaProxyHost` (an authority is added when it had none), keeping scheme, user
  /// information, port, path, query and fragment. A string that does not parse, or whose path
  /// is relative ("media/a.gif", "mailto:x": no address with a host can keep such a path), is
  /// kept verbatim; an empty or missing one gives "".
  static GiphyImageInfo fromRaw(const JsonObject& raw,
                                std::string_view mediaProxyHost = kDefaultGiphyMediaProxyHost);

  /// `width`, then `height` (as floats: NaN never equals), then `urlString` by canonical
  /// (Unicode-equivalence) equality.
  friend APPLOGIC_EXPORT bool operator==(const GiphyImageInfo& a, const GiphyImageInfo& b) noexcept;
};

/// Decides which renditions a parse keeps: called with each rendition's key and info, in the
/// answer's order; true keeps it. An empty function keeps every rendition.
using GiphyImageFilter = std::function<bool(std::string_view key, const GiphyImageInfo& info)>;

/// A picture's renditions under their keys ("original", "fixed_width_still" ...), in the
/// answer's order. Keys are unique, as in the answer's object.
using GiphyImages = std::vector<std::pair<std::string, GiphyImageInfo>>;

/// A Giphy picture. Plain value; any thread.
struct APPLOGIC_EXPORT Giphy {
  /// Which renditions `getBestFit` chooses among: those whose key contains "still", or the
  /// others. Hashes to its case index.
  enum class Mode { still, animated };

  std::string id;
  GiphyImages images;
  std::optional<GiphyRating> rating;
  std::optional<std::string> webURLString;        ///< The picture's page.
  std::optional<std::string> bitlyWebURLString;     ///< Short address of the page.
  std::optional<std::string> bitlyWebGifURLString;  ///< Short address of the picture file.

  /// The rendition under `key` (byte-exact), or null.
  const GiphyImageInfo* image(std::string_view key) const noexcept;

  /// The rendition of kind `mode` whose width is closest to `widthInPixel`: the renditions are
  /// walked in order and a later one replaces the best so far only when strictly closer, so a
  /// tie goes to the one met first in the answer. Absent when no rendition is of that kind.
  [[nodiscard]] std::optional<std::pair<std::string, GiphyImageInfo>> getBestFit(Mode mode,
                                                                                 float widthInPixel) const;

  /// Builds a picture from one answer object.
  ///
  /// "id" must be a string: a picture without one is a programming error of the service and
  /// stops the program (`fatalError`); there is no soft failure. "url", "bitly_url" and
  /// "bitly_gif_url" are taken when they are strings, else absent; "rating" when it is a string
  /// naming a known rating, else absent. "images" must be an object whose every member is an
  /// object; each becomes a `GiphyImageInfo` (see its `fromRaw`) kept when `filterImage` accepts
  /// it. "images" missing, of another type, or with one member that is not an object gives no
  /// renditions at all.
  static Giphy fromRaw(const JsonObject& raw, const GiphyImageFilter& filterImage = {},
                       std::string_view mediaProxyHost = kDefaultGiphyMediaProxyHost);

  /// Field by field in declaration order: strings by canonical equality; `images` as a
  /// dictionary (the same keys, canonically, with equal infos, in any order); `rating` and the
  /// optional strings both absent or both present and equal.
  friend APPLOGIC_EXPORT bool operator==(const Giphy& a, const Giphy& b) noexcept;
};

/// Prints the fields, for diagnostics and test failures.
APPLOGIC_EXPORT std::ostream& operator<<(std::ostream& out, const GiphyImageInfo& info);
APPLOGIC_EXPORT std::ostream& operator<<(std::ostream& out, const Giphy& giphy);

/// The Giphy serializers. Absent means the answer's top levels did not have the expected shape;
/// a picture without a string "id" stops the program (see `Giphy::fromRaw`). Pure; any thread.

/// {"data": picture}: the one picture. Absent when `input` is not an object or "data" is not an
/// object.
APPLOGIC_EXPORT std::optional<Giphy> GiphyResponseToGiphy(const Json& input, const GiphyImageFilter& filterImage = {},
                                          std::string_view mediaProxyHost = kDefaultGiphyMediaProxyHost);

/// {"data": [picture, ...]}: every picture, in order (none is skipped). Absent when `input` is not
/// an object, or "data" is missing, not an array, or holds an element that is not an object; an
/// empty array gives an empty list.
APPLOGIC_EXPORT std::optional<std::vector<Giphy>> GiphysResponseToGiphy(const Json& input, const GiphyImageFilter& filterImage = {},
                                                        std::string_view mediaProxyHost = kDefaultGiphyMediaProxyHost);

}  // namespace applogic

template <>
struct APPLOGIC_EXPORT std::hash<applogic::Giphy::Mode> {
  std::size_t operator()(applogic::Giphy::Mode mode) const noexcept { return static_cast<std::size_t>(mode); }
};

template <>
struct APPLOGIC_EXPORT std::hash<applogic::GiphyMode> {
  std::size_t operator()(applogic::GiphyMode mode) const noexcept { return static_cast<std::size_t>(mode); }
};
