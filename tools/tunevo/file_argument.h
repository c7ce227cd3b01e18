#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tunevo {

/// A file named on the command line, read whole.
struct FileArgument {
  /// The file's bytes; absent when it cannot be read.
  std::optional<std::string> text;
  /// When `text` is absent: one line, "cannot read the <what> <path>: <reason>", the reason in
  /// lower case ("is a directory", "no such file or directory", "permission denied").
  std::string problem;
  /// When `text` is absent: the errno value behind `reason`.
  int error = 0;
};

/// Reads the file at `path`; `what` names it in the problem ("CA file", "app manifest"). Every
/// way a file cannot be read (missing, a directory, no permission, a read error) is a problem,
/// never an exception.
FileArgument readFileArgument(const std::filesystem::path& path, std::string_view what);

}  // namespace tunevo
