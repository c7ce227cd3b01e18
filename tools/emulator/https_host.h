#pragma once

// What the emulator's servers share: the CA file, and an HTTPS server on 127.0.0.1 that hands
// every request to one handler, runs on its own threads and stops promptly.

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include <httplib.h>

#include "applogic/support/error.h"
#include "applogic/support/result.h"
#include "tls_identity.h"

namespace applogic::emulator::detail {

/// Where a CA certificate was written, and the temporary directory to remove with the server
/// (empty when the file was given).
struct CaFile {
  std::filesystem::path path;
  std::filesystem::path tempDir;
};

/// Writes `pem` to `caOut`, or to `ca.pem` in a new directory named after `prefix` under the
/// system's temporary directory when `caOut` is empty. Errors: kSignInServerCaFileError.
Result<CaFile> writeCaFile(const std::string& pem, const std::filesystem::path& caOut, const std::string& prefix);

/// Removes the directory of `file` that was made for it, if any.
void removeCaFile(const CaFile& file);

/// An HTTPS server on 127.0.0.1: every method and path goes to `handler`, and so do control
/// requests (paths under "/__control/") that carry no body. Thread contract: construct, `listen`
/// once, `stop` (or destroy) from any thread; `handler` runs on the server's threads.
class HttpsHost {
 public:
  using Handler = std::function<void(const httplib::Request&, httplib::Response&)>;

  HttpsHost(const TlsIdentity& identity, std::size_t workers, Handler handler);
  ~HttpsHost();
  HttpsHost(const HttpsHost&) = delete;
  HttpsHost& operator=(const HttpsHost&) = delete;

  /// False when the TLS context could not be made.
  bool ready() const { return server_.is_valid(); }
  /// Binds `port` (0: any free one), calls `bound` with the port, and starts serving.
  /// Errors: kSignInServerPortError.
  std::optional<Error> listen(std::uint16_t port, const std::function<void(std::uint16_t)>& bound = {});
  std::uint16_t port() const { return port_; }
  /// Stops accepting and waits for the serving threads; idempotent.
  void stop();

 private:
  Handler handler_;
  httplib::SSLServer server_;
  std::uint16_t port_ = 0;
  std::atomic<bool> listenEnded_ = false;
  std::thread thread_;
};

/// The socket of a request's connection.
int socketOf(const httplib::Request& request);
/// Waits up to `timeout` for the peer of `socket` to close its side; true when it has.
bool peerClosed(int socket, std::chrono::milliseconds timeout);

}  // namespace applogic::emulator::detail
