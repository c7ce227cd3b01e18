#include "emulator/catalog_data.h"

#include "applogic/support/strings.h"
#include "emulator/web_text.h"

#include <algorithm>
#include <array>

namespace applogic::emulator {
namespace {

constexpr std::size_t kArtists = 40;
constexpr std::size_t kAlbums = 70;
constexpr std::size_t kTracks = 360;
constexpr std::size_t kFavourites = 60;
constexpr std::size_t kHistory = 30;
constexpr std::size_t kNewReleases = 45;
constexpr std::size_t kPlaylists = 4;
constexpr std::size_t kPictures = 60;

constexpr std::array<std::string_view, 24> kAdjectives{
    "Quiet", "Golden", "Broken", "Silver", "Distant", "Electric", "Hollow", "Velvet", "Northern", "Restless",
    "Crimson", "Paper", "Midnight", "Wild", "Gentle", "Burning", "Frozen", "Lonely", "Bright", "Secret",
    "Falling", "Endless", "Little", "Hidden"};
constexpr std::array<std::string_view, 24> kNouns{
    "Harbour", "Lights", "Ferries", "River", "Garden", "Engine", "Summer", "Letters", "Mountain", "Echo",
    "Window", "Highway", "Ocean", "Satellite", "Forest", "Stranger", "Island", "Parade", "Thunder", "Mirror",
    "Crossing", "Shadow", "Heart", "Station"};
struct GenreWords {
  std::string_view name;
  std::string_view shortcut;
};
constexpr std::array<GenreWords, 12> kGenres{{{"Pop", "pop"},
                                              {"Rock", "rock"},
                                              {"Jazz", "jazz"},
                                              {"Classical", "classical"},
                                              {"Hip-Hop", "hip-hop"},
                                              {"Electronic", "electronic"},
                                              {"Folk", "folk"},
                                              {"Blues", "blues"},
                                              {"Country", "country"},
                                              {"Reggae", "reggae"},
                                              {"Soul", "soul"},
                                              {"Metal", "metal"}}};
constexpr std::array<std::string_view, 4> kPlaylistNames{"Late Night", "Morning Run", "Sunday Kitchen", "Road Trip"};

// SplitMix64: a small generator whose output is the same on every platform.
class Random {
 public:
  explicit Random(std::uint64_t seed) : state_(seed) {}
  std::uint64_t next() {
    std::uint64_t z = (state_ += 0x9e3779b97f4a7c15ULL);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
    return z ^ (z >> 31);
  }
  std::size_t below(std::size_t n) { return static_cast<std::size_t>(next() % n); }
  template <class Words>
  std::string_view pick(const Words& words) {
    return words[below(words.size())];
  }

