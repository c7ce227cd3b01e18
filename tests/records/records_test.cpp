#include <cmath>
#include <limits>
#include <unordered_set>

#include <boost/json.hpp>
#include <gtest/gtest.h>

#include "applogic/controllers/current_user.h"
#include "applogic/records/genre.h"
#include "applogic/records/giphy.h"
#include "applogic/records/mo_prefix.h"
#include "applogic/records/page.h"
#include "applogic/records/playlist.h"
#include "applogic/records/track_serializers.h"

namespace applogic {
namespace {

Json parse(std::string_view text) { return boost::json::parse(text); }
JsonObject object(std::string_view text) { return parse(text).as_object(); }
// Each input converts to nothing.
template <class Convert>
void expectAbsent(const Convert& convert, std::initializer_list<const char*> inputs) {
  for (const char* input : inputs) EXPECT_EQ(convert(parse(input)), std::nullopt) << input;
}

TEST(MOPrefix, ConstantsHaveTheirCanonicalSpelling) {
  EXPECT_EQ(MOPrefix::genre() + MOPrefix::artist() + MOPrefix::album() + MOPrefix::editorial() + MOPrefix::programmedStation(),
            "g.Art.Alb.po.ps.");
  EXPECT_EQ(MOPrefix::publishedPlaylist() + MOPrefix::memberPlaylist() + MOPrefix::track() + MOPrefix::variousArtist() + MOPrefix::tag(),
            "pp.mp.Tra.Art.0tag.");
}

// fixId gives the leading prefix its canonical case and touches nothing else. Characters are
// user-perceived characters: a mark that joins the prefix's last character makes it another one.
TEST(FixId, EveryKindAndTheBoundaries) {
  const std::pair<const char*, const char*> rows[] = {
      {"tra.123", "Tra.123"}, {"ALB.9", "Alb.9"}, {"aRT.5", "Art.5"}, {"MP.1", "mp.1"}, {"PP.5", "pp.5"},
      {"Po.2", "po.2"}, {"pS.3", "ps.3"}, {"G.4", "g.4"}, {"TAG.rock", "tag.rock"}, {"Tra.1", "Tra.1"},
      {"", ""}, {"xyz", "xyz"}, {"tra.", "Tra."}, {"tra", "tra"}, {"trax1", "trax1"},
      {"g.tra.5", "g.tra.5"}, {"ALB.ALB.", "Alb.ALB."}, {" tra.1", " tra.1"}, {"G.\r\n", "g.\r\n"},
      {"tra.\xCC\x81" "1", "tra.\xCC\x81" "1"},      // combining acute on the dot
      {"tra.1\xCC\x81", "Tra.1\xCC\x81"},            // ... later in the id
      {"tra\xCC\x81.1", "tra\xCC\x81.1"},            // ... on a prefix letter
      {"tra.\xE2\x80\x8D", "tra.\xE2\x80\x8D"},      // zero-width joiner extends the dot
      {"PS.\xE0\xA4\x83", "PS.\xE0\xA4\x83"},        // so does a spacing mark (Devanagari visarga)
      {"TRA.\xF0\x9F\x98\x80", "Tra.\xF0\x9F\x98\x80"},  // an emoji starts a character of its own
      {"PP.\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7", "pp.\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7"},  // so does a flag
      {"\xEF\xBC\xB4\xEF\xBC\xB2\xEF\xBC\xA1.1", "\xEF\xBC\xB4\xEF\xBC\xB2\xEF\xBC\xA1.1"},  // fullwidth TRA
      {"TRA.\xFF\xFE", "Tra.\xFF\xFE"}, {"\xFFtra.", "\xFFtra."}};  // invalid bytes are characters
  for (const auto& [id, fixed] : rows) EXPECT_EQ(MOPrefix::fixId(id), fixed) << '"' << id << '"';
  EXPECT_EQ(MOPrefix::fixOptionalId("tra.1"), "Tra.1");
  EXPECT_EQ(MOPrefix::fixOptionalId(std::nullopt), std::nullopt);
  EXPECT_EQ(MOPrefix::fixIds({"tra.1", "xyz", "ALB.2"}), (std::vector<std::string>{"Tra.1", "xyz", "Alb.2"}));
}

// Only the predicate of the id's kind holds ("" for none).
TEST(IdKind, OnlyTheMatchingPredicateHolds) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"Tra.1", "track"}, {"TRA.", "track"}, {"alb.1", "album"}, {"ART.0", "artist"}, {"art.12", "artist"},
      {"PO.1", "editorial"}, {"ps.1", "station"}, {"g.1", "genre"}, {"TaG.x", "tag"}, {"MP.1", "playlist"},
      {"pp.1", "playlist"}, {"mP.", "playlist"}, {"", ""}, {"tra", ""}, {"ta.1", ""}, {"p.1", ""},
      {"g.tra.5", "genre"}, {"tra.\xCC\x81", ""}, {"mp.\xE2\x80\x8D", ""}};
  for (const auto& [id, kind] : rows) {
    const bool holds[] = {MOPrefix::isTrackId(id),     MOPrefix::isAlbumId(id),   MOPrefix::isArtistId(id),
                          MOPrefix::isEditorialId(id), MOPrefix::isStationId(id), MOPrefix::isGenreId(id),
                          MOPrefix::isTagId(id),       MOPrefix::isPlaylistId(id)};
    const std::string_view kinds[] = {"track", "album", "artist", "editorial", "station", "genre", "tag", "playlist"};
    for (int k = 0; k < 8; ++k) EXPECT_EQ(holds[k], kind == kinds[k]) << '"' << id << "\" " << kinds[k];
  }
}

