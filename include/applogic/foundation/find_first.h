#pragma once

#include <functional>
#include <iterator>
#include <memory>
#include <ranges>
#include <type_traits>

namespace applogic {

/// The first element of `range`, in iteration order, for which `predicate` returns true: a
/// pointer to that element inside the range, or null when no element satisfies it (an empty
/// range included). The predicate is called on each element at most once, in order, and no
/// further once it has returned true; elements are never copied.
///
/// The pointer stays valid as long as the element does, so `range` must be one whose elements
/// outlive the call (a named container, a span); a temporary container does not compile.
/// Pure; any thread the range may be read on.
template <std::ranges::input_range Range, class Predicate>
  requires std::ranges::borrowed_range<Range> &&
           std::is_lvalue_reference_v<std::ranges::range_reference_t<Range>> &&
           std::predicate<Predicate&, std::ranges::range_reference_t<Range>>
auto findFirst(Range&& range, Predicate predicate)
    -> std::add_pointer_t<std::remove_reference_t<std::ranges::range_reference_t<Range>>> {
  for (auto&& element : range) {
    if (std::invoke(predicate, element)) return std::addressof(element);
  }
  return nullptr;
}

}  // namespace applogic
