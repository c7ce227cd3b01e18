#include "applogic/platform/posix_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

namespace applogic::platform {
namespace {

// Plain descriptors: a stream opens a directory, then throws from its first read.
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

FileContents failure(int error) { return FileContents{std::nullopt, error}; }

}  // namespace

FileContents readWholeFile(const std::filesystem::path& path) {
  const Descriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (file.get() < 0) return failure(errno);
  struct stat status {};
  if (::fstat(file.get(), &status) != 0) return failure(errno);
  if (S_ISDIR(status.st_mode)) return failure(EISDIR);
  std::string bytes;
  char buffer[1 << 16];
  for (;;) {
    const ssize_t got = ::read(file.get(), buffer, sizeof buffer);
    if (got > 0) {
      bytes.append(buffer, static_cast<std::size_t>(got));
    } else if (got == 0) {
      break;
    } else if (errno != EINTR) {
      return failure(errno);
    }
  }
  return FileContents{std::move(bytes), 0};
}

}  // namespace applogic::platform