// Only a string under the key is rewritten; the array form keeps the objects in order and drops the rest.
TEST(FixPayloadId, RewritesOnlyAStringUnderTheKey) {
  const std::pair<const char*, const char*> rows[] = {
      {R"({"id":"tra.1","name":"tra.x"})", R"({"id":"Tra.1","name":"tra.x"})"}, {R"({"id":5})", R"({"id":5})"},
      {R"({"id":["tra.1"]})", R"({"id":["tra.1"]})"}, {R"({"Id":"tra.1"})", R"({"Id":"tra.1"})"}, {"{}", "{}"}};
  for (const auto& [payload, fixed] : rows) EXPECT_EQ(MOPrefix::fixPayloadId(object(payload), "id"), object(fixed)) << payload;
  EXPECT_EQ(MOPrefix::fixOptionalPayloadId(object(R"({"id":"tra.1"})"), "id"), object(R"({"id":"Tra.1"})"));
  EXPECT_EQ(MOPrefix::fixOptionalPayloadId(object("{}"), std::nullopt), std::nullopt);
  EXPECT_EQ(MOPrefix::fixOptionalPayloadId(std::nullopt, "id"), std::nullopt);
  const JsonArray mixed = parse(R"([1, {"id":"mp.1"}, [{"id":"tra.1"}], {"id":"MP.2"}, true, {}])").as_array();
  EXPECT_EQ(MOPrefix::fixPayloadIds(mixed, "id"), parse(R"([{"id":"mp.1"}, {"id":"mp.2"}, {}])").as_array());
  EXPECT_EQ(MOPrefix::fixOptionalPayloadIds(mixed, "id"), MOPrefix::fixPayloadIds(mixed, "id"));
  EXPECT_EQ(MOPrefix::fixOptionalPayloadIds(mixed, std::nullopt), std::nullopt);
  EXPECT_EQ(MOPrefix::fixOptionalPayloadIds(std::nullopt, "id"), std::nullopt);
}

const Track kSample("Tra.1", "Song", 215, true, "art.7", "Artist", "alb.9", "Album", true, "https://e.com/1.mp3");


