#pragma once

#include <string>
#include <string_view>

#include "tunevo/file_argument.h"

namespace tunevo {

/// A PEM key given on the command line: the argument itself when it is PEM text (it starts with
/// "-----BEGIN"), otherwise the contents of the file it names, read by `readFileArgument` (`what`
/// names the key in the problem).
inline FileArgument readPemArgument(const std::string& argument, std::string_view what) {
  if (argument.starts_with("-----BEGIN")) return FileArgument{argument, {}, 0};
  return readFileArgument(argument, what);
}

}  // namespace tunevo
