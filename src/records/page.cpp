#include "applogic/records/page.h"

#include <ostream>
#include <utility>

#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include "applogic/records/track_serializers.h"
#include "applogic/support/json.h"

namespace applogic {

Metadata Metadata::fromRaw(const JsonObject& answer) {
  Metadata metadata;
  const JsonObject* meta = json::object(answer, "meta");
  if (meta == nullptr) return metadata;
  metadata.returnedCount = json::integer(*meta, "returnedCount").value_or(-1);
  metadata.totalCount = json::integer(*meta, "totalCount").value_or(-1);
  if (const JsonObject* query = json::object(*meta, "query")) {
    metadata.queryLimit = json::integer(*query, "limit").value_or(-1);
    metadata.queryOffset = json::integer(*query, "offset").value_or(-1);
  }
  return metadata;
}

std::ostream& operator<<(std::ostream& out, const Metadata& metadata) {
  return out << "Metadata{queryLimit " << metadata.queryLimit << ", queryOffset " << metadata.queryOffset
             << ", returnedCount " << metadata.returnedCount << ", totalCount " << metadata.totalCount << "}";
}

std::optional<Metadata> V2ResponseToMetaData(const Json& input) {
  const JsonObject* answer = json::object(input);
  if (answer == nullptr) return std::nullopt;
  return Metadata::fromRaw(*answer);
}

std::optional<Page<std::vector<Track>>> PlaylistTracksResponseToPageTracks(const Json& input) {
  const JsonObject* answer = json::object(input);
  if (answer == nullptr) return std::nullopt;
  std::optional<std::vector<Track>> tracks = PlaylistTracksResponseToTracks(input);
  if (!tracks) return std::nullopt;
  return Page<std::vector<Track>>{Metadata::fromRaw(*answer), std::move(*tracks)};
}

}  // namespace applogic