// Every field, artist and album ids as received; other members (and lookalike keys) are ignored.
TEST(TrackFromRaw, ReadsEveryFieldAndTakesMissingOrMistypedMembersAsDefaults) {
  EXPECT_EQ(Track::fromRaw(parse(R"({"type":"track","id":"tra.1","name":"Song","playbackSeconds":215,"explicit":true,
      "artistId":"art.7","artistName":"Artist","albumId":"alb.9","albumName":"Album","isStreamable":true,
      "previewURL":"https://e.com/1.mp3","isExplicit":false,"links":{"ids":["Art.7"]}})")), kSample);
  const std::pair<const char*, Track> rows[] = {
      {R"({"playbackSeconds":"215","explicit":"true","isStreamable":1})", Track()},
      {R"({"playbackSeconds":215.0,"explicit":null,"isStreamable":null})", Track()},
      {R"({"playbackSeconds":9223372036854775808,"isExplicit":true,"streamable":true})", Track()},
      {R"({"PlaybackSeconds":1,"ID":"tra.1","Name":"x","artistID":"Art.1","albumID":"a","previewUrl":"p"})", Track()},
      {R"({"id":5,"name":null,"artistId":["a"],"albumName":{},"artistName":1,"previewURL":true})", Track()},
      {R"({"playbackSeconds":-1,"explicit":false,"isStreamable":true})", Track("", "", -1, false, "", "", "", "", true, "")},
      {R"({"playbackSeconds":9223372036854775807})", Track("", "", INT64_MAX, false, "", "", "", "", false, "")},
      {R"({"explicit":true})", Track("", "", 0, true, "", "", "", "", false, "")},
      {R"({"id":"PS.1","albumId":"PS.2"})", Track("PS.1", "", 0, false, "", "", "PS.2", "", false, "")}};
  for (const auto& [raw, expected] : rows) EXPECT_EQ(Track::fromRaw(parse(raw)), expected) << raw;
  for (const char* text : {"null", R"([{"id":"tra.1"}])", R"("tra.1")"}) EXPECT_EQ(Track::fromRaw(parse(text)), Track()) << text;
  EXPECT_EQ(Track("alb.1", "alb.2", 0, false, "art.3", "", "alb.5", "", false, "tra.7").id, "Alb.1");
}

// Every field takes part in equality; strings compare canonically and equal tracks hash equal.
TEST(TrackEquality, EveryFieldTakesPartAndSetsDeduplicateCanonically) {
  std::vector<Track> variants(10, kSample);
  variants[0].id = "Tra.2", variants[1].name = "song", variants[2].playbackSeconds = 216, variants[3].isExplicit = false;
  variants[4].artistID = "Art.7", variants[5].artistName = "Artist ", variants[6].albumID = "Alb.9";
  variants[7].albumName = "", variants[8].isStreamable = false, variants[9].previewURL = "https://e.com/2.mp3";
  for (const Track& variant : variants) EXPECT_TRUE(!(variant == kSample) && !(kSample == variant)) << variant;
  Track composed = kSample, decomposed = kSample;
  composed.name = decomposed.previewURL = "caf\xC3\xA9";
  decomposed.name = composed.previewURL = "cafe\xCC\x81";
  EXPECT_EQ(std::hash<Track>{}(composed), std::hash<Track>{}(decomposed));
  const std::unordered_set<Track> tracks{kSample, Track::fromRaw(parse(R"({"id":"TRA.1"})")), composed, decomposed, variants[0]};
  EXPECT_EQ(tracks.size(), 4u);
  EXPECT_EQ(tracks.count(decomposed) + tracks.count(Track("Tra.1", "", 0, false, "", "", "", "", false, "")), 2u);
}

using Serializer = std::optional<std::vector<Track>> (*)(const Json&);
struct SerializerRow { Serializer serializer; const char* key; };
const SerializerRow kPlain[] = {{&TracksResponseToTracks, "tracks"}, {&PlaylistTracksResponseToTracks, "tracks"},
                                {&SearchTracksResponseToTracks, "data"}, {&ListeningHistoryResponseToTracksSerializer, "tracks"}};
const SerializerRow kLinked[] = {{&UserTopChartTracksResponseToTracksSerializer, "charts"}, {&FavoriteResponseToTracksSerializer, "favorites"}};
Json answer(std::string_view key, std::string_view items) { return parse("{\"" + std::string(key) + "\":" + std::string(items) + "}"); }
std::vector<Track> ids(std::initializer_list<const char*> list) {
  std::vector<Track> tracks(list.size());
  for (std::size_t i = 0; i < list.size(); ++i) tracks[i].id = list.begin()[i];
  return tracks;
}

TEST(PlainSerializers, EveryElementBecomesOneTrackInOrderAndOnlyTheTopLevelsFail) {
  for (const auto& [serializer, key] : kPlain) {
    SCOPED_TRACE(key);
    for (const char* items : {"null", R"({"id":"tra.1"})", R"([{"id":"tra.1"}, 5])", R"([[{"id":"tra.1"}]])"}) {
      EXPECT_EQ(serializer(answer(key, items)), std::nullopt) << items;
    }
    EXPECT_EQ(serializer(answer("items", R"([{"id":"tra.1"}])")), std::nullopt);
    EXPECT_EQ(serializer(parse(R"([{"id":"tra.1"}])")), std::nullopt);
    EXPECT_EQ(serializer(answer(key, "[]")), std::vector<Track>{});
    const char* many = R"([{"id":"tra.2"}, {}, {"id":"ALB.1"}, {"id":"3"}, {"id":"4"}, {"id":"5"}, {"id":"6"}])";
    EXPECT_EQ(serializer(answer(key, many)), ids({"Tra.2", "", "Alb.1", "3", "4", "5", "6"}));
  }
}

// The first track under "linked"."tracks" of each entry; entries of another shape are skipped.
TEST(LinkedSerializers, TakeTheFirstLinkedTrackOfEachEntryAndSkipOddEntries) {
  for (const auto& [serializer, key] : kLinked) {
    SCOPED_TRACE(key);
    for (const char* items : {"null", R"({"linked":{"tracks":[{"id":"tra.1"}]}})", R"([{"linked":{"tracks":[{}]}}, 1])"}) {
      EXPECT_EQ(serializer(answer(key, items)), std::nullopt) << items;
    }
    EXPECT_EQ(serializer(answer(key == std::string_view("charts") ? "favorites" : "charts", "[]")), std::nullopt);
    EXPECT_EQ(serializer(answer(key, R"([{}, {"linked": {"tracks": []}}])")), std::vector<Track>{});
    EXPECT_EQ(serializer(answer(key, R"([{"linked": {"tracks": [{"id": "tra.1"}]}}, {"id": "no linked member"},
        {"linked": {"tracks": [{"id": "tra.2"}, {"id": "tra.3"}]}}, {"linked": null}, {"linked": [{"tracks": [{}]}]},
        {"linked": {}}, {"linked": {"tracks": {"id": "tra.5"}}}, {"linked": {"tracks": [{"id": "tra.6"}, 7]}},
        {"linked": {"tracks": [{}], "albums": [{"id": "alb.1"}]}}, {"linked": {"tracks": [{"id": "ALB.9"}]}}])")),
              ids({"Tra.1", "Tra.2", "", "Alb.9"}));
  }
}

TEST(UserHintToUserID, ExplicitUserAsGivenWithoutAskingTheProviderOtherwiseTheProvidersUser) {
  struct FixedUser : CurrentUserProvider {
    explicit FixedUser(std::optional<std::string> guid) : guid(std::move(guid)) {}
    std::optional<std::string> userGuid() const override { return ++calls, guid; }
    std::optional<std::string> guid;
    mutable int calls = 0;
  };
  const FixedUser nobody(std::nullopt);
  EXPECT_TRUE(UserHintToUserID(UserHint::user("u-1"), nobody) == "u-1" && UserHintToUserID(UserHint::user(""), nobody).empty());
  EXPECT_EQ(nobody.calls, 0);
  EXPECT_EQ(UserHintToUserID(UserHint::currentUser(), FixedUser("amzn1.account.X")), "amzn1.account.X");
  EXPECT_DEATH((void)UserHintToUserID(UserHint::currentUser(), nobody), "nobody is signed in");
}

// Each field falls back to -1 on its own; the paging block given as the whole answer is not read.
TEST(Metadata, EachFieldFallsBackToMinusOneOnItsOwn) {
  const std::pair<const char*, Metadata> rows[] = {
      {"{}", {}}, {R"({"meta":{"query":{"limit":20,"offset":40},"returnedCount":17,"totalCount":57}})", {20, 40, 17, 57}},
      {R"({"meta":{"query":{"limit":0,"offset":0}}})", {0, 0, -1, -1}}, {R"({"meta":{"totalCount":0,"query":{"offset":3}}})", {-1, 3, -1, 0}},
      {R"({"meta":{"query":{"limit":"20","offset":2.0},"returnedCount":true,"totalCount":null}})", {}},
      {R"({"meta":{"query":[20,40],"returnedCount":5}})", {-1, -1, 5, -1}}, {R"({"meta":"20","returnedCount":5})", {}},
      {R"({"query":{"limit":1,"offset":2},"returnedCount":3,"totalCount":4})", {}}};
  for (const auto& [text, expected] : rows) EXPECT_EQ(V2ResponseToMetaData(parse(text)), expected) << text;
  EXPECT_EQ(V2ResponseToMetaData(parse(R"([{"meta":{"totalCount":1}}])")), std::nullopt);
  EXPECT_EQ(testing::PrintToString(Metadata{1, 2, 3, 4}), "Metadata{queryLimit 1, queryOffset 2, returnedCount 3, totalCount 4}");
}

TEST(PlaylistTracksResponseToPageTracks, NeedsATrackListAndKeepsThePagingBlockWithIt) {
  expectAbsent(PlaylistTracksResponseToPageTracks, {R"({"meta":{"totalCount":57}})", R"({"meta":{"totalCount":5},"tracks":{}})", "[]"});
  EXPECT_EQ(PlaylistTracksResponseToPageTracks(parse(R"({"meta":{"query":{"limit":2,"offset":4},"returnedCount":2,"totalCount":7},
      "tracks":[{"id":"tra.5"},{"id":"TRA.6"}]})")), (Page<std::vector<Track>>{{2, 4, 2, 7}, ids({"Tra.5", "Tra.6"})}));
  EXPECT_EQ(PlaylistTracksResponseToPageTracks(parse(R"({"tracks":[]})")), (Page<std::vector<Track>>{}));
}

TEST(GenreResponseToGenres, ReadsEachGenreInOrderWithMistypedMembersAsEmptyAndFailsOnlyOnTheTopLevels) {
  const auto genres = GenreResponseToGenres(parse(R"({"genres":[{"id":"G.21","name":"Rock","description":"Loud","type":"genre"},
      {"id":7,"name":null,"description":"Quiet"}, {"id":"xyz","name":["Pop"],"description":42}, {}]})"));
  std::string read;
  for (const Genre& genre : genres.value()) read += genre.id + "|" + genre.name + "|" + genre.description + ";";
  EXPECT_EQ(read, "g.21|Rock|Loud;||Quiet;xyz||;||;");
  EXPECT_EQ(GenreResponseToGenres(parse(R"({"genres":[]})")).value().size(), 0u);
  expectAbsent(GenreResponseToGenres, {R"({"genres":{}})", R"({"genres":[{}, 1]})", R"({"Genres":[]})", R"([{"genres":[]}])"});
  EXPECT_EQ(Genre::fromRaw(parse(R"({"id":"TAG.x"})")).id + Genre("G.1", "g.2", "TRA.3").description, "tag.xTRA.3");
}

PlaylistImage display(std::string id, bool isDefault, std::int64_t version = 0, std::string type = "displayImage") {
  return PlaylistImage::display(DisplayImage{std::move(id), version, isDefault, std::move(type)});
}
PlaylistImage giphy(std::string id) { return PlaylistImage::giphy(std::move(id)); }
using Images = std::vector<PlaylistImage>;

// The image type decides the case, exactly and case-sensitively; a display image defaults its
// mistyped members, a giphy image needs a string id.
TEST(PlaylistImageCreate, TheTypeDecidesTheCaseExactly) {
  const struct { const char* raw; bool isDisplay, isGiphy; std::optional<PlaylistImage> created; } rows[] = {
      {R"({"imageType":"giphyImage","id":"x"})", false, true, giphy("x")}, {R"({"imageType":"GiphyImage","id":"x"})", false, false, {}},
      {R"({"imageType":"giphyImage ","id":"x"})", false, false, {}}, {R"({"imageType":"giphyImage","id":7})", false, true, {}},
      {R"({"imageType":"DisplayImage","id":"d"})", false, false, {}}, {R"({"imageType":["giphyImage"],"id":"x"})", false, false, {}},
      {R"({"imageType":"displayImage","id":"ALB.1","version":-3,"isDefault":true})", true, false, display("ALB.1", true, -3)},
      {R"({"imageType":"displayImage","id":"d","version":"3","isDefault":1})", true, false, display("d", false)}};
  for (const auto& row : rows) {
    const JsonObject raw = object(row.raw);
    EXPECT_TRUE(IsRawDisplayImage(raw) == row.isDisplay && IsRawGiphyImage(raw) == row.isGiphy) << row.raw;
    EXPECT_EQ(PlaylistImage::create(raw), row.created) << row.raw;
  }
  EXPECT_EQ(DisplayImage::fromRaw(object(R"({"id":"d","version":2.5,"imageType":5})")), (DisplayImage{"d", 0, false, ""}));
}

TEST(PlaylistImagesResponse, SkipsWhatIsNotAnImageAndFailsOnlyOnTheTopLevels) {
  EXPECT_EQ(PlaylistImagesResponseToPlaylistImage(parse(R"({"images":[{"imageType":"giphyImage","id":"g1"},
      {"imageType":"GiphyImage","id":"g2"}, {}, {"imageType":"displayImage","id":"d1"}, {"imageType":"giphyImage"}]})")),
            (Images{giphy("g1"), display("d1", false)}));
  EXPECT_EQ(PlaylistImagesResponseToPlaylistImage(parse(R"({"images":[]})")), Images{});
  expectAbsent(PlaylistImagesResponseToPlaylistImage, {R"({"images":{}})", "[]", R"({"images":[1,{"imageType":"displayImage"}]})"});
}

