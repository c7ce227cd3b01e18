#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

#include <boost/json/value.hpp>

#include "applogic/export.h"
#include "applogic/support/json_fwd.h"

/// The one set of typed lookups that every parser uses, so that all of them follow the same rules:
///
/// - a string is never a number or a boolean;
/// - an integer is a JSON integer that fits the requested type (a JSON 215.0 is not an integer);
/// - a boolean is JSON `true` or `false` only;
/// - `null` and a value of the wrong type count as a missing key.
///
/// Lookups never throw and never copy the looked-up value; the results point into the answer and
/// live as long as it does. Pure; any thread.
namespace applogic::json {

/// The value as an object, or null when it is not one.
inline const JsonObject* object(const Json& value) noexcept { return value.if_object(); }

/// The value as an array, or null when it is not one.
inline const JsonArray* array(const Json& value) noexcept { return value.if_array(); }

/// The value as an array whose every element is an object, or null otherwise. An empty array
/// qualifies.
APPLOGIC_EXPORT const JsonArray* arrayOfObjects(const Json& value) noexcept;

/// The member `key`, or null when it is missing or JSON null.
APPLOGIC_EXPORT const Json* member(const JsonObject& object, std::string_view key) noexcept;

APPLOGIC_EXPORT std::optional<std::string_view> string(const Json& value) noexcept;
APPLOGIC_EXPORT std::optional<std::int64_t> integer(const Json& value) noexcept;
APPLOGIC_EXPORT std::optional<bool> boolean(const Json& value) noexcept;

APPLOGIC_EXPORT std::optional<std::string_view> string(const JsonObject& object, std::string_view key) noexcept;
APPLOGIC_EXPORT std::optional<std::int64_t> integer(const JsonObject& object, std::string_view key) noexcept;
APPLOGIC_EXPORT std::optional<bool> boolean(const JsonObject& object, std::string_view key) noexcept;
APPLOGIC_EXPORT const JsonObject* object(const JsonObject& object, std::string_view key) noexcept;
APPLOGIC_EXPORT const JsonArray* array(const JsonObject& object, std::string_view key) noexcept;
APPLOGIC_EXPORT const JsonArray* arrayOfObjects(const JsonObject& object, std::string_view key) noexcept;

/// The answer's list: `value` as an object, then its member `key` as an array of objects; null
/// when either step fails. The first two steps of every list serializer.
APPLOGIC_EXPORT const JsonArray* arrayOfObjects(const Json& value, std::string_view key) noexcept;

/// `text` as one JSON document whose numbers read exactly as written: a fraction or exponent reads
/// as the double nearest its text, so that a double `boost::json::serialize` wrote reads back as
/// the same double (this Boost's own parser may miss by a unit in the last place on long numbers,
/// and a stored value would then change each time it is read and written). Null for text that is
/// not one JSON document. Any thread.
APPLOGIC_EXPORT std::optional<Json> parseExactly(std::string_view text);

/// The element at `index` of an array already known to hold only objects.
inline const JsonObject& objectAt(const JsonArray& objects, std::size_t index) noexcept {
  return objects[index].get_object();
}

}  // namespace applogic::json
