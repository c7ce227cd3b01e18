#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "applogic/export.h"
#include "applogic/platform/http_client.h"
#include "applogic/platform/run_loop.h"

namespace applogic::platform {

struct APPLOGIC_EXPORT CurlHttpOptions {
  /// PEM certificates trusted in addition to the system's CAs (a CA made for a loopback server).
  /// A file that cannot be read makes every request fail with `HttpErrorCode::invalidRequest`.
  std::optional<std::filesystem::path> caFile;
};

/// The Linux `HttpClient`: libcurl's multi interface, driven on the main thread by `loop`, which
/// watches libcurl's sockets and timer; transfers move only while the loop runs. Handlers are
/// posted to `loop`. Follows up to 16 redirects between http and https addresses,
/// accepts every content encoding libcurl can decode (gzip, deflate, br, zstd) and decodes it,
/// verifies TLS peers against the system's CAs and `options.caFile`, and honours the usual proxy
/// variables (http_proxy, https_proxy, no_proxy). Cookies live in memory for the client's life.
///
/// Thread contract: as `HttpClient`; a `start` or a connection's destruction on another thread is
/// carried out on the main thread when the loop next runs.
APPLOGIC_EXPORT std::shared_ptr<HttpClient> makeCurlHttpClient(std::shared_ptr<RunLoop> loop, CurlHttpOptions options = {});

}  // namespace applogic::platform