 private:
  std::uint64_t state_;
};

bool containsIgnoringAsciiCase(std::string_view text, std::string_view part) {
  return asciiLowercase(text).find(asciiLowercase(part)) != std::string::npos;
}

// `count` distinct indexes below `n`, in the order drawn.
std::vector<std::size_t> distinct(Random& random, std::size_t count, std::size_t n) {
  std::vector<bool> taken(n);
  std::vector<std::size_t> out;
  while (out.size() < count) {
    const std::size_t index = random.below(n);
    if (!taken[index]) {
      taken[index] = true;
      out.push_back(index);
    }
  }
  return out;
}

template <class Items>
std::optional<std::size_t> findId(const Items& items, std::string_view id) {
  for (std::size_t i = 0; i < items.size(); ++i) {
    if (equalsIgnoringAsciiCase(items[i].id, id)) return i;
  }
  return std::nullopt;
}

}  // namespace

CatalogTime CatalogData::defaultHistoryEnd() {
  return CatalogTime{} + std::chrono::seconds(1795508100);  // 2026-11-24T08:15:00Z
}

CatalogData::CatalogData(std::uint64_t seed, CatalogTime historyEnd) {
  Random random(seed);
  const auto twoWords = [&] { return std::string(random.pick(kAdjectives)) + " " + std::string(random.pick(kNouns)); };
  for (std::size_t i = 0; i < kArtists; ++i) {
    artists_.push_back({"art." + std::to_string(i + 1), "The " + twoWords()});
  }
  for (std::size_t i = 0; i < kAlbums; ++i) {
    albums_.push_back({"alb." + std::to_string(i + 1), twoWords(), i < kArtists ? i : random.below(kArtists)});
  }
  for (std::size_t i = 0; i < kGenres.size(); ++i) {
    genres_.push_back({"g." + std::to_string(i + 1), std::string(kGenres[i].name),
                       "The catalog's " + std::string(kGenres[i].name) + " tracks.", std::string(kGenres[i].shortcut)});
  }
  for (std::size_t i = 0; i < kTracks; ++i) {
    CatalogTrack track;
    track.id = "tra." + std::to_string(1001 + i);
    track.name = twoWords();
    track.playbackSeconds = 90 + static_cast<int>(random.below(300));
    track.isExplicit = random.below(8) == 0;
    track.isStreamable = random.below(20) != 0;
    track.album = i < kAlbums ? i : random.below(kAlbums);
    track.genre = random.below(kGenres.size());
    track.allTimePlays = static_cast<std::int64_t>(random.below(5000));
    track.monthPlays = static_cast<std::int64_t>(random.below(300));
    trackIds_.emplace(track.id, i);
    tracks_.push_back(std::move(track));
  }
  rejected_.assign(kTracks, false);
  favourites_ = distinct(random, kFavourites, kTracks);
  newReleases_ = distinct(random, kNewReleases, kTracks);
  for (std::size_t i = 0; i < kHistory; ++i) {
    history_.push_back({random.below(kTracks), historyEnd - std::chrono::minutes(17 * i)});
  }
  for (std::size_t i = 0; i < kPlaylists; ++i) {
    CatalogPlaylist playlist;
    const std::string number = std::to_string(1001 + i);
    playlist.id = "mp." + number;
    playlist.name = std::string(kPlaylistNames[i]);
    playlist.privacy = i % 2 == 0 ? "public" : "private";
    playlist.tracks = distinct(random, 8 + random.below(10), kTracks);
    playlist.displayImages.push_back({"img." + number + ".0", 1, true});
    playlist.nextImage = 1;
    if (i == 0) playlist.giphyId = "gph0001";
    playlists_.push_back(std::move(playlist));
  }
  for (std::size_t i = 0; i < kPictures; ++i) {
    GiphyPicture picture;
    const std::string number = std::to_string(10001 + i).substr(1);
    picture.id = "gph" + number;
    picture.title = twoWords() + " GIF";
    picture.rating = i % 5 == 4 ? "pg" : "g";
    // Mostly landscape; every seventh is portrait and every eleventh far too wide.
    int width = 480;
    int height = 200 + static_cast<int>(random.below(160));
    if (i % 7 == 3) height = 640 + static_cast<int>(random.below(200));
    if (i % 11 == 5) height = 60 + static_cast<int>(random.below(40));
    const auto scaled = [&](int w) { return std::max(1, height * w / width); };
    const auto scaledWidth = [&](int h) { return std::max(1, width * h / height); };
    picture.renditions = {{"original", width, height},
                          {"fixed_height", scaledWidth(200), 200},
                          {"fixed_height_still", scaledWidth(200), 200},
                          {"fixed_width_still", 200, scaled(200)},
                          {"480w_still", 480, scaled(480)}};
    giphy_.push_back(std::move(picture));
  }
}

std::optional<std::size_t> CatalogData::track(std::string_view id) const {
  std::string key(id);
  for (char& c : key) c = static_cast<char>(c >= 'A' && c <= 'Z' ? c - 'A' + 'a' : c);
  const auto found = trackIds_.find(key);
  if (found == trackIds_.end()) return std::nullopt;
  return found->second;
}
std::optional<std::size_t> CatalogData::genre(std::string_view id) const { return findId(genres_, id); }
std::optional<std::size_t> CatalogData::playlist(std::string_view id) const { return findId(playlists_, id); }
std::optional<std::size_t> CatalogData::picture(std::string_view id) const { return findId(giphy_, id); }

std::vector<std::size_t> CatalogData::chart(bool month) const {
  std::vector<std::size_t> order(tracks_.size());
  for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
  const auto plays = [&](std::size_t i) { return month ? tracks_[i].monthPlays : tracks_[i].allTimePlays; };
  std::stable_sort(order.begin(), order.end(), [&](std::size_t a, std::size_t b) { return plays(a) > plays(b); });
  return order;
}

std::vector<std::size_t> CatalogData::search(std::string_view query) const {
  std::vector<std::size_t> found;
  if (query.empty()) return found;
  for (std::size_t i = 0; i < tracks_.size(); ++i) {
    const CatalogAlbum& album = albums_[tracks_[i].album];
    if (containsIgnoringAsciiCase(tracks_[i].name, query) || containsIgnoringAsciiCase(album.name, query) ||
        containsIgnoringAsciiCase(artists_[album.artist].name, query)) {
      found.push_back(i);
    }
  }
  return found;
}

std::vector<std::size_t> CatalogData::genreTracks(std::size_t genre) const {
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i < tracks_.size(); ++i) {
    if (tracks_[i].genre == genre) found.push_back(i);
  }
  return found;
}

