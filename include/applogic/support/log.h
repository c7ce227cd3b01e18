#pragma once

#include <memory>
#include <string_view>

#include "applogic/export.h"

namespace applogic {

/// Where the library's fixed diagnostic lines go (the platform log). The library writes only
/// the few lines its contract names; everything else is reported as values.
class APPLOGIC_EXPORT LogSink {
 public:
  virtual ~LogSink() = default;
  /// Receives one line, without a trailing newline. May be called from any thread.
  virtual void write(std::string_view line) = 0;
};

/// Writes one line to the installed sink (standard error when none is installed).
APPLOGIC_EXPORT void log(std::string_view line);

/// Installs `sink` as the process's log sink and returns the previous one (null for the
/// default). Passing null restores standard error. Thread-safe. Hosts call it once at start;
/// tests use `ScopedLogSink`.
APPLOGIC_EXPORT std::shared_ptr<LogSink> setLogSink(std::shared_ptr<LogSink> sink);

/// Installs a sink for the lifetime of the object and restores the previous one after.
class APPLOGIC_EXPORT ScopedLogSink {
 public:
  explicit ScopedLogSink(std::shared_ptr<LogSink> sink) : previous_(setLogSink(std::move(sink))) {}
  ~ScopedLogSink() { setLogSink(std::move(previous_)); }
  ScopedLogSink(const ScopedLogSink&) = delete;
  ScopedLogSink& operator=(const ScopedLogSink&) = delete;

 private:
  std::shared_ptr<LogSink> previous_;
};

}  // namespace applogic
