#include "applogic/testing/in_memory_secure_store.h"

#include <algorithm>
#include <string_view>

#include "applogic/testing/fault_plan.h"

namespace applogic::testing {
namespace {

namespace status = platform::secure_store_status;
using platform::SecureItem;

bool matches(const SecureItem& item, const SecureItem& query) {
  return (!query.itemClass || query.itemClass == item.itemClass) && (!query.service || query.service == item.service) &&
         (!query.accessible || query.accessible == item.accessible);
}

}  // namespace

std::optional<platform::SecureStoreStatus> InMemorySecureStore::injected(Call call, const SecureItem& query) {
  calls_.push_back({call, query});
  if (const auto found = failures_.find(call); found != failures_.end()) return found->second;
  static constexpr std::string_view kSites[] = {"store.read", "store.add", "store.update", "store.remove"};
  // A busy or locked store: what a desktop keyring or a SQLite file held by another process says.
  if (faults_ && faults_->fails(kSites[static_cast<int>(call)])) return status::kInteractionNotAllowed;
  return std::nullopt;
}

void InMemorySecureStore::setFaultPlan(std::shared_ptr<FaultPlan> plan) {
  std::lock_guard lock(mutex_);
  faults_ = std::move(plan);
}

platform::SecureStoreStatus InMemorySecureStore::copyMatching(const SecureItem& query, platform::SecureItemReturn what,
                                                              SecureItem* result) {
  std::lock_guard lock(mutex_);
  if (const auto failure = injected(Call::copyMatching, query)) return *failure;
  if (query.data) return status::kParam;
  const auto found = std::find_if(items_.begin(), items_.end(), [&](const SecureItem& i) { return matches(i, query); });
  if (found == items_.end()) return status::kItemNotFound;
  if (result != nullptr) {
    *result = SecureItem{};
    if (what == platform::SecureItemReturn::attributes) {
      result->itemClass = found->itemClass;
      result->service = found->service;
      result->accessible = found->accessible;
    } else {
      result->data = found->data;
    }
  }
  return status::kSuccess;
}

platform::SecureStoreStatus InMemorySecureStore::add(const SecureItem& attributes) {
  std::lock_guard lock(mutex_);
  if (const auto failure = injected(Call::add, attributes)) return *failure;
  if (!attributes.itemClass || !attributes.service) return status::kParam;
  const SecureItem identity{attributes.itemClass, attributes.service, std::nullopt, std::nullopt};
  if (std::any_of(items_.begin(), items_.end(), [&](const SecureItem& i) { return matches(i, identity); })) {
    return status::kDuplicateItem;
  }
  SecureItem item = attributes;
  if (!item.data) item.data.emplace();
  items_.push_back(std::move(item));
  return status::kSuccess;
}

platform::SecureStoreStatus InMemorySecureStore::update(const SecureItem& query, const SecureItem& attributesToUpdate) {
  std::lock_guard lock(mutex_);
  if (const auto failure = injected(Call::update, query)) return *failure;
  if (query.data || attributesToUpdate.itemClass) return status::kParam;
  if (!attributesToUpdate.service && !attributesToUpdate.accessible && !attributesToUpdate.data) return status::kParam;
  std::vector<SecureItem> changed = items_;
  bool any = false;
  for (auto& item : changed) {
    if (!matches(item, query)) continue;
    any = true;
    if (attributesToUpdate.service) item.service = attributesToUpdate.service;
    if (attributesToUpdate.accessible) item.accessible = attributesToUpdate.accessible;
    if (attributesToUpdate.data) item.data = attributesToUpdate.data;
  }
  if (!any) return status::kItemNotFound;
  for (std::size_t i = 0; i < changed.size(); ++i) {
    for (std::size_t j = i + 1; j < changed.size(); ++j) {
      if (changed[i].itemClass == changed[j].itemClass && changed[i].service == changed[j].service) {
        return status::kDuplicateItem;
      }
    }
  }
  items_ = std::move(changed);
  return status::kSuccess;
}

platform::SecureStoreStatus InMemorySecureStore::remove(const SecureItem& query) {
  std::lock_guard lock(mutex_);
  if (const auto failure = injected(Call::remove, query)) return *failure;
  if (query.data) return status::kParam;
  const auto removed = std::erase_if(items_, [&](const SecureItem& i) { return matches(i, query); });
  return removed == 0 ? status::kItemNotFound : status::kSuccess;
}

void InMemorySecureStore::failWith(Call call, std::optional<platform::SecureStoreStatus> failure) {
  std::lock_guard lock(mutex_);
  if (failure) {
    failures_[call] = *failure;
  } else {
    failures_.erase(call);
  }
}

std::vector<InMemorySecureStore::RecordedCall> InMemorySecureStore::calls() const {
  std::lock_guard lock(mutex_);
  return calls_;
}

std::vector<SecureItem> InMemorySecureStore::items() const {
  std::lock_guard lock(mutex_);
  return items_;
}

}  // namespace applogic::testing
