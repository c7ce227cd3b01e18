#include "service_core.h"

#include <algorithm>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>
#include <unordered_map>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include "event_stream_parser.h"

namespace applogic::services {

namespace {

using platform::HttpConnection;
using platform::HttpHandlers;
using platform::HttpRequest;
using platform::HttpResponse;

constexpr bool isSuccess(int status) { return status >= 200 && status < 300; }

// The meaning of the statuses a service answers with, for errors whose answer says nothing.
std::string statusMeaning(int status) {
  switch (status) {
    case 400: return "Bad Request";
    case 401: return "Unauthorized";
    case 403: return "Forbidden";
    case 404: return "Not Found";
    case 405: return "Method Not Allowed";
    case 409: return "Conflict";
    case 416: return "Range Not Satisfiable";
    case 429: return "Too Many Requests";
    case 500: return "Internal Server Error";
    case 502: return "Bad Gateway";
    case 503: return "Service Unavailable";
    case 504: return "Gateway Timeout";
    default: return "HTTP status " + std::to_string(status);
  }
}

std::optional<Json> parseJson(std::string_view text) {
  boost::system::error_code error;
  Json value = boost::json::parse(text, error);
  if (error) return std::nullopt;
  return value;
}

Error serviceError(std::int64_t code, std::string message, const std::string& url) {
  return Error{std::string(kServiceErrorDomain),
               code,
               {{std::string(kServiceErrorMessageKey), std::move(message)}, {std::string(kServiceErrorUrlKey), url}}};
}

}  // namespace

std::string serviceErrorMessage(const Error& error) {
  if (error.domain != kServiceErrorDomain) return {};
  const auto found = error.userInfo.find(kServiceErrorMessageKey);
  if (found == error.userInfo.end()) return {};
  const auto* text = std::get_if<std::string>(&found->second);
  return text ? *text : std::string();
}

std::string pathSegment(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  out.reserve(text.size());
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if ((byte >= 'A' && byte <= 'Z') || (byte >= 'a' && byte <= 'z') || (byte >= '0' && byte <= '9') || c == '-' ||
        c == '.' || c == '_' || c == '~') {
      out += c;
    } else {
      out += '%';
      out += kHex[byte >> 4];
      out += kHex[byte & 0xF];
    }
  }
  return out;
}

std::string pathOf(std::string_view pattern, std::string_view id) {
  const auto open = pattern.find('{');
  const auto close = open == std::string_view::npos ? open : pattern.find('}', open);
  if (close == std::string_view::npos) return std::string(pattern);
  return std::string(pattern.substr(0, open)) + pathSegment(id) + std::string(pattern.substr(close + 1));
}

std::string jsonBody(const JsonObject& object) { return boost::json::serialize(object); }

// ---- the calls: one per subscription, main thread only (construction aside) ----

// One authorized exchange after another: a request with the current token, sent again once with
// a forced refresh when the service answers 401. Subclasses read what arrives.
class Call : public std::enable_shared_from_this<Call> {
 public:
  explicit Call(const std::shared_ptr<ServiceCore>& core) : core_(core) {}
  virtual ~Call() = default;

  virtual void begin() = 0;

  // The subscription was disposed: nothing more is reported, the connection closes.
  virtual void cancel() { end(); }

 protected:
  void send(ServiceRequest request) {
    current_ = std::move(request);
    refreshed_ = false;
    authorize(false);
  }

  // The head of an answer other than the 401 that is retried.
  virtual void onHead(const HttpResponse& /*response*/) {}
  virtual void onBody(std::string_view data) = 0;
  virtual void onEnd(int status) = 0;
  // Transport failures and token-source failures.
  virtual void onFailure(const Error& error) = 0;

  bool ended() const { return ended_; }

  // No more exchanges: drops the connection and lets the core forget this call.
  void end() {
    if (ended_) return;
    ended_ = true;
    ++generation_;
    connection_.reset();
    if (const auto core = core_.lock()) core->release(this);
  }

  // The connection of the current exchange goes; a later `send` makes a new one.
  void dropConnection() {
    ++generation_;
    connection_.reset();
  }

  std::shared_ptr<ServiceCore> core() const { return core_.lock(); }
  std::string url() const {
    const auto core = core_.lock();
    return core ? core->urlOf(current_) : std::string();
  }

 private:
  template <class F>
  auto guarded(std::uint64_t generation, F f) {
    return [weak = weak_from_this(), generation, f = std::move(f)](auto&&... args) {
      const auto self = weak.lock();
      if (!self || self->ended_ || self->generation_ != generation) return;
      f(*self, std::forward<decltype(args)>(args)...);
    };
  }

