#include "emulator/signin_server.h"

#include <stdlib.h>

#include <atomic>
#include <charconv>
#include <cstring>
#include <condition_variable>
#include <deque>
#include <fstream>
#include <map>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>

#include <httplib.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/serialize.hpp>

#include "applogic/support/strings.h"
#include "errors.h"
#include "https_host.h"
#include "signin_authority.h"
#include "tls_identity.h"
#include "web_text.h"

namespace applogic::emulator {
namespace {

using detail::Answer;
using detail::find;

constexpr std::string_view kControlPrefix = "/__control/";
// Enough workers for a browser's parallel connections beside a client's pooled one.
constexpr std::size_t kWorkerThreads = 12;

class SystemClock final : public platform::Clock {
 public:
  TimePoint now() const override { return std::chrono::system_clock::now(); }
};

struct EndpointName {
  Endpoint endpoint;
  std::string_view name;
  std::string_view path;
};
constexpr EndpointName kEndpoints[] = {
    {Endpoint::signInPage, "signin", "/ap/oa"},
    {Endpoint::token, "token", "/auth/o2/token"},
    {Endpoint::profile, "profile", "/user/profile"},
};

struct FaultName {
  Fault fault;
  std::string_view name;
};
constexpr FaultName kFaults[] = {
    {Fault::invalidGrant, "invalid_grant"},           {Fault::invalidToken, "invalid_token"},
    {Fault::insufficientScope, "insufficient_scope"}, {Fault::versionDenied, "version_denied"},
    {Fault::refusal, "refusal"},
};

std::optional<Endpoint> endpointForPath(std::string_view path) {
  for (const EndpointName& row : kEndpoints) {
    if (row.path == path) return row.endpoint;
  }
  return std::nullopt;
}

bool isFormContentType(std::string_view contentType) {
  const std::string_view mediaType = contentType.substr(0, contentType.find(';'));
  return equalsIgnoringAsciiCase(mediaType, "application/x-www-form-urlencoded");
}

template <class Int>
std::optional<Int> parseNumber(std::optional<std::string_view> text) {
  if (!text) return std::nullopt;
  Int value{};
  const auto [end, error] = std::from_chars(text->data(), text->data() + text->size(), value);
  if (error != std::errc() || end != text->data() + text->size() || value < 0) return std::nullopt;
  return value;
}

Answer emptyAnswer(int status) {
  Answer answer;
  answer.status = status;
  return answer;
}

boost::json::object pairsObject(const Pairs& pairs) {
  boost::json::object object;
  for (const auto& [name, value] : pairs) {
    if (!object.contains(name)) object[name] = value;
  }
  return object;
}

// httplib reports the connection's addresses as headers; they are not part of the request.
bool isConnectionPseudoHeader(std::string_view name) {
  return name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT";
}

}  // namespace

Endpoint endpointOf(Fault fault) {
  switch (fault) {
    case Fault::invalidGrant: return Endpoint::token;
    case Fault::invalidToken:
    case Fault::insufficientScope: return Endpoint::profile;
    case Fault::versionDenied:
    case Fault::refusal: break;
  }
  return Endpoint::signInPage;
}

class SignInServer::Impl {
 public:
  Impl(SignInServerOptions options, std::shared_ptr<const detail::TlsIdentity> identity, detail::CaFile caFile)
      : clock_(options.clock ? options.clock : std::make_shared<SystemClock>()),
        identity_(std::move(identity)),
        caFile_(std::move(caFile)),
        authority_(options),
        host_(*identity_, kWorkerThreads,
              [this](const httplib::Request& request, httplib::Response& response) { handle(request, response); }) {}

  ~Impl() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    stopped_.notify_all();
    host_.stop();
    detail::removeCaFile(caFile_);
  }

  bool tlsReady() const { return host_.ready(); }
  std::optional<Error> listen(std::uint16_t port) { return host_.listen(port); }

