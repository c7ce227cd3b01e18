#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/export.h"
#include "applogic/support/json_fwd.h"

namespace applogic {

/// Media-object prefixes: the canonical prefixes of catalog ids ("Tra.", "Alb.", "pp." ...), the
/// tests that tell an id's kind, and the rewrite that gives an id's prefix its canonical letter
/// case, so that ids compare equal however the service cased them.
///
/// Matching rule shared by every function here: an id "begins with" a prefix when its first
/// user-perceived characters (extended grapheme clusters) are the prefix's characters, letter case
/// ignored. So "TRA.1" is a track id, while "tra.\u0301" is not (its fourth character is a dot
/// carrying an accent, not a dot). Ids that are not valid UTF-8 never fail: each invalid byte
/// counts as one character.
///
/// Everything is static; the prefix constants are created once, thread-safely, on first use and
/// live until the process ends. All functions are pure and may be called from any thread.
class APPLOGIC_EXPORT MOPrefix {
 public:
  MOPrefix() = delete;

  static const std::string& genre();              ///< "g."
  static const std::string& artist();             ///< "Art."
  static const std::string& album();              ///< "Alb."
  static const std::string& editorial();          ///< "po."
  static const std::string& programmedStation();  ///< "ps."
  static const std::string& publishedPlaylist();  ///< "pp."
  static const std::string& memberPlaylist();     ///< "mp."
  static const std::string& track();              ///< "Tra."
  /// "Art.0", the various-artists pseudo artist. It begins with `artist()`, so every artist test
  /// and fix covers it; no function treats it separately.
  static const std::string& variousArtist();
  static const std::string& tag();  ///< "tag."

  static bool isTrackId(std::string_view id) noexcept;
  static bool isAlbumId(std::string_view id) noexcept;
  static bool isArtistId(std::string_view id) noexcept;
  static bool isEditorialId(std::string_view id) noexcept;
  /// A programmed station ("ps.").
  static bool isStationId(std::string_view id) noexcept;
  static bool isGenreId(std::string_view id) noexcept;
  static bool isTagId(std::string_view id) noexcept;
  /// A member playlist ("mp.") or a published playlist ("pp.").
  static bool isPlaylistId(std::string_view id) noexcept;

  /// The id with its leading prefix in canonical case ("tra.1" → "Tra.1", "PP.5" → "pp.5"). Only
  /// the leading prefix is rewritten ("g.tra.5" stays as it is); an id of no known kind, the
  /// empty id included, comes back unchanged. Never allocates: the id is taken by value and
  /// rewritten in place, so a caller that moves its string in pays for no copy.
  static std::string fixId(std::string id);

  /// Absent stays absent; otherwise `fixId`.
  static std::optional<std::string> fixOptionalId(std::optional<std::string> id);

  /// `fixId` of every element, order kept.
  static std::vector<std::string> fixIds(std::vector<std::string> ids);

  /// The payload with the string under `guidKey` replaced by its `fixId` form. When that member
  /// is missing or not a string, the payload comes back as it went in.
  ///
  /// The payload is taken by value and edited in place: move it in to avoid any copy. The result
  /// keeps the payload's memory resource.
  static JsonObject fixPayloadId(JsonObject payload, std::string_view guidKey);

  /// Absent when the payload is absent and also when the key is absent; otherwise `fixPayloadId`.
  static std::optional<JsonObject> fixOptionalPayloadId(std::optional<JsonObject> payload,
                                                        std::optional<std::string_view> guidKey);

  /// The payload's objects, each through `fixPayloadId`, in order; elements that are not objects
  /// are dropped. Taken by value and edited in place, like `fixPayloadId`.
  static JsonArray fixPayloadIds(JsonArray payload, std::string_view guidKey);

  /// Absent when the payload or the key is absent; otherwise `fixPayloadIds`.
  static std::optional<JsonArray> fixOptionalPayloadIds(std::optional<JsonArray> payload,
                                                        std::optional<std::string_view> guidKey);

 private:
  /// The byte length of the range that covers the first `prefixLength` user-perceived characters
  /// of `id` (the range starts at byte 0); the whole id when it has fewer characters.
  static std::size_t createRange(std::string_view id, std::size_t prefixLength) noexcept;

  /// The canonical prefix that `id` begins with, or empty when none does.
  static std::string_view matchingPrefix(std::string_view id) noexcept;
  static bool beginsWith(std::string_view id, std::string_view prefix) noexcept;
};

}  // namespace applogic
