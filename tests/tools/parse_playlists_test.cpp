// `tunevo parse` for paging and playlists: how the records print, and the deliberate stop on a
// display image without an id, which must leave standard output empty.

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/tunevo_process.h"
#include "tunevo/parse.h"

namespace tunevo {
namespace {

using test::Outcome;

constexpr const char* kUnknownMetadata = R"({"queryLimit":-1,"queryOffset":-1,"returnedCount":-1,"totalCount":-1})";

// Every kind prints its records as one JSON document; an input without the kind's value prints null.
TEST(PlaylistParseKinds, PrintsOneJsonDocumentAndExitsZero) {
  struct Row {
    const char* kind;
    const char* input;
    const char* output;
  };
  const Row rows[] = {
      {"metadata", R"({"meta":{"query":{"limit":2,"offset":4},"returnedCount":2,"totalCount":9}})",
       R"({"queryLimit":2,"queryOffset":4,"returnedCount":2,"totalCount":9})"},
      {"metadata", "{}", kUnknownMetadata},
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
      {"playlist-images", R"({"images":[1]})", "null"}};
  for (const Row& row : rows) {
    SCOPED_TRACE(std::string(row.kind) + " " + row.input);
    std::istringstream in{std::string(row.input)};
    std::ostringstream out;
    std::ostringstream err;
    EXPECT_EQ(runParse(std::vector<std::string>{row.kind}, in, out, err), 0);
    EXPECT_EQ(out.str(), std::string(row.output) + "\n");
    EXPECT_EQ(err.str(), "");
  }
}

TEST(PlaylistParseStop, DisplayImageWithoutIdEndsTheProgramWithNothingOnStandardOutput) {
  struct Row {
    const char* kind;
    const char* answer;
  };
  for (const Row& row : {Row{"playlist-images", R"({"images":[{"imageType":"giphyImage","id":"g"},{"imageType":"displayImage"}]})"},
                         Row{"playlists", R"({"playlists":[{"id":"mp.1","images":[{"imageType":"displayImage","id":7}]}]})"}}) {
    const auto path = std::filesystem::path(::testing::TempDir()) / (std::string("stop_") + row.kind + ".json");
    std::ofstream(path, std::ios::binary) << row.answer;
    const Outcome run = test::runTunevo(std::string("parse ") + row.kind + " '" + path.string() + "'");
    EXPECT_NE(run.status, 0) << row.kind;
    EXPECT_EQ(run.out, "") << row.kind;
    EXPECT_NE(run.err.find("Fatal error: DisplayImage: a display image without a string \"id\""), std::string::npos)
        << run.err;
  }
}

}  // namespace
}  // namespace tunevo
