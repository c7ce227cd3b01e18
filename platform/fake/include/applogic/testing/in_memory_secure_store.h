#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "applogic/platform/secure_store.h"

namespace applogic::testing {

class FaultPlan;

/// A `SecureStore` in memory, with the same rules as the real ports, that records every call and
/// can be told to answer a call with a given status instead of running it.
///
/// Thread-safe.
class InMemorySecureStore final : public platform::SecureStore {
 public:
  enum class Call { copyMatching, add, update, remove };
  /// One call: which, and its query (for `add`, its attributes).
  struct RecordedCall {
    Call call;
    platform::SecureItem query;
    friend bool operator==(const RecordedCall&, const RecordedCall&) = default;
  };

  platform::SecureStoreStatus copyMatching(const platform::SecureItem& query, platform::SecureItemReturn what,
                                           platform::SecureItem* result) override;
  platform::SecureStoreStatus add(const platform::SecureItem& attributes) override;
  platform::SecureStoreStatus update(const platform::SecureItem& query,
                                     const platform::SecureItem& attributesToUpdate) override;
  platform::SecureStoreStatus remove(const platform::SecureItem& query) override;

  /// From now on `call` changes nothing and returns `status`; absent restores normal behaviour.
  void failWith(Call call, std::optional<platform::SecureStoreStatus> status);
  /// Makes every call ask `plan` first ("store.read" for `copyMatching`, "store.add",
  /// "store.update", "store.remove"); a call the plan fails changes nothing and returns
  /// `kInteractionNotAllowed`, as a busy or locked store does. Null: nothing fails.
  void setFaultPlan(std::shared_ptr<FaultPlan> plan);
  /// The calls made so far, in order (failed ones included).
  std::vector<RecordedCall> calls() const;
  /// The items held, in insertion order.
  std::vector<platform::SecureItem> items() const;

 private:
  std::optional<platform::SecureStoreStatus> injected(Call call, const platform::SecureItem& query);

  mutable std::mutex mutex_;
  std::vector<platform::SecureItem> items_;
  std::map<Call, platform::SecureStoreStatus> failures_;
  std::vector<RecordedCall> calls_;
  std::shared_ptr<FaultPlan> faults_;
};

}  // namespace applogic::testing
