#include "applogic/records/mo_prefix.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

namespace applogic {
namespace {

Json parse(std::string_view text) { return boost::json::parse(text); }

TEST(MOPrefixConstants, HaveTheirCanonicalSpellingAndAreCreatedOnce) {
  struct Row {
    const std::string& (*accessor)();
    const char* expected;
  };
  const Row rows[] = {{&MOPrefix::genre, "g."},
                      {&MOPrefix::artist, "Art."},
                      {&MOPrefix::album, "Alb."},
                      {&MOPrefix::editorial, "po."},
                      {&MOPrefix::programmedStation, "ps."},
                      {&MOPrefix::publishedPlaylist, "pp."},
                      {&MOPrefix::memberPlaylist, "mp."},
                      {&MOPrefix::track, "Tra."},
                      {&MOPrefix::variousArtist, "Art.0"},
                      {&MOPrefix::tag, "tag."}};
  for (const Row& row : rows) {
    EXPECT_EQ(row.accessor(), row.expected);
    EXPECT_EQ(&row.accessor(), &row.accessor()) << row.expected;
  }
}

// fixId gives the leading prefix its canonical case, and touches nothing else.
TEST(FixId, EveryKindAndTheBoundaries) {
  const std::pair<const char*, const char*> rows[] = {
      // every kind
      {"tra.123", "Tra.123"}, {"ALB.9", "Alb.9"},
      {"aRT.5", "Art.5"}, {"art.0", "Art.0"},
      {"MP.1", "mp.1"}, {"PP.5", "pp.5"}, {"Po.2", "po.2"},
      {"pS.3", "ps.3"}, {"G.4", "g.4"}, {"TAG.rock", "tag.rock"},
      {"Tra.1", "Tra.1"},
      // boundaries
      {"", ""}, {"xyz", "xyz"},
      // an id that is nothing but a prefix is still fixed
      {"tra.", "Tra."}, {"G.", "g."},
      // shorter than any prefix, or the prefix without its dot
      {"tra", "tra"}, {"t", "t"}, {"trax1", "trax1"},
      // only the leading prefix is considered and rewritten
      {"g.tra.5", "g.tra.5"}, {"tra.tra.1", "Tra.tra.1"},
      {"ALB.ALB.", "Alb.ALB."}, {" tra.1", " tra.1"},
      {"xtra.1", "xtra.1"}, {"G.\r\n", "g.\r\n"},
      // Characters are user-perceived characters: a mark that joins the prefix's last character
      // makes that character something else than the prefix's.
      // combining acute on the dot
      {"tra.\xCC\x81" "1", "tra.\xCC\x81" "1"},
      // combining acute later in the id
      {"tra.1\xCC\x81", "Tra.1\xCC\x81"},
      // combining acute right after a prefix letter: the bytes no longer spell the prefix
      {"tra\xCC\x81.1", "tra\xCC\x81.1"},
      // precomposed a-acute
      {"tr\xC3\xA1.1", "tr\xC3\xA1.1"},
      // zero-width joiner and a spacing mark (Devanagari visarga) both extend the dot
      {"tra.\xE2\x80\x8D", "tra.\xE2\x80\x8D"}, {"PS.\xE0\xA4\x83", "PS.\xE0\xA4\x83"},
      // an emoji and a flag start characters of their own
      {"TRA.\xF0\x9F\x98\x80", "Tra.\xF0\x9F\x98\x80"},
      {"PP.\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7", "pp.\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7"},
      // fullwidth letters lower-case to fullwidth letters, never to ASCII ones
      {"\xEF\xBC\xB4\xEF\xBC\xB2\xEF\xBC\xA1.1", "\xEF\xBC\xB4\xEF\xBC\xB2\xEF\xBC\xA1.1"},
      // invalid UTF-8 after the prefix counts as characters of its own
      {"TRA.\xFF\xFE", "Tra.\xFF\xFE"}, {"\xFFtra.", "\xFFtra."}};
  for (const auto& [id, fixed] : rows) EXPECT_EQ(MOPrefix::fixId(id), fixed) << '"' << id << '"';
}

// Only the predicate of the id's kind holds ("" for none).
TEST(IdKind, OnlyTheMatchingPredicateHolds) {
  const std::pair<std::string_view, std::string_view> rows[] = {
      {"Tra.1", "track"}, {"TRA.", "track"},
      {"alb.1", "album"}, {"ART.0", "artist"},
      {"Art.0", "artist"}, {"art.12", "artist"},
      {"PO.1", "editorial"}, {"ps.1", "station"},
      {"g.1", "genre"}, {"TaG.x", "tag"},
      {"MP.1", "playlist"}, {"pp.1", "playlist"},
      {"mP.", "playlist"}, {"po.1", "editorial"},
      {"", ""}, {"xyz", ""}, {"tra", ""}, {"g", ""},
      {"ta.1", ""}, {"p.1", ""}, {"g.tra.5", "genre"},
      {"tra.\xCC\x81", ""}, {"mp.\xE2\x80\x8D", ""}};
  for (const auto& [id, kind] : rows) {
    SCOPED_TRACE('"' + std::string(id) + '"');
    EXPECT_EQ(MOPrefix::isTrackId(id), kind == "track");
    EXPECT_EQ(MOPrefix::isAlbumId(id), kind == "album");
    EXPECT_EQ(MOPrefix::isArtistId(id), kind == "artist");
    EXPECT_EQ(MOPrefix::isEditorialId(id), kind == "editorial");
    EXPECT_EQ(MOPrefix::isStationId(id), kind == "station");
    EXPECT_EQ(MOPrefix::isGenreId(id), kind == "genre");
    EXPECT_EQ(MOPrefix::isTagId(id), kind == "tag");
    EXPECT_EQ(MOPrefix::isPlaylistId(id), kind == "playlist");
  }
}

TEST(FixIdLists, OptionalAndListFormsApplyFixIdElementwise) {
  EXPECT_EQ(MOPrefix::fixOptionalId(std::nullopt), std::nullopt);
  EXPECT_EQ(MOPrefix::fixOptionalId("tra.1"), "Tra.1");
  EXPECT_EQ(MOPrefix::fixOptionalId(""), "");
  EXPECT_EQ(MOPrefix::fixIds({"tra.1", "xyz", "ALB.2", ""}),
            (std::vector<std::string>{"Tra.1", "xyz", "Alb.2", ""}));
  EXPECT_TRUE(MOPrefix::fixIds({}).empty());
}

TEST(FixPayloadId, RewritesOnlyAStringUnderTheKey) {
  const struct {
    const char* payload;
    const char* key;
    const char* expected;
  } rows[] = {
      {R"({"id":"tra.1","name":"tra.x"})", "id", R"({"id":"Tra.1","name":"tra.x"})"},
      {R"({"guid":"pp.7","id":"tra.1"})", "guid", R"({"guid":"pp.7","id":"tra.1"})"},
      {R"({"guid":"PP.7","id":"tra.1"})", "guid", R"({"guid":"pp.7","id":"tra.1"})"},
      {R"({"id":5})", "id", R"({"id":5})"},
      {R"({"id":null})", "id", R"({"id":null})"},
      {R"({"id":["tra.1"]})", "id", R"({"id":["tra.1"]})"},
      {R"({"name":"tra.1"})", "id", R"({"name":"tra.1"})"},
      {R"({"Id":"tra.1"})", "id", R"({"Id":"tra.1"})"},
      {R"({})", "id", R"({})"}};
  for (const auto& row : rows) {
    EXPECT_EQ(MOPrefix::fixPayloadId(parse(row.payload).get_object(), row.key), parse(row.expected).get_object())
        << row.payload;
  }
}

TEST(FixOptionalPayloadId, IsAbsentWhenThePayloadOrTheKeyIsAbsent) {
  const JsonObject payload = parse(R"({"id":"tra.1"})").get_object();
  EXPECT_EQ(MOPrefix::fixOptionalPayloadId(payload, std::nullopt), std::nullopt);
  EXPECT_EQ(MOPrefix::fixOptionalPayloadId(std::nullopt, "id"), std::nullopt);
  EXPECT_EQ(MOPrefix::fixOptionalPayloadId(std::nullopt, std::nullopt), std::nullopt);
  EXPECT_EQ(MOPrefix::fixOptionalPayloadId(payload, "id"), parse(R"({"id":"Tra.1"})").get_object());
  EXPECT_EQ(MOPrefix::fixOptionalPayloadId(payload, "other"), payload);
}

TEST(FixPayloadIds, FixesObjectsInOrderAndDropsEverythingElse) {
  const JsonArray payload = parse(R"([{"id":"alb.1"}, "bare", {"id":5}])").get_array();
  EXPECT_EQ(MOPrefix::fixPayloadIds(payload, "id"), parse(R"([{"id":"Alb.1"}, {"id":5}])").get_array());

  const JsonArray mixed =
      parse(R"([1, null, {"id":"mp.1"}, [{"id":"tra.1"}], {"id":"MP.2"}, true, {}])").get_array();
  EXPECT_EQ(MOPrefix::fixPayloadIds(mixed, "id"),
            parse(R"([{"id":"mp.1"}, {"id":"mp.2"}, {}])").get_array());

  EXPECT_TRUE(MOPrefix::fixPayloadIds(parse(R"(["a", 1])").get_array(), "id").empty());
  EXPECT_TRUE(MOPrefix::fixPayloadIds(JsonArray(), "id").empty());
}

TEST(FixOptionalPayloadIds, IsAbsentWhenThePayloadOrTheKeyIsAbsent) {
  const JsonArray payload = parse(R"([{"id":"alb.1"}, 2])").get_array();
  EXPECT_EQ(MOPrefix::fixOptionalPayloadIds(payload, std::nullopt), std::nullopt);
  EXPECT_EQ(MOPrefix::fixOptionalPayloadIds(std::nullopt, "id"), std::nullopt);
  EXPECT_EQ(MOPrefix::fixOptionalPayloadIds(payload, "id"), parse(R"([{"id":"Alb.1"}])").get_array());
}

}  // namespace
}  // namespace applogic
