#include "applogic/records/playlist.h"

#include <string>
#include <vector>

#include <boost/json.hpp>
#include <gtest/gtest.h>

namespace applogic {
namespace {

Json parse(std::string_view text) { return boost::json::parse(text); }
JsonObject object(std::string_view text) { return parse(text).get_object(); }

PlaylistImage display(std::string id, bool isDefault, std::int64_t version = 1) {
  return PlaylistImage::display(DisplayImage{std::move(id), version, isDefault, "displayImage"});
}

// ---- images ----

TEST(ImageTypes, DecideTheCaseExactlyAndCaseSensitively) {
  const struct {
    const char* raw;
    bool isDisplay;
    bool isGiphy;
    std::optional<PlaylistImage> created;
  } rows[] = {
      {R"({"imageType":"giphyImage","id":"x"})", false, true, PlaylistImage::giphy("x")},
      {R"({"imageType":"GiphyImage","id":"x"})", false, false, std::nullopt},
      {R"({"imageType":"giphyimage","id":"x"})", false, false, std::nullopt},
      {R"({"imageType":"giphyImage ","id":"x"})", false, false, std::nullopt},
      {R"({"imageType":"giphyImage","id":7})", false, true, std::nullopt},
      {R"({"imageType":"giphyImage"})", false, true, std::nullopt},
      {R"({"imageType":"DisplayImage","id":"d"})", false, false, std::nullopt},
      {R"({"imageType":"coverImage","id":"d"})", false, false, std::nullopt},
      {R"({"imageType":["giphyImage"],"id":"x"})", false, false, std::nullopt},
      {R"({"id":"x"})", false, false, std::nullopt},
      {R"({"imageType":"displayImage","id":"tra.1","version":3,"isDefault":true})", true, false,
       PlaylistImage::display(DisplayImage{"tra.1", 3, true, "displayImage"})},
      {R"({"imageType":"displayImage","id":"d","version":"3","isDefault":1})", true, false,
       PlaylistImage::display(DisplayImage{"d", 0, false, "displayImage"})}};
  for (const auto& row : rows) {
    const JsonObject raw = object(row.raw);
    EXPECT_EQ(IsRawDisplayImage(raw), row.isDisplay) << row.raw;
    EXPECT_EQ(IsRawGiphyImage(raw), row.isGiphy) << row.raw;
    EXPECT_EQ(PlaylistImage::create(raw), row.created) << row.raw;
  }
}

TEST(DisplayImageFromRaw, StoresTheIdAsReceivedAndDefaultsTheRest) {
  EXPECT_EQ(DisplayImage::fromRaw(object(R"({"id":"ALB.1"})")), (DisplayImage{"ALB.1", 0, false, ""}));
  EXPECT_EQ(DisplayImage::fromRaw(object(R"({"id":"","version":2.5,"isDefault":"true","imageType":5})")),
            (DisplayImage{"", 0, false, ""}));
  EXPECT_EQ(DisplayImage::fromRaw(object(R"({"id":"d","version":-2,"isDefault":false,"imageType":"x"})")),
            (DisplayImage{"d", -2, false, "x"}));
}

TEST(PlaylistImageEquality, ComparesCaseAndPayload) {
  const PlaylistImage giphy = PlaylistImage::giphy("x");
  EXPECT_EQ(giphy, PlaylistImage::giphy("x"));
  EXPECT_NE(giphy, PlaylistImage::giphy("X"));
  EXPECT_NE(giphy, PlaylistImage::display(DisplayImage{"x", 0, false, ""}));
  EXPECT_NE(PlaylistImage::display(DisplayImage{"x", 0, false, ""}), giphy);
  EXPECT_EQ(PlaylistImage::giphy("caf\u00e9"), PlaylistImage::giphy("cafe\u0301"));
  EXPECT_EQ(display("caf\u00e9", false), display("cafe\u0301", false));
  EXPECT_NE(display("d", false), display("d", true));
  EXPECT_NE(display("d", false, 1), display("d", false, 2));
  EXPECT_NE(PlaylistImage::display(DisplayImage{"d", 0, false, "a"}),
            PlaylistImage::display(DisplayImage{"d", 0, false, "b"}));
}

// A display image that cannot be named stops the program, wherever it is met.
TEST(DisplayImageDeathTest, WithoutAStringIdStopsTheProgram) {
  const char* const message = "display image without a string \"id\"";
  EXPECT_DEATH((void)PlaylistImage::create(object(R"({"imageType":"displayImage","isDefault":false})")), message);
  EXPECT_DEATH((void)PlaylistImagesResponseToPlaylistImage(
                   parse(R"({"images":[{"imageType":"giphyImage","id":"g"},{"imageType":"displayImage","id":5}]})")),
               message);
  EXPECT_DEATH((void)PlaylistsResponseToPlaylists(
                   parse(R"({"playlists":[{"id":"mp.1","images":[{"imageType":"displayImage","id":null}]}]})")),
               message);
}

TEST(PlaylistImagesResponseToPlaylistImage, SkipsWhatIsNotAnImageAndFailsOnlyOnTheTopLevels) {
  const auto images = PlaylistImagesResponseToPlaylistImage(parse(R"({"images":[
      {"imageType":"giphyImage","id":"g1"}, {"imageType":"GiphyImage","id":"g2"}, {},
      {"imageType":"displayImage","id":"d1"}, {"imageType":"giphyImage"}]})"));
  EXPECT_EQ(images, (std::vector<PlaylistImage>{PlaylistImage::giphy("g1"),
                                                PlaylistImage::display(DisplayImage{"d1", 0, false, "displayImage"})}));
  EXPECT_EQ(PlaylistImagesResponseToPlaylistImage(parse(R"({"images":[]})")), std::vector<PlaylistImage>{});
  EXPECT_EQ(PlaylistImagesResponseToPlaylistImage(parse(R"({"images":[{"imageType":"x"}]})")),
            std::vector<PlaylistImage>{});
  // A bad display entry after a non-object element is never reached: the list fails first.
  for (const char* input : {R"({"images":{}})", R"({"images":null})", R"({"Images":[]})", "[]", "null",
                            R"({"images":[1,{"imageType":"displayImage"}]})"}) {
    EXPECT_EQ(PlaylistImagesResponseToPlaylistImage(parse(input)), std::nullopt) << input;
  }
}

// ---- playlists ----

TEST(PlaylistFromRaw, ReadsEveryFieldAndNeverTheTrackIds) {
  const Playlist playlist = Playlist::fromRaw(parse(R"({
      "id":"MP.77","name":"Late Night","privacy":"public","artistId":"listener-1",
      "trackIds":["Tra.1"],"tracks":[{"id":"Tra.1"}],
      "images":[{"imageType":"displayImage","id":"d1","isDefault":true},
                {"imageType":"giphyImage","id":"g1"},
                {"imageType":"coverImage","id":"c1"},
                {"imageType":"displayImage","id":"d2","version":4},
                {"imageType":"giphyImage","id":"g2"}]})"));
  EXPECT_EQ(playlist.id, "mp.77");
  EXPECT_EQ(playlist.name, "Late Night");
  EXPECT_EQ(playlist.trackIds, std::nullopt);
  EXPECT_TRUE(playlist.isPublic);
  EXPECT_EQ(playlist.ownerId, "listener-1");
  EXPECT_EQ(playlist.images, (std::vector<PlaylistImage>{display("d1", true, 0), PlaylistImage::giphy("g1"),
                                                         display("d2", false, 4), PlaylistImage::giphy("g2")}));
}

TEST(PlaylistFromRaw, LenientFieldsTakeTheirDefaults) {
  struct Row {
    const char* raw;
    bool isPublic;
    std::optional<std::string> ownerId;
  };
  for (const Row& row : {Row{R"({"privacy":"Public","artistId":""})", false, ""},
                         Row{R"({"privacy":"public ","artistId":5})", false, std::nullopt},
                         Row{R"({"privacy":true,"artistId":null})", false, std::nullopt},
                         Row{R"({"privacy":"private","ownerId":"x"})", false, std::nullopt},
                         Row{R"({"privacy":"public"})", true, std::nullopt}}) {
    const Playlist playlist = Playlist::fromRaw(parse(row.raw));
    EXPECT_EQ(playlist.isPublic, row.isPublic) << row.raw;
    EXPECT_EQ(playlist.ownerId, row.ownerId) << row.raw;
    EXPECT_EQ(playlist.id, "") << row.raw;
    EXPECT_EQ(playlist.name, "") << row.raw;
  }
  for (const char* text : {"null", "[]", R"("mp.1")", R"({"id":5,"name":["x"]})"}) {
    EXPECT_EQ(Playlist::fromRaw(parse(text)), Playlist()) << text;
  }
}

TEST(PlaylistFromRaw, ImagesAbsentUnlessAnArrayOfObjects) {
  for (const char* text : {R"({})", R"({"images":null})", R"({"images":{}})",
                           R"({"images":[{"imageType":"giphyImage","id":"g"},5]})"}) {
    EXPECT_EQ(Playlist::fromRaw(parse(text)).images, std::nullopt) << text;
  }
  const Playlist withEmpty = Playlist::fromRaw(parse(R"({"images":[]})"));
  EXPECT_EQ(withEmpty.images, std::vector<PlaylistImage>{});
  EXPECT_EQ(Playlist::fromRaw(parse(R"({"images":[{"imageType":"x"}]})")).images, std::vector<PlaylistImage>{});
  EXPECT_NE(withEmpty, Playlist::fromRaw(parse("{}")));
}

TEST(PlaylistImagesLookup, CustomImageSkipsDefaultsAndGiphyIdTakesTheFirst) {
  const auto with = [](std::optional<std::vector<PlaylistImage>> images) {
    return Playlist("mp.1", "n", std::nullopt, false, std::nullopt, std::move(images));
  };
  EXPECT_EQ(with(std::vector{display("d1", true), display("d2", true)}).getCustomImage(), std::nullopt);
  EXPECT_EQ(with(std::vector{display("d1", true), display("d2", true)}).getGiphyImageID(), std::nullopt);
  EXPECT_EQ(with(std::nullopt).getCustomImage(), std::nullopt);
  EXPECT_EQ(with(std::nullopt).getGiphyImageID(), std::nullopt);
  EXPECT_EQ(with(std::vector<PlaylistImage>{}).getCustomImage(), std::nullopt);

  const Playlist mixed = with(std::vector{display("d1", true), PlaylistImage::giphy("g1"), display("d2", false),
                                          display("d3", false), PlaylistImage::giphy("g2")});
  EXPECT_EQ(mixed.getCustomImage()->id, "d2");
  EXPECT_EQ(mixed.getGiphyImageID(), "g1");
}

TEST(PlaylistConstruction, NormalisesOnlyTheId) {
  const Playlist playlist("PP.5", "tra.1", std::vector<std::string>{"tra.2"}, true, "MP.3");
  EXPECT_EQ(playlist.id, "pp.5");
  EXPECT_EQ(playlist.name, "tra.1");
  EXPECT_EQ(playlist.trackIds, std::vector<std::string>{"tra.2"});
  EXPECT_EQ(playlist.ownerId, "MP.3");
  EXPECT_EQ(playlist.images, std::nullopt);
}

TEST(PlaylistEquality, EveryFieldCountsAndAbsentDiffersFromEmpty) {
  const Playlist base("mp.1", "caf\u00e9", std::vector<std::string>{"Tra.1"}, true, "owner",
                      std::vector{PlaylistImage::giphy("g")});
  EXPECT_EQ(base, Playlist("MP.1", "cafe\u0301", std::vector<std::string>{"Tra.1"}, true, "owner",
                           std::vector{PlaylistImage::giphy("g")}));

  const auto changed = [&base](auto change) {
    Playlist copy = base;
    change(copy);
    return copy;
  };
  const Playlist variants[] = {
      changed([](Playlist& p) { p.id = "mp.2"; }),
      changed([](Playlist& p) { p.name = "Cafe"; }),
      changed([](Playlist& p) { p.trackIds = std::nullopt; }),
      changed([](Playlist& p) { p.trackIds = std::vector<std::string>{}; }),
      changed([](Playlist& p) { p.trackIds = std::vector<std::string>{"Tra.1", "Tra.1"}; }),
      changed([](Playlist& p) { p.isPublic = false; }),
      changed([](Playlist& p) { p.ownerId = std::nullopt; }),
      changed([](Playlist& p) { p.ownerId = ""; }),
      changed([](Playlist& p) { p.images = std::nullopt; }),
      changed([](Playlist& p) { p.images = std::vector<PlaylistImage>{}; }),
      changed([](Playlist& p) { p.images = std::vector{display("g", false)}; }),
  };
  for (const Playlist& variant : variants) {
    EXPECT_NE(base, variant) << variant;
    EXPECT_NE(variant, base) << variant;
  }
}

TEST(PlaylistsResponseToPlaylists, MapsEveryElementInOrderAndFailsOnlyOnTheTopLevels) {
  const auto playlists =
      PlaylistsResponseToPlaylists(parse(R"({"playlists":[{"id":"mp.2","name":"B"},{},{"id":"PP.1"}]})"));
  ASSERT_TRUE(playlists.has_value());
  EXPECT_EQ(*playlists, (std::vector<Playlist>{Playlist("mp.2", "B", std::nullopt, false), Playlist(),
                                               Playlist("pp.1", "", std::nullopt, false)}));
  EXPECT_EQ(PlaylistsResponseToPlaylists(parse(R"({"playlists":[]})")), std::vector<Playlist>{});
  for (const char* input : {R"({"playlists":{}})", R"({"playlists":null})", R"({"playlists":[{},[]]})",
                            R"({"playlist":[]})", "[]", R"([{"playlists":[]}])", "null"}) {
    EXPECT_EQ(PlaylistsResponseToPlaylists(parse(input)), std::nullopt) << input;
  }
}

}  // namespace
}  // namespace applogic
