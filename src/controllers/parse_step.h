#pragma once

#include <optional>
#include <utility>

#include "applogic/rx/observable.h"
#include "applogic/support/error.h"

namespace applogic::detail {

// The last step of every controller operation: what a serializer made of an answer becomes the
// inner observable of the operation's flatMap. `just` keeps the scalar fast path of flatMap.
template <class T>
rx::Observable<T> emitOrFail(std::optional<T> parsed, const Error& error) {
  if (parsed) return rx::just(std::move(*parsed));
  return rx::error<T>(error);
}

// Built once: the failing branch then costs no string allocation per answer.
const Error& sharedGenericParsingError();

}  // namespace applogic::detail