  void authorize(bool forceRefresh) {
    const auto core = core_.lock();
    if (!core) return;
    const std::uint64_t generation = ++generation_;
    if (!core->options().accessTokens) {
      start(core, std::nullopt, generation);
      return;
    }
    core->options().accessTokens->accessToken(
        forceRefresh, guarded(generation, [generation](Call& self, Result<std::string> token) {
          if (!token) {
            self.onFailure(token.error());
            return;
          }
          if (const auto owner = self.core_.lock()) self.start(owner, std::move(token).value(), generation);
        }));
  }

  void start(const std::shared_ptr<ServiceCore>& core, std::optional<std::string> token, std::uint64_t generation) {
    HttpRequest request;
    request.url = core->urlOf(current_);
    request.method = current_.method;
    if (token) request.headers.emplace_back("Authorization", "Bearer " + *token);
    if (!current_.contentType.empty()) request.headers.emplace_back("Content-Type", current_.contentType);
    for (const auto& header : extraHeaders()) request.headers.push_back(header);
    request.body = current_.body;
    request.timeout = timeout(*core);
    status_ = 0;

    HttpHandlers handlers;
    handlers.onResponse = guarded(generation, [retryable = token.has_value()](Call& self, const HttpResponse& response) {
      if (response.statusCode == 401 && retryable && !self.refreshed_) {
        self.refreshed_ = true;
        self.dropConnection();
        self.authorize(true);
        return;
      }
      self.status_ = response.statusCode;
      self.onHead(response);
    });
    handlers.onData = guarded(generation, [](Call& self, std::string_view data) { self.onBody(data); });
    handlers.onFinish = guarded(generation, [](Call& self) { self.onEnd(self.status_); });
    handlers.onFailure = guarded(generation, [](Call& self, const Error& error) { self.onFailure(error); });
    connection_ = core->options().http->start(std::move(request), std::move(handlers));
  }

  virtual platform::HttpHeaders extraHeaders() const { return {{"Accept", "application/json"}}; }
  virtual std::chrono::seconds timeout(const ServiceCore& core) const { return core.options().requestTimeout; }

  std::weak_ptr<ServiceCore> core_;
  ServiceRequest current_;
  std::unique_ptr<HttpConnection> connection_;
  std::uint64_t generation_ = 0;
  int status_ = 0;
  bool refreshed_ = false;
  bool ended_ = false;
};

namespace {

// What a JSON answer becomes: the value itself, or unit for the writes.
template <class T>
struct AnswerValue;
template <>
struct AnswerValue<Json> {
  static std::optional<Json> from(std::string_view body) { return parseJson(body); }
};
template <>
struct AnswerValue<Unit> {
  static std::optional<Unit> from(std::string_view /*body*/) { return unit; }
};

// Reads one answer into its body, then emits it (or the error it stands for).
template <class T>
class AnswerCall : public Call {
 public:
  AnswerCall(const std::shared_ptr<ServiceCore>& core, ServiceRequest request, rx::AnyObserver<T> observer)
      : Call(core), request_(std::move(request)), observer_(std::move(observer)) {}

  void begin() override { send(request_); }

 protected:
  void onHead(const HttpResponse& /*response*/) override { body_.clear(); }
  void onBody(std::string_view data) override { body_.append(data); }

  void onEnd(int status) override {
    const auto core = this->core();
    const std::string address = url();
    end();
    if (!core) return;
    if (!isSuccess(status)) {
      observer_.onError(core->answerError(status, body_, address));
      return;
    }
    std::optional<T> value = AnswerValue<T>::from(body_);
    if (!value) {
      observer_.onError(core->answerError(status, body_, address));
      return;
    }
    observer_.onNext(*value);
    observer_.onCompleted();
  }

  void onFailure(const Error& error) override {
    end();
    observer_.onError(error);
  }

 private:
  ServiceRequest request_;
  rx::AnyObserver<T> observer_;
  std::string body_;
};

// One page per emission of the trigger, one at a time, until the last page or the trigger's end.
class PagesCall final : public Call {
 public:
  PagesCall(const std::shared_ptr<ServiceCore>& core, PageRequest page, int offset, int pageSize,
            LastPageTest lastPage, rx::Observable<Unit> trigger, rx::AnyObserver<Json> observer)
      : Call(core),
        page_(std::move(page)),
        nextOffset_(offset),
        pageSize_(pageSize),
        lastPage_(std::move(lastPage)),
        trigger_(std::move(trigger)),
        observer_(std::move(observer)) {}

