// Cost of turning a 10,000-track answer of the music service into tracks, through the library
// (Boost.JSON parse into a per-answer arena, then TracksResponseToTracks) and through two other
// JSON libraries applying the same field rules, measured in the same run.
// Targets: extraction <= 350 ns/track; bytes->tracks >= 6x faster than nlohmann::json and
// within 3x of simdjson's on-demand API.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <optional>
#include <random>
#include <string>
#include <string_view>
#include <vector>

#include <boost/json.hpp>
#include <nlohmann/json.hpp>
#include <simdjson.h>

#include "applogic/records/track_serializers.h"
#include "bench_report.h"

namespace applogic {
namespace {

constexpr int kTracks = 10'000;

// Deterministic answer shaped like the service's: the ten members the parser reads, among
// eleven it ignores, in the service's member order.
std::string makeAnswer() {
  std::mt19937 random(20240521);
  const char* words[] = {"Love",  "Night", "Heart", "Fire",   "Dream",   "Café",  "Rain",
                         "Light", "Road",  "Gold",  "Beyoncé", "Summer", "Blue",  "Wild",
                         "Ocean", "Stars", "Home",  "Echo",   "Señorita", "Neon", "Paper"};
  const auto word = [&] { return std::string(words[random() % std::size(words)]); };
  const auto title = [&](int count) {
    std::string text = word();
    for (int i = 1; i < count; ++i) {
      text += ' ';
      text += word();
    }
    return text;
  };

  boost::json::array tracks;
  tracks.reserve(kTracks);
  for (int i = 0; i < kTracks; ++i) {
    const std::string id = "Tra." + std::to_string(100'000'000 + random() % 900'000'000);
    const std::string artistId = "Art." + std::to_string(10'000'000 + random() % 90'000'000);
    const std::string albumId = "Alb." + std::to_string(100'000'000 + random() % 900'000'000);
    boost::json::object track;
    track["type"] = "track";
    track["id"] = id;
    track["index"] = i % 14 + 1;
    track["disc"] = 1;
    track["href"] = "https://api.example.com/v2.2/tracks/" + id;
    track["playbackSeconds"] = 120 + random() % 300;
    track["explicit"] = random() % 5 == 0;
    track["name"] = title(1 + static_cast<int>(random() % 4));
    track["isrc"] = "USUM7" + std::to_string(1'000'000 + random() % 9'000'000);
    track["shortcut"] = "artist-name/album-name/track-name";
    track["blurbs"] = boost::json::array();
    track["artistId"] = artistId;
    track["artistName"] = title(1 + static_cast<int>(random() % 2));
    track["albumName"] = title(2 + static_cast<int>(random() % 3));
    track["formats"] = boost::json::array{
        boost::json::object{{"type", "format"}, {"bitrate", 320}, {"name", "AAC"},
                            {"sampleBits", 16}, {"sampleRate", 44100}}};
    track["albumId"] = albumId;
    track["isAvailableInHiRes"] = false;
    track["contributors"] = boost::json::object{{"primaryArtist", artistId}};
    track["links"] = boost::json::object{
        {"artists", boost::json::object{{"ids", boost::json::array{artistId}},
                                        {"href", "https://api.example.com/v2.2/artists/" + artistId}}},
        {"albums", boost::json::object{{"ids", boost::json::array{albumId}},
                                       {"href", "https://api.example.com/v2.2/albums/" + albumId}}}};
    track["isStreamable"] = random() % 10 != 0;
    track["previewURL"] = "https://listen.example.com/g3/prvw/4/2/4/9/8/" +
                          std::to_string(900'000'000 + random() % 99'999'999) + ".mp3";
    tracks.push_back(std::move(track));
  }
  return boost::json::serialize(boost::json::object{{"tracks", std::move(tracks)}});
}

const std::string& answer() {
  static const std::string text = makeAnswer();
  return text;
}

void setItems(benchmark::State& state) { state.counters["items"] = kTracks; }

void checkCount(benchmark::State& state, const std::optional<std::vector<Track>>& tracks) {
  if (!tracks || tracks->size() != static_cast<std::size_t>(kTracks)) {
    state.SkipWithError("the answer did not give every track");
  }
}

// (a) The library's extraction alone, on an answer already parsed into an arena as in (b).
void BM_Extract_Library(benchmark::State& state) {
  boost::json::monotonic_resource arena;
  const Json parsed = boost::json::parse(answer(), &arena);
  for (auto _ : state) {
    auto tracks = TracksResponseToTracks(parsed);
    benchmark::DoNotOptimize(tracks);
    checkCount(state, tracks);
  }
  setItems(state);
}
BENCHMARK(BM_Extract_Library)->Unit(benchmark::kMillisecond);

// Parsing alone, into a per-answer arena, for reading the split of (b).
void BM_ParseOnly_Boost(benchmark::State& state) {
  const std::string& bytes = answer();
  for (auto _ : state) {
    unsigned char buffer[16 * 1024];
    boost::json::monotonic_resource arena(buffer, sizeof buffer);
    boost::system::error_code error;
    Json parsed = boost::json::parse(bytes, error, &arena);
    benchmark::DoNotOptimize(parsed);
  }
  setItems(state);
}
BENCHMARK(BM_ParseOnly_Boost)->Unit(benchmark::kMillisecond);

// (b) Bytes to tracks through the library: Boost.JSON into a per-answer monotonic arena that
// starts in a stack buffer, then TracksResponseToTracks. The tracks own their strings; the arena
// goes with the answer.
void BM_BytesToTracks_Boost(benchmark::State& state) {
  const std::string& bytes = answer();
  for (auto _ : state) {
    unsigned char buffer[16 * 1024];
    boost::json::monotonic_resource arena(buffer, sizeof buffer);
    boost::system::error_code error;
    const Json parsed = boost::json::parse(bytes, error, &arena);
    auto tracks = error ? std::nullopt : TracksResponseToTracks(parsed);
    benchmark::DoNotOptimize(tracks);
    checkCount(state, tracks);
  }
  setItems(state);
}
BENCHMARK(BM_BytesToTracks_Boost)->Unit(benchmark::kMillisecond);

// (c) Baseline: nlohmann::json, with the library's field rules.
std::string nlohmannString(const nlohmann::json& raw, const char* key) {
  const auto found = raw.find(key);
  if (found == raw.end() || !found->is_string()) return {};
  return found->get_ref<const std::string&>();
}

std::int64_t nlohmannInteger(const nlohmann::json& raw, const char* key) {
  const auto found = raw.find(key);
  if (found == raw.end()) return 0;
  if (found->is_number_unsigned()) {
    const auto value = found->get<std::uint64_t>();
    return value <= static_cast<std::uint64_t>(INT64_MAX) ? static_cast<std::int64_t>(value) : 0;
  }
  return found->is_number_integer() ? found->get<std::int64_t>() : 0;
}

bool nlohmannBoolean(const nlohmann::json& raw, const char* key) {
  const auto found = raw.find(key);
  return found != raw.end() && found->is_boolean() && found->get<bool>();
}

std::optional<std::vector<Track>> nlohmannTracks(std::string_view bytes) {
  const nlohmann::json answer = nlohmann::json::parse(bytes, nullptr, /*allow_exceptions=*/false);
  if (!answer.is_object()) return std::nullopt;
  const auto items = answer.find("tracks");
  if (items == answer.end() || !items->is_array()) return std::nullopt;
  for (const auto& item : *items) {
    if (!item.is_object()) return std::nullopt;
  }
  std::vector<Track> tracks;
  tracks.reserve(items->size());
  for (const auto& raw : *items) {
    tracks.emplace_back(nlohmannString(raw, "id"), nlohmannString(raw, "name"),
                        nlohmannInteger(raw, "playbackSeconds"), nlohmannBoolean(raw, "explicit"),
                        nlohmannString(raw, "artistId"), nlohmannString(raw, "artistName"),
                        nlohmannString(raw, "albumId"), nlohmannString(raw, "albumName"),
                        nlohmannBoolean(raw, "isStreamable"), nlohmannString(raw, "previewURL"));
  }
  return tracks;
}

void BM_BytesToTracks_Nlohmann(benchmark::State& state) {
  const std::string& bytes = answer();
  for (auto _ : state) {
    auto tracks = nlohmannTracks(bytes);
    benchmark::DoNotOptimize(tracks);
    checkCount(state, tracks);
  }
  setItems(state);
}
BENCHMARK(BM_BytesToTracks_Nlohmann)->Unit(benchmark::kMillisecond);

// (d) Baseline: simdjson's on-demand API, one pass over each track's members, with the
// library's field rules. The parser is reused and the bytes are padded once, as simdjson wants.
std::optional<std::vector<Track>> simdjsonTracks(simdjson::ondemand::parser& parser,
                                                 const simdjson::padded_string& bytes) {
  simdjson::ondemand::document answer;
  if (parser.iterate(bytes).get(answer)) return std::nullopt;
  simdjson::ondemand::object root;
  if (answer.get_object().get(root)) return std::nullopt;
  simdjson::ondemand::array items;
  if (root["tracks"].get_array().get(items)) return std::nullopt;

  std::vector<Track> tracks;
  tracks.reserve(kTracks);
  for (auto item : items) {
    simdjson::ondemand::object raw;
    if (item.get_object().get(raw)) return std::nullopt;
    std::string_view id, name, artistID, artistName, albumID, albumName, previewURL;
    std::int64_t playbackSeconds = 0;
    bool isExplicit = false;
    bool isStreamable = false;
    for (auto member : raw) {
      std::string_view key;
      if (member.unescaped_key().get(key)) return std::nullopt;
      auto value = member.value();
      const auto text = [&value](std::string_view& out) {
        std::string_view found;
        if (!value.get_string().get(found)) out = found;
      };
      const auto flag = [&value](bool& out) {
        bool found = false;
        if (!value.get_bool().get(found)) out = found;
      };
      if (key == "id") {
        text(id);
      } else if (key == "name") {
        text(name);
      } else if (key == "playbackSeconds") {
        std::int64_t found = 0;
        if (!value.get_int64().get(found)) playbackSeconds = found;
      } else if (key == "explicit") {
        flag(isExplicit);
      } else if (key == "artistId") {
        text(artistID);
      } else if (key == "artistName") {
        text(artistName);
      } else if (key == "albumId") {
        text(albumID);
      } else if (key == "albumName") {
        text(albumName);
      } else if (key == "isStreamable") {
        flag(isStreamable);
      } else if (key == "previewURL") {
        text(previewURL);
      }
    }
    tracks.emplace_back(std::string(id), std::string(name), playbackSeconds, isExplicit,
                        std::string(artistID), std::string(artistName), std::string(albumID),
                        std::string(albumName), isStreamable, std::string(previewURL));
  }
  return tracks;
}

void BM_BytesToTracks_Simdjson(benchmark::State& state) {
  const simdjson::padded_string bytes(answer());
  simdjson::ondemand::parser parser;
  for (auto _ : state) {
    auto tracks = simdjsonTracks(parser, bytes);
    benchmark::DoNotOptimize(tracks);
    checkCount(state, tracks);
  }
  setItems(state);
}
BENCHMARK(BM_BytesToTracks_Simdjson)->Unit(benchmark::kMillisecond);

void printSummary(const bench::RatioReporter& report) {
  std::printf("\ncatalog parsing, %d tracks, %.1f MB answer\n", kTracks,
              static_cast<double>(answer().size()) / 1e6);
  if (report.has("BM_Extract_Library")) {
    const double ns = report.nsPerItem("BM_Extract_Library");
    std::printf("  extraction (TracksResponseToTracks)  %7.1f ns/track  target <= 350: %s\n", ns,
                ns <= 350 ? "met" : "MISSED");
  }
  const char* names[] = {"BM_ParseOnly_Boost", "BM_BytesToTracks_Boost",
                         "BM_BytesToTracks_Nlohmann", "BM_BytesToTracks_Simdjson"};
  for (const char* name : names) {
    if (report.has(name)) std::printf("  %-36s %7.1f ns/track\n", name + 3, report.nsPerItem(name));
  }
  if (!report.has("BM_BytesToTracks_Boost")) return;
  const double boost = report.nsPerItem("BM_BytesToTracks_Boost");
  std::printf("  bytes->tracks: boost 1.00x");
  if (report.has("BM_BytesToTracks_Nlohmann")) {
    std::printf(", nlohmann %.1fx slower", report.nsPerItem("BM_BytesToTracks_Nlohmann") / boost);
  }
  if (report.has("BM_BytesToTracks_Simdjson")) {
    std::printf(", simdjson %.2fx", report.nsPerItem("BM_BytesToTracks_Simdjson") / boost);
  }
  std::printf("\n");
  if (report.has("BM_BytesToTracks_Nlohmann")) {
    const double ratio = report.nsPerItem("BM_BytesToTracks_Nlohmann") / boost;
    std::printf("  boost vs nlohmann  %.1fx faster  target >= 6x: %s\n", ratio,
                ratio >= 6 ? "met" : "MISSED");
  }
  if (report.has("BM_BytesToTracks_Simdjson")) {
    const double ratio = boost / report.nsPerItem("BM_BytesToTracks_Simdjson");
    std::printf("  boost vs simdjson  %.2fx the time  target <= 3x: %s\n", ratio,
                ratio <= 3 ? "met" : "MISSED");
  }
}

}  // namespace
}  // namespace applogic

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  applogic::bench::RatioReporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  applogic::printSummary(reporter);
  benchmark::Shutdown();
  return 0;
}
