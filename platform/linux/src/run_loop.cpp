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
constexpr int kSliceWithoutWakeFdMs = 10;

int pollTimeoutUntil(RunLoop::Clock::time_point deadline) {
  const auto left = deadline - RunLoop::Clock::now();
  if (left <= RunLoop::Clock::duration::zero()) return 0;
  // Rounded up: waking before the deadline would only find the timer not yet due.
  const auto ms = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return static_cast<int>(std::min<decltype(ms)>(ms, 24 * 60 * 60 * 1000));
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
  if (wakeFd_ >= 0) close(wakeFd_);
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

// Only a loop asleep in poll(2) needs the system call, and one write wakes it: a post from the main
// thread itself, or a burst of them from elsewhere, costs no more than the lock.
void RunLoop::wakeLocked() {
  if (!sleeping_ || woken_) return;
  woken_ = true;
  if (wakeFd_ >= 0) {
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wakeFd_, &one, sizeof one);
  }
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

  int timeout = 0;
  if (block) {
    std::lock_guard lock(mutex_);
    if (!quit_ && tasks_.empty()) {
      timeout = -1;
      // A handful of timers at most (one per HTTP client): a scan beats keeping them sorted.
      for (const auto& [id, timer] : timers_) {
        const int until = pollTimeoutUntil(timer.deadline);
        if (timeout < 0 || until < timeout) timeout = until;
      }
      if (wakeFd_ < 0 && (timeout < 0 || timeout > kSliceWithoutWakeFdMs)) timeout = kSliceWithoutWakeFdMs;
      sleeping_ = timeout != 0;
    }
  }
  // A negative descriptor (no eventfd) is skipped by poll(2); an interrupted poll reports nothing.
  poll(fds.data(), fds.size(), timeout);
  if (block) {
    std::lock_guard lock(mutex_);
    sleeping_ = false;
    woken_ = false;
  }
  if (fds[0].revents != 0) {
    std::uint64_t count;
    [[maybe_unused]] const auto drained = read(wakeFd_, &count, sizeof count);
  }

  std::size_t ran = 0;
  for (std::size_t i = 1; i < fds.size(); ++i) {
    if (fds[i].revents == 0) continue;
    // An earlier callback may have ended or replaced this watch.
    const auto found = watches_.find(fds[i].fd);
    if (found == watches_.end() || found->second.serial != serials[i]) continue;
    const auto callback = found->second.ready;  // the callback may end its own watch
    (*callback)(fds[i].revents);
    ++ran;
    if (block && quitRequested()) return ran;
  }
  return ran + fireDueTimers(block);
}

std::size_t RunLoop::fireDueTimers(bool stopOnQuit) {
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
    if (stopOnQuit && quitRequested()) break;
  }
  return ran;
}

}  // namespace applogic::platform
