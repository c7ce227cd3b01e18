#include "applogic/foundation/serial_queue.h"

#include <utility>

namespace applogic {

struct SerialQueue::Queue {
  std::string label;
};

SerialQueue::SerialQueue(std::string label) : queue_(std::make_shared<const Queue>(Queue{std::move(label)})) {}

const std::string& SerialQueue::label() const noexcept { return queue_->label; }

}  // namespace applogic
