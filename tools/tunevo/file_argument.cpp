#include "tunevo/file_argument.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cctype>
#include <cerrno>
#include <cstring>

namespace tunevo {
namespace {

// Plain POSIX reads: a stream would open a directory and then throw on its first read.
class Descriptor {
 public:
  explicit Descriptor(int fd) : fd_(fd) {}
  ~Descriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  Descriptor(const Descriptor&) = delete;
  Descriptor& operator=(const Descriptor&) = delete;
  int get() const { return fd_; }

 private:
  int fd_;
};

FileArgument failure(const std::filesystem::path& path, std::string_view what, int error) {
  std::string reason = std::strerror(error);
  if (!reason.empty()) reason[0] = static_cast<char>(std::tolower(static_cast<unsigned char>(reason[0])));
  return FileArgument{std::nullopt, "cannot read the " + std::string(what) + " " + path.string() + ": " + reason, error};
}

}  // namespace

FileArgument readFileArgument(const std::filesystem::path& path, std::string_view what) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) return failure(path, what, errno);
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return failure(path, what, errno);
  if (S_ISDIR(status.st_mode)) return failure(path, what, EISDIR);
  std::string text;
  char buffer[1 << 16];
  for (;;) {
    const ssize_t got = ::read(file.get(), buffer, sizeof buffer);
    if (got == 0) break;
    if (got < 0) {
      if (errno == EINTR) continue;
      return failure(path, what, errno);
    }
    text.append(buffer, static_cast<std::size_t>(got));
  }
  return FileArgument{std::move(text), {}, 0};
}

}  // namespace tunevo
