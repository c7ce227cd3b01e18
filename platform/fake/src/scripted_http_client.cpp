#include "applogic/testing/scripted_http_client.h"

#include <algorithm>
#include <deque>
#include <map>
#include <mutex>
#include <utility>

#include "applogic/testing/fault_plan.h"

namespace applogic::testing {

using platform::HttpCookie;
using platform::HttpHandlers;
using platform::HttpRequest;

HttpAnswer HttpAnswer::response(int status, std::string body, platform::HttpHeaders headers) {
  std::vector<std::string> chunks;
  if (!body.empty()) chunks.push_back(std::move(body));
  return chunked(status, std::move(chunks), std::move(headers));
}

HttpAnswer HttpAnswer::chunked(int status, std::vector<std::string> chunks, platform::HttpHeaders headers) {
  HttpAnswer answer;
  answer.kind_ = Kind::response;
  answer.status_ = status;
  answer.headers_ = std::move(headers);
  std::erase_if(chunks, [](const std::string& chunk) { return chunk.empty(); });
  answer.chunks_ = std::move(chunks);
  return answer;
}

HttpAnswer HttpAnswer::failure(Error error) {
  HttpAnswer answer;
  answer.kind_ = Kind::failure;
  answer.error_ = std::move(error);
  return answer;
}

HttpAnswer HttpAnswer::connectionFailure(std::string description) {
  return failure(platform::makeHttpError(platform::HttpErrorCode::cannotConnect, std::move(description)));
}

HttpAnswer HttpAnswer::held() { return HttpAnswer(); }

namespace {

struct Delivery {
  HttpHandlers handlers;
};

enum class Status { open, done, cancelled };

std::string_view withoutQuery(std::string_view url) { return url.substr(0, url.find_first_of("?#")); }

}  // namespace

struct ScriptedHttpClient::State : std::enable_shared_from_this<State> {
  struct Entry {
    HttpRequest request;
    Status status = Status::open;
    bool held = false;
    std::weak_ptr<Delivery> delivery;
  };

  std::mutex mutex;
  bool alive = true;
  std::map<std::pair<std::string, std::string>, std::deque<HttpAnswer>> scripts;
  std::vector<Entry> entries;
  std::vector<HttpCookie> cookies;
  std::shared_ptr<FaultPlan> faults;

  // Posts one handler call of request `index`; it does nothing once the connection or the client
  // is gone. A `terminal` call ends the request and releases its handlers.
  template <typename F>
  void post(platform::MainThread& mainThread, std::size_t index, const std::weak_ptr<Delivery>& target, bool terminal,
            F call) {
    mainThread.post([state = shared_from_this(), index, target, terminal, call = std::move(call)]() mutable {
      const auto delivery = target.lock();
      if (!delivery) return;
      {
        std::lock_guard lock(state->mutex);
        if (!state->alive) return;
        if (terminal) state->entries[index].status = Status::done;
      }
      if (terminal) {
        auto handlers = std::exchange(delivery->handlers, {});
        call(handlers);
      } else {
        call(delivery->handlers);
      }
    });
  }

  // Whether the fault plan fails this step of an answer (a failable call of the client).
  bool fails(std::string_view site) {
    std::shared_ptr<FaultPlan> plan;
    {
      std::lock_guard lock(mutex);
      plan = faults;
    }
    return plan && plan->fails(site);
  }

  void postFailure(platform::MainThread& mainThread, std::size_t index, const std::weak_ptr<Delivery>& target,
                   Error error) {
    post(mainThread, index, target, true, [error = std::move(error)](HttpHandlers& handlers) {
      if (handlers.onFailure) handlers.onFailure(error);
    });
  }

  // Posts every handler call of `answer` (nothing for a held one). A step the fault plan fails is
  // replaced by the failure a dropped connection gives, and ends the request.
  void deliver(platform::MainThread& mainThread, std::size_t index, const std::weak_ptr<Delivery>& target,
               const std::string& url, const HttpAnswer& answer) {
    if (answer.kind_ == HttpAnswer::Kind::held) return;
    if (fails("http.connect")) {
      postFailure(mainThread, index, target,
                  platform::makeHttpError(platform::HttpErrorCode::cannotConnect, "Could not connect to the server."));
      return;
    }
    if (answer.kind_ == HttpAnswer::Kind::failure) {
      postFailure(mainThread, index, target, answer.error_);
      return;
    }
    const auto lost = [] {
      return platform::makeHttpError(platform::HttpErrorCode::networkConnectionLost,
                                     "The network connection was lost.");
    };
    if (fails("http.response")) return postFailure(mainThread, index, target, lost());
    post(mainThread, index, target, false,
         [response = platform::HttpResponse{answer.status_, answer.headers_, url}](HttpHandlers& handlers) {
           if (handlers.onResponse) handlers.onResponse(response);
         });
    for (const auto& chunk : answer.chunks_) {
      if (fails("http.data")) return postFailure(mainThread, index, target, lost());
      post(mainThread, index, target, false, [chunk](HttpHandlers& handlers) {
        if (handlers.onData) handlers.onData(chunk);
      });
    }
    if (fails("http.finish")) return postFailure(mainThread, index, target, lost());
    post(mainThread, index, target, true, [](HttpHandlers& handlers) {
      if (handlers.onFinish) handlers.onFinish();
    });
  }