TEST(PlaylistFromRaw, ReadsEveryFieldButTheTrackIdsAndDefaultsTheRest) {
  const Playlist playlist = Playlist::fromRaw(parse(R"({"id":"MP.77","name":"Late","privacy":"public","artistId":"u-1",
      "trackIds":["Tra.1"],"images":[{"imageType":"displayImage","id":"d1","isDefault":true},
      {"imageType":"giphyImage","id":"g1"},{"imageType":"coverImage","id":"c1"},{"imageType":"displayImage","id":"d2"}]})"));
  EXPECT_EQ(testing::PrintToString(playlist),
            R"(Playlist{id "mp.77", name "Late", trackIds absent, isPublic 1, ownerId "u-1", images [display(DisplayImage{)"
            R"(id "d1", version 0, isDefault 1, imageType "displayImage"}), giphy("g1"), display(DisplayImage{id "d2", )"
            R"(version 0, isDefault 0, imageType "displayImage"})]})");
  const struct { const char* raw; bool isPublic; std::optional<std::string> ownerId; } rows[] = {
      {R"({"privacy":"Public","artistId":""})", false, ""}, {R"({"privacy":"public ","artistId":5})", false, std::nullopt},
      {R"({"privacy":true,"ownerId":"x"})", false, std::nullopt}, {R"({"privacy":"public"})", true, std::nullopt}};
  for (const auto& row : rows) {
    EXPECT_EQ(Playlist::fromRaw(parse(row.raw)), Playlist("", "", std::nullopt, row.isPublic, row.ownerId)) << row.raw;
  }
  for (const char* text : {"null", R"("mp.1")", R"({"id":5,"name":["x"],"images":null})", R"({"images":{}})",
                           R"({"images":[{"imageType":"giphyImage","id":"g"},5]})"}) {
    EXPECT_EQ(Playlist::fromRaw(parse(text)), Playlist()) << text;
  }
  EXPECT_EQ(Playlist::fromRaw(parse(R"({"images":[{"imageType":"x"}]})")).images, Images{});
}

