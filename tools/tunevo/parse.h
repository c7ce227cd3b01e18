#pragma once

#include <iosfwd>
#include <span>
#include <string>
#include <string_view>

#include <boost/json/value.hpp>

#include "applogic/support/json_fwd.h"
#include "tunevo/parse_giphy.h"

// `tunevo parse KIND [FILE]`: runs one serializer of the library over a service answer and prints
// the records it makes.
namespace tunevo {

/// One KIND of `tunevo parse`: its command-line name, the answer shape it expects (for the
/// usage text) and the serializer, with its result already in printable form (null when the
/// serializer's result is absent). Exactly one of `run` and `runWithGiphyOptions` is set; only
/// the KINDs with the latter accept the Giphy options.
struct ParseKind {
  std::string_view name;
  std::string_view answer;
  boost::json::value (*run)(const applogic::Json& answer);
  boost::json::value (*runWithGiphyOptions)(const applogic::Json& answer, const GiphyOptions& options) = nullptr;
};

/// Every KIND, in the order the usage text lists them.
std::span<const ParseKind> parseKinds() noexcept;

/// The KIND called `name`, or null.
const ParseKind* findParseKind(std::string_view name) noexcept;

/// Writes the usage text of `tunevo parse`.
void printParseUsage(std::ostream& out);

/// Runs `tunevo parse` with the arguments that follow the word "parse". Reads FILE, or `in` when
/// FILE is absent or "-"; writes the result to `out` as one JSON document and a newline, and
/// messages to `err`. Returns the exit status: 0 when the text was JSON (whatever the
/// serializer made of it, null included), 2 when it was not JSON (the message gives line,
/// column and the parser's reason), 64 on bad usage, an unknown KIND or options given to a KIND
/// that takes none (usage on `err`), 66 when FILE cannot be read. "-h" or "--help" prints the
/// usage on `out` and returns 0.
int runParse(std::span<const std::string> args, std::istream& in, std::ostream& out,
             std::ostream& err);

}  // namespace tunevo
