#include "applogic/records/giphy.h"

#include <cmath>
#include <limits>
#include <string>
#include <vector>

#include <boost/json.hpp>
#include <gtest/gtest.h>

namespace applogic {
namespace {

Json parse(std::string_view text) { return boost::json::parse(text); }
JsonObject object(std::string_view text) { return parse(text).as_object(); }

GiphyImageInfo info(float width, float height, std::string urlString) {
  return GiphyImageInfo{width, height, std::move(urlString)};
}

std::vector<std::string> keys(const Giphy& giphy) {
  std::vector<std::string> names;
  for (const auto& [key, image] : giphy.images) names.push_back(key);
  return names;
}

TEST(GiphyRating, RawStringsAreExact) {
  const std::pair<GiphyRating, std::string_view> cases[] = {
      {GiphyRating::y, "y"},         {GiphyRating::g, "g"}, {GiphyRating::pg, "pg"},
      {GiphyRating::pg13, "pg-13"}, {GiphyRating::r, "r"}};
  for (const auto& [rating, raw] : cases) {
    EXPECT_EQ(rawValue(rating), raw);
    EXPECT_EQ(giphyRatingFromRaw(raw), rating);
  }
  for (const char* unknown : {"", "G", "pg13", "PG-13", "nc-17", " g", "g "}) {
    EXPECT_EQ(giphyRatingFromRaw(unknown), std::nullopt) << unknown;
  }
}

TEST(GiphyMode, OnlyZeroAndOneAreModes) {
  EXPECT_EQ(giphyModeFromRaw(0), GiphyMode::still);
  EXPECT_EQ(giphyModeFromRaw(1), GiphyMode::animated);
  for (int raw : {2, -1, std::numeric_limits<int>::min(), std::numeric_limits<int>::max()}) {
    EXPECT_EQ(giphyModeFromRaw(raw), std::nullopt) << raw;
  }
  EXPECT_EQ(std::hash<Giphy::Mode>{}(Giphy::Mode::still), 0u);
  EXPECT_EQ(std::hash<Giphy::Mode>{}(Giphy::Mode::animated), 1u);
}

struct DimensionRow {
  const char* raw;  // the "width" member, as JSON
  float expected;
};

TEST(GiphyImageInfoFromRaw, DimensionsAreReadOnlyFromNumericStrings) {
  const DimensionRow rows[] = {
      {R"("480")", 480.0f},     {R"("270.5")", 270.5f}, {R"("+480")", 480.0f},   {R"("1e3")", 1000.0f},
      {R"("-2")", -2.0f},       {"480", 0.0f},          {"480.0", 0.0f},         {R"("")", 0.0f},
      {R"(" 480")", 0.0f},      {R"("480 ")", 0.0f},    {R"("480px")", 0.0f},    {R"("+-1")", 0.0f},
      {R"("0x10")", 0.0f},      {R"("1e50")", 0.0f},    {"null", 0.0f},          {"true", 0.0f},
      {R"(["480"])", 0.0f},
  };
  for (const DimensionRow& row : rows) {
    const auto raw = object(std::string(R"({"width":)") + row.raw + R"(,"height":)" + row.raw + "}");
    const GiphyImageInfo parsed = GiphyImageInfo::fromRaw(raw);
    EXPECT_EQ(parsed.width, row.expected) << row.raw;
    EXPECT_EQ(parsed.height, row.expected) << row.raw;
  }
  EXPECT_EQ(GiphyImageInfo::fromRaw(JsonObject()), info(0, 0, ""));
  EXPECT_TRUE(std::isnan(GiphyImageInfo::fromRaw(object(R"({"width":"nan"})")).width));
}

struct AddressRow {
  const char* url;  // the "url" member, as JSON
  std::string expected;
};

TEST(GiphyImageInfoFromRaw, AddressesMoveToTheProxyHostUnlessTheyCannotCarryOne) {
  const AddressRow rows[] = {
      {R"("https://media2.giphy.com/media/abc/200w.gif?cid=9&rid=200w.gif#top")",
       "https://proxy.test/media/abc/200w.gif?cid=9&rid=200w.gif#top"},
      {R"("https://user@media.giphy.com:8443/a.gif")", "https://user@proxy.test:8443/a.gif"},
      {R"("//media.giphy.com/a.gif")", "//proxy.test/a.gif"},
      {R"("/media/a.gif")", "//proxy.test/media/a.gif"},
      {R"("https://")", "https://proxy.test"},
      // not URI references: kept verbatim
      {R"("media giphy com/a.gif")", "media giphy com/a.gif"},
      {R"("https://media.giphy.com/a b.gif")", "https://media.giphy.com/a b.gif"},
      {R"("https://media.giphy.com:port/a.gif")", "https://media.giphy.com:port/a.gif"},
      // relative paths cannot follow a host: kept verbatim
      {R"("media/a.gif")", "media/a.gif"},
      {R"("mailto:pictures@giphy.com")", "mailto:pictures@giphy.com"},
      {R"("")", ""},
      {"null", ""},
      {"5", ""},
  };
  for (const AddressRow& row : rows) {
    const auto raw = object(std::string(R"({"url":)") + row.url + "}");
    EXPECT_EQ(GiphyImageInfo::fromRaw(raw, "proxy.test").urlString, row.expected) << row.url;
  }
  EXPECT_EQ(GiphyImageInfo::fromRaw(object(R"({"url":"https://media.giphy.com/a.gif"})")).urlString,
            "https://" + std::string(kDefaultGiphyMediaProxyHost) + "/a.gif");
}

TEST(GiphyImageInfo, UrlIsAbsentForEmptyAndUnparsableAddresses) {
  EXPECT_EQ(info(1, 1, "https://proxy.test/a.gif").url()->string(), "https://proxy.test/a.gif");
  EXPECT_EQ(info(1, 1, "//proxy.test/a.gif").url()->string(), "//proxy.test/a.gif");
  EXPECT_EQ(info(1, 1, "").url(), std::nullopt);
  EXPECT_EQ(info(1, 1, "media giphy com/a.gif").url(), std::nullopt);
}

TEST(GiphyImageInfo, EqualityComparesSizesAsFloatsAndAddressesCanonically) {
  EXPECT_EQ(info(480, 270, "caf\u00e9"), info(480.0f, 270.0f, "cafe\u0301"));
  EXPECT_NE(info(480, 270, "a"), info(480.0001f, 270, "a"));
  EXPECT_NE(info(480, 270, "a"), info(480, 271, "a"));
  EXPECT_NE(info(480, 270, "a"), info(480, 270, "A"));
  const float nan = std::numeric_limits<float>::quiet_NaN();
  EXPECT_NE(info(nan, 1, "a"), info(nan, 1, "a"));
}

constexpr const char* kPicture = R"({
  "type": "gif", "id": "xT9IgG50Fb7Mi0prBC", "url": "https://giphy.com/gifs/xT9IgG50Fb7Mi0prBC",
  "bitly_url": "https://gph.is/1", "bitly_gif_url": "https://gph.is/2", "rating": "pg-13",
  "images": {
    "original": {"width": "480", "height": "270", "url": "https://media.giphy.com/media/x/giphy.gif"},
    "fixed_width_still": {"width": "200", "height": "113", "url": "https://media.giphy.com/media/x/200w_s.gif"},
    "480w_still": {"width": "480", "height": "270", "url": "https://media.giphy.com/media/x/480w_s.jpg"}
  }})";

TEST(GiphyFromRaw, ReadsEveryFieldAndKeepsTheAnswersOrderOfRenditions) {
  const Giphy giphy = Giphy::fromRaw(object(kPicture), {}, "proxy.test");
  EXPECT_EQ(giphy.id, "xT9IgG50Fb7Mi0prBC");
  EXPECT_EQ(keys(giphy), (std::vector<std::string>{"original", "fixed_width_still", "480w_still"}));
  EXPECT_EQ(*giphy.image("fixed_width_still"), info(200, 113, "https://proxy.test/media/x/200w_s.gif"));
  EXPECT_EQ(giphy.image("Original"), nullptr);
  EXPECT_EQ(giphy.rating, GiphyRating::pg13);
  EXPECT_EQ(giphy.webURLString, "https://giphy.com/gifs/xT9IgG50Fb7Mi0prBC");  // not rewritten
  EXPECT_EQ(giphy.bitlyWebURLString, "https://gph.is/1");
  EXPECT_EQ(giphy.bitlyWebGifURLString, "https://gph.is/2");
}

TEST(GiphyFromRaw, MissingOrMistypedOptionalMembersAreAbsent) {
  for (const char* text : {R"({"id":"a"})", R"({"id":"a","url":null,"bitly_url":1,"bitly_gif_url":[],"rating":"nc-17"})",
                           R"({"id":"a","rating":1,"images":null})", R"({"id":"a","rating":"G","images":[]})",
                           R"({"id":"a","images":"original"})"}) {
    const Giphy giphy = Giphy::fromRaw(object(text));
    EXPECT_EQ(giphy, (Giphy{"a", {}, std::nullopt, std::nullopt, std::nullopt, std::nullopt})) << text;
    EXPECT_EQ(giphy.getBestFit(Giphy::Mode::still, 100), std::nullopt) << text;
    EXPECT_EQ(giphy.getBestFit(Giphy::Mode::animated, 100), std::nullopt) << text;
  }
}

TEST(GiphyFromRaw, OneRenditionThatIsNotAnObjectVoidsThemAll) {
  for (const char* odd : {"5", "null", R"("x")", "[]"}) {
    const auto raw = object(std::string(R"({"id":"a","images":{"original":{"width":"1"},"odd":)") + odd + "}}");
    EXPECT_TRUE(Giphy::fromRaw(raw).images.empty()) << odd;
  }
  EXPECT_EQ(keys(Giphy::fromRaw(object(R"({"id":"a","images":{"original":{}}})"))), std::vector<std::string>{"original"});
}

TEST(GiphyFromRaw, TheFilterSeesEachRenditionInOrderAfterTheRewrite) {
  std::vector<std::string> seen;
  const Giphy giphy = Giphy::fromRaw(
      object(kPicture),
      [&seen](std::string_view key, const GiphyImageInfo& image) {
        seen.push_back(std::string(key) + " " + image.urlString);
        return key.find("still") == std::string_view::npos;
      },
      "proxy.test");
  EXPECT_EQ(seen, (std::vector<std::string>{"original https://proxy.test/media/x/giphy.gif",
                                            "fixed_width_still https://proxy.test/media/x/200w_s.gif",
                                            "480w_still https://proxy.test/media/x/480w_s.jpg"}));
  EXPECT_EQ(keys(giphy), std::vector<std::string>{"original"});
}

TEST(GiphyFromRawDeathTest, APictureWithoutAStringIdStopsTheProgram) {
  for (const char* text : {R"({"images":{}})", R"({"id":null})", R"({"id":42})", R"({"id":["a"]})"}) {
    EXPECT_DEATH((void)Giphy::fromRaw(object(text)), "Giphy picture without a string \"id\"") << text;
  }
  EXPECT_DEATH((void)GiphysResponseToGiphy(parse(R"({"data":[{"id":"a"},{"id":1}]})")), "without a string");
}

Giphy withImages(GiphyImages images) { return Giphy{"a", std::move(images), std::nullopt, {}, {}, {}}; }

struct BestFitRow {
  Giphy::Mode mode;
  float width;
  std::optional<std::string> expected;
};

TEST(GiphyGetBestFit, ClosestWidthOfTheModeWithTiesToTheFirstInTheAnswer) {
  const Giphy giphy = withImages({{"downsized", info(300, 200, "d")},
                                  {"fixed_width_still", info(200, 100, "s200")},
                                  {"original", info(480, 270, "o")},
                                  {"480w_still", info(480, 270, "s480")},
                                  {"fixed_width_small_still", info(100, 50, "s100")},
                                  {"still_preview", info(1000, 500, "s1000")}});
  const BestFitRow rows[] = {
      {Giphy::Mode::still, 200, "fixed_width_still"},
      {Giphy::Mode::still, 340, "fixed_width_still"},  // 140 from 200 and from 480: the first wins
      {Giphy::Mode::still, 340.5f, "480w_still"},
      {Giphy::Mode::still, 150, "fixed_width_still"},  // 50 from 200 and from 100
      {Giphy::Mode::still, 149, "fixed_width_small_still"},
      {Giphy::Mode::still, 740, "480w_still"},  // 260 from 480 and from 1000
      {Giphy::Mode::still, 0, "fixed_width_small_still"},
      {Giphy::Mode::still, 10000, "still_preview"},
      {Giphy::Mode::animated, 390, "downsized"},  // 90 from 300 and from 480
      {Giphy::Mode::animated, 391, "original"},
      {Giphy::Mode::animated, -5, "downsized"},
  };
  for (const BestFitRow& row : rows) {
    const auto best = giphy.getBestFit(row.mode, row.width);
    ASSERT_TRUE(best.has_value()) << row.width;
    EXPECT_EQ(best->first, row.expected) << row.width;
    EXPECT_EQ(best->second, *giphy.image(best->first));
  }
  EXPECT_EQ(withImages({{"original", info(1, 1, "o")}}).getBestFit(Giphy::Mode::still, 1), std::nullopt);
  EXPECT_EQ(withImages({{"Still", info(1, 1, "s")}}).getBestFit(Giphy::Mode::still, 1), std::nullopt);
  EXPECT_EQ(withImages({{"still", info(1, 1, "s")}}).getBestFit(Giphy::Mode::animated, 1), std::nullopt);
}

TEST(GiphyEquality, ComparesImagesAsADictionaryAndTheRestFieldByField) {
  const Giphy base{"caf\u00e9", {{"a", info(1, 1, "x")}, {"b", info(2, 1, "y")}}, GiphyRating::g, "w", "b", std::nullopt};
  Giphy reordered = base;
  std::swap(reordered.images[0], reordered.images[1]);
  reordered.id = "cafe\u0301";
  EXPECT_EQ(base, reordered);

  std::vector<Giphy> different(6, base);
  different[0].images.pop_back();
  different[1].images[1].second.width = 3;
  different[2].images[1].first = "c";
  different[3].rating = std::nullopt;
  different[4].webURLString = std::nullopt;
  different[5].bitlyWebGifURLString = "";
  for (const Giphy& other : different) EXPECT_NE(base, other) << other;
}

TEST(GiphyResponseToGiphy, TakesTheObjectUnderData) {
  EXPECT_EQ(GiphyResponseToGiphy(parse(std::string(R"({"data":)") + kPicture + "}")), Giphy::fromRaw(object(kPicture)));
  for (const char* text : {R"({"data":[{"id":"a"}]})", R"({"data":null})", R"({"meta":{"id":"a"}})", R"([{"id":"a"}])",
                           R"("data")"}) {
    EXPECT_EQ(GiphyResponseToGiphy(parse(text)), std::nullopt) << text;
  }
}

TEST(GiphysResponseToGiphy, EveryElementOfDataInOrder) {
  const auto pictures = GiphysResponseToGiphy(parse(R"({"data":[{"id":"b"},{"id":"a","images":{"x":{}}}]})"),
                                              [](std::string_view, const GiphyImageInfo&) { return false; });
  ASSERT_TRUE(pictures.has_value());
  ASSERT_EQ(pictures->size(), 2u);
  EXPECT_EQ((*pictures)[0].id, "b");
  EXPECT_EQ((*pictures)[1].id, "a");
  EXPECT_TRUE((*pictures)[1].images.empty());

  EXPECT_EQ(GiphysResponseToGiphy(parse(R"({"data":[]})")), std::vector<Giphy>{});
  for (const char* text : {R"({"pagination":{}})", R"({"data":{"id":"a"}})", R"({"data":[{"id":"a"},5]})",
                           R"({"data":null})", "[]"}) {
    EXPECT_EQ(GiphysResponseToGiphy(parse(text)), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace applogic
