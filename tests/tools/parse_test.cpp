#include "tunevo/parse.h"

#include <tuple>

#include "tools/tunevo_process.h"

namespace tunevo {
namespace {

using test::Outcome;
using test::parse;
using test::readAll;
using test::runTunevo;

std::filesystem::path scratchFile(std::string_view name, std::string_view contents) {
  return test::writeFile(std::filesystem::path(::testing::TempDir()) / name, contents);
}

constexpr const char* kTrackIn =
    R"({"id":"tra.1","name":"Song","playbackSeconds":215,"explicit":true,"artistId":"art.7",)"
    R"("artistName":"Artist","albumId":"alb.9","albumName":"Album","isStreamable":true,)"
    R"("previewURL":"https://example.com/1.mp3","type":"track"})";
constexpr const char* kTrackOut =
    R"({"id":"Tra.1","name":"Song","playbackSeconds":215,"explicit":true,"artistID":"art.7",)"
    R"("artistName":"Artist","albumID":"alb.9","albumName":"Album","isStreamable":true,)"
    R"("previewURL":"https://example.com/1.mp3"})";
constexpr const char* kEmptyTrackOut =
    R"({"id":"","name":"","playbackSeconds":0,"explicit":false,"artistID":"","artistName":"",)"
    R"("albumID":"","albumName":"","isStreamable":false,"previewURL":""})";

std::string wrap(const char* key, const std::string& items) {
  return std::string("{\"") + key + "\":" + items + "}";
}
// A JSON list of the one `record`.
std::string one(const char* record) { return std::string("[") + record + "]"; }

std::string linked(const char* key) {
  return wrap(key, std::string(R"([{"linked":{"tracks":[)") + kTrackIn + R"(,{}]}},{"linked":5}])");
}

// Every kind prints its records as one JSON document; an input without the kind's list prints null.
TEST(ParseKinds, PrintsOneJsonDocumentAndExitsZero) {
  const std::tuple<const char*, std::string, std::string> rows[] = {
      {"tracks", wrap("tracks", std::string("[") + kTrackIn + ",{}]"),
       std::string("[") + kTrackOut + "," + kEmptyTrackOut + "]"},
      {"playlist-tracks", wrap("tracks", one(kTrackIn)), one(kTrackOut)},
      {"search-tracks", wrap("data", one(kTrackIn)), one(kTrackOut)},
      {"listening-history", wrap("tracks", one(kTrackIn)), one(kTrackOut)},
      {"user-top-chart", linked("charts"), one(kTrackOut)},
      {"favorites", linked("favorites"), one(kTrackOut)},
      {"genres", R"({"genres":[{"id":"G.1","name":"Rock","description":5,"x":1}]})",
       R"([{"id":"g.1","name":"Rock","description":""}])"},
      {"tracks", R"({"tracks":[]})", "[]"}, {"genres", R"({"genres":[]})", "[]"},
      // absent results
      {"tracks", R"({"data":[]})", "null"},
      {"playlist-tracks", "[]", "null"},
      {"search-tracks", R"({"tracks":[]})", "null"},
      {"listening-history", R"({"tracks":{}})", "null"},
      {"user-top-chart", R"({"charts":[1]})", "null"},
      {"favorites", "null", "null"},
      {"genres", R"({"genres":{}})", "null"},
      // paging and playlists
      {"metadata", R"({"meta":{"query":{"limit":2,"offset":4},"returnedCount":2,"totalCount":9}})",
       R"({"queryLimit":2,"queryOffset":4,"returnedCount":2,"totalCount":9})"},
      {"metadata", "{}", R"({"queryLimit":-1,"queryOffset":-1,"returnedCount":-1,"totalCount":-1})"},
      {"playlist-tracks-page", R"({"meta":{"totalCount":0},"tracks":[]})",
       R"({"metadata":{"queryLimit":-1,"queryOffset":-1,"returnedCount":-1,"totalCount":0},"payload":[]})"},
      {"playlists",
       R"({"playlists":[{"id":"MP.1","name":"N","privacy":"public","artistId":"o","trackIds":["x"],
                    "images":[{"imageType":"displayImage","id":"d","version":2,"isDefault":true},
                              {"imageType":"giphyImage","id":"g"}]},{"images":[]}]})",
       R"([{"id":"mp.1","name":"N","trackIds":null,"isPublic":true,"ownerId":"o","images":[)"
       R"({"display":{"id":"d","version":2,"isDefault":true,"imageType":"displayImage"}},{"giphy":"g"}]},)"
       R"({"id":"","name":"","trackIds":null,"isPublic":false,"ownerId":null,"images":[]}])"},
      {"playlist-images", R"({"images":[{"imageType":"GiphyImage","id":"x"},{"imageType":"giphyImage","id":"g"}]})",
       R"([{"giphy":"g"}])"},
      // absent results
      {"metadata", "[]", "null"},
      {"playlist-tracks-page", R"({"meta":{"totalCount":9}})", "null"},
      {"playlists", R"({"playlists":{}})", "null"},
      {"playlist-images", R"({"images":[1]})", "null"},
  };
  for (const auto& [kind, input, output] : rows) {
    SCOPED_TRACE(std::string(kind) + " " + input);
    const Outcome run = parse({kind}, input);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, output + "\n");
    EXPECT_EQ(run.err, "");
  }
}