TEST(PlaylistImagesLookup, CustomImageSkipsDefaultsAndGiphyIdTakesTheFirst) {
  const auto with = [](std::optional<Images> images) { return Playlist("mp.1", "n", {}, false, {}, std::move(images)); };
  for (const auto& none : {with(Images{display("d1", true), display("d2", true)}), with(std::nullopt), with(Images{})}) {
    EXPECT_TRUE(none.getCustomImage() == std::nullopt && none.getGiphyImageID() == std::nullopt) << none;
  }
  const Playlist mixed = with(Images{display("d1", true), giphy("g1"), display("d2", false), display("d3", false), giphy("g2")});
  EXPECT_EQ(mixed.getCustomImage()->id, "d2");
  EXPECT_EQ(mixed.getGiphyImageID(), "g1");
}

TEST(PlaylistEquality, EveryFieldCountsAbsentDiffersFromEmptyAndOnlyTheIdIsNormalised) {
  const Playlist base("mp.1", "caf\u00e9", std::vector<std::string>{"Tra.1"}, true, "owner", Images{giphy("g")});
  EXPECT_EQ(base, Playlist("MP.1", "cafe\u0301", std::vector<std::string>{"Tra.1"}, true, "owner", Images{giphy("g")}));
  EXPECT_EQ(Playlist("PP.5", "tra.1", std::vector<std::string>{"tra.2"}, true, "MP.3"),
            Playlist("pp.5", "tra.1", std::vector<std::string>{"tra.2"}, true, "MP.3"));
  EXPECT_EQ(testing::PrintToString(Playlist("mp.1", "n", std::vector<std::string>{"a", "b"}, false)),
            R"(Playlist{id "mp.1", name "n", trackIds ["a", "b"], isPublic 0, ownerId absent, images absent})");
  std::vector<Playlist> variants(11, base);
  variants[0].id = "mp.2", variants[1].name = "Cafe", variants[2].trackIds = std::nullopt, variants[3].trackIds = std::vector<std::string>{};
  variants[4].trackIds = std::vector<std::string>{"Tra.1", "Tra.1"}, variants[5].isPublic = false, variants[6].ownerId = std::nullopt;
  variants[7].ownerId = "", variants[8].images = std::nullopt, variants[9].images = Images{};
  variants[10].images = Images{display("g", false)};
  for (const Playlist& variant : variants) EXPECT_TRUE(!(base == variant) && !(variant == base)) << variant;
}

