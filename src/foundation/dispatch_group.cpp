#include "applogic/foundation/dispatch_group.h"

#include <mutex>
#include <utility>
#include <vector>

#include "applogic/support/fatal.h"

namespace applogic {

struct DispatchGroup::State {
  struct Waiting {
    std::shared_ptr<platform::MainThread> queue;
    std::function<void()> task;
  };
  std::mutex mutex;
  long count = 0;
  std::vector<Waiting> waiting;
};

DispatchGroup::DispatchGroup() : state_(std::make_shared<State>()) {}

void DispatchGroup::enter() {
  std::lock_guard lock(state_->mutex);
  ++state_->count;
}

void DispatchGroup::leave() {
  std::vector<State::Waiting> due;
  {
    std::lock_guard lock(state_->mutex);
    if (state_->count == 0) fatalError("DispatchGroup::leave() without a matching enter()");
    if (--state_->count == 0) due.swap(state_->waiting);
  }
  // Posted outside the lock: a queue's post may run code that enters this group again.
  for (auto& waiting : due) waiting.queue->post(std::move(waiting.task));
}

void DispatchGroup::notify(std::shared_ptr<platform::MainThread> queue, std::function<void()> task) {
  if (!queue || !task) return;
  {
    std::lock_guard lock(state_->mutex);
    if (state_->count != 0) {
      state_->waiting.push_back({std::move(queue), std::move(task)});
      return;
    }
  }
  queue->post(std::move(task));
}

}  // namespace applogic
