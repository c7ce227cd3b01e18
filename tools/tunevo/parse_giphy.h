#pragma once

#include <span>
#include <string>
#include <vector>

#include <boost/json/value.hpp>

#include "applogic/records/giphy.h"
#include "applogic/support/json_fwd.h"

// The Giphy KINDs of `tunevo parse` and the options only they take.
namespace tunevo {

/// How the Giphy KINDs parse: the host rendition addresses move onto, and whether the
/// serializer's image filter is `GiphyDataController::filterImageByAspectRatio` (else every
/// rendition is kept).
struct GiphyOptions {
  std::string mediaProxyHost = std::string(applogic::kDefaultGiphyMediaProxyHost);
  bool aspectFilter = false;
};

/// The arguments of `tunevo parse` with the Giphy options taken out.
struct GiphyOptionScan {
  std::vector<std::string> rest;  ///< the other arguments, in order
  GiphyOptions options;
  bool given = false;  ///< whether any Giphy option appeared
  std::string error;   ///< why the options are unusable; empty when they are fine
};

/// Takes "--media-proxy-host HOST" and "--filter aspect" out of `args`, wherever they appear; a
/// later occurrence of an option replaces an earlier one. An option without its value, an empty
/// HOST or a filter other than "aspect" sets `error`.
GiphyOptionScan takeGiphyOptions(std::span<const std::string> args);

/// {"data": picture} → the picture's printed form, or null when the answer has another shape.
boost::json::value parseGiphy(const applogic::Json& answer, const GiphyOptions& options);

/// {"data": [picture, ...]} → an array of the pictures' printed forms, or null.
boost::json::value parseGiphys(const applogic::Json& answer, const GiphyOptions& options);

}  // namespace tunevo
