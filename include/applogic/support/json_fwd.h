#pragma once

// Forward declarations of the raw-answer types, for headers that only pass them by reference.
// Include "applogic/support/json.h" where the value is inspected.

namespace boost::json {
class value;
class object;
class array;
}  // namespace boost::json

namespace applogic {

/// A raw service answer: one JSON value as the service delivered it. Object members keep the
/// answer's order.
using Json = boost::json::value;
using JsonObject = boost::json::object;
using JsonArray = boost::json::array;

}  // namespace applogic
