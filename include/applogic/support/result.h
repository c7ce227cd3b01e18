#pragma once

#include <utility>
#include <variant>

#include "applogic/support/error.h"

namespace applogic {

/// Success carrying a `T`, or failure carrying an `Error`. Exactly one of the two is held.
///
/// Reading the side that is not held is a programming error (checked by `std::get`'s contract
/// in debug builds); ask `ok()` first.
template <class T>
class [[nodiscard]] Result {
 public:
  static Result success(T value) { return Result(std::in_place_index<0>, std::move(value)); }
  static Result failure(Error error) { return Result(std::in_place_index<1>, std::move(error)); }

  bool ok() const noexcept { return state_.index() == 0; }
  explicit operator bool() const noexcept { return ok(); }

  const T& value() const& { return *std::get_if<0>(&state_); }
  T& value() & { return *std::get_if<0>(&state_); }
  T&& value() && { return std::move(*std::get_if<0>(&state_)); }
  const Error& error() const& { return *std::get_if<1>(&state_); }

  friend bool operator==(const Result&, const Result&) = default;

 private:
  template <std::size_t I, class V>
  Result(std::in_place_index_t<I> tag, V&& v) : state_(tag, std::forward<V>(v)) {}

  std::variant<T, Error> state_;
};

}  // namespace applogic
