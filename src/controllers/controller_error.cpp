#include "applogic/controllers/controller_error.h"

#include <string>

#include "controllers/parse_step.h"

namespace applogic {

std::optional<ErrorCode> errorCodeFromRaw(std::int64_t raw) noexcept {
  if (raw == static_cast<std::int64_t>(ErrorCode::unparsable)) return ErrorCode::unparsable;
  return std::nullopt;
}

Error typedParsingError(std::string_view controllerName) {
  return Error{std::string(controllerName), static_cast<std::int64_t>(ErrorCode::unparsable), {}};
}

Error genericParsingError() { return Error{"Unknown parsing error", 0, {}}; }

namespace detail {

const Error& sharedGenericParsingError() {
  static const Error error = genericParsingError();
  return error;
}

}  // namespace detail

}  // namespace applogic
