#pragma once

// The local catalog service's data: a sample catalog generated from a seed (the same seed gives
// the same catalog), and the state changes its requests make. Pure data, no HTTP; not
// thread-safe (the catalog server calls it under its lock).

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace applogic::emulator {

using CatalogTime = std::chrono::system_clock::time_point;

struct CatalogArtist {
  std::string id;  // "art.N"
  std::string name;
};

struct CatalogAlbum {
  std::string id;  // "alb.N"
  std::string name;
  std::size_t artist = 0;
};

struct CatalogGenre {
  std::string id;  // "g.N"
  std::string name;
  std::string description;
  std::string shortcut;
};

struct CatalogTrack {
  std::string id;  // "tra.N"
  std::string name;
  int playbackSeconds = 0;
  bool isExplicit = false;
  bool isStreamable = true;
  std::size_t album = 0;  // the artist is the album's
  std::size_t genre = 0;
  std::int64_t allTimePlays = 0;
  std::int64_t monthPlays = 0;
};

struct CatalogImage {
  std::string id;  // "img.<playlist number>.<n>"
  int version = 1;
  bool isDefault = false;
};

struct CatalogPlaylist {
  std::string id;  // "mp.N"
  std::string name;
  std::string privacy;  // "public" or "private"
  std::vector<std::size_t> tracks;
  std::vector<CatalogImage> displayImages;  // first shown first
  std::optional<std::string> giphyId;
  int nextImage = 0;
};

struct GiphyRendition {
  std::string key;  // "original", "fixed_height", ...
  int width = 0;
  int height = 0;
};

struct GiphyPicture {
  std::string id;  // "gphNNNN"
  std::string title;
  std::string rating;  // "g", "pg", ...
  std::vector<GiphyRendition> renditions;
};

struct CatalogPlay {
  std::size_t track = 0;
  CatalogTime at;
};

class CatalogData {
 public:
  /// The catalog of `seed`; the sample history ends at `historyEnd`.
  explicit CatalogData(std::uint64_t seed = 1, CatalogTime historyEnd = defaultHistoryEnd());
  /// 2026-11-24T08:15:00Z.
  static CatalogTime defaultHistoryEnd();

  const std::vector<CatalogArtist>& artists() const { return artists_; }
  const std::vector<CatalogAlbum>& albums() const { return albums_; }
  const std::vector<CatalogGenre>& genres() const { return genres_; }
  const std::vector<CatalogTrack>& tracks() const { return tracks_; }
  const std::vector<CatalogPlaylist>& playlists() const { return playlists_; }
  const std::vector<GiphyPicture>& giphy() const { return giphy_; }
  const std::vector<std::size_t>& favourites() const { return favourites_; }
  const std::vector<std::size_t>& newReleases() const { return newReleases_; }
  /// Most recent first.
  const std::vector<CatalogPlay>& history() const { return history_; }

  /// Ids match ignoring ASCII case: the app sends them in its normalised form ("Tra.1001").
  std::optional<std::size_t> track(std::string_view id) const;
  std::optional<std::size_t> genre(std::string_view id) const;
  std::optional<std::size_t> playlist(std::string_view id) const;
  std::optional<std::size_t> picture(std::string_view id) const;

  /// Every track, most played first (`month`: this month's plays; otherwise all time); ties in
  /// catalog order.
  std::vector<std::size_t> chart(bool month) const;
  /// Tracks whose name, artist or album contains `query` ignoring ASCII case; none for "".
  std::vector<std::size_t> search(std::string_view query) const;
  std::vector<std::size_t> genreTracks(std::size_t genre) const;
  /// Tracks of the playlist's genres that are neither in it nor rejected, at most `limit`.
  std::vector<std::size_t> recommendations(std::size_t playlist, std::size_t limit) const;
  /// Giphy pictures whose title contains `query` ignoring ASCII case (all for "").
  std::vector<std::size_t> searchGiphy(std::string_view query) const;

  void recordPlay(std::size_t track, CatalogTime at);
  /// False (nothing changes) when an id is unknown.
  bool appendTracks(std::size_t playlist, const std::vector<std::string>& trackIds);
  bool replaceTracks(std::size_t playlist, const std::vector<std::string>& trackIds);
  /// The number of tracks rejected; absent (nothing changes) when an id is unknown.
  std::optional<std::size_t> reject(const std::vector<std::string>& trackIds);
  void setGiphy(std::size_t playlist, std::optional<std::string> giphyId);
  /// A new non-default display image, first among the playlist's display images.
  void addDisplayImage(std::size_t playlist);

 private:
  std::optional<std::vector<std::size_t>> resolve(const std::vector<std::string>& trackIds) const;

  std::vector<CatalogArtist> artists_;
  std::vector<CatalogAlbum> albums_;
  std::vector<CatalogGenre> genres_;
  std::vector<CatalogTrack> tracks_;
  std::vector<CatalogPlaylist> playlists_;
  std::vector<GiphyPicture> giphy_;
  std::vector<std::size_t> favourites_;
  std::vector<std::size_t> newReleases_;
  std::vector<CatalogPlay> history_;
  std::vector<bool> rejected_;
  std::unordered_map<std::string, std::size_t> trackIds_;
};

}  // namespace applogic::emulator
