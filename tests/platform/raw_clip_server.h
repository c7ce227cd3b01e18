#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <atomic>
#include <cstddef>
#include <string>
#include <thread>

namespace applogic::test {

// A loopback HTTP server as plain as `python3 -m http.server`: every request, Range or not, gets
// 200 and the headers of the whole clip. With `vanishes`, the first answer carries only half of
// the clip's bytes, then the server closes the connection and stops listening: the clip breaks
// off midway and nothing answers again.
class RawClipServer {
 public:
  RawClipServer(std::string clip, bool vanishes) {
    const int listener = ::socket(AF_INET, SOCK_STREAM, 0);
    listener_.store(listener);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    EXPECT_TRUE(::bind(listener, reinterpret_cast<sockaddr*>(&address), length) == 0 && ::listen(listener, 8) == 0);
    ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, listener, vanishes, clip = std::move(clip)] {
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
                                   (vanishes ? clip.substr(0, clip.size() / 2) : clip);
        // The client may hang up first (it has what it wanted); that is not a failure.
        ::send(connection, answer.data(), answer.size(), MSG_NOSIGNAL);
        ::close(connection);
        if (vanishes) return;
      }
    });
  }
  ~RawClipServer() {
    stopListening();
    thread_.join();
  }
  RawClipServer(const RawClipServer&) = delete;
  RawClipServer& operator=(const RawClipServer&) = delete;

  std::string url() const { return "http://127.0.0.1:" + std::to_string(port_) + "/clip.wav"; }
  std::size_t requests() const { return requests_.load(); }

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
  std::thread thread_;
};

}  // namespace applogic::test