TEST(PlaylistsResponse, MapsEveryElementInOrderAndFailsOnlyOnTheTopLevels) {
  EXPECT_EQ(PlaylistsResponseToPlaylists(parse(R"({"playlists":[{"id":"mp.2","name":"B"},{},{"id":"PP.1"}]})")),
            (std::vector<Playlist>{Playlist("mp.2", "B", std::nullopt, false), Playlist(), Playlist("pp.1", "", std::nullopt, false)}));
  EXPECT_EQ(PlaylistsResponseToPlaylists(parse(R"({"playlists":[]})")), std::vector<Playlist>{});
  expectAbsent(PlaylistsResponseToPlaylists, {R"({"playlists":{}})", R"({"playlists":[{},[]]})", R"({"playlist":[]})", "[]"});
}

GiphyImageInfo info(float width, float height, std::string url) { return GiphyImageInfo{width, height, std::move(url)}; }

Giphy withImages(GiphyImages images, std::string id = "a") { return Giphy{std::move(id), std::move(images), {}, {}, {}, {}}; }

TEST(GiphyRatingAndMode, RawValuesAreExact) {
  const std::pair<GiphyRating, std::string_view> ratings[] = {
      {GiphyRating::y, "y"}, {GiphyRating::g, "g"}, {GiphyRating::pg, "pg"}, {GiphyRating::pg13, "pg-13"}, {GiphyRating::r, "r"}};
  for (const auto& [rating, raw] : ratings) EXPECT_TRUE(rawValue(rating) == raw && giphyRatingFromRaw(raw) == rating) << raw;
  for (const char* unknown : {"", "G", "pg13", "PG-13", " g"}) EXPECT_EQ(giphyRatingFromRaw(unknown), std::nullopt) << unknown;
  EXPECT_TRUE(giphyModeFromRaw(0) == GiphyMode::still && giphyModeFromRaw(1) == GiphyMode::animated);
  for (int raw : {2, -1, std::numeric_limits<int>::min()}) EXPECT_EQ(giphyModeFromRaw(raw), std::nullopt) << raw;
}

