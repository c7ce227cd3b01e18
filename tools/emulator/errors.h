#pragma once

#include <string>

#include "applogic/support/error.h"
#include "emulator/signin_server.h"

namespace applogic::emulator::detail {

inline Error serverError(std::int64_t code, std::string message) {
  return Error{kSignInServerErrorDomain, code, {{kSignInServerErrorMessageKey, std::move(message)}}};
}

}  // namespace applogic::emulator::detail
