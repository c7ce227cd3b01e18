#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/platform/http_client.h"
#include "applogic/platform/main_thread.h"

namespace applogic::testing {

class FaultPlan;

/// One scripted outcome of a request.
class HttpAnswer {
 public:
  /// A response with `status` and `headers`, then `body` in one `onData` (none when empty), then
  /// `onFinish`. A status of 500 is a response like any other.
  static HttpAnswer response(int status, std::string body = {}, platform::HttpHeaders headers = {});
  /// As `response`, with one `onData` for each non-empty piece of `chunks`.
  static HttpAnswer chunked(int status, std::vector<std::string> chunks, platform::HttpHeaders headers = {});
  /// `onFailure` with `error` and nothing else.
  static HttpAnswer failure(Error error);
  /// `onFailure` with `platform::HttpErrorCode::cannotConnect` and this description.
  static HttpAnswer connectionFailure(std::string description = "Connection refused");
  /// Nothing until the test calls `ScriptedHttpClient::answerHeld`: a request that hangs.
  static HttpAnswer held();

 private:
  friend class ScriptedHttpClient;
  enum class Kind { response, failure, held };
  Kind kind_ = Kind::held;
  int status_ = 0;
  platform::HttpHeaders headers_;
  std::vector<std::string> chunks_;
  Error error_;
};

/// An `HttpClient` that answers from a script and records what it was asked.
///
/// Answers are queued per method and address with `script`; each request takes the next one,
/// and the last one repeats. An address scripted without a query matches requests to it with any
/// query (or none); one with a query matches only itself. A request nobody scripted fails with
/// `HttpErrorCode::cannotConnect`, "no answer scripted for <METHOD> <url>".
///
/// Each handler call is one task posted to the `MainThread` given at construction, all posted
/// when the request starts (for a held request: when it is answered), so a test with a
/// `ManualMainThread` sees nothing until it pumps, and can step through an answer one handler at
/// a time. Destroying a connection cancels it: its remaining tasks do nothing.
///
/// The cookie store holds what the test adds and applies `platform::cookieWouldBeSentTo`; it
/// does not read `Set-Cookie` headers and does not consider expiry.
///
/// Thread contract: as `HttpClient` (`start` and connections on the main thread); the script and
/// record functions from any thread.
class ScriptedHttpClient final : public platform::HttpClient, public platform::HttpCookieStore {
 public:
  explicit ScriptedHttpClient(std::shared_ptr<platform::MainThread> mainThread);
  ~ScriptedHttpClient() override;

  [[nodiscard]] std::unique_ptr<platform::HttpConnection> start(platform::HttpRequest request,
                                                                platform::HttpHandlers handlers) override;
  platform::HttpCookieStore& cookies() override { return *this; }
  std::vector<platform::HttpCookie> cookiesForUrl(std::string_view url) override;
  std::size_t deleteCookiesForUrl(std::string_view url) override;

  // --- script --------------------------------------------------------------------------------

  /// The answers, in order, of the requests with `method` to `url`; replaces an earlier script
  /// of the same pair. An empty list removes the script.
  void script(std::string method, std::string url, std::vector<HttpAnswer> answers);
  /// Makes every request ask `plan` at each step of its answer that can fail in life, in order:
  /// "http.connect" (the request fails with `cannotConnect` before anything), then, for a
  /// response, "http.response", one "http.data" per piece of body and "http.finish" (that step
  /// and the rest are replaced by one `onFailure` with `networkConnectionLost`). The steps are
  /// counted when the request starts (a held one: when it is answered). Null: nothing fails.
  void setFaultPlan(std::shared_ptr<FaultPlan> plan);
  /// Answers every held request that is still open, oldest first; returns how many.
  std::size_t answerHeld(const HttpAnswer& answer);
  void addCookie(platform::HttpCookie cookie);

  // --- what happened -------------------------------------------------------------------------

  /// Every request started, in order, exactly as it was passed to `start` (the client's own
  /// headers, such as the form content type, are not added).
  std::vector<platform::HttpRequest> requests() const;
  /// Requests started and neither answered to the end nor cancelled (held ones included).
  std::size_t openCount() const;
  /// Requests whose connection was destroyed before their last handler ran.
  std::size_t cancelledCount() const;
  /// Every cookie in the store, in the order they were added.
  std::vector<platform::HttpCookie> allCookies() const;

 private:
  struct State;
  class Connection;

  std::shared_ptr<platform::MainThread> mainThread_;
  std::shared_ptr<State> state_;
};

}  // namespace applogic::testing