  void begin() override {
    // The trigger may emit on any thread; its events join the main thread like everything else.
    auto weak = std::weak_ptr<PagesCall>(std::static_pointer_cast<PagesCall>(shared_from_this()));
    auto relay = [weak](auto action) {
      return [weak, action](auto&&... /*args*/) {
        const auto self = weak.lock();
        if (!self) return;
        if (const auto core = self->core()) {
          core->onMainThread([weak, action] {
            if (const auto call = weak.lock(); call && !call->ended()) action(*call);
          });
        }
      };
    };
    triggerSubscription_ = trigger_.subscribe(
        relay([](PagesCall& self) {
          ++self.asked_;
          self.next();
        }),
        [weak](const Error& error) {
          const auto self = weak.lock();
          if (!self) return;
          if (const auto core = self->core()) {
            core->onMainThread([weak, error] {
              if (const auto call = weak.lock(); call && !call->ended()) call->fail(error);
            });
          }
        },
        relay([](PagesCall& self) {
          self.triggerDone_ = true;
          self.next();
        }));
  }

  void cancel() override {
    triggerSubscription_.dispose();
    end();
  }

 private:
  void next() {
    if (ended() || inFlight_) return;
    if (asked_ == 0) {
      if (triggerDone_) complete();
      return;
    }
    --asked_;
    inFlight_ = true;
    send(page_(nextOffset_));
  }

  void onHead(const HttpResponse& /*response*/) override { body_.clear(); }
  void onBody(std::string_view data) override { body_.append(data); }

  void onEnd(int status) override {
    inFlight_ = false;
    const auto core = this->core();
    if (!core) return;
    std::optional<Json> answer;
    if (isSuccess(status)) answer = parseJson(body_);
    if (!answer) {
      fail(core->answerError(status, body_, url()));
      return;
    }
    const bool last = lastPage_(*answer, nextOffset_);
    nextOffset_ += pageSize_;
    if (last) {
      triggerSubscription_.dispose();
      end();
    }
    observer_.onNext(*answer);
    if (last) {
      observer_.onCompleted();
      return;
    }
    next();
  }

  void onFailure(const Error& error) override { fail(error); }

  void fail(const Error& error) {
    triggerSubscription_.dispose();
    end();
    observer_.onError(error);
  }

  void complete() {
    triggerSubscription_.dispose();
    end();
    observer_.onCompleted();
  }

  PageRequest page_;
  int nextOffset_;
  int pageSize_;
  LastPageTest lastPage_;
  rx::Observable<Unit> trigger_;
  rx::AnyObserver<Json> observer_;
  rx::Disposable triggerSubscription_;
  std::string body_;
  int asked_ = 0;
  bool inFlight_ = false;
  bool triggerDone_ = false;
};

// The service's keep-alive period; a stream that hears nothing for three of them is dead.
constexpr std::chrono::seconds kKeepAlive{15};

// A long request of server-sent events, made again after it drops.
class UpdatesCall final : public Call {
 public:
  UpdatesCall(const std::shared_ptr<ServiceCore>& core, std::string topic, rx::AnyObserver<UserResultUpdate> observer)
      : Call(core),
        topic_(std::move(topic)),
        observer_(std::move(observer)),
        delay_(core->options().reconnect.firstDelay) {}

  void begin() override { connect(); }

 private:
  void connect() {
    parser_ = EventStreamParser();
    body_.clear();
    streaming_ = false;
    const auto core = this->core();
    if (!core) return;
    send(ServiceRequest{"GET", core->options().paths.events, {{"topics", topic_}}, std::nullopt, {}});
  }

  platform::HttpHeaders extraHeaders() const override {
    platform::HttpHeaders headers{{"Accept", "text/event-stream"}};
    if (!lastEventId_.empty()) headers.emplace_back("Last-Event-ID", lastEventId_);
    return headers;
  }
  std::chrono::seconds timeout(const ServiceCore& /*core*/) const override { return 3 * kKeepAlive; }

  void onHead(const HttpResponse& response) override { streaming_ = isSuccess(response.statusCode); }

  void onBody(std::string_view data) override {
    if (!streaming_) {
      body_.append(data);
      return;
    }
    parser_.feed(data, [this](const ServerSentEvent& event) { deliver(event); });
  }

