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

struct FixRow {
  const char* id;
  const char* fixed;
  friend void PrintTo(const FixRow& row, std::ostream* out) { *out << '"' << row.id << '"'; }
};

class FixId : public ::testing::TestWithParam<FixRow> {};

TEST_P(FixId, GivesTheLeadingPrefixItsCanonicalCaseOnly) {
  EXPECT_EQ(MOPrefix::fixId(GetParam().id), GetParam().fixed);
}

INSTANTIATE_TEST_SUITE_P(
    EveryKind, FixId,
    ::testing::Values(FixRow{"tra.123", "Tra.123"}, FixRow{"ALB.9", "Alb.9"},
                      FixRow{"aRT.5", "Art.5"}, FixRow{"art.0", "Art.0"},
                      FixRow{"MP.1", "mp.1"}, FixRow{"PP.5", "pp.5"}, FixRow{"Po.2", "po.2"},
                      FixRow{"pS.3", "ps.3"}, FixRow{"G.4", "g.4"}, FixRow{"TAG.rock", "tag.rock"},
                      FixRow{"Tra.1", "Tra.1"}));

INSTANTIATE_TEST_SUITE_P(
    Boundaries, FixId,
    ::testing::Values(FixRow{"", ""}, FixRow{"xyz", "xyz"},
                      // an id that is nothing but a prefix is still fixed
                      FixRow{"tra.", "Tra."}, FixRow{"G.", "g."},
                      // shorter than any prefix, or the prefix without its dot
                      FixRow{"tra", "tra"}, FixRow{"t", "t"}, FixRow{"trax1", "trax1"},
                      // only the leading prefix is considered and rewritten
                      FixRow{"g.tra.5", "g.tra.5"}, FixRow{"tra.tra.1", "Tra.tra.1"},
                      FixRow{"ALB.ALB.", "Alb.ALB."}, FixRow{" tra.1", " tra.1"},
                      FixRow{"xtra.1", "xtra.1"}, FixRow{"G.\r\n", "g.\r\n"}));

// Characters are user-perceived characters: a mark that joins the prefix's last character makes
// that character something else than the prefix's.
INSTANTIATE_TEST_SUITE_P(
    Graphemes, FixId,
    ::testing::Values(
        // combining acute on the dot
        FixRow{"tra.\xCC\x81"
               "1",
               "tra.\xCC\x81"
               "1"},
        // combining acute later in the id
        FixRow{"tra.1\xCC\x81", "Tra.1\xCC\x81"},
        // combining acute right after a prefix letter: the bytes no longer spell the prefix
        FixRow{"tra\xCC\x81.1", "tra\xCC\x81.1"},
        // precomposed a-acute
        FixRow{"tr\xC3\xA1.1", "tr\xC3\xA1.1"},
        // zero-width joiner and a spacing mark (Devanagari visarga) both extend the dot
        FixRow{"tra.\xE2\x80\x8D", "tra.\xE2\x80\x8D"}, FixRow{"PS.\xE0\xA4\x83", "PS.\xE0\xA4\x83"},
        // an emoji and a flag start characters of their own
        FixRow{"TRA.\xF0\x9F\x98\x80", "Tra.\xF0\x9F\x98\x80"},
        FixRow{"PP.\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7", "pp.\xF0\x9F\x87\xAB\xF0\x9F\x87\xB7"},
        // fullwidth letters lower-case to fullwidth letters, never to ASCII ones
        FixRow{"\xEF\xBC\xB4\xEF\xBC\xB2\xEF\xBC\xA1.1", "\xEF\xBC\xB4\xEF\xBC\xB2\xEF\xBC\xA1.1"},
        // invalid UTF-8 after the prefix counts as characters of its own
        FixRow{"TRA.\xFF\xFE", "Tra.\xFF\xFE"}, FixRow{"\xFFtra.", "\xFFtra."}));

TEST(FixId, DoesNotCopyAnIdThatIsMovedIn) {
  std::string id = "tra.123456789012345678901234567890";
  const char* storage = id.data();
  const std::string fixed = MOPrefix::fixId(std::move(id));
  EXPECT_EQ(fixed, "Tra.123456789012345678901234567890");
  EXPECT_EQ(fixed.data(), storage);
}

struct KindRow {
  const char* id;
  const char* kind;  // the one predicate expected true, or "" for none
  friend void PrintTo(const KindRow& row, std::ostream* out) { *out << '"' << row.id << '"'; }
};

class IdKind : public ::testing::TestWithParam<KindRow> {};