  std::uint16_t port() const { return host_.port(); }
  const std::filesystem::path& caPath() const { return caFile_.path; }
  const std::string& caPem() const { return identity_->caPem; }
  SharedTls sharedTls() const { return SharedTls{identity_, caFile_.path}; }
  std::optional<AccessTokenInfo> checkAccessToken(std::string_view token) const {
    const auto now = clock_->now();
    std::lock_guard lock(mutex_);
    return authority_.checkAccessToken(token, now);
  }

  void injectServerError(Endpoint endpoint, int times) {
    if (times <= 0) return;
    std::lock_guard lock(mutex_);
    injections_[endpoint].push_back(Injection{std::nullopt, times});
  }
  void injectDelay(Endpoint endpoint, std::chrono::milliseconds delay) {
    std::lock_guard lock(mutex_);
    delays_[endpoint].push_back(delay);
  }
  void inject(Fault fault) {
    std::lock_guard lock(mutex_);
    injections_[endpointOf(fault)].push_back(Injection{fault, 1});
  }
  void setAccessTokenLifetime(std::chrono::seconds lifetime) {
    std::lock_guard lock(mutex_);
    authority_.setAccessTokenLifetime(lifetime);
  }
  std::vector<RecordedRequest> requests() const {
    std::lock_guard lock(mutex_);
    return requests_;
  }
  void reset() {
    std::lock_guard lock(mutex_);
    injections_.clear();
    delays_.clear();
    requests_.clear();
    authority_.reset();
  }

 private:
  // A fault, or a server error when `fault` is absent, for the next `remaining` requests.
  struct Injection {
    std::optional<Fault> fault;
    int remaining = 1;
  };

  // What a request takes from the injections when it arrives.
  struct Taken {
    std::optional<std::chrono::milliseconds> delay;
    std::optional<Answer> answer;
  };

  void handle(const httplib::Request& request, httplib::Response& response) {
    Answer answer;
    try {
      answer = answerFor(request);
    } catch (const std::exception& error) {
      answer = detail::oauthJsonError(500, "server_error", error.what());
    }
    response.status = answer.status;
    for (const auto& [name, value] : answer.headers) response.set_header(name, value);
    if (!answer.contentType.empty()) response.set_content(answer.body, answer.contentType.c_str());
  }

  Answer answerFor(const httplib::Request& request) {
    const std::string_view target = request.target;
    const std::size_t questionMark = target.find('?');
    const Pairs query =
        questionMark == std::string_view::npos ? Pairs{} : detail::parseForm(target.substr(questionMark + 1));
    const bool isForm = isFormContentType(request.get_header_value("Content-Type"));
    const Pairs form = isForm ? detail::parseForm(request.body) : Pairs{};
    if (request.path.rfind(kControlPrefix, 0) == 0) return control(request, query, form);

    const std::optional<Endpoint> endpoint = endpointForPath(request.path);
    const bool isPost = request.method == "POST";
    Taken taken;
    {
      std::lock_guard lock(mutex_);
      record(request, query, form);
      if (endpoint) taken = take(*endpoint, isPost, isPost ? form : query);
    }
    if (taken.delay) {
      std::unique_lock lock(mutex_);
      stopped_.wait_for(lock, *taken.delay, [this] { return stopping_; });
    }
    if (taken.answer) return std::move(*taken.answer);
    if (!endpoint) return detail::htmlPage(404, "Not found", "<h1>Not found</h1>\n");

    const bool isGet = request.method == "GET" || request.method == "HEAD";
    const auto now = clock_->now();
    std::lock_guard lock(mutex_);
    switch (*endpoint) {
      case Endpoint::signInPage:
        if (isGet) return authority_.signInPage(query, now);
        if (isPost) return authority_.submitSignIn(form, now);
        break;
      case Endpoint::token:
        if (isPost) return authority_.token(form, isForm, now);
        break;
      case Endpoint::profile:
        if (isGet) {
          std::optional<std::string> authorization;
          if (request.has_header("Authorization")) authorization = request.get_header_value("Authorization");
          return authority_.profile(authorization ? std::optional<std::string_view>(*authorization) : std::nullopt,
                                    now);
        }
        break;
    }
    return detail::oauthJsonError(405, "invalid_request", "This method is not served here.");
  }

