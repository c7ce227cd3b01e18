#include "applogic/records/page.h"

#include <string>
#include <vector>

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include "applogic/records/track_serializers.h"

namespace applogic {
namespace {

Json parse(std::string_view text) { return boost::json::parse(text); }

constexpr Metadata kUnknown{-1, -1, -1, -1};

TEST(MetadataFromRaw, EachFieldFallsBackToMinusOneOnItsOwn) {
  const std::pair<const char*, Metadata> rows[] = {
      {"{}", kUnknown},
      {R"({"meta":{"query":{"limit":20,"offset":40},"returnedCount":17,"totalCount":57}})",
       {20, 40, 17, 57}},
      {R"({"meta":{"returnedCount":20,"totalCount":57}})", {-1, -1, 20, 57}},
      {R"({"meta":{"query":{"limit":0,"offset":0}}})", {0, 0, -1, -1}},
      {R"({"meta":{"totalCount":0,"query":{"offset":3}}})", {-1, 3, -1, 0}},
      // Wrong types count as missing: strings, fractions, booleans, null.
      {R"({"meta":{"query":{"limit":"20","offset":2.0},"returnedCount":true,"totalCount":null}})",
       kUnknown},
      {R"({"meta":{"query":[20,40],"returnedCount":5}})", {-1, -1, 5, -1}},
      {R"({"meta":"20","returnedCount":5,"query":{"limit":1}})", kUnknown},
      // The paging block itself, given as the whole answer: nothing is read from its top level.
      {R"({"query":{"limit":1,"offset":2},"returnedCount":3,"totalCount":4})", kUnknown},
      {R"({"meta":{"limit":1,"offset":2}})", kUnknown},
      {R"({"meta":{"totalCount":9223372036854775807,"returnedCount":9223372036854775808}})",
       {-1, -1, -1, 9223372036854775807}},
      {R"({"meta":{"query":{"limit":-5}}})", {-5, -1, -1, -1}}};
  for (const auto& [text, expected] : rows) {
    const Json answer = parse(text);
    EXPECT_EQ(Metadata::fromRaw(answer.get_object()), expected) << text;
    EXPECT_EQ(V2ResponseToMetaData(answer), expected) << text;
  }
}

TEST(V2ResponseToMetaData, AbsentOnlyForValuesThatAreNotObjects) {
  for (const char* input : {"null", "[]", R"([{"meta":{"totalCount":1}}])", R"("meta")", "5", "true"}) {
    EXPECT_EQ(V2ResponseToMetaData(parse(input)), std::nullopt) << input;
  }
}

TEST(PlaylistTracksResponseToPageTracks, NeedsATrackListAndKeepsThePagingBlockWithIt) {
  EXPECT_EQ(PlaylistTracksResponseToPageTracks(parse(R"({"meta":{"totalCount":57}})")), std::nullopt);
  for (const char* input : {R"({"meta":{"totalCount":5},"tracks":{}})", R"({"tracks":[{},1]})", "[]", "null"}) {
    EXPECT_EQ(PlaylistTracksResponseToPageTracks(parse(input)), std::nullopt) << input;
  }

  const auto empty = PlaylistTracksResponseToPageTracks(parse(R"({"tracks":[]})"));
  ASSERT_TRUE(empty.has_value());
  EXPECT_EQ(empty->metadata, kUnknown);
  EXPECT_TRUE(empty->payload.empty());

  const Json answer = parse(R"({"meta":{"query":{"limit":2,"offset":4},"returnedCount":2,"totalCount":7},
                               "tracks":[{"id":"tra.5","name":"Five"},{"id":"TRA.6"}]})");
  const auto page = PlaylistTracksResponseToPageTracks(answer);
  ASSERT_TRUE(page.has_value());
  EXPECT_EQ(page->metadata, (Metadata{2, 4, 2, 7}));
  EXPECT_EQ(page->payload, PlaylistTracksResponseToTracks(answer));
  ASSERT_EQ(page->payload.size(), 2u);
  EXPECT_EQ(page->payload[1].id, "Tra.6");
}

}  // namespace
}  // namespace applogic
