#pragma once

#include <functional>

#include "applogic/export.h"

namespace applogic::platform {

/// The app's main thread, as a queue of work: the one place where platform ports that run a
/// thread of their own (the media player's bus, the HTTP worker) hand their results back.
///
/// Thread contract: `post` may be called from any thread, concurrently; the tasks run on the
/// main thread, one at a time, in the order they were posted. A task may post further tasks;
/// those run after it returns, never inside it.
class APPLOGIC_EXPORT MainThread {
 public:
  virtual ~MainThread() = default;

  /// Queues `task` to run on the main thread. A null task is ignored.
  virtual void post(std::function<void()> task) = 0;

  /// True when the calling thread is the main thread.
  virtual bool isMainThread() const = 0;
};

}  // namespace applogic::platform
