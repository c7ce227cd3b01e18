#pragma once

#include <iosfwd>
#include <string_view>

#include "applogic/support/error.h"
#include "applogic/support/json_fwd.h"
#include "applogic/testing/scripted_services.h"

// What every section of `tunevo demo` shares: the bundled answers and the way errors are shown.
namespace tunevo {

/// The bundled sample `name` as JSON. Samples are part of the program, so a missing or broken
/// one is a build fault, not an input error: it stops the program.
applogic::Json sampleJson(std::string_view name);

/// The bundled sample `name` as a scripted answer (emitted, then completed).
applogic::testing::Answer sampleAnswer(std::string_view name);

/// Writes `error` as the app receives it: domain and code, then its user information.
void printError(std::ostream& out, const applogic::Error& error);

}  // namespace tunevo