  // Under the lock.
  void record(const httplib::Request& request, const Pairs& query, const Pairs& form) {
    RecordedRequest recorded{request.method, request.path, {}, query, form, request.body};
    for (const auto& [name, value] : request.headers) {
      if (!isConnectionPseudoHeader(name)) recorded.headers.emplace_back(name, value);
    }
    requests_.push_back(std::move(recorded));
  }

  // Under the lock.
  Taken take(Endpoint endpoint, bool isPost, const Pairs& params) {
    Taken taken;
    if (auto& delays = delays_[endpoint]; !delays.empty()) {
      taken.delay = delays.front();
      delays.pop_front();
    }
    auto& queue = injections_[endpoint];
    if (queue.empty()) return taken;
    Injection& next = queue.front();
    if (!next.fault) {
      taken.answer = endpoint == Endpoint::signInPage
                         ? detail::htmlPage(500, "Server error", "<h1>The server is temporarily unable to answer</h1>\n")
                         : detail::oauthJsonError(500, "server_error", "The server is temporarily unable to answer.");
    } else {
      std::optional<detail::RedirectTarget> redirect;
      if (endpoint == Endpoint::signInPage) {
        redirect = authority_.takeRedirectTarget(isPost, params, clock_->now());
        if (!redirect) return taken;  // no usable address yet: the fault waits
      }
      taken.answer = detail::faultAnswer(*next.fault, redirect.value_or(detail::RedirectTarget{}));
    }
    if (--next.remaining == 0) queue.pop_front();
    return taken;
  }

  Answer control(const httplib::Request& request, const Pairs& query, const Pairs& form) {
    Pairs params = query;
    params.insert(params.end(), form.begin(), form.end());
    const std::string_view action = std::string_view(request.path).substr(kControlPrefix.size());
    // Control answers are read by people with curl as much as by tests: errors are one line of
    // text.
    const auto refused = [](int status, std::string_view description) {
      Answer answer;
      answer.status = status;
      answer.contentType = "text/plain; charset=utf-8";
      answer.body = std::string(description) + "\n";
      return answer;
    };
    const auto bad = [&](std::string_view description) { return refused(400, description); };
    const auto endpointParam = [&]() -> std::optional<Endpoint> {
      const auto name = find(params, "endpoint");
      for (const EndpointName& row : kEndpoints) {
        if (name == row.name) return row.endpoint;
      }
      return std::nullopt;
    };

    if (action == "requests") {
      if (request.method != "GET") return bad("GET the requests.");
      boost::json::array list;
      for (const RecordedRequest& recorded : requests()) {
        list.push_back(boost::json::object{{"method", recorded.method},
                                           {"path", recorded.path},
                                           {"headers", pairsObject(recorded.headers)},
                                           {"query", pairsObject(recorded.query)},
                                           {"form", pairsObject(recorded.form)},
                                           {"body", recorded.body}});
      }
      Answer answer;
      answer.contentType = "application/json";
      answer.body = boost::json::serialize(list);
      return answer;
    }
    if (action == "token") {
      if (request.method != "GET") return bad("GET a token's state.");
      const auto token = find(params, "access_token");
      if (!token) return bad("Give access_token=TOKEN.");
      boost::json::object body{{"active", false}};
      if (const std::optional<AccessTokenInfo> info = checkAccessToken(*token)) {
        std::string scope;
        for (const std::string& name : info->scopes) scope += (scope.empty() ? "" : " ") + name;
        body = {{"active", true}, {"user_id", info->userId}, {"scope", scope}, {"expires_at", detail::isoUtc(info->expiresAt)}};
      }
      Answer answer;
      answer.contentType = "application/json";
      answer.body = boost::json::serialize(body);
      return answer;
    }
    if (request.method != "POST") return bad("POST to change the server.");
    if (action == "reset") {
      reset();
    } else if (action == "server-error") {
      const auto endpoint = endpointParam();
      const auto times = find(params, "times") ? parseNumber<int>(find(params, "times")) : std::optional<int>(1);
      if (!endpoint || !times) return bad("Give endpoint=signin|token|profile and times=N.");
      injectServerError(*endpoint, *times);
    } else if (action == "delay") {
      const auto endpoint = endpointParam();
      const auto ms = parseNumber<std::int64_t>(find(params, "ms"));
      if (!endpoint || !ms) return bad("Give endpoint=signin|token|profile and ms=N.");
      injectDelay(*endpoint, std::chrono::milliseconds(*ms));
    } else if (action == "fault") {
      const auto name = find(params, "name");
      const FaultName* row = nullptr;
      for (const FaultName& candidate : kFaults) {
        if (name == candidate.name) row = &candidate;
      }
      if (row == nullptr) {
        return bad("Give name=invalid_grant|invalid_token|insufficient_scope|version_denied|refusal.");
      }
      inject(row->fault);
    } else if (action == "access-token-lifetime") {
      const auto seconds = parseNumber<std::int64_t>(find(params, "seconds"));
      if (!seconds) return bad("Give seconds=N.");
      setAccessTokenLifetime(std::chrono::seconds(*seconds));
    } else {
      return refused(404,
                     "Unknown control: reset, server-error, delay, fault, access-token-lifetime, requests or token.");
    }
    return emptyAnswer(204);
  }

