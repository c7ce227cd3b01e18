#pragma once

#include <optional>
#include <string>
#include <vector>

#include "applogic/export.h"
#include "applogic/support/json_fwd.h"

namespace applogic {

/// A catalog genre. Plain value with every field readable and writable; genres have no equality
/// or hash of their own.
struct APPLOGIC_EXPORT Genre {
  std::string id;  ///< Catalog id, normalised by `MOPrefix::fixId` when built.
  std::string name;
  std::string description;

  /// The genre of an empty answer: three empty strings.
  Genre() = default;

  /// Stores the values as given, except `id`, which goes through `MOPrefix::fixId`.
  Genre(std::string id, std::string name, std::string description);

  /// Builds a genre from one answer object; never fails. "id", "name" and "description" are
  /// taken when they are strings, else ""; other members are ignored.
  static Genre fromRaw(const JsonObject& raw);

  /// As above; a value that is not an object reads as an empty object.
  static Genre fromRaw(const Json& raw);
};

/// {"genres": [genre, ...]} → the genres in the answer's order. Absent when `input` is not an
/// object or "genres" is missing, null, not an array, or holds an element that is not an object;
/// an empty array gives an empty list. Pure; any thread.
APPLOGIC_EXPORT std::optional<std::vector<Genre>> GenreResponseToGenres(const Json& input);

}  // namespace applogic
