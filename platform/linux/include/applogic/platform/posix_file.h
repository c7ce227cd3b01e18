#pragma once

#include <filesystem>
#include <optional>
#include <string>

#include "applogic/export.h"

namespace applogic::platform {

/// A whole file, or why it could not be read.
struct APPLOGIC_EXPORT FileContents {
  /// The file's bytes; absent when it could not be read.
  std::optional<std::string> bytes;
  /// When `bytes` is absent: the errno value that says why (`EISDIR` for a directory).
  int error = 0;
};

/// Reads the regular file (or anything readable but a directory) at `path` whole. Never throws:
/// a missing file, a directory, no permission or a failing read each come back as an error
/// number. Any thread.
APPLOGIC_EXPORT FileContents readWholeFile(const std::filesystem::path& path);

}  // namespace applogic::platform
