#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "applogic/export.h"
#include "applogic/support/error.h"

namespace applogic::platform {

/// One header line: name and value as written, in the order they were given or received.
using HttpHeader = std::pair<std::string, std::string>;
using HttpHeaders = std::vector<HttpHeader>;

/// The value of the first header named `name` (ASCII case-insensitive), or absent.
APPLOGIC_EXPORT std::optional<std::string_view> findHttpHeader(const HttpHeaders& headers, std::string_view name);

/// What to ask for. A plain value.
///
/// Nothing is ever answered from a local cache: every request goes to the server (the client
/// keeps no cache at all), which is what the sign-in exchanges need.
struct APPLOGIC_EXPORT HttpRequest {
  /// An absolute http or https address. Anything else fails with `HttpErrorCode::badUrl`.
  std::string url{};
  /// "GET", "POST", "HEAD", or any other token.
  std::string method = "GET";
  /// Sent in this order, after the client's own ("Host", "Content-Length" ...). A header given
  /// here replaces the client's header of the same name ("Accept-Encoding" included: the answer
  /// is still decoded). An empty value is sent as an empty value. A name that is not a token or a
  /// value with CR, LF or NUL fails the request with `HttpErrorCode::invalidRequest`.
  HttpHeaders headers{};
  /// The body, sent with any method; absent: none. A request with a body and no "Content-Type"
  /// header of its own carries "Content-Type: application/x-www-form-urlencoded".
  std::optional<std::string> body{};
  /// The request fails with `HttpErrorCode::timedOut` when connecting takes longer than this, or
  /// when nothing is received or sent for this long. Zero or less: no limit.
  std::chrono::seconds timeout{60};

  friend bool operator==(const HttpRequest&, const HttpRequest&) = default;
};

/// The head of the final answer (redirects are followed and not reported). Any status, 4xx and
/// 5xx included, is a response, never a failure.
///
/// A request made over https never continues over http: a redirect from an https address to an
/// http one is not followed, and the request fails with `HttpErrorCode::secureConnectionFailed`
/// (its description names the refused address). Nothing reaches the http address. A request made
/// over http may be redirected to either scheme.
struct APPLOGIC_EXPORT HttpResponse {
  int statusCode = 0;
  /// The answer's headers as received ("Content-Encoding" included when the body was decoded).
  HttpHeaders headers{};
  /// The address that answered, after redirects.
  std::string url{};

