// `tunevo parse giphy|giphys` and the options only those KINDs take.

#include "tunevo/parse.h"

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/tunevo_process.h"

namespace tunevo {
namespace {

using test::Outcome;
using test::parse;

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
  struct Row {
    std::vector<std::string> args;
    std::string input;
    std::string output;
  };
  const std::string single = std::string(R"({"data":)") + kPicture + "}";
  const std::string list = std::string(R"({"data":[)") + kPicture + R"(,{"id":"b","rating":"x"}]})";
  const std::string b = R"({"id":"b","images":{},"rating":null,"webURLString":null,"bitlyWebURLString":null,)"
                        R"("bitlyWebGifURLString":null})";
  const Row rows[] = {
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
  for (const Row& row : rows) {
    const Outcome run = parse(row.args, row.input);
    EXPECT_EQ(run.status, 0) << row.args[0] << " " << run.err;
    EXPECT_EQ(run.out, row.output + "\n");
    EXPECT_EQ(run.err, "");
  }
}

TEST(ParseGiphy, OptionsAreForTheGiphyKindsOnlyAndNeedTheirValues) {
  struct Row {
    std::vector<std::string> args;
    std::string message;
  };
  const Row rows[] = {
      {{"tracks", "--filter", "aspect"}, "KIND 'tracks' takes no options"},
      {{"--media-proxy-host", "m.example", "genres"}, "KIND 'genres' takes no options"},
      {{"giphy", "--media-proxy-host"}, "option --media-proxy-host needs a HOST"},
      {{"giphy", "--media-proxy-host", ""}, "option --media-proxy-host needs a HOST"},
      {{"giphy", "--filter"}, "option --filter needs a value (aspect)"},
      {{"giphys", "--filter", "square"}, "unknown filter 'square' (the only one is 'aspect')"},
  };
  for (const Row& row : rows) {
    const Outcome run = parse(row.args, R"({"data":[]})");
    EXPECT_EQ(run.status, 64) << row.message;
    EXPECT_EQ(run.out, "");
    EXPECT_EQ(run.err.rfind("tunevo parse: " + row.message + "\nusage: tunevo parse KIND [FILE]\n", 0), 0u) << run.err;
  }
}

TEST(ParseGiphy, APictureWithoutAnIdStopsTheProgramWithNothingOnStandardOutput) {
  const auto answer = std::filesystem::path(::testing::TempDir()) / "giphy_without_id.json";
  std::ofstream(answer) << R"({"data":[{"id":"a"},{"id":7,"images":{}}]})";
  const Outcome run = test::runTunevo("parse giphys --filter aspect", answer.string());
  EXPECT_NE(run.status, 0);
  EXPECT_EQ(run.out, "");
  EXPECT_NE(run.err.find("Fatal error: Giphy picture without a string \"id\""), std::string::npos) << run.err;
}

}  // namespace
}  // namespace tunevo
