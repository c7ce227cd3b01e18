#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string_view>

#include "applogic/export.h"
#include "applogic/rx/observable.h"
#include "applogic/support/error.h"

/// The errors that data controllers make themselves. Parsing failure is the only one: an answer
/// that the operation's serializer could not read. It comes in two forms, neither of which
/// carries user information:
/// - typed: domain = the controller's class name ("TracksDataController", "SearchDataController",
///   "UsersTracksDataController"), code `ErrorCode::unparsable` (1);
/// - generic: domain "Unknown parsing error", code 0 (`GenreDataController`,
///   `PersonalizedDataController`, and `TracksDataController::getTopTracks`).
/// Errors of the services themselves reach the app unchanged.
namespace applogic {

/// The code of a controller's typed parsing error.
enum class ErrorCode : std::int64_t {
  unparsable = 1,
};

/// The `ErrorCode` whose raw value is `raw`: `unparsable` for 1, nothing for any other value.
[[nodiscard]] APPLOGIC_EXPORT std::optional<ErrorCode> errorCodeFromRaw(std::int64_t raw) noexcept;

/// The typed parsing error of the controller named `controllerName`: (controllerName, 1).
[[nodiscard]] APPLOGIC_EXPORT Error typedParsingError(std::string_view controllerName);

/// The generic parsing error: ("Unknown parsing error", 0).
[[nodiscard]] APPLOGIC_EXPORT Error genericParsingError();

/// Observables of the generic parsing error. Stateless.
class APPLOGIC_EXPORT ParsingErrorObservable {
 public:
  /// Emits no element and fails with `genericParsingError()` at once on each subscription.
  template <class T>
  static rx::Observable<T> unknownParsingError() {
    return rx::error<T>(genericParsingError());
  }
};

}  // namespace applogic

/// Hashes an `ErrorCode` by its case index: `unparsable`, the only case, hashes to 0.
template <>
struct APPLOGIC_EXPORT std::hash<applogic::ErrorCode> {
  std::size_t operator()(applogic::ErrorCode) const noexcept { return 0; }
};