// Giphy pictures, and the options only the giphy KINDs take.

constexpr const char* kPicture =
    R"({"id":"a","rating":"pg-13","url":"https://giphy.com/gifs/a","bitly_gif_url":5,"images":{)"
    R"("original":{"width":"480","height":"270","url":"https://media.giphy.com/a.gif?cid=1"},)"
    R"("tall_still":{"width":"270","height":"480.5","url":"https://media.giphy.com/a_s.gif"},)"
    R"("fixed_width":{"width":200,"height":"113","url":"media/a.gif"}}})";

std::string printed(const std::string& host, bool aspect) {
  std::string images = R"({"original":{"width":480,"height":270,"urlString":"https://)" + host + R"(/a.gif?cid=1"})";
  if (!aspect) {
    images += R"(,"tall_still":{"width":270,"height":4.805E2,"urlString":"https://)" + host + R"(/a_s.gif"})"
              R"(,"fixed_width":{"width":0,"height":113,"urlString":"media/a.gif"})";
  }
  return R"({"id":"a","images":)" + images +
         R"(},"rating":"pg-13","webURLString":"https://giphy.com/gifs/a","bitlyWebURLString":null,)"
         R"("bitlyWebGifURLString":null})";
}

TEST(ParseGiphy, PrintsPicturesWithTheirRenditionsInTheAnswersOrder) {
  const std::string single = std::string(R"({"data":)") + kPicture + "}";
  const std::string list = std::string(R"({"data":[)") + kPicture + R"(,{"id":"b","rating":"x"}]})";
  const std::string b = R"({"id":"b","images":{},"rating":null,"webURLString":null,"bitlyWebURLString":null,)"
                        R"("bitlyWebGifURLString":null})";
  const std::tuple<std::vector<std::string>, std::string, std::string> rows[] = {
      {{"giphy"}, single, printed("giphy-media.tunevo.app", false)},
      {{"giphy", "--media-proxy-host", "m.example"}, single, printed("m.example", false)},
      {{"--filter", "aspect", "giphy", "-"}, single, printed("giphy-media.tunevo.app", true)},
      {{"giphys", "--filter", "aspect", "--media-proxy-host", "m.example"},
       list,
       "[" + printed("m.example", true) + "," + b + "]"},
      {{"giphys", "--media-proxy-host", "x", "--media-proxy-host", "m.example"},
       list,
       "[" + printed("m.example", false) + "," + b + "]"},
      {{"giphys"}, R"({"data":[]})", "[]"},
      {{"giphys"}, single, "null"},
      {{"giphy"}, list, "null"},
  };
  for (const auto& [args, input, output] : rows) {
    const Outcome run = parse(args, input);
    EXPECT_EQ(run.status, 0) << args[0] << " " << run.err;
    EXPECT_EQ(run.out, output + "\n");
    EXPECT_EQ(run.err, "");
  }
}

TEST(ParseUsage, BadUsageUnknownKindsAndGiphyOptionsWithOtherKindsExit64WithUsage) {
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{}, "missing KIND"},
      {{"songs"}, "unknown KIND 'songs'"},
      {{"Tracks", "-"}, "unknown KIND 'Tracks'"},
      {{"tracks", "a.json", "b.json"}, "too many arguments"},
      {{"tracks", "--filter", "aspect"}, "KIND 'tracks' takes no options"},
      {{"--media-proxy-host", "m.example", "genres"}, "KIND 'genres' takes no options"},
      {{"giphy", "--media-proxy-host"}, "option --media-proxy-host needs a HOST"},
      {{"giphy", "--media-proxy-host", ""}, "option --media-proxy-host needs a HOST"},
      {{"giphy", "--filter"}, "option --filter needs a value (aspect)"},
      {{"giphys", "--filter", "square"}, "unknown filter 'square' (the only one is 'aspect')"},
  };
  for (const auto& [args, message] : rows) {
    const Outcome run = parse(args, R"({"data":[]})");
    EXPECT_EQ(run.status, 64) << message;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err.rfind("tunevo parse: " + message + "\nusage: tunevo parse KIND [FILE]\n", 0), 0u) << run.err;
  }
}

