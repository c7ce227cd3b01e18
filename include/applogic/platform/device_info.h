#pragma once

#include <string>

#include "applogic/export.h"

namespace applogic::platform {

/// What the sign-in client tells the server about the machine it runs on.
///
/// Thread contract: implementations are immutable after construction; any thread.
class APPLOGIC_EXPORT DeviceInfo {
 public:
  virtual ~DeviceInfo() = default;

  /// The machine's model name ("ThinkPad X1 Carbon Gen 9"); when the machine does not say, its
  /// hardware architecture ("x86_64"). Never empty.
  virtual std::string deviceModel() const = 0;
  /// The operating system's name ("Linux"). Never empty.
  virtual std::string systemName() const = 0;
  /// The operating system's version ("6.1.0-18-amd64"). Never empty.
  virtual std::string systemVersion() const = 0;
};

}  // namespace applogic::platform
