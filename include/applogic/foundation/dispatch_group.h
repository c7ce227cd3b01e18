#pragma once

#include <functional>
#include <memory>

#include "applogic/export.h"
#include "applogic/platform/main_thread.h"

namespace applogic {

/// A count of pieces of work in progress, and tasks to run on a `MainThread` once none is left
/// (a dispatch group).
///
/// `enter` counts one piece in, `leave` counts it out. When the count drops to zero, every task
/// registered with `notify` is posted to its queue, in the order of registration, and forgotten;
/// `notify` while the count is zero posts at once. Tasks are always posted, never run inside
/// `leave` or `notify`. A piece that never leaves keeps the tasks waiting for ever: they are
/// dropped with the group. More `leave`s than `enter`s is a programming error (`fatalError`).
///
/// A small handle: copies refer to the same group, which lives as long as any handle to it.
///
/// Thread contract: every member may be called from any thread, concurrently.
class APPLOGIC_EXPORT DispatchGroup {
 public:
  DispatchGroup();

  void enter();
  void leave();
  /// Posts `task` to `queue` once the count is zero. A null queue or task is ignored.
  void notify(std::shared_ptr<platform::MainThread> queue, std::function<void()> task);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace applogic