  void deliver(const ServerSentEvent& event) {
    if (!event.id.empty()) lastEventId_ = event.id;
    if (event.type != topic_ || ended()) return;
    if (const auto core = this->core()) delay_ = core->options().reconnect.firstDelay;
    const std::optional<Json> data = parseJson(event.data);
    const JsonObject* object = data ? data->if_object() : nullptr;
    if (!object) return;
    UserHint user = UserHint::currentUser();
    if (const auto id = json::string(*object, "user")) user = UserHint::user(std::string(*id));
    if (const Json* answer = json::member(*object, "answer")) {
      observer_.onNext(UserResultUpdate{std::move(user), Result<Json>::success(*answer)});
      return;
    }
    const JsonObject* error = json::object(*object, "error");
    const auto status = error ? json::integer(*error, "status") : std::nullopt;
    const auto message = error ? json::string(*error, "message") : std::nullopt;
    observer_.onNext(UserResultUpdate{
        std::move(user), Result<Json>::failure(serviceError(status.value_or(0),
                                                            message ? std::string(*message) : "The update has no answer.",
                                                            url()))});
  }

  void onEnd(int status) override {
    if (!isSuccess(status)) {
      // The service refused the stream: its subscriber hears why, then it is asked again later.
      if (const auto core = this->core()) {
        observer_.onNext(UserResultUpdate{UserHint::currentUser(),
                                          Result<Json>::failure(core->answerError(status, body_, url()))});
      }
    }
    reconnectLater();
  }

  void onFailure(const Error& /*error*/) override { reconnectLater(); }

  void reconnectLater() {
    if (ended()) return;
    dropConnection();
    const auto core = this->core();
    if (!core) return;
    const auto wait = delay_;
    delay_ = std::min(delay_ * 2, core->options().reconnect.maximumDelay);
    core->after(wait, [weak = std::weak_ptr<UpdatesCall>(std::static_pointer_cast<UpdatesCall>(shared_from_this()))] {
      if (const auto self = weak.lock(); self && !self->ended()) self->connect();
    });
  }

  std::string topic_;
  rx::AnyObserver<UserResultUpdate> observer_;
  std::chrono::milliseconds delay_;
  EventStreamParser parser_;
  std::string lastEventId_;
  std::string body_;
  bool streaming_ = false;
};

}  // namespace

// ---- the core ----

// Waits on its own thread and posts each task to the main thread when it is due.
class ServiceCore::Timer {
 public:
  explicit Timer(std::shared_ptr<platform::MainThread> mainThread) : mainThread_(std::move(mainThread)) {}
  ~Timer() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    wake_.notify_all();
    if (thread_.joinable()) thread_.join();
  }

  void after(std::chrono::milliseconds delay, std::function<void()> task) {
    std::lock_guard lock(mutex_);
    tasks_.emplace(std::chrono::steady_clock::now() + delay, std::move(task));
    if (!thread_.joinable()) thread_ = std::thread([this] { run(); });
    wake_.notify_all();
  }

 private:
  void run() {
    std::unique_lock lock(mutex_);
    while (!stopping_) {
      if (tasks_.empty()) {
        wake_.wait(lock);
        continue;
      }
      const auto due = tasks_.begin()->first;
      if (std::chrono::steady_clock::now() < due) {
        wake_.wait_until(lock, due);
        continue;
      }
      auto task = std::move(tasks_.begin()->second);
      tasks_.erase(tasks_.begin());
      mainThread_->post(std::move(task));
    }
  }

  std::shared_ptr<platform::MainThread> mainThread_;
  std::mutex mutex_;
  std::condition_variable wake_;
  std::multimap<std::chrono::steady_clock::time_point, std::function<void()>> tasks_;
  bool stopping_ = false;
  std::thread thread_;
};

struct ServiceCore::Calls {
  std::mutex mutex;
  std::unordered_map<const Call*, std::shared_ptr<Call>> live;
};

Result<std::shared_ptr<ServiceCore>> ServiceCore::make(CoreOptions options) {
  const auto invalid = [](std::string message) {
    return Result<std::shared_ptr<ServiceCore>>::failure(
        Error{std::string(kServiceErrorDomain), 0, {{std::string(kServiceErrorMessageKey), std::move(message)}}});
  };
  const ServiceConfiguration& service = options.service;
  if (!service.http || !service.mainThread) return invalid("The service needs an HTTP client and a main thread.");
  const std::string_view base = service.baseUrl;
  if (!(base.starts_with("https://") || base.starts_with("http://")) || base.ends_with('/')) {
    return invalid("The base address \"" + service.baseUrl + "\" is not an absolute http(s) address without a trailing /.");
  }
  return Result<std::shared_ptr<ServiceCore>>::success(std::make_shared<ServiceCore>(std::move(options)));
}

ServiceCore::ServiceCore(CoreOptions options)
    : options_(std::move(options)), timer_(std::make_unique<Timer>(options_.service.mainThread)), calls_(std::make_unique<Calls>()) {}

