#include "applogic/support/json.h"

#include <charconv>
#include <limits>

#include <boost/json/array.hpp>
#include <boost/json/basic_parser_impl.hpp>
#include <boost/json/object.hpp>
#include <boost/json/value_stack.hpp>

namespace applogic::json {
namespace {

// The parser's events build the value as boost::json::parse does, except that a double is read
// again from its text with std::from_chars, which rounds correctly. The whole document is written
// to the parser at once, so a number's text never comes in parts.
struct ExactNumbers {
  static constexpr std::size_t max_array_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_object_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_string_size = static_cast<std::size_t>(-1);
  static constexpr std::size_t max_key_size = static_cast<std::size_t>(-1);
  using error_code = boost::system::error_code;
  using string_view = boost::json::string_view;

  bool on_document_begin(error_code&) { return true; }
  bool on_document_end(error_code&) { return true; }
  bool on_array_begin(error_code&) { return true; }
  bool on_array_end(std::size_t n, error_code&) { return stack.push_array(n), true; }
  bool on_object_begin(error_code&) { return true; }
  bool on_object_end(std::size_t n, error_code&) { return stack.push_object(n), true; }
  bool on_string_part(string_view s, std::size_t, error_code&) { return stack.push_chars(s), true; }
  bool on_string(string_view s, std::size_t, error_code&) { return stack.push_string(s), true; }
  bool on_key_part(string_view s, std::size_t, error_code&) { return stack.push_chars(s), true; }
  bool on_key(string_view s, std::size_t, error_code&) { return stack.push_key(s), true; }
  bool on_number_part(string_view, error_code&) { return true; }
  bool on_int64(std::int64_t i, string_view, error_code&) { return stack.push_int64(i), true; }
  bool on_uint64(std::uint64_t u, string_view, error_code&) { return stack.push_uint64(u), true; }
  bool on_double(double d, string_view s, error_code&) {
    // The parser has checked the text. Beyond a double's range (1e999) from_chars writes nothing,
    // which leaves the parser's own infinity.
    double exact = d;
    (void)std::from_chars(s.data(), s.data() + s.size(), exact);
    stack.push_double(exact);
    return true;
  }
  bool on_bool(bool b, error_code&) { return stack.push_bool(b), true; }
  bool on_null(error_code&) { return stack.push_null(), true; }
  bool on_comment_part(string_view, error_code&) { return true; }
  bool on_comment(string_view, error_code&) { return true; }

  boost::json::value_stack stack;
};

}  // namespace

std::optional<Json> parseExactly(std::string_view text) {
  boost::json::basic_parser<ExactNumbers> parser{boost::json::parse_options{}};
  parser.handler().stack.reset();
  boost::system::error_code error;
  const std::size_t read = parser.write_some(false, text.data(), text.size(), error);
  if (error || read != text.size()) return std::nullopt;
  return parser.handler().stack.release();
}

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
