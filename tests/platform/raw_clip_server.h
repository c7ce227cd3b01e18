#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <string>
#include <thread>

namespace applogic::test {

// A loopback HTTP server as plain as `python3 -m http.server`: every request, Range or not, gets
// 200 and the headers of the whole clip. A server that `vanishes` sends only half of the clip's
// bytes, then closes the connection and stops listening: the clip breaks off midway and nothing
// answers again. One that `holds` keeps the clip's last 100 bytes until `release`.
class RawClipServer {
 public:
  enum Mode { whole, vanishes, holds };
  RawClipServer(std::string clip, Mode mode) {
    const bool vanishes = mode == Mode::vanishes;
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    listener_.store(listener);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    EXPECT_TRUE(::bind(listener, reinterpret_cast<sockaddr*>(&address), length) == 0 && ::listen(listener, 8) == 0);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, listener, vanishes, mode, clip = std::move(clip)] {
      for (;;) {
        const int connection = ::accept(listener, nullptr, nullptr);
        if (vanishes) stopListening();
        if (connection < 0) return;
        ++requests_;
        std::string request;
        char buffer[1024];
        for (ssize_t got = 1; got > 0 && request.find("\r\n\r\n") == std::string::npos;) {
          got = ::read(connection, buffer, sizeof buffer);
          if (got > 0) request.append(buffer, static_cast<std::size_t>(got));
        }
        const std::string answer = "HTTP/1.1 200 OK\r\nContent-Type: audio/x-wav\r\nConnection: close\r\n"
                                   "Content-Length: " + std::to_string(clip.size()) + "\r\n\r\n" +
                                   (mode == Mode::whole      ? clip
                                    : mode == Mode::vanishes ? clip.substr(0, clip.size() / 2)
                                                             : clip.substr(0, clip.size() - 100));
        // The client may hang up first (it has what it wanted); that is not a failure.
        ::send(connection, answer.data(), answer.size(), MSG_NOSIGNAL);
        if (mode == Mode::holds) {
          std::unique_lock lock(mutex_);
          released_.wait(lock, [this] { return release_; });
          ::send(connection, clip.data() + clip.size() - 100, 100, MSG_NOSIGNAL);
        }
        ::close(connection);
        if (vanishes) return;
      }
    });
  }
  ~RawClipServer() {
    release();
    stopListening();
    thread_.join();
  }
  RawClipServer(const RawClipServer&) = delete;
  RawClipServer& operator=(const RawClipServer&) = delete;

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/clip.wav"; }
  std::size_t requests() const { return requests_.load(); }
  void release() {
    std::lock_guard lock(mutex_);
    release_ = true;
    released_.notify_all();
  }

 private:
  // Whichever comes first, the end of a vanishing answer or the end of the test; shutting down
  // ends a pending accept.
  void stopListening() {
    const int listener = listener_.exchange(-1);
    if (listener < 0) return;
    ::shutdown(listener, SHUT_RDWR);
    ::close(listener);
  }

  std::atomic<int> listener_{-1};
  int port_ = 0;
  std::atomic<std::size_t> requests_{0};
  std::mutex mutex_;
  std::condition_variable released_;
  bool release_ = false;
  std::thread thread_;
};

}  // namespace applogic::test
