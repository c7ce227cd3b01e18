#include "tunevo/parse.h"

#include <algorithm>
#include <istream>
#include <iterator>
#include <optional>
#include <ostream>
#include <vector>

#include <boost/json/stream_parser.hpp>

#include "applogic/records/genre.h"
#include "applogic/records/page.h"
#include "applogic/records/playlist.h"
#include "applogic/records/track_serializers.h"
#include "tunevo/exit_codes.h"
#include "tunevo/file_argument.h"
#include "tunevo/json_output.h"

namespace tunevo {
namespace {

template <auto Serializer>
boost::json::value render(const applogic::Json& answer) {
  return toJson(Serializer(answer));
}

constexpr ParseKind kParseKinds[] = {
    {"tracks", R"({"tracks": [track, ...]})", &render<applogic::TracksResponseToTracks>},
    {"playlist-tracks", R"({"tracks": [track, ...]})",
     &render<applogic::PlaylistTracksResponseToTracks>},
    {"search-tracks", R"({"data": [track, ...]})", &render<applogic::SearchTracksResponseToTracks>},
    {"listening-history", R"({"tracks": [track, ...]})",
     &render<applogic::ListeningHistoryResponseToTracksSerializer>},
    {"user-top-chart", R"({"charts": [{"linked": {"tracks": [track, ...]}}, ...]})",
     &render<applogic::UserTopChartTracksResponseToTracksSerializer>},
    {"favorites", R"({"favorites": [{"linked": {"tracks": [track, ...]}}, ...]})",
     &render<applogic::FavoriteResponseToTracksSerializer>},
    {"genres", R"({"genres": [genre, ...]})", &render<applogic::GenreResponseToGenres>},
    {"metadata", R"({"meta": {"query": {"limit", "offset"}, "returnedCount", "totalCount"}})",
     &render<applogic::V2ResponseToMetaData>},
    {"playlist-tracks-page", R"({"meta": {...}, "tracks": [track, ...]})",
     &render<applogic::PlaylistTracksResponseToPageTracks>},
    {"playlists", R"({"playlists": [playlist, ...]})", &render<applogic::PlaylistsResponseToPlaylists>},
    {"playlist-images", R"({"images": [image, ...]})",
     &render<applogic::PlaylistImagesResponseToPlaylistImage>},
    {"giphy", R"({"data": picture})", nullptr, &parseGiphy},
    {"giphys", R"({"data": [picture, ...]})", nullptr, &parseGiphys},
};

struct Input {
  std::string text;
  std::string source;  // for messages: the file's path, or "standard input"
};


struct Position {
  std::size_t line = 1;
  std::size_t column = 1;
};

// Lines and columns count from 1; columns count bytes.
Position positionOf(std::string_view text, std::size_t offset) {
  const std::string_view before = text.substr(0, offset);
  Position position;
  position.line += static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
  const std::size_t lineStart = before.rfind('\n');
  position.column = offset - (lineStart == std::string_view::npos ? 0 : lineStart + 1) + 1;
  return position;
}

int usageError(std::ostream& err, std::string_view message) {
  err << "tunevo parse: " << message << "\n";
  printParseUsage(err);
  return kExitUsage;
}

}  // namespace

std::span<const ParseKind> parseKinds() noexcept { return kParseKinds; }

const ParseKind* findParseKind(std::string_view name) noexcept {
  for (const ParseKind& kind : kParseKinds) {
    if (kind.name == name) return &kind;
  }
  return nullptr;
}

void printParseUsage(std::ostream& out) {
  out << "usage: tunevo parse KIND [FILE]\n"
         "       tunevo parse giphy|giphys [--media-proxy-host HOST] [--filter aspect] [FILE]\n"
         "\n"
         "Reads one JSON answer of a service from FILE, or from standard input when FILE\n"
         "is absent or \"-\", and prints the records that KIND's serializer makes of it as one\n"
         "JSON document: an array of records or one record, or null when the answer does not\n"
         "have the shape the KIND expects.\n"
         "\n"
         "KIND:\n";
  for (const ParseKind& kind : kParseKinds) {
    out << "  " << kind.name << std::string(22 - std::min<std::size_t>(kind.name.size(), 20), ' ')
        << kind.answer << "\n";
  }
  out << "\n"
         "Options of the Giphy KINDs:\n"
         "  --media-proxy-host HOST  the host rendition addresses move onto (default "
      << applogic::kDefaultGiphyMediaProxyHost
      << ")\n"
         "  --filter aspect          keep only the renditions GiphyDataController accepts\n"
         "\n"
         "Exit status: 0 the text was JSON, 2 it was not, 64 bad usage, 66 FILE cannot be read.\n"
         "An answer the library refuses outright (a display image or a Giphy picture without an\n"
         "id) stops the program abnormally, with nothing on standard output.\n";
}

int runParse(std::span<const std::string> arguments, std::istream& in, std::ostream& out,
             std::ostream& err) {
  if (!arguments.empty() && (arguments[0] == "-h" || arguments[0] == "--help")) {
    printParseUsage(out);
    return kExitOk;
  }
  const GiphyOptionScan scan = takeGiphyOptions(arguments);
  if (!scan.error.empty()) return usageError(err, scan.error);
  const std::vector<std::string>& args = scan.rest;
  if (args.empty()) return usageError(err, "missing KIND");
  if (args.size() > 2) return usageError(err, "too many arguments");
  const ParseKind* kind = findParseKind(args[0]);
  if (kind == nullptr) return usageError(err, "unknown KIND '" + args[0] + "'");
  if (scan.given && kind->runWithGiphyOptions == nullptr) {
    return usageError(err, "KIND '" + args[0] + "' takes no options");
  }

  Input input;
  if (args.size() == 2 && args[1] != "-") {
    input.source = args[1];
    FileArgument file = readFileArgument(args[1], "answer");
    if (!file.text) {
      err << "tunevo parse: " << file.problem << "\n";
      return kExitNoInput;
    }
    input.text = std::move(*file.text);
  } else {
    input.source = "standard input";
    input.text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad()) {
      err << "tunevo parse: cannot read standard input\n";
      return kExitNoInput;
    }
  }

  boost::json::stream_parser parser;
  boost::system::error_code error;
  // On failure, `write` returns the offset at which the text stopped being JSON; an answer that
  // ends too early fails in `finish`, at its end.
  std::size_t offset = parser.write(input.text.data(), input.text.size(), error);
  if (!error) {
    parser.finish(error);
    offset = input.text.size();
  }
  if (error) {
    const Position position = positionOf(input.text, offset);
    err << "tunevo parse: " << input.source << ":" << position.line << ":" << position.column
        << ": not JSON: " << error.message() << "\n";
    return kExitNotJson;
  }
  const applogic::Json answer = parser.release();
  writeDocument(out, kind->runWithGiphyOptions ? kind->runWithGiphyOptions(answer, scan.options) : kind->run(answer));
  return kExitOk;
}

}  // namespace tunevo