TEST(NotJson, SaysWhereItBrokeAndExitsTwo) {
  // The text, where it broke (line:column) and why.
  const std::tuple<const char*, const char*, const char*> rows[] = {
      {R"({"tracks":[1,2,x]})", "1:16", "syntax error"},
      {"{\n  \"tracks\": [\n    x\n]}", "3:5", "syntax error"},
      {"{\"tracks\":[]}\n\n 5", "3:2", "extra data"},
      {"{\"tracks\":", "1:11", "incomplete JSON"},
      {"", "1:1", "incomplete JSON"},
      {"\n\n", "3:1", "incomplete JSON"},
      {"\"\xFF\"", "1:2", "syntax error"},
      {"{'tracks':[]}", "1:2", "syntax error"}};
  for (const auto& [text, where, reason] : rows) {
    SCOPED_TRACE(text);
    const Outcome run = parse({"tracks"}, text);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, std::string("tunevo parse: standard input:") + where + ": not JSON: " + reason + "\n");
  }
}

TEST(ParseInput, ReadsTheFileOrStandardInputForDashAndUnreadableFilesExit66) {
  EXPECT_EQ(parse({"genres", "-"}, R"({"genres":[]})").out, "[]\n");
  // The file's text is read, not standard input's, and its name is where it broke.
  const auto broken = scratchFile("parse_broken.json", "{\n}}");
  const Outcome notJson = parse({"genres", broken.string()}, R"({"genres":[]})");
  EXPECT_EQ(notJson.status, 2);
  EXPECT_EQ(notJson.err, "tunevo parse: " + broken.string() + ":2:2: not JSON: extra data\n");

  // A file that is missing, or a directory, cannot be read: 66.
  const auto missing = std::filesystem::path(::testing::TempDir()) / "no_such_answer.json";
  std::filesystem::remove(missing);
  for (const std::string& unreadable : {missing.string(), std::string(::testing::TempDir())}) {
    const Outcome run = parse({"tracks", unreadable});
    EXPECT_EQ(run.status, 66) << unreadable;
    EXPECT_EQ(run.out, "") << unreadable;
    EXPECT_EQ(run.err.rfind("tunevo parse: cannot read the answer " + unreadable + ": ", 0), 0u) << run.err;
  }
}

// The program itself: command dispatch and the standard streams (the README's tested examples
// parse the program's standard input and files).
TEST(TunevoProgram, DispatchesCommandsAndEachDescribesItself) {
  const Outcome none = runTunevo("");
  EXPECT_EQ(none.status, 64);
  EXPECT_EQ(none.err.rfind("usage: tunevo COMMAND", 0), 0u) << none.err;
  const Outcome unknown = runTunevo("frobnicate");
  EXPECT_EQ(unknown.status, 64);
  EXPECT_EQ(unknown.err.rfind("tunevo: unknown command 'frobnicate'\nusage: tunevo COMMAND", 0), 0u) << unknown.err;
  const Outcome help = runTunevo("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_NE(help.out.find("\n  parse KIND [FILE]  "), std::string::npos) << help.out;
  for (const char* command : {"parse", "demo", "play", "apikey", "apikey mint", "apikey inspect", "emulator",
                              "emulator signin", "emulator catalog", "emulator all", "url-handler", "url-handler install", "url-handler remove",
                              "handle-url", "login", "token", "profile", "logout"}) {
    const Outcome described = runTunevo(std::string(command) + " --help");
    EXPECT_EQ(described.status, 0) << command << ": " << described.err;
    EXPECT_EQ(described.out.rfind("usage: tunevo ", 0), 0u) << command << ": " << described.out;
  }
  EXPECT_EQ(runTunevo("parse songs").status, 64);
  EXPECT_EQ(runTunevo("parse tracks /nonexistent/answer.json").status, 66);
}

// A record without an id stops the program (the records' own tests hold the fatal errors of each
// kind): nothing reaches standard output, not even the good record before it.
TEST(TunevoProgram, ARecordWithoutAnIdStopsTheProgramWithNothingOnStandardOutput) {
  const Outcome run = runTunevo("parse giphys --filter aspect",
                                scratchFile("stop.json", R"({"data":[{"id":"a"},{"id":7,"images":{}}]})").string());
  EXPECT_NE(run.status, 0);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err.find("Fatal error: Giphy picture without a string \"id\""), std::string::npos) << run.err;
}

}  // namespace
}  // namespace tunevo