  // Under the lock: the next answer for `request`, or the failure of an unscripted request.
  HttpAnswer takeAnswer(const HttpRequest& request) {
    auto chosen = scripts.find({request.method, request.url});
    if (chosen == scripts.end()) {
      chosen = std::find_if(scripts.begin(), scripts.end(), [&](const auto& row) {
        const auto& [method, url] = row.first;
        return method == request.method && url.find('?') == std::string::npos && withoutQuery(request.url) == url;
      });
    }
    if (chosen == scripts.end()) {
      return HttpAnswer::connectionFailure("no answer scripted for " + request.method + " " + request.url);
    }
    auto& queue = chosen->second;
    HttpAnswer answer = queue.front();
    if (queue.size() > 1) queue.pop_front();
    return answer;
  }
};

class ScriptedHttpClient::Connection final : public platform::HttpConnection {
 public:
  Connection(std::shared_ptr<Delivery> delivery, std::weak_ptr<State> state, std::size_t index)
      : delivery_(std::move(delivery)), state_(std::move(state)), index_(index) {}
  ~Connection() override {
    delivery_.reset();
    if (const auto state = state_.lock()) {
      std::lock_guard lock(state->mutex);
      auto& entry = state->entries[index_];
      if (entry.status == Status::open) entry.status = Status::cancelled;
    }
  }

 private:
  std::shared_ptr<Delivery> delivery_;
  std::weak_ptr<State> state_;
  std::size_t index_;
};


ScriptedHttpClient::ScriptedHttpClient(std::shared_ptr<platform::MainThread> mainThread)
    : mainThread_(std::move(mainThread)), state_(std::make_shared<State>()) {}

ScriptedHttpClient::~ScriptedHttpClient() {
  std::lock_guard lock(state_->mutex);
  state_->alive = false;
}

std::unique_ptr<platform::HttpConnection> ScriptedHttpClient::start(HttpRequest request, HttpHandlers handlers) {
  auto delivery = std::make_shared<Delivery>(Delivery{std::move(handlers)});
  std::size_t index = 0;
  HttpAnswer answer;
  {
    std::lock_guard lock(state_->mutex);
    answer = state_->takeAnswer(request);
    index = state_->entries.size();
    state_->entries.push_back({request, Status::open, answer.kind_ == HttpAnswer::Kind::held, delivery});
  }
  auto connection = std::make_unique<Connection>(delivery, state_, index);
  state_->deliver(*mainThread_, index, delivery, request.url, answer);
  return connection;
}

std::size_t ScriptedHttpClient::answerHeld(const HttpAnswer& answer) {
  std::vector<std::pair<std::size_t, State::Entry>> held;
  {
    std::lock_guard lock(state_->mutex);
    for (std::size_t index = 0; index < state_->entries.size(); ++index) {
      auto& entry = state_->entries[index];
      if (entry.held && entry.status == Status::open) {
        entry.held = answer.kind_ == HttpAnswer::Kind::held;
        held.emplace_back(index, entry);
      }
    }
  }
  for (const auto& [index, entry] : held) state_->deliver(*mainThread_, index, entry.delivery, entry.request.url, answer);
  return held.size();
}

void ScriptedHttpClient::setFaultPlan(std::shared_ptr<FaultPlan> plan) {
  std::lock_guard lock(state_->mutex);
  state_->faults = std::move(plan);
}

void ScriptedHttpClient::script(std::string method, std::string url, std::vector<HttpAnswer> answers) {
  std::lock_guard lock(state_->mutex);
  auto key = std::make_pair(std::move(method), std::move(url));
  if (answers.empty()) {
    state_->scripts.erase(key);
  } else {
    state_->scripts[std::move(key)] = std::deque<HttpAnswer>(answers.begin(), answers.end());
  }
}

void ScriptedHttpClient::addCookie(HttpCookie cookie) {
  std::lock_guard lock(state_->mutex);
  state_->cookies.push_back(std::move(cookie));
}

std::vector<HttpCookie> ScriptedHttpClient::cookiesForUrl(std::string_view url) {
  std::lock_guard lock(state_->mutex);
  std::vector<HttpCookie> found;
  for (const auto& cookie : state_->cookies) {
    if (platform::cookieWouldBeSentTo(cookie, url)) found.push_back(cookie);
  }
  return found;
}

std::size_t ScriptedHttpClient::deleteCookiesForUrl(std::string_view url) {
  std::lock_guard lock(state_->mutex);
  return std::erase_if(state_->cookies,
                       [url](const HttpCookie& cookie) { return platform::cookieWouldBeSentTo(cookie, url); });
}

std::vector<HttpRequest> ScriptedHttpClient::requests() const {
  std::lock_guard lock(state_->mutex);
  std::vector<HttpRequest> requests;
  for (const auto& entry : state_->entries) requests.push_back(entry.request);
  return requests;
}

std::size_t ScriptedHttpClient::openCount() const {
  std::lock_guard lock(state_->mutex);
  return std::count_if(state_->entries.begin(), state_->entries.end(),
                       [](const State::Entry& entry) { return entry.status == Status::open; });
}

std::size_t ScriptedHttpClient::cancelledCount() const {
  std::lock_guard lock(state_->mutex);
  return std::count_if(state_->entries.begin(), state_->entries.end(),
                       [](const State::Entry& entry) { return entry.status == Status::cancelled; });
}

std::vector<HttpCookie> ScriptedHttpClient::allCookies() const {
  std::lock_guard lock(state_->mutex);
  return state_->cookies;
}

}  // namespace applogic::testing