std::vector<std::size_t> CatalogData::recommendations(std::size_t playlist, std::size_t limit) const {
  const std::vector<std::size_t>& in = playlists_[playlist].tracks;
  std::vector<bool> genres(genres_.size());
  for (std::size_t track : in) genres[tracks_[track].genre] = true;
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i < tracks_.size() && found.size() < limit; ++i) {
    if (genres[tracks_[i].genre] && !rejected_[i] && std::find(in.begin(), in.end(), i) == in.end()) {
      found.push_back(i);
    }
  }
  return found;
}

std::vector<std::size_t> CatalogData::searchGiphy(std::string_view query) const {
  std::vector<std::size_t> found;
  for (std::size_t i = 0; i < giphy_.size(); ++i) {
    if (containsIgnoringAsciiCase(giphy_[i].title, query)) found.push_back(i);
  }
  return found;
}

void CatalogData::recordPlay(std::size_t track, CatalogTime at) {
  ++tracks_[track].allTimePlays;
  ++tracks_[track].monthPlays;
  history_.insert(history_.begin(), CatalogPlay{track, at});
}

std::optional<std::vector<std::size_t>> CatalogData::resolve(const std::vector<std::string>& trackIds) const {
  std::vector<std::size_t> indexes;
  for (const std::string& id : trackIds) {
    const std::optional<std::size_t> index = track(id);
    if (!index) return std::nullopt;
    indexes.push_back(*index);
  }
  return indexes;
}

bool CatalogData::appendTracks(std::size_t playlist, const std::vector<std::string>& trackIds) {
  const auto indexes = resolve(trackIds);
  if (!indexes) return false;
  std::vector<std::size_t>& tracks = playlists_[playlist].tracks;
  tracks.insert(tracks.end(), indexes->begin(), indexes->end());
  return true;
}

bool CatalogData::replaceTracks(std::size_t playlist, const std::vector<std::string>& trackIds) {
  auto indexes = resolve(trackIds);
  if (!indexes) return false;
  playlists_[playlist].tracks = std::move(*indexes);
  return true;
}

std::optional<std::size_t> CatalogData::reject(const std::vector<std::string>& trackIds) {
  const auto indexes = resolve(trackIds);
  if (!indexes) return std::nullopt;
  for (std::size_t index : *indexes) rejected_[index] = true;
  return indexes->size();
}

void CatalogData::setGiphy(std::size_t playlist, std::optional<std::string> giphyId) {
  playlists_[playlist].giphyId = std::move(giphyId);
}

void CatalogData::addDisplayImage(std::size_t playlist) {
  CatalogPlaylist& target = playlists_[playlist];
  const std::string id = "img." + target.id.substr(3) + "." + std::to_string(target.nextImage++);
  target.displayImages.insert(target.displayImages.begin(), CatalogImage{id, 1, false});
}


}  // namespace applogic::emulator