ServiceCore::~ServiceCore() {
  // The calls still running are cancelled with their connections; their subscribers hear nothing
  // more. Taken out of the lock first: a call's end comes back to `release`.
  std::unordered_map<const Call*, std::shared_ptr<Call>> live;
  {
    std::lock_guard lock(calls_->mutex);
    live.swap(calls_->live);
  }
  live.clear();
  timer_.reset();
}

std::string ServiceCore::urlOf(const ServiceRequest& request) const {
  std::string url = options_.service.baseUrl + request.path;
  char separator = '?';
  for (const auto& [name, value] : request.query) {
    url += separator;
    url += pathSegment(name);
    url += '=';
    url += pathSegment(value);
    separator = '&';
  }
  return url;
}

void ServiceCore::onMainThread(std::function<void()> task) const {
  if (options_.service.mainThread->isMainThread()) {
    task();
  } else {
    options_.service.mainThread->post(std::move(task));
  }
}

void ServiceCore::after(std::chrono::milliseconds delay, std::function<void()> task) {
  timer_->after(delay, std::move(task));
}

Error ServiceCore::answerError(int status, std::string_view body, const std::string& url) const {
  if (isSuccess(status)) return serviceError(0, "The answer is not JSON.", url);
  std::optional<std::string> message;
  if (const std::optional<Json> answer = parseJson(body); answer && options_.errorMessage) {
    message = options_.errorMessage(*answer);
  }
  return serviceError(status, message.value_or(statusMeaning(status)), url);
}

void ServiceCore::adopt(const std::shared_ptr<Call>& call) {
  std::lock_guard lock(calls_->mutex);
  calls_->live.emplace(call.get(), call);
}

void ServiceCore::release(const Call* call) {
  std::shared_ptr<Call> kept;  // destroyed after the lock is released
  std::lock_guard lock(calls_->mutex);
  if (const auto found = calls_->live.find(call); found != calls_->live.end()) {
    kept = std::move(found->second);
    calls_->live.erase(found);
  }
}

template <class T, class MakeCall>
rx::Observable<T> ServiceCore::observe(MakeCall makeCall) {
  return rx::create<T>([weakCore = weak_from_this(), core = shared_from_this(), makeCall = std::move(makeCall)](
                           rx::AnyObserver<T> observer) {
    std::shared_ptr<Call> call = makeCall(core, std::move(observer));
    core->adopt(call);
    std::weak_ptr<Call> weak = call;
    core->onMainThread([weak] {
      if (const auto started = weak.lock()) started->begin();
    });
    // Weak both ways: the call is kept by the core, and a disposal after the core has gone has
    // nothing left to cancel.
    return rx::Disposable::create([weakCore, weak] {
      if (const auto owner = weakCore.lock()) {
        owner->onMainThread([weak] {
          if (const auto running = weak.lock()) running->cancel();
        });
      }
    });
  });
}

rx::Observable<Json> ServiceCore::fetchJson(ServiceRequest request) {
  return observe<Json>([request = std::move(request)](const std::shared_ptr<ServiceCore>& core, rx::AnyObserver<Json> observer) {
    return std::make_shared<AnswerCall<Json>>(core, request, std::move(observer));
  });
}

rx::Observable<Unit> ServiceCore::fetchUnit(ServiceRequest request) {
  return observe<Unit>([request = std::move(request)](const std::shared_ptr<ServiceCore>& core, rx::AnyObserver<Unit> observer) {
    return std::make_shared<AnswerCall<Unit>>(core, request, std::move(observer));
  });
}

rx::Observable<Json> ServiceCore::fetchPages(PageRequest page, int offset, int pageSize, LastPageTest lastPage,
                                             rx::Observable<Unit> trigger) {
  return observe<Json>([page = std::move(page), offset, pageSize, lastPage = std::move(lastPage),
                        trigger = std::move(trigger)](const std::shared_ptr<ServiceCore>& core,
                                                      rx::AnyObserver<Json> observer) {
    return std::make_shared<PagesCall>(core, page, offset, pageSize, lastPage, trigger, std::move(observer));
  });
}

rx::Observable<UserResultUpdate> ServiceCore::updates(std::string topic) {
  return observe<UserResultUpdate>([topic = std::move(topic)](const std::shared_ptr<ServiceCore>& core,
                                                              rx::AnyObserver<UserResultUpdate> observer) {
    return std::make_shared<UpdatesCall>(core, topic, std::move(observer));
  });
}

}  // namespace applogic::services
