#pragma once

#include <cstdint>
#include <iosfwd>
#include <optional>
#include <vector>

#include "applogic/export.h"
#include "applogic/records/track.h"
#include "applogic/support/json_fwd.h"

namespace applogic {

/// The paging block ("meta") of an answer of the service's version-2 interface: which slice of a
/// longer list the answer holds. -1 means "not known"; 0 is a real count or position.
///
/// Plain value; equal when all four fields are equal.
struct APPLOGIC_EXPORT Metadata {
  std::int64_t queryLimit = -1;     ///< "meta"."query"."limit": the limit the request asked for.
  std::int64_t queryOffset = -1;    ///< "meta"."query"."offset": the offset the request asked for.
  std::int64_t returnedCount = -1;  ///< "meta"."returnedCount": how many items this answer holds.
  std::int64_t totalCount = -1;     ///< "meta"."totalCount": how many items the whole list holds.

  /// Reads the paging block of a whole answer (not of the "meta" object itself); never fails.
  /// Each field falls back to -1 on its own when its member, or an object on its path, is
  /// missing or of the wrong type; a count sent as a string counts as missing.
  static Metadata fromRaw(const JsonObject& answer);

  friend bool operator==(const Metadata&, const Metadata&) = default;
};

/// Prints the four fields, for diagnostics and test failures.
APPLOGIC_EXPORT std::ostream& operator<<(std::ostream& out, const Metadata& metadata);

/// One slice of a longer list: its paging block and what the answer held. The caller finds the
/// next slice from `metadata` (for example at `queryOffset + returnedCount`); nothing here keeps
/// a paging position. Plain value; equal when both fields are equal.
template <class Payload>
struct Page {
  Metadata metadata;
  Payload payload;

  friend bool operator==(const Page&, const Page&) = default;
};

/// `Metadata::fromRaw` of `input`; absent only when `input` is not an object (an object without
/// "meta" gives four -1 values). Pure; any thread.
APPLOGIC_EXPORT std::optional<Metadata> V2ResponseToMetaData(const Json& input);

/// {"meta": {...}, "tracks": [track, ...]} → the page of a playlist's tracks: the answer's
/// paging block and `PlaylistTracksResponseToTracks` of the answer. Absent when `input` is not
/// an object or its tracks do not parse (the paging block is then dropped). Pure; any thread.
APPLOGIC_EXPORT std::optional<Page<std::vector<Track>>> PlaylistTracksResponseToPageTracks(const Json& input);

}  // namespace applogic
