#include "applogic/records/genre.h"

#include <utility>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value.hpp>

#include "applogic/records/mo_prefix.h"
#include "applogic/support/json.h"

namespace applogic {

Genre::Genre(std::string id, std::string name, std::string description)
    : id(MOPrefix::fixId(std::move(id))), name(std::move(name)), description(std::move(description)) {}

Genre Genre::fromRaw(const JsonObject& raw) {
  const auto text = [&raw](std::string_view key) {
    return std::string(json::string(raw, key).value_or(std::string_view()));
  };
  return Genre(text("id"), text("name"), text("description"));
}

Genre Genre::fromRaw(const Json& raw) {
  if (const JsonObject* object = json::object(raw)) return fromRaw(*object);
  return Genre();
}

std::optional<std::vector<Genre>> GenreResponseToGenres(const Json& input) {
  const JsonArray* items = json::arrayOfObjects(input, "genres");
  if (items == nullptr) return std::nullopt;
  std::vector<Genre> genres;
  genres.reserve(items->size());
  for (std::size_t i = 0; i < items->size(); ++i) {
    genres.push_back(Genre::fromRaw(json::objectAt(*items, i)));
  }
  return genres;
}

}  // namespace applogic
