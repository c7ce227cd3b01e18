#include "tunevo/redirect_socket.h"

#include <poll.h>
#include <pthread.h>
#include <signal.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string_view>
#include <utility>

#include "tunevo/exit_codes.h"

namespace tunevo {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kAcknowledgement = "ok\n";
// A sender that connects and then stalls must not hold the listener's one thread for long.
constexpr int kIoTimeoutSeconds = 5;

std::string errnoText(std::string_view what) { return std::string(what) + ": " + std::strerror(errno); }

bool socketAddress(const fs::path& path, sockaddr_un* address, std::string* error) {
  const std::string text = path.string();
  *address = {};
  address->sun_family = AF_UNIX;
  if (text.size() >= sizeof(address->sun_path)) {
    *error = "the socket path is too long for a UNIX socket: " + text;
    return false;
  }
  std::memcpy(address->sun_path, text.c_str(), text.size() + 1);
  return true;
}

bool peerIsUs(int fd) {
  ucred credentials{};
  socklen_t size = sizeof(credentials);
  return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &credentials, &size) == 0 && credentials.uid == geteuid();
}

void setIoTimeouts(int fd) {
  const timeval timeout{kIoTimeoutSeconds, 0};
  setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &timeout, sizeof(timeout));
  setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &timeout, sizeof(timeout));
}

bool writeAll(int fd, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Reads until the peer closes its side; false on an error, a timeout or more than `limit` bytes.
bool readAll(int fd, std::size_t limit, std::string* out) {
  char buffer[4096];
  for (;;) {
    const ssize_t got = ::recv(fd, buffer, sizeof(buffer), 0);
    if (got < 0 && errno == EINTR) continue;
    if (got < 0) return false;
    if (got == 0) return true;
    if (out->size() + static_cast<std::size_t>(got) > limit) return false;
    out->append(buffer, static_cast<std::size_t>(got));
  }
}

// The directory must be ours and closed to everyone else, or another user could replace the
// socket with their own and collect the sign-in codes.
bool ensurePrivateDirectory(const fs::path& dir, std::string* error) {
  if (::mkdir(dir.c_str(), 0700) != 0 && errno != EEXIST) {
    *error = errnoText("cannot make " + dir.string());
    return false;
  }
  struct stat info {};
  if (::lstat(dir.c_str(), &info) != 0) {
    *error = errnoText("cannot inspect " + dir.string());
    return false;
  }
  if (!S_ISDIR(info.st_mode) || info.st_uid != geteuid() || (info.st_mode & 077) != 0) {
    *error = dir.string() + " must be a directory of this user with mode 0700";
    return false;
  }
  return true;
}

int connectTo(const fs::path& path, std::string* error) {
  sockaddr_un address{};
  if (!socketAddress(path, &address, error)) return -1;
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    *error = errnoText("socket");
    return -1;
  }
  if (::connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    *error = errnoText("cannot connect to " + path.string());
    const int saved = errno;  // the caller tells "nobody listens" from other failures by it
    ::close(fd);
    errno = saved;
    return -1;
  }
  return fd;
}

}  // namespace

std::optional<fs::path> redirectSocketPath(std::string* error) {
  const char* runtime = std::getenv("XDG_RUNTIME_DIR");
  if (runtime == nullptr || runtime[0] != '/') {
    *error = "XDG_RUNTIME_DIR is not set to an absolute path";
    return std::nullopt;
  }
  return fs::path(runtime) / "tunevo" / "redirect.sock";
}

std::unique_ptr<RedirectListener> RedirectListener::start(const fs::path& socketPath,
                                                          std::shared_ptr<applogic::platform::MainThread> mainThread,
                                                          Handler handler, std::string* error) {
  sockaddr_un address{};
  if (!socketAddress(socketPath, &address, error) || !ensurePrivateDirectory(socketPath.parent_path(), error)) {
    return nullptr;
  }
  std::string ignored;
  if (const int other = connectTo(socketPath, &ignored); other >= 0) {
    ::close(other);
    *error = "another tunevo is already waiting for sign-in redirects at " + socketPath.string();
    return nullptr;
  }
  ::unlink(socketPath.c_str());  // a socket file whose listener has gone
  const int fd = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (fd < 0) {
    *error = errnoText("socket");
    return nullptr;
  }
  if (::bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0 ||
      ::chmod(socketPath.c_str(), 0600) != 0 || ::listen(fd, 8) != 0) {
    *error = errnoText("cannot listen at " + socketPath.string());
    ::close(fd);
    return nullptr;
  }
  const int stop = ::eventfd(0, EFD_CLOEXEC);
  if (stop < 0) {
    *error = errnoText("eventfd");
    ::close(fd);
    ::unlink(socketPath.c_str());
    return nullptr;
  }
  return std::unique_ptr<RedirectListener>(
      new RedirectListener(socketPath, fd, stop, std::move(mainThread), std::move(handler)));
}

