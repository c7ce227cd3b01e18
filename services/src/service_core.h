#pragma once

// The machinery every HTTP service client shares: one object per configuration that starts
// authorized requests on the main thread and turns their answers into observables (a single
// answer, pages on a trigger, or a stream of server-sent events).

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "applogic/controllers/services.h"
#include "applogic/rx/rx.h"
#include "applogic/services/service_configuration.h"
#include "applogic/support/json.h"

namespace applogic::services {

/// One request, relative to the core's base address.
struct ServiceRequest {
  std::string method = "GET";
  /// Starts with "/"; ids in it already encoded with `pathSegment`.
  std::string path;
  /// Sent percent-encoded, in order.
  std::vector<std::pair<std::string, std::string>> query;
  std::optional<std::string> body;
  std::string contentType;
};

/// `text` percent-encoded for a path segment or a query value: everything but the unreserved
/// characters (RFC 3986) is escaped.
std::string pathSegment(std::string_view text);

/// A JSON body {"trackIds": [...]} or {"gifId": ...}.
std::string jsonBody(const JsonObject& object);

/// Whether `answer`, the page asked for at `offset`, was the last page.
using LastPageTest = std::function<bool(const Json& answer, int offset)>;
/// The request of the page that starts at `offset`.
using PageRequest = std::function<ServiceRequest(int offset)>;

struct CoreOptions {
  /// Here `accessTokens` may be null: requests then carry no token (the Giphy API).
  ServiceConfiguration service;
  /// The server's message in an error answer, when it has one.
  std::function<std::optional<std::string>(const Json& answer)> errorMessage;
};

/// `pattern` with its "{id}" (or "{type}") replaced by `id`, percent-encoded.
std::string pathOf(std::string_view pattern, std::string_view id);

class Call;

class ServiceCore : public std::enable_shared_from_this<ServiceCore> {
 public:
  /// The core, or why the options cannot be used (a missing member, a base that is not http(s)).
  static Result<std::shared_ptr<ServiceCore>> make(CoreOptions options);

  explicit ServiceCore(CoreOptions options);
  ~ServiceCore();
  ServiceCore(const ServiceCore&) = delete;
  ServiceCore& operator=(const ServiceCore&) = delete;

  /// One request; emits its JSON answer.
  rx::Observable<Json> fetchJson(ServiceRequest request);
  /// One request whose answer is not read; emits unit.
  rx::Observable<Unit> fetchUnit(ServiceRequest request);
  /// One request per emission of `trigger`, at `offset`, `offset + pageSize` ...
  rx::Observable<Json> fetchPages(PageRequest page, int offset, int pageSize, LastPageTest lastPage,
                                  rx::Observable<Unit> trigger);
  /// The updates of event `topic`, for as long as the subscription lasts.
  rx::Observable<UserResultUpdate> updates(std::string topic);

  // --- for the calls ---
  const ServiceConfiguration& options() const { return options_.service; }
  std::string urlOf(const ServiceRequest& request) const;
  /// Runs `task` on the main thread: at once when called there, otherwise posted.
  void onMainThread(std::function<void()> task) const;
  /// Posts `task` to the main thread after `delay` (a thread of the core waits).
  void after(std::chrono::milliseconds delay, std::function<void()> task);
  /// The service error of a non-2xx answer (or code 0 for a 2xx answer that is not JSON).
  Error answerError(int status, std::string_view body, const std::string& url) const;
  /// Keeps `call` alive until `release`; any thread.
  void adopt(const std::shared_ptr<Call>& call);
  void release(const Call* call);

 private:
  template <class T, class MakeCall>
  rx::Observable<T> observe(MakeCall makeCall);

  class Timer;
  CoreOptions options_;
  std::unique_ptr<Timer> timer_;
  struct Calls;
  std::unique_ptr<Calls> calls_;
};

}  // namespace applogic::services