  friend bool operator==(const HttpResponse&, const HttpResponse&) = default;
};

/// Domain of the errors that `HttpHandlers::onFailure` receives.
inline constexpr std::string_view kHttpErrorDomain = "applogic.http";
/// The user-information key of a failure's human-readable description (a string, never empty).
inline constexpr std::string_view kHttpErrorDescriptionKey = "description";

/// Codes of `kHttpErrorDomain`.
enum class HttpErrorCode : std::int64_t {
  unknown = 1,
  /// Not an absolute http(s) address.
  badUrl = 2,
  /// A header or method that cannot be sent, or a CA file that cannot be read.
  invalidRequest = 3,
  cannotFindHost = 4,
  /// Refused, unreachable, or no route.
  cannotConnect = 5,
  timedOut = 6,
  /// TLS could not be set up: the handshake failed, or the server's certificate is not trusted;
  /// or a redirect would have left https for http.
  secureConnectionFailed = 7,
  /// The connection broke, or closed before a complete answer.
  networkConnectionLost = 8,
  tooManyRedirects = 9,
  /// A compressed body that could not be decoded.
  cannotDecodeContent = 10,
};

/// A failure of `kHttpErrorDomain` with `code` and `description` under `kHttpErrorDescriptionKey`.
APPLOGIC_EXPORT Error makeHttpError(HttpErrorCode code, std::string description);

/// The description of `error`: its `kHttpErrorDescriptionKey` text, or empty when it has none.
APPLOGIC_EXPORT std::string httpErrorDescription(const Error& error);

/// What a request reports, connection-style. Each handler may be empty (nothing is called).
///
/// They run on the main thread (through `MainThread::post`), never inside `HttpClient::start`,
/// in this order: `onResponse` once, then `onData` for every piece of the decoded body as it
/// arrives (possibly never, when the body is empty), then `onFinish` once; or, at any point
/// before `onFinish`, `onFailure` once and nothing after it. Nothing is called once the request's
/// `HttpConnection` has been destroyed, including from inside a handler of that same request.
struct APPLOGIC_EXPORT HttpHandlers {
  std::function<void(const HttpResponse& response)> onResponse{};
  std::function<void(std::string_view data)> onData{};
  std::function<void(const Error& error)> onFailure{};
  std::function<void()> onFinish{};
};

/// A running request. Destroying it cancels the request: the transfer is stopped and no handler
/// runs after the destructor returns. Destroy it on the main thread (a handler of its own request
/// may do it). It may outlive its client; it then does nothing.
class APPLOGIC_EXPORT HttpConnection {
 public:
  virtual ~HttpConnection() = default;
};

/// One cookie of the store.
struct APPLOGIC_EXPORT HttpCookie {
  std::string name{};
  std::string value{};
  /// The host (host-only cookie) or the domain (domain cookie) in lower case, without a leading
  /// dot.
  std::string domain{};
  /// True: sent only to `domain` itself. False: also to every host below it ("www.example.com"
  /// gets a cookie of "example.com").
  bool hostOnly = true;
  /// Sent to this path and those below it ("/a" covers "/a" and "/a/b", not "/ab").
  std::string path = "/";
  /// Sent over https only (and to the loopback hosts).
  bool secure = false;
  bool httpOnly = false;
  /// Absent: a session cookie, kept until the store goes.
  std::optional<std::chrono::system_clock::time_point> expires{};

  friend bool operator==(const HttpCookie&, const HttpCookie&) = default;
};

/// Whether a cookie would be sent with a request to `url`: the host is the cookie's domain (or,
/// for a domain cookie, a name below it; an IP address only ever matches itself), the path is
/// within the cookie's path, and a secure cookie needs https or a loopback host ("localhost",
/// "127.0.0.1", "::1", which count as secure). Host names compare ASCII case-insensitively, ports
/// are ignored, expiry is not considered. False when `url` is not an
/// absolute http(s) address. Pure; any thread.
APPLOGIC_EXPORT bool cookieWouldBeSentTo(const HttpCookie& cookie, std::string_view url);

/// The cookies that the client's requests store and send. Requests store what servers set and
/// send what matches, like a browser.
///
/// Thread contract: any thread; each call returns when the store has answered.
class APPLOGIC_EXPORT HttpCookieStore {
 public:
  virtual ~HttpCookieStore() = default;

  /// The unexpired cookies that a request to `url` would send (`cookieWouldBeSentTo`); empty
  /// when `url` is not an absolute http(s) address.
  virtual std::vector<HttpCookie> cookiesForUrl(std::string_view url) = 0;

  /// Deletes every cookie that a request to `url` would send: those of its host and those of the
  /// domains above it, within the path and secure rules. Returns how many were deleted. The
  /// other cookies stay.
  virtual std::size_t deleteCookiesForUrl(std::string_view url) = 0;
};

/// The HTTP(S) client of the platform.
///
/// Thread contract: call `start` on the main thread; handlers run there, posted through the
/// `MainThread` the client was made with. `cookies()` from any thread. Destroy the client on the
/// main thread: its requests are then cancelled, and no handler runs afterwards, even for
/// connections that are still held.
class APPLOGIC_EXPORT HttpClient {
 public:
  virtual ~HttpClient() = default;

  /// Starts `request` at once. Every outcome, an unusable request included, reaches `handlers`
  /// later on the main thread. The connection must be kept for as long as its answer is wanted.
  [[nodiscard]] virtual std::unique_ptr<HttpConnection> start(HttpRequest request, HttpHandlers handlers) = 0;

  /// The cookie store shared by every request of this client.
  virtual HttpCookieStore& cookies() = 0;
};

}  // namespace applogic::platform
