#pragma once

#include <cstddef>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

namespace applogic::testing {

/// Chooses which failable call of a run fails, for the doubles that share it.
///
/// Every double that can fail in life (a store read, an HTTP callback, a random fill, a player
/// preroll...) asks its plan `fails(site)` once per failable call, before doing the call. The plan
/// numbers those calls in the order they happen, across all the doubles that share it, and
/// answers true for exactly the one chosen with `failAt`. A test therefore runs a flow once with
/// no failure to count its fault points, then once per point with that point failing:
///
///     for (std::size_t n = 1; n <= points; ++n) { Fixture f; f.plan->failAt(n); runFlow(f); check(f); }
///
/// Thread-safe: doubles may ask from any thread; the numbering then follows the order in which
/// the calls reach the plan.
class FaultPlan {
 public:
  /// Counts one failable call named `site` ("store.read", "http.start"...); true when it is the
  /// call chosen to fail.
  bool fails(std::string_view site);

  /// From now on, the `n`th call counted (1-based) fails; 0 fails none. Restarts the count.
  void failAt(std::size_t n);

  /// The failable calls counted since construction or the last `failAt`.
  std::size_t count() const;
  /// Their sites, in the order they were counted.
  std::vector<std::string> sites() const;
  /// The site of the call that failed, or empty while none has.
  std::string failedSite() const;

 private:
  mutable std::mutex mutex_;
  std::size_t failAt_ = 0;
  std::vector<std::string> sites_;
};

}  // namespace applogic::testing
