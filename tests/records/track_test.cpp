#include "applogic/records/track.h"

#include <unordered_set>

#include <boost/json.hpp>
#include <gtest/gtest.h>

namespace applogic {
namespace {

Json parse(std::string_view text) { return boost::json::parse(text); }

Track sampleTrack() {
  return Track("Tra.1", "Song", 215, true, "art.7", "Artist", "alb.9", "Album", true,
               "https://example.com/1.mp3");
}

TEST(TrackFromRaw, EmptyObjectGivesDefaults) {
  EXPECT_EQ(Track::fromRaw(JsonObject()), Track("", "", 0, false, "", "", "", "", false, ""));
  EXPECT_EQ(Track::fromRaw(JsonObject()), Track());
}

TEST(TrackFromRaw, ReadsEveryFieldAndIgnoresOtherMembers) {
  const Track track = Track::fromRaw(parse(R"({
      "type": "track", "id": "tra.1", "name": "Song", "playbackSeconds": 215, "explicit": true,
      "artistId": "art.7", "artistName": "Artist", "albumId": "alb.9", "albumName": "Album",
      "isStreamable": true, "previewURL": "https://example.com/1.mp3",
      "isExplicit": false, "links": {"artists": {"ids": ["Art.7"]}}, "index": 3})"));
  EXPECT_EQ(track.id, "Tra.1");
  EXPECT_EQ(track.artistID, "art.7");  // artist and album ids are kept as received
  EXPECT_EQ(track.albumID, "alb.9");
  EXPECT_EQ(track, sampleTrack());
}

TEST(TrackFromRaw, NonObjectValuesReadAsEmptyObjects) {
  for (const char* text : {"null", "[]", R"([{"id":"tra.1"}])", R"("tra.1")", "5", "true"}) {
    EXPECT_EQ(Track::fromRaw(parse(text)), Track()) << text;
  }
  EXPECT_EQ(Track::fromRaw(parse(R"({"id":"tra.1"})")).id, "Tra.1");
}

Track withSeconds(std::int64_t seconds) {
  Track track;
  track.playbackSeconds = seconds;
  return track;
}

Track withFlags(bool isExplicit, bool isStreamable) {
  Track track;
  track.isExplicit = isExplicit;
  track.isStreamable = isStreamable;
  return track;
}

Track withStrings(std::string id, std::string name, std::string artistID) {
  Track track;
  track.id = std::move(id);
  track.name = std::move(name);
  track.artistID = std::move(artistID);
  return track;
}

TEST(TrackFromRaw, MistypedMembersCountAsMissing) {
  const std::pair<const char*, Track> rows[] = {
      {R"({"playbackSeconds":215})", withSeconds(215)},
      {R"({"playbackSeconds":"215"})", withSeconds(0)},
      {R"({"playbackSeconds":215.0})", withSeconds(0)},
      {R"({"playbackSeconds":215.5})", withSeconds(0)},
      {R"({"playbackSeconds":true})", withSeconds(0)},
      {R"({"playbackSeconds":null})", withSeconds(0)},
      {R"({"playbackSeconds":-1})", withSeconds(-1)},
      {R"({"playbackSeconds":9223372036854775807})", withSeconds(9223372036854775807)},
      {R"({"playbackSeconds":9223372036854775808})", withSeconds(0)},
      {R"({"PlaybackSeconds":215})", withSeconds(0)},
      {R"({"explicit":true,"isStreamable":true})", withFlags(true, true)},
      {R"({"explicit":"true","isStreamable":"true"})", withFlags(false, false)},
      {R"({"explicit":1,"isStreamable":1})", withFlags(false, false)},
      {R"({"explicit":null,"isStreamable":false})", withFlags(false, false)},
      {R"({"isExplicit":true,"streamable":true})", withFlags(false, false)},
      {R"({"explicit":false,"isStreamable":true})", withFlags(false, true)},
      {R"({"id":5,"name":null,"artistId":["a"]})", withStrings("", "", "")},
      {R"({"id":"PS.1","name":"","artistId":"art.1"})", withStrings("ps.1", "", "art.1")},
      // keys are case-sensitive: the record's spelling is not the answer's
      {R"({"ID":"tra.1","Name":"x","artistID":"Art.1"})", withStrings("", "", "")},
      {R"({"id":{"id":"tra.1"},"name":"N","artistId":true})", withStrings("", "N", "")},
  };
  for (const auto& [raw, expected] : rows) EXPECT_EQ(Track::fromRaw(parse(raw)), expected) << raw;
}

TEST(TrackConstructor, NormalisesOnlyTheId) {
  const Track track("alb.1", "alb.2", 1, false, "art.3", "art.4", "alb.5", "alb.6", false, "tra.7");
  EXPECT_EQ(track.id, "Alb.1");
  EXPECT_EQ(track.name, "alb.2");
  EXPECT_EQ(track.artistID, "art.3");
  EXPECT_EQ(track.artistName, "art.4");
  EXPECT_EQ(track.albumID, "alb.5");
  EXPECT_EQ(track.albumName, "alb.6");
  EXPECT_EQ(track.previewURL, "tra.7");
}

TEST(TrackEquality, EveryFieldTakesPart) {
  struct Row {
    const char* field;
    void (*change)(Track&);
  };
  const Row rows[] = {
      {"id", [](Track& t) { t.id = "Tra.2"; }},
      {"name", [](Track& t) { t.name = "song"; }},
      {"playbackSeconds", [](Track& t) { t.playbackSeconds = 216; }},
      {"explicit", [](Track& t) { t.isExplicit = false; }},
      {"artistID", [](Track& t) { t.artistID = "Art.7"; }},
      {"artistName", [](Track& t) { t.artistName = "Artist "; }},
      {"albumID", [](Track& t) { t.albumID = "Alb.9"; }},
      {"albumName", [](Track& t) { t.albumName = ""; }},
      {"isStreamable", [](Track& t) { t.isStreamable = false; }},
      {"previewURL", [](Track& t) { t.previewURL = "https://example.com/2.mp3"; }},
  };
  const Track original = sampleTrack();
  EXPECT_EQ(original, sampleTrack());
  for (const Row& row : rows) {
    Track changed = sampleTrack();
    row.change(changed);
    EXPECT_FALSE(changed == original) << row.field;
    EXPECT_FALSE(original == changed) << row.field;
  }
}

// "café" spelled with a precomposed é and with e + combining acute.
constexpr const char* kComposed = "caf\xC3\xA9";
constexpr const char* kDecomposed = "cafe\xCC\x81";

// Strings compare canonically, and equal tracks hash equal, so sets deduplicate them.
TEST(TrackHash, EqualTracksHashEqualAndSetsDeduplicate) {
  Track composed = sampleTrack();
  Track decomposed = sampleTrack();
  composed.name = kComposed;
  decomposed.name = kDecomposed;
  composed.previewURL = kDecomposed;
  decomposed.previewURL = kComposed;
  EXPECT_EQ(composed, decomposed);
  EXPECT_EQ(std::hash<Track>{}(composed), std::hash<Track>{}(decomposed));

  const Track fromAnswer = Track::fromRaw(parse(R"({"id":"TRA.1","name":"Song","playbackSeconds":215,
      "explicit":true,"artistId":"art.7","artistName":"Artist","albumId":"alb.9","albumName":"Album",
      "isStreamable":true,"previewURL":"https://example.com/1.mp3"})"));
  EXPECT_EQ(std::hash<Track>{}(fromAnswer), std::hash<Track>{}(sampleTrack()));
  Track other = sampleTrack();
  other.id = "Tra.2";

  std::unordered_set<Track> tracks{sampleTrack(), fromAnswer, composed, decomposed, other};
  EXPECT_EQ(tracks.size(), 3u);
  EXPECT_EQ(tracks.count(sampleTrack()), 1u);
  EXPECT_EQ(tracks.count(decomposed), 1u);
  EXPECT_EQ(tracks.count(Track()), 0u);
}

}  // namespace
}  // namespace applogic