TEST(GiphyImageInfoFromRaw, DimensionsAreReadOnlyFromNumericStrings) {
  const std::pair<const char*, float> rows[] = {
      {R"("480")", 480}, {R"("270.5")", 270.5f}, {R"("+480")", 480}, {R"("1e3")", 1000}, {R"("-2")", -2}, {R"("+")", 0},
      {"480", 0}, {R"("")", 0}, {R"(" 480")", 0}, {R"("480px")", 0}, {R"("+-1")", 0}, {R"("1e50")", 0}, {"null", 0}};
  for (const auto& [raw, expected] : rows) {
    const auto parsed = GiphyImageInfo::fromRaw(object(std::string(R"({"width":)") + raw + R"(,"height":)" + raw + "}"));
    EXPECT_TRUE(parsed.width == expected && parsed.height == expected) << raw;
  }
  EXPECT_TRUE(std::isnan(GiphyImageInfo::fromRaw(object(R"({"width":"nan"})")).width));
}

TEST(GiphyImageInfoFromRaw, AddressesMoveToTheProxyHostUnlessTheyCannotCarryOne) {
  const std::pair<const char*, const char*> rows[] = {
      {R"("https://media2.giphy.com/media/abc/200w.gif?cid=9#top")", "https://proxy.test/media/abc/200w.gif?cid=9#top"},
      {R"("https://user@media.giphy.com:8443/a.gif")", "https://user@proxy.test:8443/a.gif"},
      {R"("//media.giphy.com/a.gif")", "//proxy.test/a.gif"}, {R"("/media/a.gif")", "//proxy.test/media/a.gif"},
      {R"("https://")", "https://proxy.test"},
      // not URI references, or a relative path that cannot follow a host: kept verbatim
      {R"("https://media.giphy.com/a b.gif")", "https://media.giphy.com/a b.gif"},
      {R"("media/a.gif")", "media/a.gif"}, {R"("mailto:p@giphy.com")", "mailto:p@giphy.com"}, {R"("")", ""}, {"null", ""}, {"5", ""}};
  for (const auto& [url, expected] : rows) {
    EXPECT_EQ(GiphyImageInfo::fromRaw(object(std::string(R"({"url":)") + url + "}"), "proxy.test").urlString, expected) << url;
  }
  EXPECT_EQ(GiphyImageInfo::fromRaw(object(R"({"url":"https://media.giphy.com/a.gif"})")).urlString,
            "https://" + std::string(kDefaultGiphyMediaProxyHost) + "/a.gif");
  EXPECT_EQ(info(1, 1, "//proxy.test/a.gif").url()->string(), "//proxy.test/a.gif");
  EXPECT_EQ(info(1, 1, "a b.gif").url(), std::nullopt);
}

constexpr const char* kPicture = R"({
  "type": "gif", "id": "xT9", "url": "https://giphy.com/gifs/xT9", "bitly_url": "https://gph.is/1", "rating": "pg-13",
  "images": {
    "original": {"width": "480", "height": "270", "url": "https://media.giphy.com/x/giphy.gif"},
    "fixed_width_still": {"width": "200", "height": "113", "url": "https://media.giphy.com/x/200w_s.gif"}, "x": {}}})";

// Every field, the renditions in the answer's order, each seen by the filter after the rewrite.
TEST(GiphyFromRaw, ReadsEveryFieldAndFiltersTheRenditionsInTheAnswersOrder) {
  std::vector<std::string> seen;
  const auto filter = [&seen](std::string_view key, const GiphyImageInfo& image) {
    seen.push_back(std::string(key) + " " + image.urlString);
    return key != "original";
  };
  const Giphy giphy = Giphy::fromRaw(object(kPicture), filter, "proxy.test");
  EXPECT_EQ(testing::PrintToString(giphy), R"(Giphy{id "xT9", images {fixed_width_still: 200x113 "https://proxy.test/x/200w_s.gif", )"
            R"(x: 0x0 ""}, rating pg-13, web "https://giphy.com/gifs/xT9", bitly "https://gph.is/1", bitly gif none})");
  EXPECT_EQ(seen, (std::vector<std::string>{"original https://proxy.test/x/giphy.gif",
                                            "fixed_width_still https://proxy.test/x/200w_s.gif", "x "}));
  EXPECT_EQ(*giphy.image("fixed_width_still"), info(200, 113, "https://proxy.test/x/200w_s.gif"));
  EXPECT_EQ(giphy.image("Fixed_width_still"), nullptr);
}

TEST(GiphyFromRaw, MissingOrMistypedOptionalMembersAreAbsentAndOneOddRenditionVoidsThemAll) {
  for (const char* text : {R"({"id":"a","url":null,"bitly_url":1,"bitly_gif_url":[],"rating":"nc-17"})",
                           R"({"id":"a","rating":1,"images":null})", R"({"id":"a","images":"original"})",
                           R"({"id":"a","images":{"original":{"width":"1"},"odd":5}})"}) {
    EXPECT_EQ(Giphy::fromRaw(object(text)), withImages({})) << text;
  }
}

// Stored display images and giphy pictures that cannot be named stop the program, wherever they are met.
TEST(RecordsDeathTest, AnImageOrPictureWithoutAStringIdStopsTheProgram) {
  EXPECT_DEATH((void)PlaylistImagesResponseToPlaylistImage(parse(R"({"images":[{"imageType":"giphyImage","id":"g"},
      {"imageType":"displayImage","id":5}]})")), "DisplayImage: a display image without a string \"id\"");
  EXPECT_DEATH((void)Giphy::fromRaw(object(R"({"id":42})")), "Giphy picture without a string \"id\"");
  EXPECT_DEATH((void)GiphysResponseToGiphy(parse(R"({"data":[{"id":"a"},{"id":null}]})")), "Giphy picture without a string");
}

TEST(GiphyGetBestFit, ClosestWidthOfTheModeWithTiesToTheFirstInTheAnswer) {
  const Giphy giphy = withImages({{"downsized", info(300, 200, "d")}, {"fixed_width_still", info(200, 100, "s200")},
                                  {"original", info(480, 270, "o")}, {"480w_still", info(480, 270, "s480")},
                                  {"fixed_width_small_still", info(100, 50, "s100")}, {"still_preview", info(1000, 500, "s1000")}});
  const struct { Giphy::Mode mode; float width; const char* expected; } rows[] = {
      {Giphy::Mode::still, 200, "fixed_width_still"}, {Giphy::Mode::still, 340, "fixed_width_still"},  // a tie: the first
      {Giphy::Mode::still, 340.5f, "480w_still"}, {Giphy::Mode::still, 150, "fixed_width_still"},      // a tie
      {Giphy::Mode::still, 149, "fixed_width_small_still"}, {Giphy::Mode::still, 0, "fixed_width_small_still"},
      {Giphy::Mode::still, 10000, "still_preview"}, {Giphy::Mode::animated, 390, "downsized"},       // a tie
      {Giphy::Mode::animated, 391, "original"}, {Giphy::Mode::animated, 300.5f, "downsized"}};
  for (const auto& row : rows) {
    const auto best = giphy.getBestFit(row.mode, row.width);
    ASSERT_TRUE(best.has_value()) << row.width;
    EXPECT_TRUE(best->first == row.expected && best->second == *giphy.image(best->first)) << row.width << " " << best->first;
  }
  EXPECT_EQ(withImages({{"original", info(1, 1, "o")}, {"Still", info(1, 1, "s")}}).getBestFit(Giphy::Mode::still, 1), std::nullopt);
  EXPECT_EQ(withImages({{"still", info(1, 1, "s")}}).getBestFit(Giphy::Mode::animated, 1), std::nullopt);
}

TEST(GiphyEquality, ComparesImagesAsADictionaryAndTheRestFieldByField) {
  const Giphy base{"caf\u00e9", {{"a", info(1, 1, "x\u00e9")}, {"b", info(2, 1, "y")}}, GiphyRating::g, "w", "b", std::nullopt};
  Giphy reordered = base;
  std::swap(reordered.images[0], reordered.images[1]);
  reordered.id = "cafe\u0301", reordered.images[1].second.urlString = "xe\u0301";
  EXPECT_EQ(base, reordered);
  std::vector<Giphy> different(7, base);
  different[0].images.pop_back(), different[1].images[1].second.width = 3, different[2].images[1].first = "c";
  different[3].rating = std::nullopt, different[4].webURLString = std::nullopt, different[5].bitlyWebGifURLString = "";
  different[6].bitlyWebURLString = "B";
  for (const Giphy& other : different) EXPECT_TRUE(base != other && other != base) << other;
}

TEST(GiphyResponses, TakeTheObjectOrEveryObjectUnderData) {
  EXPECT_EQ(GiphyResponseToGiphy(parse(std::string(R"({"data":)") + kPicture + "}")), Giphy::fromRaw(object(kPicture)));
  expectAbsent([](const Json& input) { return GiphyResponseToGiphy(input); },
               {R"({"data":[{"id":"a"}]})", R"({"data":null})", R"([{"id":"a"}])"});
  const auto pictures = GiphysResponseToGiphy(parse(R"({"data":[{"id":"b"},{"id":"a","images":{"x":{}}}]})"),
                                              [](std::string_view, const GiphyImageInfo&) { return false; });
  EXPECT_EQ(pictures, (std::vector<Giphy>{withImages({}, "b"), withImages({})}));
  EXPECT_EQ(GiphysResponseToGiphy(parse(R"({"data":[]})")), std::vector<Giphy>{});
  expectAbsent([](const Json& input) { return GiphysResponseToGiphy(input); },
               {R"({"data":{"id":"a"}})", R"({"data":[{"id":"a"},5]})", "[]"});
}

}  // namespace
}  // namespace applogic
