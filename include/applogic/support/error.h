#pragma once

#include <cstdint>
#include <map>
#include <ostream>
#include <string>
#include <variant>

#include "applogic/export.h"

namespace applogic {

/// One value of an error's user information: a number or a text.
using ErrorInfoValue = std::variant<std::int64_t, std::string>;

/// The platform error value: a domain, an integer code and optional user information.
///
/// Reactive streams fail with it and the library's own errors are built from it. Two errors are
/// equal when domain, code and user information are all equal. Plain value; any thread.
struct APPLOGIC_EXPORT Error {
  std::string domain;
  std::int64_t code = 0;
  std::map<std::string, ErrorInfoValue, std::less<>> userInfo;

  friend bool operator==(const Error&, const Error&) = default;
};

/// Prints `domain (code)` and the user information, for diagnostics and test failures.
APPLOGIC_EXPORT std::ostream& operator<<(std::ostream& out, const Error& error);

}  // namespace applogic
