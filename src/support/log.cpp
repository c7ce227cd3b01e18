#include "applogic/support/log.h"

#include <cstdio>
#include <mutex>
#include <string>

#include "applogic/support/fatal.h"

namespace applogic {
namespace {

std::mutex& sinkMutex() {
  static std::mutex mutex;
  return mutex;
}

std::shared_ptr<LogSink>& installedSink() {
  static std::shared_ptr<LogSink> sink;
  return sink;
}

void writeToStandardError(std::string_view line) {
  std::string buffer(line);
  buffer.push_back('\n');
  std::fwrite(buffer.data(), 1, buffer.size(), stderr);
}

}  // namespace

void log(std::string_view line) {
  std::shared_ptr<LogSink> sink;
  {
    std::lock_guard lock(sinkMutex());
    sink = installedSink();
  }
  // Written outside the lock so that a sink may itself log or swap sinks.
  if (sink) {
    sink->write(line);
  } else {
    writeToStandardError(line);
  }
}

std::shared_ptr<LogSink> setLogSink(std::shared_ptr<LogSink> sink) {
  std::lock_guard lock(sinkMutex());
  std::swap(installedSink(), sink);
  return sink;
}

void fatalError(std::string_view message) {
  std::string line = "Fatal error: ";
  line.append(message);
  std::shared_ptr<LogSink> sink;
  {
    std::lock_guard lock(sinkMutex());
    sink = installedSink();
  }
  if (sink) sink->write(line);
  writeToStandardError(line);
  std::abort();
}

}  // namespace applogic
