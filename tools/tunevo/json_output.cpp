#include "tunevo/json_output.h"

#include <ostream>

#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

namespace tunevo {

boost::json::value toJson(const applogic::Track& track) {
  boost::json::object object;
  object.reserve(10);
  object.emplace("id", track.id);
  object.emplace("name", track.name);
  object.emplace("playbackSeconds", track.playbackSeconds);
  object.emplace("explicit", track.isExplicit);
  object.emplace("artistID", track.artistID);
  object.emplace("artistName", track.artistName);
  object.emplace("albumID", track.albumID);
  object.emplace("albumName", track.albumName);
  object.emplace("isStreamable", track.isStreamable);
  object.emplace("previewURL", track.previewURL);
  return object;
}

boost::json::value toJson(const applogic::Genre& genre) {
  boost::json::object object;
  object.reserve(3);
  object.emplace("id", genre.id);
  object.emplace("name", genre.name);
  object.emplace("description", genre.description);
  return object;
}

void writeDocument(std::ostream& out, const boost::json::value& document) {
  out << boost::json::serialize(document) << '\n';
}

}  // namespace tunevo
