#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "applogic/export.h"
#include "applogic/support/json_fwd.h"

namespace applogic {

/// A stored picture attached to a playlist. Plain value; every field readable and writable.
struct APPLOGIC_EXPORT DisplayImage {
  std::string id;  ///< Stored as received, not normalised.
  std::int64_t version = 0;
  bool isDefault = false;
  std::string imageType;

  /// Reads "id", "version", "isDefault" and "imageType" of one image object. "id" is required:
  /// when it is missing or not a string the program stops (`fatalError`), deliberately, since a
  /// stored image without an id is a fault of the service. The others fall back to 0, false and
  /// "" when missing or mistyped.
  static DisplayImage fromRaw(const JsonObject& raw);

  /// Field by field, strings by canonical (Unicode-equivalence) equality.
  friend APPLOGIC_EXPORT bool operator==(const DisplayImage& a, const DisplayImage& b) noexcept;
};

/// True exactly when `raw`."imageType" is the string "displayImage" (case-sensitive).
APPLOGIC_EXPORT bool IsRawDisplayImage(const JsonObject& raw) noexcept;

/// True exactly when `raw`."imageType" is the string "giphyImage" (case-sensitive).
APPLOGIC_EXPORT bool IsRawGiphyImage(const JsonObject& raw) noexcept;

/// One image of a playlist: either a stored picture (`display`) or a reference to a Giphy
/// animation by its Giphy id (`giphy`). Plain value.
class APPLOGIC_EXPORT PlaylistImage {
 public:
  static PlaylistImage display(DisplayImage image);
  static PlaylistImage giphy(std::string giphyID);

  /// The image of one answer object:
  /// - "imageType" "displayImage": a `display` image by `DisplayImage::fromRaw`, which stops the
  ///   program when the object has no string "id";
  /// - "imageType" "giphyImage": a `giphy` image with the object's string "id", or absent when
  ///   it has none;
  /// - anything else (another or no "imageType", compared case-sensitively): absent.
  static std::optional<PlaylistImage> create(const JsonObject& raw);

  /// The stored picture, or null when this is a Giphy reference. Valid while this value is.
  const DisplayImage* displayImage() const noexcept { return std::get_if<DisplayImage>(&image_); }
  /// The Giphy id, or null when this is a stored picture. Valid while this value is.
  const std::string* giphyID() const noexcept { return std::get_if<std::string>(&image_); }

  /// Equal when both are stored pictures that are equal, or both are Giphy references whose ids
  /// are canonically equal; a stored picture never equals a Giphy reference.
  friend APPLOGIC_EXPORT bool operator==(const PlaylistImage& a, const PlaylistImage& b) noexcept;

 private:
  explicit PlaylistImage(std::variant<DisplayImage, std::string> image) : image_(std::move(image)) {}

  std::variant<DisplayImage, std::string> image_;
};

/// A user playlist with its images. Plain value; every field readable and writable (a written
/// `id` is stored as given, not normalised).
struct APPLOGIC_EXPORT Playlist {
  std::string id;  ///< Catalog id, normalised by `MOPrefix::fixId` when built.
  std::string name;
  std::optional<std::vector<std::string>> trackIds;  ///< Never filled from an answer.
  bool isPublic = false;
  std::optional<std::string> ownerId;  ///< The owner of a member playlist, when known.
  /// Absent when the answer had no list of images; an empty list when it had an empty one.
  std::optional<std::vector<PlaylistImage>> images;

  /// The playlist of an empty answer: empty id and name, not public, everything optional absent.
  Playlist() = default;

  /// Stores every value as given, except `id`, which goes through `MOPrefix::fixId`. `trackIds`
  /// has no default (a C++ default cannot precede `isPublic`): pass `std::nullopt` for none.
  Playlist(std::string id, std::string name, std::optional<std::vector<std::string>> trackIds, bool isPublic,
           std::optional<std::string> ownerId = std::nullopt,
           std::optional<std::vector<PlaylistImage>> images = std::nullopt);

  /// Builds a playlist from one answer object; never fails, except that a display image
  /// without a string id stops the program (see `PlaylistImage::create`).
  /// - "id" and "name": strings, else ""; the id goes through `MOPrefix::fixId`;
  /// - "privacy": `isPublic` only for the exact string "public";
  /// - "artistId": a string becomes `ownerId`, anything else leaves it absent;
  /// - "images": when it is an array of objects, each goes through `PlaylistImage::create`,
  ///   elements that are not images are dropped and the order is kept; otherwise absent;
  /// - `trackIds` stays absent, even when the answer carries track ids.
  static Playlist fromRaw(const JsonObject& raw);

  /// As above; a value that is not an object reads as an empty object.
  static Playlist fromRaw(const Json& raw);

  /// The first stored picture of `images`, in order, that is not a default one; absent when
  /// there is none or `images` is absent.
  std::optional<DisplayImage> getCustomImage() const;

  /// The id of the first Giphy reference of `images`; absent when there is none.
  std::optional<std::string> getGiphyImageID() const;

  /// Field by field in declaration order, strings by canonical equality; an optional field
  /// matches when both are absent, or both present and equal (lists element by element).
  friend APPLOGIC_EXPORT bool operator==(const Playlist& a, const Playlist& b) noexcept;
};

/// Print the values, for diagnostics and test failures.
APPLOGIC_EXPORT std::ostream& operator<<(std::ostream& out, const DisplayImage& image);
APPLOGIC_EXPORT std::ostream& operator<<(std::ostream& out, const PlaylistImage& image);
APPLOGIC_EXPORT std::ostream& operator<<(std::ostream& out, const Playlist& playlist);

/// {"playlists": [playlist, ...]} → `Playlist::fromRaw` of each element, in order. Absent when
/// `input` is not an object or "playlists" is missing, null, not an array, or holds an element
/// that is not an object; an empty array gives an empty list. Stops the program where
/// `Playlist::fromRaw` does. Pure; any thread.
APPLOGIC_EXPORT std::optional<std::vector<Playlist>> PlaylistsResponseToPlaylists(const Json& input);

/// {"images": [image, ...]} → the images, in order, by `PlaylistImage::create`; elements that
/// are not images are skipped. Absent when `input` is not an object or "images" is missing,
/// null, not an array, or holds an element that is not an object; an empty array gives an empty
/// list. Stops the program where `PlaylistImage::create` does. Pure; any thread.
APPLOGIC_EXPORT std::optional<std::vector<PlaylistImage>> PlaylistImagesResponseToPlaylistImage(const Json& input);

}  // namespace applogic
