#include "https_host.h"

#include <poll.h>
#include <stdlib.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <fstream>

#include <openssl/ssl.h>

#include "errors.h"

namespace applogic::emulator::detail {
namespace {

constexpr std::string_view kControlPrefix = "/__control/";
// Bounds how long stopping waits for an idle kept-alive connection.
constexpr time_t kKeepAliveSeconds = 2;

}  // namespace

Result<CaFile> writeCaFile(const std::string& pem, const std::filesystem::path& caOut, const std::string& prefix) {
  CaFile file{caOut, {}};
  if (file.path.empty()) {
    std::error_code error;
    std::filesystem::path base = std::filesystem::temp_directory_path(error);
    if (error) base = "/tmp";
    std::string pattern = (base / (prefix + "-XXXXXX")).string();
    if (mkdtemp(pattern.data()) == nullptr) {
      return Result<CaFile>::failure(serverError(
          kSignInServerCaFileError, "cannot make a directory in " + base.string() + ": " + std::strerror(errno)));
    }
    file.tempDir = pattern;
    file.path = file.tempDir / "ca.pem";
  }
  std::ofstream out(file.path, std::ios::binary | std::ios::trunc);
  out << pem;
  out.close();
  if (!out) {
    removeCaFile(file);
    return Result<CaFile>::failure(
        serverError(kSignInServerCaFileError, "cannot write the CA certificate to " + file.path.string()));
  }
  return Result<CaFile>::success(std::move(file));
}

void removeCaFile(const CaFile& file) {
  if (file.tempDir.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(file.tempDir, ignored);
}

HttpsHost::HttpsHost(const TlsIdentity& identity, std::size_t workers, Handler handler)
    : handler_(std::move(handler)), server_(identity.serverCertificate.get(), identity.serverKey.get()) {
  // The SSL context took its own references to the certificate and key.
  server_.new_task_queue = [workers] { return new httplib::ThreadPool(workers); };
  server_.set_keep_alive_timeout(kKeepAliveSeconds);
  // A client keeps its connection for as many requests as it likes, as services allow;
  // cpp-httplib's default closes it after 5, which costs every fifth request a TLS handshake.
  server_.set_keep_alive_max_count(100000);
  // cpp-httplib writes the head and the body of an answer apart: without this every answer on a
  // kept-alive connection would wait for the client's delayed acknowledgement (about 40 ms).
  server_.set_tcp_nodelay(true);
  // cpp-httplib's default adds SO_REUSEPORT, which would let a second server share the port.
  server_.set_socket_options([](int socket) {
    const int yes = 1;
    setsockopt(socket, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  const auto route = [this](const httplib::Request& request, httplib::Response& response) {
    handler_(request, response);
  };
  server_.Get(".*", route);
  server_.Post(".*", route);
  server_.Put(".*", route);
  server_.Patch(".*", route);
  server_.Delete(".*", route);
  server_.Options(".*", route);
  // A POST without a body carries neither Content-Length nor Transfer-Encoding (what
  // `curl -X POST` sends), and cpp-httplib would wait for a body up to the end of the
  // connection before refusing it. Control requests need no body, so they are answered
  // before routing reads one.
  server_.set_pre_routing_handler([this](const httplib::Request& request, httplib::Response& response) {
    if (request.path.rfind(kControlPrefix, 0) != 0 || request.has_header("Content-Length") ||
        request.has_header("Transfer-Encoding")) {
      return httplib::Server::HandlerResponse::Unhandled;
    }
    handler_(request, response);
    return httplib::Server::HandlerResponse::Handled;
  });
  // Errors cpp-httplib answers itself (a malformed request, a body too large) say so in text.
  server_.set_error_handler(
      httplib::Server::HandlerWithResponse([](const httplib::Request&, httplib::Response& response) {
        if (!response.body.empty()) return httplib::Server::HandlerResponse::Unhandled;
        response.set_content(
            "HTTP " + std::to_string(response.status) + ": the server could not read this request\n",
            "text/plain; charset=utf-8");
        return httplib::Server::HandlerResponse::Handled;
      }));
}

HttpsHost::~HttpsHost() { stop(); }

std::optional<Error> HttpsHost::listen(std::uint16_t port, const std::function<void(std::uint16_t)>& onBound) {
  if (port == 0) {
    const int bound = server_.bind_to_any_port("127.0.0.1");
    if (bound <= 0) return serverError(kSignInServerPortError, "cannot bind any port on 127.0.0.1");
    port_ = static_cast<std::uint16_t>(bound);
  } else {
    if (!server_.bind_to_port("127.0.0.1", port)) {
      return serverError(kSignInServerPortError, "cannot bind 127.0.0.1:" + std::to_string(port));
    }
    port_ = port;
  }
  if (onBound) onBound(port_);
  thread_ = std::thread([this] {
    server_.listen_after_bind();
    listenEnded_ = true;
  });
  // stop() only acts on a running server: wait until the accept loop is up, so that a server
  // destroyed at once still stops.
  while (!server_.is_running() && !listenEnded_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
  if (listenEnded_) return serverError(kSignInServerPortError, "the server stopped listening at once");
  return std::nullopt;
}

void HttpsHost::stop() {
  server_.stop();
  if (thread_.joinable()) thread_.join();
}

int socketOf(const httplib::Request& request) { return request.ssl != nullptr ? SSL_get_fd(request.ssl) : -1; }

bool peerClosed(int socket, std::chrono::milliseconds timeout) {
  if (socket < 0) return false;
  pollfd entry{socket, POLLRDHUP, 0};
  const int ready = ::poll(&entry, 1, static_cast<int>(timeout.count()));
  return ready > 0 && (entry.revents & (POLLRDHUP | POLLHUP | POLLERR)) != 0;
}

}  // namespace applogic::emulator::detail
