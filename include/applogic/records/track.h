#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

#include "applogic/export.h"
#include "applogic/support/json_fwd.h"

namespace applogic {

/// A catalog track as the app sees it. Plain value: copy it, compare it, hash it; every field may
/// be read and written after construction (a written `id` is stored as given, not normalised).
///
/// `isExplicit` is the explicit-lyrics flag, named "explicit" in the answers; the C++ keyword
/// forbids that name here. Every other field has the answer's name, except that the record
/// spells `artistID`/`albumID` where the answers write "artistId"/"albumId".
struct APPLOGIC_EXPORT Track {
  std::string id;  ///< Catalog id, normalised by `MOPrefix::fixId` when built.
  std::string name;
  std::int64_t playbackSeconds = 0;  ///< Duration in whole seconds.
  bool isExplicit = false;
  std::string artistID;  ///< Stored as received, not normalised.
  std::string artistName;
  std::string albumID;  ///< Stored as received, not normalised.
  std::string albumName;
  bool isStreamable = false;
  std::string previewURL;  ///< Address of the preview clip; may be empty.

  /// The track of an empty answer: empty strings, zero duration, both flags false.
  Track() = default;

  /// Stores every value as given, except `id`, which goes through `MOPrefix::fixId`.
  Track(std::string id, std::string name, std::int64_t playbackSeconds, bool isExplicit,
        std::string artistID, std::string artistName, std::string albumID, std::string albumName,
        bool isStreamable, std::string previewURL);

  /// Builds a track from one answer object; never fails. Reads "id", "name", "playbackSeconds",
  /// "explicit", "artistId", "artistName", "albumId", "albumName", "isStreamable" and
  /// "previewURL"; a missing or mistyped member takes the default ("" / 0 / false), so a number
  /// sent as a string counts as missing. Other members are ignored. The strings are copied:
  /// the track does not refer to the answer afterwards.
  static Track fromRaw(const JsonObject& raw);

  /// As above; a value that is not an object reads as an empty object.
  static Track fromRaw(const Json& raw);

  /// Field by field in declaration order, strings by canonical (Unicode-equivalence) equality.
  friend APPLOGIC_EXPORT bool operator==(const Track& a, const Track& b) noexcept;
};

/// Prints the ten fields, for diagnostics and test failures.
APPLOGIC_EXPORT std::ostream& operator<<(std::ostream& out, const Track& track);

}  // namespace applogic

/// The XOR of the fields' hashes, strings hashed by their canonical form, so that equal tracks
/// hash equal.
template <>
struct APPLOGIC_EXPORT std::hash<applogic::Track> {
  std::size_t operator()(const applogic::Track& track) const noexcept;
};
