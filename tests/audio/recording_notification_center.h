#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "applogic/platform/notification_center.h"

namespace applogic::testing {

// The in-process center, with a log of registrations: "add <name>" / "remove <name>".
class RecordingNotificationCenter final : public platform::NotificationCenter {
 public:
  platform::NotificationObserverToken addObserver(std::optional<std::string> name, const void* object,
                                                  Handler handler) override {
    auto token = inner_->addObserver(name, object, std::move(handler));
    std::lock_guard lock(mutex_);
    names_.emplace_back(token, name.value_or("*"));
    log_.push_back("add " + name.value_or("*"));
    return token;
  }
  void removeObserver(const platform::NotificationObserverToken& token) override {
    inner_->removeObserver(token);
    std::lock_guard lock(mutex_);
    for (auto it = names_.begin(); it != names_.end(); ++it) {
      if (it->first == token) {
        log_.push_back("remove " + it->second);
        names_.erase(it);
        break;
      }
    }
  }
  void post(const platform::Notification& notification) override { inner_->post(notification); }

  std::vector<std::string> log() const {
    std::lock_guard lock(mutex_);
    return log_;
  }
  std::size_t registered() const {
    std::lock_guard lock(mutex_);
    return names_.size();
  }

 private:
  std::shared_ptr<platform::NotificationCenter> inner_ = platform::makeNotificationCenter();
  mutable std::mutex mutex_;
  std::vector<std::pair<platform::NotificationObserverToken, std::string>> names_;
  std::vector<std::string> log_;
};

}  // namespace applogic::testing
