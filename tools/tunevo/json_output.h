#pragma once

#include <iosfwd>
#include <optional>
#include <vector>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include "applogic/records/genre.h"
#include "applogic/records/giphy.h"
#include "applogic/records/page.h"
#include "applogic/records/playlist.h"
#include "applogic/records/track.h"

// The JSON form in which tunevo prints records: one object per record whose members are the
// record's fields in declaration order, named as the record names them (except where a field
// name is a C++ keyword: `Track::isExplicit` prints as "explicit").
namespace tunevo {

boost::json::value toJson(const applogic::Track& track);
boost::json::value toJson(const applogic::Genre& genre);

// Paging and playlists (json_output_playlists.cpp). A `PlaylistImage` prints as
// {"display": {DisplayImage's fields}} or {"giphy": "<id>"}; an absent optional field as null.
boost::json::value toJson(const applogic::Metadata& metadata);
boost::json::value toJson(const applogic::DisplayImage& image);
boost::json::value toJson(const applogic::PlaylistImage& image);
boost::json::value toJson(const applogic::Playlist& playlist);
/// {"metadata": ..., "payload": ...}; defined below the list and optional forms, which it uses.
template <class Payload>
boost::json::value toJson(const applogic::Page<Payload>& page);

// Giphy pictures (json_output_giphy.cpp): `images` is an object from rendition key to
// {"width", "height", "urlString"} in the answer's order, sizes as integers when whole (else as
// numbers, null when not finite); `rating` is its raw string; an absent optional field is null.
boost::json::value toJson(const applogic::Giphy& giphy);

// Overloads for further records go above this line, so that the list and optional forms below
// find them.

/// An array of the records' forms, in order.
template <class Record>
boost::json::value toJson(const std::vector<Record>& records) {
  boost::json::array items;
  items.reserve(records.size());
  for (const Record& record : records) items.push_back(toJson(record));
  return items;
}

/// The value's form, or null when it is absent.
template <class T>
boost::json::value toJson(const std::optional<T>& value) {
  if (!value) return nullptr;
  return toJson(*value);
}

template <class Payload>
boost::json::value toJson(const applogic::Page<Payload>& page) {
  boost::json::object object;
  object.reserve(2);
  object.emplace("metadata", toJson(page.metadata));
  object.emplace("payload", toJson(page.payload));
  return object;
}

/// Writes `document` compactly, then a newline.
void writeDocument(std::ostream& out, const boost::json::value& document);

}  // namespace tunevo
