#include "applogic/records/track_serializers.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include "applogic/controllers/current_user.h"

namespace applogic {
namespace {

using Serializer = std::optional<std::vector<Track>> (*)(const Json&);

Json parse(std::string_view text) { return boost::json::parse(text); }

Track trackWithId(std::string id) {
  Track track;
  track.id = std::move(id);
  return track;
}

std::vector<Track> tracksWithIds(std::initializer_list<const char*> ids) {
  std::vector<Track> tracks;
  for (const char* id : ids) tracks.push_back(trackWithId(id));
  return tracks;
}

// A list member named by the row, holding `items` (JSON text).
Json answer(std::string_view listKey, std::string_view items) {
  return parse(std::string("{\"") + std::string(listKey) + "\":" + std::string(items) + "}");
}

struct SerializerRow {
  const char* name;
  Serializer serializer;
  const char* listKey;
};

const SerializerRow kPlainRows[] = {{"Tracks", &TracksResponseToTracks, "tracks"},
                                    {"PlaylistTracks", &PlaylistTracksResponseToTracks, "tracks"},
                                    {"SearchTracks", &SearchTracksResponseToTracks, "data"},
                                    {"ListeningHistory", &ListeningHistoryResponseToTracksSerializer, "tracks"}};

TEST(PlainSerializers, EveryElementBecomesOneTrackInOrderAndOnlyTheTopLevelsFail) {
  for (const SerializerRow& row : kPlainRows) {
    SCOPED_TRACE(row.name);
    for (const char* input : {"null", "[]", R"([{"id":"tra.1"}])", R"("x")", "5", "{}"}) {
      EXPECT_EQ(row.serializer(parse(input)), std::nullopt) << input;
    }
    for (const char* items : {"null", "{}", R"({"id":"tra.1"})", R"("tra.1")", "5",
                              R"([{"id":"tra.1"}, 5])", R"([{"id":"tra.1"}, null])",
                              R"([[{"id":"tra.1"}]])"}) {
      EXPECT_EQ(row.serializer(answer(row.listKey, items)), std::nullopt) << items;
    }
    EXPECT_EQ(row.serializer(answer("items", R"([{"id":"tra.1"}])")), std::nullopt);
    EXPECT_EQ(row.serializer(answer(row.listKey, "[]")), std::vector<Track>{});

    const auto tracks = row.serializer(answer(
        row.listKey, R"([{"id":"tra.2"}, {"id":5,"name":"odd"}, {}, {"id":"ALB.1","extra":[1]}])"));
    Track odd;
    odd.name = "odd";
    EXPECT_EQ(tracks, (std::vector<Track>{trackWithId("Tra.2"), odd, Track(), trackWithId("Alb.1")}));
  }
}

TEST(ListeningHistorySerializer, AgreesWithTracksResponseToTracksForEveryInput) {
  for (const char* input : {"null", "[]", "{}", R"({"tracks":[]})", R"({"tracks":{}})",
                            R"({"tracks":[{"id":"tra.1"},{}]})", R"({"tracks":[1]})",
                            R"({"data":[{"id":"tra.1"}]})"}) {
    const Json value = parse(input);
    EXPECT_EQ(ListeningHistoryResponseToTracksSerializer(value), TracksResponseToTracks(value))
        << input;
  }
}

TEST(LinkedSerializers, TakeTheFirstLinkedTrackOfEachEntryAndSkipOddEntries) {
  const SerializerRow rows[] = {
      {"UserTopChart", &UserTopChartTracksResponseToTracksSerializer, "charts"},
      {"Favorites", &FavoriteResponseToTracksSerializer, "favorites"}};
  for (const SerializerRow& row : rows) {
    SCOPED_TRACE(row.name);
    for (const char* input : {"null", "[]", R"("x")", "{}"}) {
      EXPECT_EQ(row.serializer(parse(input)), std::nullopt) << input;
    }
    for (const char* items : {"null", "{}", R"({"linked":{"tracks":[{"id":"tra.1"}]}})",
                              R"([{"linked":{"tracks":[{"id":"tra.1"}]}}, 1])"}) {
      EXPECT_EQ(row.serializer(answer(row.listKey, items)), std::nullopt) << items;
    }
    EXPECT_EQ(row.serializer(answer(row.listKey, "[]")), std::vector<Track>{});
    // Every entry skipped is still a present, empty list.
    EXPECT_EQ(row.serializer(answer(row.listKey, R"([{}, {"linked": {"tracks": []}}])")), std::vector<Track>{});

    const auto tracks = row.serializer(answer(row.listKey, R"([
        {"linked": {"tracks": [{"id": "tra.1"}]}},
        {"id": "no linked member"},
        {"linked": {"tracks": [{"id": "tra.2"}, {"id": "tra.3"}]}},
        {"linked": null},
        {"linked": [{"tracks": [{"id": "tra.4"}]}]},
        {"linked": {}},
        {"linked": {"tracks": []}},
        {"linked": {"tracks": {"id": "tra.5"}}},
        {"linked": {"tracks": [{"id": "tra.6"}, 7]}},
        {"linked": {"tracks": ["tra.8"]}},
        {"linked": {"tracks": [{}], "albums": [{"id": "alb.1"}]}},
        {"linked": {"tracks": [{"id": "ALB.9"}]}}
    ])"));
    EXPECT_EQ(tracks, tracksWithIds({"Tra.1", "Tra.2", "", "Alb.9"}));
  }
}

TEST(LinkedSerializers, ReadTheirOwnListKeyOnly) {
  const Json charts = answer("charts", R"([{"linked":{"tracks":[{"id":"tra.1"}]}}])");
  const Json favorites = answer("favorites", R"([{"linked":{"tracks":[{"id":"tra.1"}]}}])");
  EXPECT_EQ(UserTopChartTracksResponseToTracksSerializer(charts), tracksWithIds({"Tra.1"}));
  EXPECT_EQ(UserTopChartTracksResponseToTracksSerializer(favorites), std::nullopt);
  EXPECT_EQ(FavoriteResponseToTracksSerializer(favorites), tracksWithIds({"Tra.1"}));
  EXPECT_EQ(FavoriteResponseToTracksSerializer(charts), std::nullopt);
}

class FixedUser : public CurrentUserProvider {
 public:
  explicit FixedUser(std::optional<std::string> guid) : guid_(std::move(guid)) {}
  std::optional<std::string> userGuid() const override {
    ++calls_;
    return guid_;
  }
  int calls() const { return calls_; }

 private:
  std::optional<std::string> guid_;
  mutable int calls_ = 0;
};

TEST(UserHintToUserID, ExplicitUserAsGivenWithoutAskingTheProviderOtherwiseTheProvidersUser) {
  const FixedUser nobody(std::nullopt);
  EXPECT_EQ(UserHintToUserID(UserHint::user("u-1"), nobody), "u-1");
  EXPECT_EQ(UserHintToUserID(UserHint::user(""), nobody), "");
  EXPECT_EQ(UserHintToUserID(UserHint::user("cafe\xCC\x81"), nobody), "cafe\xCC\x81");
  EXPECT_EQ(nobody.calls(), 0);
  EXPECT_EQ(UserHintToUserID(UserHint::currentUser(), FixedUser("amzn1.account.X")), "amzn1.account.X");
  EXPECT_EQ(UserHintToUserID(UserHint::currentUser(), FixedUser("")), "");
}

TEST(UserHintToUserIDDeathTest, SignedInUserWithNobodySignedInStopsTheProgram) {
  const FixedUser nobody(std::nullopt);
  EXPECT_DEATH((void)UserHintToUserID(UserHint::currentUser(), nobody), "nobody is signed in");
}

}  // namespace
}  // namespace applogic