TEST_P(IdKind, OnlyTheMatchingPredicateHolds) {
  const std::string_view id = GetParam().id;
  const std::string_view kind = GetParam().kind;
  EXPECT_EQ(MOPrefix::isTrackId(id), kind == "track");
  EXPECT_EQ(MOPrefix::isAlbumId(id), kind == "album");
  EXPECT_EQ(MOPrefix::isArtistId(id), kind == "artist");
  EXPECT_EQ(MOPrefix::isEditorialId(id), kind == "editorial");
  EXPECT_EQ(MOPrefix::isStationId(id), kind == "station");
  EXPECT_EQ(MOPrefix::isGenreId(id), kind == "genre");
  EXPECT_EQ(MOPrefix::isTagId(id), kind == "tag");
  EXPECT_EQ(MOPrefix::isPlaylistId(id), kind == "playlist");
}

INSTANTIATE_TEST_SUITE_P(
    Rows, IdKind,
    ::testing::Values(KindRow{"Tra.1", "track"}, KindRow{"TRA.", "track"},
                      KindRow{"alb.1", "album"}, KindRow{"ART.0", "artist"},
                      KindRow{"Art.0", "artist"}, KindRow{"art.12", "artist"},
                      KindRow{"PO.1", "editorial"}, KindRow{"ps.1", "station"},
                      KindRow{"g.1", "genre"}, KindRow{"TaG.x", "tag"},
                      KindRow{"MP.1", "playlist"}, KindRow{"pp.1", "playlist"},
                      KindRow{"mP.", "playlist"}, KindRow{"po.1", "editorial"},
                      KindRow{"", ""}, KindRow{"xyz", ""}, KindRow{"tra", ""}, KindRow{"g", ""},
                      KindRow{"ta.1", ""}, KindRow{"p.1", ""}, KindRow{"g.tra.5", "genre"},
                      KindRow{"tra.\xCC\x81", ""}, KindRow{"mp.\xE2\x80\x8D", ""}));

TEST(FixIdLists, OptionalAndListFormsApplyFixIdElementwise) {
  EXPECT_EQ(MOPrefix::fixOptionalId(std::nullopt), std::nullopt);
  EXPECT_EQ(MOPrefix::fixOptionalId("tra.1"), "Tra.1");
  EXPECT_EQ(MOPrefix::fixOptionalId(""), "");
  EXPECT_EQ(MOPrefix::fixIds({"tra.1", "xyz", "ALB.2", ""}),
            (std::vector<std::string>{"Tra.1", "xyz", "Alb.2", ""}));
  EXPECT_TRUE(MOPrefix::fixIds({}).empty());
}

struct PayloadRow {
  const char* payload;
  const char* key;
  const char* expected;
  friend void PrintTo(const PayloadRow& row, std::ostream* out) { *out << row.payload; }
};

class FixPayloadId : public ::testing::TestWithParam<PayloadRow> {};

TEST_P(FixPayloadId, RewritesOnlyAStringUnderTheKey) {
  const auto& row = GetParam();
  const JsonObject payload = parse(row.payload).get_object();
  EXPECT_EQ(MOPrefix::fixPayloadId(payload, row.key), parse(row.expected).get_object());
}

INSTANTIATE_TEST_SUITE_P(
    Rows, FixPayloadId,
    ::testing::Values(
        PayloadRow{R"({"id":"tra.1","name":"tra.x"})", "id", R"({"id":"Tra.1","name":"tra.x"})"},
        PayloadRow{R"({"guid":"pp.7","id":"tra.1"})", "guid", R"({"guid":"pp.7","id":"tra.1"})"},
        PayloadRow{R"({"guid":"PP.7","id":"tra.1"})", "guid", R"({"guid":"pp.7","id":"tra.1"})"},
        PayloadRow{R"({"id":5})", "id", R"({"id":5})"},
        PayloadRow{R"({"id":null})", "id", R"({"id":null})"},
        PayloadRow{R"({"id":["tra.1"]})", "id", R"({"id":["tra.1"]})"},
        PayloadRow{R"({"name":"tra.1"})", "id", R"({"name":"tra.1"})"},
        PayloadRow{R"({"Id":"tra.1"})", "id", R"({"Id":"tra.1"})"},
        PayloadRow{R"({})", "id", R"({})"}));

TEST(FixPayloadIdTest, KeepsAMovedInPayloadWithoutCopying) {
  JsonObject payload = parse(R"({"id":"tra.1234567890123456789012345","n":1})").get_object();
  const char* storage = payload["id"].get_string().data();
  const JsonObject fixed = MOPrefix::fixPayloadId(std::move(payload), "id");
  const auto* id = fixed.if_contains("id");
  ASSERT_TRUE(id != nullptr && id->is_string());
  EXPECT_EQ(id->get_string(), "Tra.1234567890123456789012345");
  EXPECT_EQ(id->get_string().data(), storage);
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
