#include "applogic/support/json.h"

#include <limits>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>

namespace applogic::json {

const JsonArray* arrayOfObjects(const Json& value) noexcept {
  const JsonArray* items = value.if_array();
  if (items == nullptr) return nullptr;
  for (const Json& item : *items) {
    if (!item.is_object()) return nullptr;
  }
  return items;
}

const Json* member(const JsonObject& object, std::string_view key) noexcept {
  const Json* found = object.if_contains(key);
  if (found == nullptr || found->is_null()) return nullptr;
  return found;
}

std::optional<std::string_view> string(const Json& value) noexcept {
  if (const auto* text = value.if_string()) return std::string_view(*text);
  return std::nullopt;
}

std::optional<std::int64_t> integer(const Json& value) noexcept {
  if (const auto* signedValue = value.if_int64()) return *signedValue;
  // The parser stores integers above INT64_MAX as uint64; they do not fit the record fields.
  if (const auto* unsignedValue = value.if_uint64()) {
    if (*unsignedValue <= static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
      return static_cast<std::int64_t>(*unsignedValue);
    }
  }
  return std::nullopt;
}

std::optional<bool> boolean(const Json& value) noexcept {
  if (const auto* flag = value.if_bool()) return *flag;
  return std::nullopt;
}

std::optional<std::string_view> string(const JsonObject& object, std::string_view key) noexcept {
  const Json* found = object.if_contains(key);
  return found ? string(*found) : std::nullopt;
}

std::optional<std::int64_t> integer(const JsonObject& object, std::string_view key) noexcept {
  const Json* found = object.if_contains(key);
  return found ? integer(*found) : std::nullopt;
}

std::optional<bool> boolean(const JsonObject& object, std::string_view key) noexcept {
  const Json* found = object.if_contains(key);
  return found ? boolean(*found) : std::nullopt;
}

const JsonObject* object(const JsonObject& object, std::string_view key) noexcept {
  const Json* found = object.if_contains(key);
  return found ? found->if_object() : nullptr;
}

const JsonArray* array(const JsonObject& object, std::string_view key) noexcept {
  const Json* found = object.if_contains(key);
  return found ? found->if_array() : nullptr;
}

const JsonArray* arrayOfObjects(const JsonObject& object, std::string_view key) noexcept {
  const Json* found = object.if_contains(key);
  return found ? arrayOfObjects(*found) : nullptr;
}

const JsonArray* arrayOfObjects(const Json& value, std::string_view key) noexcept {
  const JsonObject* answer = value.if_object();
  return answer == nullptr ? nullptr : arrayOfObjects(*answer, key);
}

}  // namespace applogic::json
