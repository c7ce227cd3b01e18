#include "applogic/platform/run_loop.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <optional>
#include <vector>

namespace applogic::platform {
namespace {

// Without an eventfd the loop cannot be woken from poll(2), so it sleeps at most this long.
constexpr auto kSliceWithoutWakeFd = std::chrono::milliseconds(10);

int pollTimeoutUntil(RunLoop::Clock::time_point deadline) {
  // Rounded up: waking before the deadline would only find the timer not yet due.
  const auto ms = std::chrono::ceil<std::chrono::milliseconds>(deadline - RunLoop::Clock::now()).count();
  return static_cast<int>(std::clamp<decltype(ms)>(ms, 0, 24 * 60 * 60 * 1000));
}

}  // namespace

RunLoop::RunLoop() : mainThread_(std::this_thread::get_id()), wakeFd_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

// A poster keeps the loop alive while it posts, but what orders its return before the owner's
// release may be a library's own bookkeeping that ThreadSanitizer cannot see (GStreamer drops its
// bus handler, and with it our reference, through GLib atomics). So a poster touches the loop only
// under the lock, wake-up included, and the destructor takes the lock once: every post is then
// visibly ordered before the loop goes.
RunLoop::~RunLoop() {
  { std::lock_guard lock(mutex_); }
  close(wakeFd_);
}

void RunLoop::post(std::function<void()> task) {
  if (!task) return;
  std::lock_guard lock(mutex_);
  tasks_.push_back(std::move(task));
  wakeLocked();
}

void RunLoop::quit() {
  std::lock_guard lock(mutex_);
  quit_ = true;
  wakeLocked();
}

// Every post writes, so that the eventfd is readable whenever the queue holds a task: the loop needs
// no look at the queue before it sleeps, and a write costs a fraction of a microsecond.
void RunLoop::wakeLocked() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = write(wakeFd_, &one, sizeof one);  // -1 without an eventfd
}

bool RunLoop::isMainThread() const { return std::this_thread::get_id() == mainThread_; }

void RunLoop::watch(int fd, short events, std::function<void(short)> ready) {
  watches_[fd] = Watch{events, ++nextSerial_, std::make_shared<const std::function<void(short)>>(std::move(ready))};
}

void RunLoop::unwatch(int fd) { watches_.erase(fd); }

RunLoop::TimerId RunLoop::startTimer(Clock::time_point deadline, std::function<void()> fire) {
  const TimerId id = ++nextTimer_;
  timers_.emplace(id, Timer{deadline, std::move(fire)});
  return id;
}

void RunLoop::cancelTimer(TimerId timer) { timers_.erase(timer); }

std::size_t RunLoop::runQueuedTasks() {
  for (std::size_t ran = 0;; ++ran) {
    std::function<void()> task;
    {
      std::lock_guard lock(mutex_);
      if (tasks_.empty()) return ran;
      task = std::move(tasks_.front());
      tasks_.pop_front();
    }
    task();
  }
}

std::size_t RunLoop::runUntilIdle() {
  std::size_t ran = 0;
  for (;;) {
    const std::size_t round = runQueuedTasks() + waitAndDispatch(false);
    if (round == 0) return ran;
    ran += round;
  }
}

void RunLoop::run() {
  for (;;) {
    // The tasks queued at the start of the round; those they post wait until the descriptors and
    // timers have had their turn, so a busy queue cannot starve them.
    std::optional<std::size_t> queued;
    for (;;) {
      std::function<void()> task;
      {
        std::lock_guard lock(mutex_);
        if (quit_) {
          quit_ = false;
          return;
        }
        if (!queued) queued = tasks_.size();
        if (*queued == 0) break;
        --*queued;
        task = std::move(tasks_.front());
        tasks_.pop_front();
      }
      task();
    }
    waitAndDispatch(true);
  }
}

bool RunLoop::quitRequested() {
  std::lock_guard lock(mutex_);
  return quit_;
}

std::size_t RunLoop::waitAndDispatch(bool block) {
  std::vector<pollfd> fds;
  std::vector<std::uint64_t> serials;
  fds.reserve(watches_.size() + 1);
  serials.reserve(watches_.size() + 1);
  fds.push_back(pollfd{wakeFd_, POLLIN, 0});
  serials.push_back(0);
  for (const auto& [fd, watch] : watches_) {
    fds.push_back(pollfd{fd, watch.events, 0});
    serials.push_back(watch.serial);
  }

  // Every post and quit has written the eventfd since it was last drained, so the poll returns at
  // once while the queue holds anything. A negative descriptor (no eventfd) is skipped by poll(2);
  // an interrupted poll reports nothing.
  poll(fds.data(), fds.size(), block ? sleepLimit() : 0);
  std::uint64_t posts;
  [[maybe_unused]] const auto drained = read(wakeFd_, &posts, sizeof posts);  // nonblocking

  std::size_t ran = 0;
  for (std::size_t i = 1; i < fds.size(); ++i) {
    if (fds[i].revents == 0) continue;
    // An earlier callback may have ended or replaced this watch.
    const auto found = watches_.find(fds[i].fd);
    if (found == watches_.end() || found->second.serial != serials[i]) continue;
    const auto callback = found->second.ready;  // the callback may end its own watch
    (*callback)(fds[i].revents);
    ++ran;
    if (quitRequested()) return ran;
  }
  return ran + fireDueTimers();
}

// The poll(2) timeout until the earliest timer, -1 for none.
int RunLoop::sleepLimit() const {
  std::optional<Clock::time_point> wakeAt;
  if (wakeFd_ < 0) wakeAt = Clock::now() + kSliceWithoutWakeFd;
  // A handful of timers at most (one per HTTP client): a scan beats keeping them sorted.
  for (const auto& [id, timer] : timers_) wakeAt = std::min(wakeAt.value_or(timer.deadline), timer.deadline);
  return wakeAt ? pollTimeoutUntil(*wakeAt) : -1;
}

std::size_t RunLoop::fireDueTimers() {
  // The timers due now, in deadline order (start order among equals), taken before any fires: a
  // timer that starts another for now must not keep the loop from its tasks and descriptors.
  const auto now = Clock::now();
  std::vector<std::pair<Clock::time_point, TimerId>> due;
  for (const auto& [id, timer] : timers_) {
    if (timer.deadline <= now) due.emplace_back(timer.deadline, id);
  }
  std::sort(due.begin(), due.end());
  std::size_t ran = 0;
  for (const auto& [deadline, id] : due) {
    auto node = timers_.extract(id);
    if (node.empty()) continue;  // cancelled by an earlier timer
    node.mapped().fire();
    ++ran;
    if (quitRequested()) break;
  }
  return ran;
}

}  // namespace applogic::platform
