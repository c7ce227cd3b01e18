#pragma once

// The hand-in of sign-in redirects on Linux. The desktop opens the app's URL scheme by running
// `tunevo handle-url URL` (see url_handler.h); that process gives the URL, over a UNIX socket, to
// the tunevo that is waiting for it, whose `RedirectListener` posts it to the main thread.
//
// The socket is `$XDG_RUNTIME_DIR/tunevo/redirect.sock`, in a directory of mode 0700 owned by the
// user; each side checks the other's user id (SO_PEERCRED), so no other user can send or
// receive a redirect. One connection carries one URL: the sender writes it and closes its
// writing side; the listener answers "ok\n" once the URL is queued for the main thread.

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <thread>

#include "applogic/platform/main_thread.h"

namespace tunevo {

/// The longest URL handed in, in bytes; longer ones are refused.
inline constexpr std::size_t kMaxRedirectBytes = 64 * 1024;

/// `$XDG_RUNTIME_DIR/tunevo/redirect.sock`; absent (with the reason in `error`) when
/// XDG_RUNTIME_DIR is unset or not an absolute path.
std::optional<std::filesystem::path> redirectSocketPath(std::string* error);

/// Receives the URLs handed in by `tunevo handle-url` while it exists.
///
/// Thread contract: make and destroy it on the main thread of `mainThread`. One thread of its own
/// accepts connections; each URL is posted to `mainThread`, where `handler` runs, in the order
/// received. A URL posted before the listener was destroyed is dropped when it reaches the main
/// thread afterwards.
class RedirectListener {
 public:
  using Handler = std::function<void(const std::string& url)>;

  /// Listens at `socketPath`, making its directory (mode 0700) when missing. Fails (null, with the
  /// reason in `error`) when the directory is not the user's own with mode 0700, when another
  /// process already listens there, or when the socket cannot be made. A socket file left by a
  /// process that ended is replaced.
  static std::unique_ptr<RedirectListener> start(const std::filesystem::path& socketPath,
                                                 std::shared_ptr<applogic::platform::MainThread> mainThread,
                                                 Handler handler, std::string* error);

  /// Stops the thread and removes the socket file.
  ~RedirectListener();
  RedirectListener(const RedirectListener&) = delete;
  RedirectListener& operator=(const RedirectListener&) = delete;

 private:
  RedirectListener(std::filesystem::path path, int listenFd, int stopFd,
                   std::shared_ptr<applogic::platform::MainThread> mainThread, Handler handler);
  void serve();
  void serveOne(int connection);

  const std::filesystem::path path_;
  const int listenFd_;
  const int stopFd_;  // an eventfd; written to stop the thread
  const std::shared_ptr<applogic::platform::MainThread> mainThread_;
  // Owned here, reached by the posted tasks through weak references: destroying the listener
  // stops the deliveries still queued.
  const std::shared_ptr<Handler> handler_;
  std::thread thread_;
};

/// How a hand-in ended, for `tunevo handle-url`.
enum class HandInResult { delivered, noListener, refused };

/// Hands `url` to the listener at `socketPath`. `noListener` when nothing listens there;
/// `refused` when the listener belongs to another user or does not confirm. `error` gets the
/// reason of every failure.
HandInResult handInRedirect(const std::filesystem::path& socketPath, const std::string& url, std::string* error);

/// `tunevo handle-url URL`: exit 0 when the waiting tunevo took the URL; 69 when no tunevo is
/// waiting or the hand-in failed; 64 usage. argv[0] is "handle-url".
int runHandleUrl(int argc, char** argv);

}  // namespace tunevo
