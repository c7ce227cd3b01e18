#pragma once

#include <fstream>
#include <iterator>
#include <optional>
#include <string>

namespace tunevo {

/// A PEM key given on the command line: the argument itself when it is PEM text (it starts with
/// "-----BEGIN"), otherwise the contents of the file it names. Absent, with errno telling why,
/// when that file cannot be read.
inline std::optional<std::string> readPemArgument(const std::string& argument) {
  if (argument.starts_with("-----BEGIN")) return argument;
  std::ifstream file(argument, std::ios::binary);
  if (!file) return std::nullopt;
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

}  // namespace tunevo
