#include "tunevo/parse_giphy.h"

#include <string_view>

#include "applogic/controllers/giphy_data_controller.h"
#include "tunevo/json_output.h"

namespace tunevo {
namespace {

applogic::GiphyImageFilter filterOf(const GiphyOptions& options) {
  if (options.aspectFilter) return &applogic::GiphyDataController::filterImageByAspectRatio;
  return {};
}

}  // namespace

GiphyOptionScan takeGiphyOptions(std::span<const std::string> args) {
  GiphyOptionScan scan;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    if (arg != "--media-proxy-host" && arg != "--filter") {
      scan.rest.push_back(arg);
      continue;
    }
    scan.given = true;
    if (i + 1 == args.size()) {
      scan.error = "option " + arg + (arg == "--filter" ? " needs a value (aspect)" : " needs a HOST");
      return scan;
    }
    const std::string& value = args[++i];
    if (arg == "--filter") {
      if (value != "aspect") {
        scan.error = "unknown filter '" + value + "' (the only one is 'aspect')";
        return scan;
      }
      scan.options.aspectFilter = true;
    } else {
      if (value.empty()) {
        scan.error = "option --media-proxy-host needs a HOST";
        return scan;
      }
      scan.options.mediaProxyHost = value;
    }
  }
  return scan;
}

boost::json::value parseGiphy(const applogic::Json& answer, const GiphyOptions& options) {
  return toJson(applogic::GiphyResponseToGiphy(answer, filterOf(options), options.mediaProxyHost));
}

boost::json::value parseGiphys(const applogic::Json& answer, const GiphyOptions& options) {
  return toJson(applogic::GiphysResponseToGiphy(answer, filterOf(options), options.mediaProxyHost));
}

}  // namespace tunevo
