#include "tunevo/parse.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>

#include <gtest/gtest.h>

#include "tools/tunevo_process.h"

namespace tunevo {
namespace {

using test::Outcome;
using test::parse;
using test::readAll;
using test::runTunevo;

std::filesystem::path scratchFile(std::string_view name, std::string_view contents) {
  const auto path = std::filesystem::path(::testing::TempDir()) / name;
  std::ofstream(path, std::ios::binary) << contents;
  return path;
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

std::string linked(const char* key) {
  return wrap(key, std::string(R"([{"linked":{"tracks":[)") + kTrackIn + R"(,{}]}},{"linked":5}])");
}

// Every kind prints its records as one JSON document; an input without the kind's list prints null.
TEST(ParseKinds, PrintsOneJsonDocumentAndExitsZero) {
  struct Row {
    const char* kind;
    std::string input;
    std::string output;
  };
  const Row rows[] = {
      {"tracks", wrap("tracks", std::string("[") + kTrackIn + ",{}]"),
       std::string("[") + kTrackOut + "," + kEmptyTrackOut + "]"},
      {"playlist-tracks", wrap("tracks", std::string("[") + kTrackIn + "]"),
       std::string("[") + kTrackOut + "]"},
      {"search-tracks", wrap("data", std::string("[") + kTrackIn + "]"),
       std::string("[") + kTrackOut + "]"},
      {"listening-history", wrap("tracks", std::string("[") + kTrackIn + "]"),
       std::string("[") + kTrackOut + "]"},
      {"user-top-chart", linked("charts"), std::string("[") + kTrackOut + "]"},
      {"favorites", linked("favorites"), std::string("[") + kTrackOut + "]"},
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
      {"genres", R"({"genres":{}})", "null"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.kind) + " " + row.input);
    const Outcome run = parse({row.kind}, row.input);
    EXPECT_EQ(run.status, 0);
    EXPECT_EQ(run.out, row.output + "\n");
    EXPECT_EQ(run.err, "");
  }
}

TEST(ParseKindTable, ListsEveryKindOnceAndTheUsageNamesThemAll) {
  std::set<std::string_view> names;
  for (const ParseKind& kind : parseKinds()) {
    EXPECT_TRUE(names.insert(kind.name).second) << kind.name;
    EXPECT_EQ(findParseKind(kind.name), &kind);
  }
  EXPECT_EQ(names, (std::set<std::string_view>{"tracks", "playlist-tracks", "search-tracks",
                                                "listening-history", "user-top-chart",
                                                "favorites", "genres", "metadata",
                                                "playlist-tracks-page", "playlists",
                                                "playlist-images", "giphy", "giphys"}));
  EXPECT_EQ(findParseKind("Tracks"), nullptr);

  const Outcome help = parse({"--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.err, "");
  for (const std::string_view name : names) {
    EXPECT_NE(help.out.find("  " + std::string(name) + " "), std::string::npos) << name;
  }
}

TEST(NotJson, SaysWhereItBrokeAndExitsTwo) {
  struct Row {
    const char* text;
    const char* where;  // source:line:column
    const char* reason;
  };
  const Row rows[] = {
      {R"({"tracks":[1,2,x]})", "1:16", "syntax error"},
      {"{\n  \"tracks\": [\n    x\n]}", "3:5", "syntax error"},
      {"{\"tracks\":[]}\n\n 5", "3:2", "extra data"},
      {"{\"tracks\":", "1:11", "incomplete JSON"},
      {"", "1:1", "incomplete JSON"},
      {"\n\n", "3:1", "incomplete JSON"},
      {"\"\xFF\"", "1:2", "syntax error"},
      {"{'tracks':[]}", "1:2", "syntax error"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(row.text);
    const Outcome run = parse({"tracks"}, row.text);
    EXPECT_EQ(run.status, 2);
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err, std::string("tunevo parse: standard input:") + row.where + ": not JSON: " + row.reason + "\n");
  }
}

TEST(ParseUsage, BadUsageAndUnknownKindsExit64WithUsageOnStandardError) {
  struct Row {
    std::vector<std::string> args;
    const char* message;
  };
  const Row rows[] = {{{}, "missing KIND"},
                      {{"songs"}, "unknown KIND 'songs'"},
                      {{"Tracks", "-"}, "unknown KIND 'Tracks'"},
                      {{"tracks", "a.json", "b.json"}, "too many arguments"}};
  for (const Row& row : rows) {
    const Outcome run = parse(row.args, R"({"tracks":[]})");
    EXPECT_EQ(run.status, 64) << row.message;
    EXPECT_EQ(run.out, "") << row.message;
    EXPECT_EQ(run.err.rfind(std::string("tunevo parse: ") + row.message + "\nusage: tunevo parse KIND [FILE]\n", 0), 0u)
        << run.err;
  }
}

TEST(ParseInput, ReadsTheFileOrStandardInputForDashAndUnreadableFilesExit66) {
  const auto path = scratchFile("parse_input.json", R"({"genres":[{"id":"g.1"}]})");
  const Outcome fromFile = parse({"genres", path.string()}, R"({"genres":[]})");
  EXPECT_EQ(fromFile.status, 0);
  EXPECT_EQ(fromFile.out, "[{\"id\":\"g.1\",\"name\":\"\",\"description\":\"\"}]\n");

  const Outcome fromDash = parse({"genres", "-"}, R"({"genres":[]})");
  EXPECT_EQ(fromDash.status, 0);
  EXPECT_EQ(fromDash.out, "[]\n");

  const auto broken = scratchFile("parse_broken.json", "{\n}}");
  const Outcome notJson = parse({"genres", broken.string()});
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

// The program itself: command dispatch and the standard streams.

TEST(TunevoProgram, DispatchesCommandsRejectsUnknownOnesAndParsesStandardInputAndFiles) {
  const Outcome none = runTunevo("");
  EXPECT_EQ(none.status, 64);
  EXPECT_EQ(none.out, "");
  EXPECT_EQ(none.err.rfind("usage: tunevo COMMAND", 0), 0u) << none.err;

  const Outcome unknown = runTunevo("frobnicate");
  EXPECT_EQ(unknown.status, 64);
  EXPECT_EQ(unknown.err.rfind("tunevo: unknown command 'frobnicate'\nusage: tunevo COMMAND", 0), 0u)
      << unknown.err;

  // The overview's summaries start in one column, after each command's synopsis.
  const Outcome help = runTunevo("--help");
  EXPECT_EQ(help.status, 0);
  std::istringstream lines(help.out);
  std::size_t column = 0;
  for (std::string line; std::getline(lines, line);) {
    if (!line.starts_with("  ")) continue;
    const std::size_t gap = line.find("  ", 2);
    const std::size_t summary = line.find_first_not_of(' ', gap);
    EXPECT_GE(gap, 2u) << line;
    if (column == 0) column = summary;
    EXPECT_EQ(summary, column) << line;
  }
  EXPECT_NE(help.out.find("\n  parse KIND [FILE]  "), std::string::npos) << help.out;
  EXPECT_NE(help.out.find("\n  demo  "), std::string::npos) << help.out;

  // Every command and sub-command describes itself on --help.
  for (const char* command : {"parse", "demo", "play", "apikey", "apikey mint", "apikey inspect", "emulator",
                              "emulator signin", "url-handler", "url-handler install", "url-handler remove",
                              "handle-url", "login", "token", "profile", "logout"}) {
    const Outcome described = runTunevo(std::string(command) + " --help");
    EXPECT_EQ(described.status, 0) << command << ": " << described.err;
    EXPECT_EQ(described.out.rfind("usage: tunevo ", 0), 0u) << command << ": " << described.out;
  }

  const Outcome badKind = runTunevo("parse songs");
  EXPECT_EQ(badKind.status, 64);

  // parse reads the program's standard input and files.
  const auto answer = scratchFile("program_answer.json", R"({"tracks":[{"id":"TRA.5"}]})");
  const std::string expected =
      R"([{"id":"Tra.5","name":"","playbackSeconds":0,"explicit":false,"artistID":"","artistName":"",)"
      R"("albumID":"","albumName":"","isStreamable":false,"previewURL":""}])"
      "\n";

  const Outcome fromStdin = runTunevo("parse tracks", answer.string());
  EXPECT_EQ(fromStdin.status, 0);
  EXPECT_EQ(fromStdin.out, expected);
  EXPECT_EQ(fromStdin.err, "");

  const Outcome fromFile = runTunevo("parse tracks '" + answer.string() + "'");
  EXPECT_EQ(fromFile.status, 0);
  EXPECT_EQ(fromFile.out, expected);

  const Outcome absent = runTunevo("parse search-tracks", answer.string());
  EXPECT_EQ(absent.status, 0);
  EXPECT_EQ(absent.out, "null\n");

  const Outcome missing = runTunevo("parse tracks /nonexistent/answer.json");
  EXPECT_EQ(missing.status, 66);
  EXPECT_EQ(missing.out, "");
}

}  // namespace
}  // namespace tunevo
