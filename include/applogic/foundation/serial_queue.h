#pragma once

#include <memory>
#include <string>

#include "applogic/export.h"

namespace applogic {

/// A serial work queue, named by a label: the queue a service runs a request's work on when the
/// caller hands one over. The library itself never runs work on it; data controllers only store
/// queues and pass them to their services unchanged.
///
/// A small handle: copies refer to the same queue, and two handles are equal exactly when they
/// refer to the same queue (two queues made with the same label are different queues). Queues
/// live as long as any handle to them.
///
/// Thread contract: immutable; copies may be made, compared and read on any thread.
class APPLOGIC_EXPORT SerialQueue {
 public:
  /// A new queue named `label`.
  explicit SerialQueue(std::string label);

  /// The label given at creation.
  const std::string& label() const noexcept;

  /// Identity: true when both handles refer to the same queue.
  friend bool operator==(const SerialQueue& a, const SerialQueue& b) noexcept {
    return a.queue_ == b.queue_;
  }

 private:
  struct Queue;
  std::shared_ptr<const Queue> queue_;
};

}  // namespace applogic