  const std::shared_ptr<const platform::Clock> clock_;
  const std::shared_ptr<const detail::TlsIdentity> identity_;
  const detail::CaFile caFile_;

  mutable std::mutex mutex_;
  std::condition_variable stopped_;
  bool stopping_ = false;
  detail::SignInAuthority authority_;
  std::map<Endpoint, std::deque<Injection>> injections_;
  std::map<Endpoint, std::deque<std::chrono::milliseconds>> delays_;
  std::vector<RecordedRequest> requests_;

  // Last: destroyed (stopped) first, while what the handler uses is alive.
  detail::HttpsHost host_;
};


Result<std::unique_ptr<SignInServer>> SignInServer::start(SignInServerOptions options) {
  using Started = Result<std::unique_ptr<SignInServer>>;
  Result<detail::TlsIdentity> identity = detail::makeLoopbackTlsIdentity();
  if (!identity) return Started::failure(identity.error());

  Result<detail::CaFile> caFile = detail::writeCaFile(identity.value().caPem, options.caOut, "tunevo-signin");
  if (!caFile) return Started::failure(caFile.error());

  const std::uint16_t port = options.port;
  auto impl = std::make_unique<Impl>(std::move(options),
                                     std::make_shared<const detail::TlsIdentity>(std::move(identity).value()),
                                     std::move(caFile).value());
  if (!impl->tlsReady()) {
    return Started::failure(detail::serverError(kSignInServerCertificateError, "the TLS context cannot be made"));
  }
  if (std::optional<Error> error = impl->listen(port)) return Started::failure(*error);
  return Started::success(std::unique_ptr<SignInServer>(new SignInServer(std::move(impl))));
}

SignInServer::SignInServer(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
SignInServer::~SignInServer() = default;

std::uint16_t SignInServer::port() const { return impl_->port(); }
std::string SignInServer::baseUrl() const { return "https://127.0.0.1:" + std::to_string(impl_->port()); }
const std::filesystem::path& SignInServer::caPath() const { return impl_->caPath(); }
const std::string& SignInServer::caPem() const { return impl_->caPem(); }
SharedTls SignInServer::sharedTls() const { return impl_->sharedTls(); }
std::optional<AccessTokenInfo> SignInServer::checkAccessToken(std::string_view token) const {
  return impl_->checkAccessToken(token);
}
void SignInServer::injectServerError(Endpoint endpoint, int times) { impl_->injectServerError(endpoint, times); }
void SignInServer::injectDelay(Endpoint endpoint, std::chrono::milliseconds delay) {
  impl_->injectDelay(endpoint, delay);
}
void SignInServer::inject(Fault fault) { impl_->inject(fault); }
void SignInServer::setAccessTokenLifetime(std::chrono::seconds lifetime) { impl_->setAccessTokenLifetime(lifetime); }
std::vector<RecordedRequest> SignInServer::requests() const { return impl_->requests(); }
void SignInServer::reset() { impl_->reset(); }

}  // namespace applogic::emulator