RedirectListener::RedirectListener(fs::path path, int listenFd, int stopFd,
                                   std::shared_ptr<applogic::platform::MainThread> mainThread, Handler handler)
    : path_(std::move(path)),
      listenFd_(listenFd),
      stopFd_(stopFd),
      mainThread_(std::move(mainThread)),
      handler_(std::make_shared<Handler>(std::move(handler))) {
  // The listener waits for as long as the login does; Ctrl-C is for the threads that watch for
  // it, so the listener is started with SIGINT and SIGTERM blocked and the system never hands
  // them to it.
  sigset_t stopSignals;
  sigemptyset(&stopSignals);
  sigaddset(&stopSignals, SIGINT);
  sigaddset(&stopSignals, SIGTERM);
  sigset_t previous;
  pthread_sigmask(SIG_BLOCK, &stopSignals, &previous);
  thread_ = std::thread([this] { serve(); });
  pthread_sigmask(SIG_SETMASK, &previous, nullptr);
}

RedirectListener::~RedirectListener() {
  const std::uint64_t one = 1;
  [[maybe_unused]] const ssize_t written = ::write(stopFd_, &one, sizeof(one));
  thread_.join();
  ::close(listenFd_);
  ::close(stopFd_);
  ::unlink(path_.c_str());
}

void RedirectListener::serve() {
  for (;;) {
    pollfd fds[2] = {{listenFd_, POLLIN, 0}, {stopFd_, POLLIN, 0}};
    if (::poll(fds, 2, -1) < 0) {
      if (errno == EINTR) continue;
      return;
    }
    if (fds[1].revents != 0) return;
    if ((fds[0].revents & POLLIN) == 0) continue;
    const int connection = ::accept4(listenFd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (connection < 0) continue;
    serveOne(connection);
    ::close(connection);
  }
}

void RedirectListener::serveOne(int connection) {
  if (!peerIsUs(connection)) return;
  setIoTimeouts(connection);
  std::string url;
  if (!readAll(connection, kMaxRedirectBytes, &url) || url.empty()) return;
  mainThread_->post([handler = std::weak_ptr<Handler>(handler_), url] {
    if (const auto alive = handler.lock(); alive && *alive) (*alive)(url);
  });
  writeAll(connection, kAcknowledgement);
}

HandInResult handInRedirect(const fs::path& socketPath, const std::string& url, std::string* error) {
  const int fd = connectTo(socketPath, error);
  if (fd < 0) {
    return (errno == ENOENT || errno == ECONNREFUSED) ? HandInResult::noListener : HandInResult::refused;
  }
  HandInResult result = HandInResult::refused;
  std::string answer;
  if (!peerIsUs(fd)) {
    *error = socketPath.string() + " belongs to another user";
  } else {
    setIoTimeouts(fd);
    if (!writeAll(fd, url) || ::shutdown(fd, SHUT_WR) != 0) {
      *error = errnoText("cannot send the URL");
    } else if (!readAll(fd, 64, &answer) || answer != kAcknowledgement) {
      *error = "the waiting tunevo did not take the URL";
    } else {
      result = HandInResult::delivered;
    }
  }
  ::close(fd);
  return result;
}

int runHandleUrl(int argc, char** argv) {
  constexpr const char* kUsage =
      "usage: tunevo handle-url URL\n"
      "\n"
      "Hands a sign-in redirect (amzn-<bundle id>://...) to the tunevo that is waiting for it,\n"
      "over $XDG_RUNTIME_DIR/tunevo/redirect.sock. The desktop runs it when the browser opens the\n"
      "app's URL scheme (see \"tunevo url-handler install\").\n";
  if (argc == 2 && (std::string_view(argv[1]) == "--help" || std::string_view(argv[1]) == "-h")) {
    std::cout << kUsage;
    return kExitOk;
  }
  if (argc != 2 || argv[1][0] == '\0') {
    std::cerr << kUsage;
    return kExitUsage;
  }
  const std::string url = argv[1];
  if (url.size() > kMaxRedirectBytes) {
    std::cerr << "tunevo handle-url: the URL is longer than " << kMaxRedirectBytes << " bytes\n";
    return kExitUsage;
  }
  std::string error;
  const auto path = redirectSocketPath(&error);
  if (!path) {
    std::cerr << "tunevo handle-url: " << error << "\n";
    return kExitUnavailable;
  }
  switch (handInRedirect(*path, url, &error)) {
    case HandInResult::delivered:
      return kExitOk;
    case HandInResult::noListener:
      std::cerr << "tunevo handle-url: no tunevo is waiting for a sign-in redirect (nothing listens at "
                << path->string() << ")\n";
      return kExitUnavailable;
    case HandInResult::refused:
      break;
  }
  std::cerr << "tunevo handle-url: " << error << "\n";
  return kExitUnavailable;
}

}  // namespace tunevo
