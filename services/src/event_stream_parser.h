#pragma once

// Server-sent events, read incrementally: the fields "id", "event" and "data" (several data
// lines joined with "\n"); comments and other fields are skipped; a blank line ends an event.
// Lines end with "\n", "\r\n" or "\r", and may arrive split anywhere.

#include <string>
#include <string_view>

namespace applogic::services {

struct ServerSentEvent {
  std::string id;
  std::string type;
  std::string data;
};

class EventStreamParser {
 public:
  /// Reads `chunk` and calls `deliver(const ServerSentEvent&)` for each event it completes.
  template <class Deliver>
  void feed(std::string_view chunk, Deliver&& deliver) {
    for (const char c : chunk) {
      if (afterCarriageReturn_ && c == '\n') {
        afterCarriageReturn_ = false;
        continue;
      }
      afterCarriageReturn_ = c == '\r';
      if (c != '\n' && c != '\r') {
        line_ += c;
        continue;
      }
      if (line_.empty()) {
        if (hasData_) deliver(event_);
        event_.type.clear();
        event_.data.clear();
        hasData_ = false;
      } else {
        field(line_);
        line_.clear();
      }
    }
  }

 private:
  void field(std::string_view line) {
    if (line.front() == ':') return;
    const auto colon = line.find(':');
    const std::string_view name = line.substr(0, colon);
    std::string_view value = colon == std::string_view::npos ? std::string_view() : line.substr(colon + 1);
    if (value.starts_with(' ')) value.remove_prefix(1);
    if (name == "data") {
      if (hasData_) event_.data += '\n';
      event_.data += value;
      hasData_ = true;
    } else if (name == "event") {
      event_.type = value;
    } else if (name == "id") {
      // The last event id persists from event to event until a new one arrives.
      event_.id = value;
    }
  }

  std::string line_;
  ServerSentEvent event_;
  bool hasData_ = false;
  bool afterCarriageReturn_ = false;
};

}  // namespace applogic::services
