#include "applogic/platform/notification_center.h"

#include <atomic>
#include <mutex>
#include <utility>
#include <vector>

namespace applogic::platform {
namespace {

class Registration final : public NotificationObserver {
 public:
  Registration(std::optional<std::string> name, const void* object, NotificationCenter::Handler handler)
      : name(std::move(name)), object(object), handler(std::move(handler)) {}

  bool matches(const Notification& notification) const {
    return (!name || *name == notification.name) && (object == nullptr || object == notification.object);
  }

  const std::optional<std::string> name;
  const void* const object;
  const NotificationCenter::Handler handler;
  std::atomic<bool> removed{false};
};

class InProcessNotificationCenter final : public NotificationCenter {
 public:
  NotificationObserverToken addObserver(std::optional<std::string> name, const void* object,
                                        Handler handler) override {
    auto registration = std::make_shared<Registration>(std::move(name), object, std::move(handler));
    std::lock_guard lock(mutex_);
    auto next = std::make_shared<List>(*registrations_);
    next->push_back(registration);
    registrations_ = std::move(next);
    return registration;
  }

  void removeObserver(const NotificationObserverToken& token) override {
    if (!token) return;
    std::lock_guard lock(mutex_);
    auto next = std::make_shared<List>();
    next->reserve(registrations_->size());
    for (const auto& entry : *registrations_) {
      if (entry.get() == token.get()) {
        entry->removed.store(true, std::memory_order_release);
      } else {
        next->push_back(entry);
      }
    }
    registrations_ = std::move(next);
  }

  void post(const Notification& notification) override {
    std::shared_ptr<const List> snapshot;
    {
      std::lock_guard lock(mutex_);
      snapshot = registrations_;
    }
    // The snapshot may hold a registration that a handler earlier in this post removed; the
    // flag keeps the removal effective at once, as the contract promises.
    for (const auto& entry : *snapshot) {
      if (!entry->removed.load(std::memory_order_acquire) && entry->matches(notification)) {
        entry->handler(notification);
      }
    }
  }

 private:
  using List = std::vector<std::shared_ptr<Registration>>;

  std::mutex mutex_;
  std::shared_ptr<const List> registrations_ = std::make_shared<const List>();
};

}  // namespace

std::shared_ptr<NotificationCenter> makeNotificationCenter() {
  return std::make_shared<InProcessNotificationCenter>();
}

}  // namespace applogic::platform
