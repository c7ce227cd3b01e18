#include "tunevo/file_argument.h"

#include <cctype>
#include <cstring>

#include "applogic/platform/posix_file.h"

namespace tunevo {

FileArgument readFileArgument(const std::filesystem::path& path, std::string_view what) {
  auto contents = applogic::platform::readWholeFile(path);
  if (contents.bytes) return FileArgument{std::move(contents.bytes), {}, 0};
  std::string reason = std::strerror(contents.error);
  if (!reason.empty()) reason[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(reason[0])));
  return FileArgument{std::nullopt, "cannot read the " + std::string(what) + " " + path.string() + ": " + reason,
                      contents.error};
}

}  // namespace tunevo
