#include "applogic/platform/curl_http_client.h"

#include <curl/curl.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <deque>
#include <future>
#include <limits>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <unordered_map>

#include <boost/url/parse.hpp>

#include "applogic/support/strings.h"

namespace applogic::platform {
namespace {

constexpr long kMaxRedirects = 16;

// The main-thread side of one request: only the handlers. The connection owns it; tasks posted by
// the worker hold it weakly, so a destroyed connection (or one destroyed by its own handler) gets
// nothing more.
struct Delivery {
  HttpHandlers handlers;
};

struct ErrorRow {
  CURLcode curl;
  HttpErrorCode code;
};

constexpr ErrorRow kErrorRows[] = {
    {CURLE_UNSUPPORTED_PROTOCOL, HttpErrorCode::badUrl},
    {CURLE_URL_MALFORMAT, HttpErrorCode::badUrl},
    {CURLE_COULDNT_RESOLVE_PROXY, HttpErrorCode::cannotFindHost},
    {CURLE_COULDNT_RESOLVE_HOST, HttpErrorCode::cannotFindHost},
    {CURLE_COULDNT_CONNECT, HttpErrorCode::cannotConnect},
    {CURLE_OPERATION_TIMEDOUT, HttpErrorCode::timedOut},
    {CURLE_SSL_CONNECT_ERROR, HttpErrorCode::secureConnectionFailed},
    {CURLE_PEER_FAILED_VERIFICATION, HttpErrorCode::secureConnectionFailed},
    {CURLE_SSL_CERTPROBLEM, HttpErrorCode::secureConnectionFailed},
    {CURLE_SSL_CIPHER, HttpErrorCode::secureConnectionFailed},
    {CURLE_SSL_CACERT_BADFILE, HttpErrorCode::secureConnectionFailed},
    {CURLE_SSL_ISSUER_ERROR, HttpErrorCode::secureConnectionFailed},
    {CURLE_SSL_PINNEDPUBKEYNOTMATCH, HttpErrorCode::secureConnectionFailed},
    {CURLE_SSL_INVALIDCERTSTATUS, HttpErrorCode::secureConnectionFailed},
    {CURLE_SEND_ERROR, HttpErrorCode::networkConnectionLost},
    {CURLE_RECV_ERROR, HttpErrorCode::networkConnectionLost},
    {CURLE_GOT_NOTHING, HttpErrorCode::networkConnectionLost},
    {CURLE_PARTIAL_FILE, HttpErrorCode::networkConnectionLost},
    {CURLE_WEIRD_SERVER_REPLY, HttpErrorCode::networkConnectionLost},
    {CURLE_HTTP2, HttpErrorCode::networkConnectionLost},
    {CURLE_HTTP2_STREAM, HttpErrorCode::networkConnectionLost},
    {CURLE_TOO_MANY_REDIRECTS, HttpErrorCode::tooManyRedirects},
    {CURLE_BAD_CONTENT_ENCODING, HttpErrorCode::cannotDecodeContent},
};

HttpErrorCode errorCodeFor(CURLcode code) {
  const auto* row = std::find_if(std::begin(kErrorRows), std::end(kErrorRows),
                                 [code](const ErrorRow& r) { return r.curl == code; });
  return row == std::end(kErrorRows) ? HttpErrorCode::unknown : row->code;
}

bool isTokenChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') ||
         std::string_view("!#$%&'*+-.^_`|~").find(c) != std::string_view::npos;
}

bool isToken(std::string_view text) { return !text.empty() && std::all_of(text.begin(), text.end(), isTokenChar); }

// What makes a request unsendable, checked before libcurl sees it: libcurl would send a header
// value with CR/LF as given, splitting it into two headers.
std::optional<Error> problemWith(const HttpRequest& request) {
  const auto uri = boost::urls::parse_uri(request.url);
  const std::string scheme = uri ? asciiLowercase(uri->scheme()) : std::string();
  if (!uri || (scheme != "http" && scheme != "https") || uri->encoded_host().empty()) {
    return makeHttpError(HttpErrorCode::badUrl, "not an absolute http or https address: \"" + request.url + "\"");
  }
  if (!isToken(request.method)) {
    return makeHttpError(HttpErrorCode::invalidRequest, "not a request method: \"" + request.method + "\"");
  }
  for (const auto& [name, value] : request.headers) {
    if (!isToken(name) || value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
      return makeHttpError(HttpErrorCode::invalidRequest, "header \"" + name + "\" cannot be sent");
    }
  }
  return std::nullopt;
}

bool isHttps(std::string_view url) {
  const auto uri = boost::urls::parse_uri(url);
  return uri && asciiLowercase(uri->scheme()) == "https";
}

std::string_view trimBlanks(std::string_view text) {
  constexpr std::string_view kBlanks = " \t\r\n";
  const auto first = text.find_first_not_of(kBlanks);
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(kBlanks) - first + 1);
}

// One line of libcurl's cookie list (the Netscape cookie-file format): domain (with a leading dot
// for domain cookies, "#HttpOnly_" in front for http-only ones), "TRUE" for a domain cookie,
// path, secure, expiry in seconds since the epoch (0: session), name, value.
std::optional<HttpCookie> parseCookieLine(std::string_view line) {
  HttpCookie cookie;
  constexpr std::string_view kHttpOnly = "#HttpOnly_";
  if (line.starts_with(kHttpOnly)) {
    cookie.httpOnly = true;
    line.remove_prefix(kHttpOnly.size());
  }
  std::string_view fields[7];
  for (int i = 0; i < 6; ++i) {
    const auto tab = line.find('\t');
    if (tab == std::string_view::npos) return std::nullopt;
    fields[i] = line.substr(0, tab);
    line.remove_prefix(tab + 1);
  }
  fields[6] = line;  // the value: the rest of the line
  std::string_view domain = fields[0];
  if (domain.starts_with('.')) domain.remove_prefix(1);
  cookie.domain = asciiLowercase(domain);
  cookie.hostOnly = fields[1] != "TRUE";
  cookie.path = std::string(fields[2]);
  cookie.secure = fields[3] == "TRUE";
  long long expires = 0;
  if (std::sscanf(std::string(fields[4]).c_str(), "%lld", &expires) != 1) return std::nullopt;
  if (expires != 0) cookie.expires = std::chrono::system_clock::time_point(std::chrono::seconds(expires));
  cookie.name = std::string(fields[5]);
  cookie.value = std::string(fields[6]);
  return cookie;
}

bool isExpired(const HttpCookie& cookie) {
  return cookie.expires && *cookie.expires <= std::chrono::system_clock::now();
}

void initializeCurlOnce() {
  // This libcurl is built thread-safe, so the global initialisation may race with nothing; doing
  // it once is still cheaper than letting every easy handle check.
  static const bool initialized = curl_global_init(CURL_GLOBAL_DEFAULT) == CURLE_OK;
  (void)initialized;
}

class Core;

// The worker's side of one request.
struct Transfer {
  std::uint64_t id = 0;
  HttpRequest request;
  std::weak_ptr<Delivery> delivery;
  Core* core = nullptr;
  CURL* easy = nullptr;
  curl_slist* headers = nullptr;
  // The headers of the latest response head; a redirect or a 1xx answer starts them anew.
  HttpHeaders received;
  bool responsePosted = false;
  bool overTls = false;
  char errorBuffer[CURL_ERROR_SIZE] = {};

  ~Transfer() {
    if (easy) curl_easy_cleanup(easy);
    curl_slist_free_all(headers);
  }
};

class Core {
 public:
  Core(std::shared_ptr<MainThread> mainThread, const CurlHttpOptions& options) : mainThread_(std::move(mainThread)) {
    initializeCurlOnce();
    if (options.caFile) loadCaFile(*options.caFile);
    multi_ = curl_multi_init();
    share_ = curl_share_init();
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
    cookieHandle_ = curl_easy_init();
    curl_easy_setopt(cookieHandle_, CURLOPT_SHARE, share_);
  }

  ~Core() {
    shutdown();
    curl_easy_cleanup(cookieHandle_);
    curl_multi_cleanup(multi_);
    curl_share_cleanup(share_);
    for (X509* certificate : caCertificates_) X509_free(certificate);
  }

  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  // Main thread: no handler runs after this; the worker stops with every transfer unreported.
  void shutdown() {
    alive_->store(false);
    {
      std::lock_guard lock(mutex_);
      if (stopping_) return;
      stopping_ = true;
    }
    curl_multi_wakeup(multi_);
    if (worker_.joinable()) worker_.join();
  }

  std::uint64_t add(HttpRequest request, std::weak_ptr<Delivery> delivery) {
    const std::uint64_t id = nextId_.fetch_add(1);
    push([this, id, request = std::move(request), delivery = std::move(delivery)]() mutable {
      begin(id, std::move(request), std::move(delivery));
    });
    return id;
  }

  void cancel(std::uint64_t id) {
    push([this, id] {
      const auto found = transfers_.find(id);
      if (found == transfers_.end()) return;
      curl_multi_remove_handle(multi_, found->second->easy);
      transfers_.erase(found);
    });
  }

  std::vector<HttpCookie> cookiesForUrl(std::string_view url) {
    return callOnWorker([this, url] {
      std::vector<HttpCookie> cookies;
      for (const auto& line : cookieLines()) {
        auto cookie = parseCookieLine(line);
        if (cookie && !isExpired(*cookie) && cookieWouldBeSentTo(*cookie, url)) cookies.push_back(std::move(*cookie));
      }
      return cookies;
    });
  }

  std::size_t deleteCookiesForUrl(std::string_view url) {
    return callOnWorker([this, url] {
      // libcurl deletes no single cookie, so the jar is emptied and what stays is added back in
      // the form libcurl listed it. Nothing runs in between: transfers move only on this thread.
      std::vector<std::string> kept;
      std::size_t deleted = 0;
      const auto lines = cookieLines();
      for (const auto& line : lines) {
        const auto cookie = parseCookieLine(line);
        if (cookie && !isExpired(*cookie) && cookieWouldBeSentTo(*cookie, url)) {
          ++deleted;
        } else {
          kept.push_back(line);
        }
      }
      if (deleted == 0) return deleted;
      curl_easy_setopt(cookieHandle_, CURLOPT_COOKIELIST, "ALL");
      for (const auto& line : kept) curl_easy_setopt(cookieHandle_, CURLOPT_COOKIELIST, line.c_str());
      return deleted;
    });
  }

 private:
  // Any thread. Queues `command` for the worker, starting it the first time; false once stopping.
  bool push(std::function<void()> command) {
    {
      std::lock_guard lock(mutex_);
      if (stopping_) return false;
      commands_.push_back(std::move(command));
      if (!worker_.joinable()) worker_ = std::thread([this] { run(); });
    }
    curl_multi_wakeup(multi_);
    return true;
  }

  // Runs `function` on the worker and waits for its result. Every command queued before the
  // worker stops is run, so the promise is always kept.
  template <typename F>
  std::invoke_result_t<F> callOnWorker(F function) {
    using Value = std::invoke_result_t<F>;
    std::promise<Value> promise;
    auto result = promise.get_future();
    if (!push([&] { promise.set_value(function()); })) return Value{};
    return result.get();
  }

  void run() {
    for (;;) {
      std::deque<std::function<void()>> commands;
      bool stop = false;
      {
        std::lock_guard lock(mutex_);
        commands.swap(commands_);
        stop = stopping_;
      }
      for (auto& command : commands) command();
      if (stop) break;
      int running;  // libcurl's count of live transfers; the worker needs only the messages below
      curl_multi_perform(multi_, &running);
      int left = 0;
      while (CURLMsg* message = curl_multi_info_read(multi_, &left)) {
        if (message->msg == CURLMSG_DONE) complete(message->easy_handle, message->data.result);
      }
      flushDeliveries();
      // Until a socket or one of libcurl's timers needs the worker, or a command wakes it: an idle
      // client does not wake up at all.
      curl_multi_poll(multi_, nullptr, 0, std::numeric_limits<int>::max(), nullptr);
    }
    for (auto& [id, transfer] : transfers_) curl_multi_remove_handle(multi_, transfer->easy);
    transfers_.clear();
  }

  void begin(std::uint64_t id, HttpRequest request, std::weak_ptr<Delivery> delivery) {
    auto transfer = std::make_unique<Transfer>();
    transfer->id = id;
    transfer->request = std::move(request);
    transfer->delivery = std::move(delivery);
    transfer->core = this;
    if (caError_) return postFailure(transfer->delivery, makeHttpError(HttpErrorCode::invalidRequest, *caError_));
    if (auto problem = problemWith(transfer->request)) return postFailure(transfer->delivery, std::move(*problem));
    transfer->overTls = isHttps(transfer->request.url);
    transfer->easy = curl_easy_init();
    if (!transfer->easy) {
      return postFailure(transfer->delivery, makeHttpError(HttpErrorCode::unknown, "libcurl could not make a transfer"));
    }
    configure(*transfer);
    if (curl_multi_add_handle(multi_, transfer->easy) != CURLM_OK) {
      return postFailure(transfer->delivery, makeHttpError(HttpErrorCode::unknown, "libcurl could not start a transfer"));
    }
    transfers_.emplace(transfer->id, std::move(transfer));
  }

  void configure(Transfer& transfer) {
    CURL* easy = transfer.easy;
    const HttpRequest& request = transfer.request;
    curl_easy_setopt(easy, CURLOPT_PRIVATE, &transfer);
    curl_easy_setopt(easy, CURLOPT_URL, request.url.c_str());
    curl_easy_setopt(easy, CURLOPT_PROTOCOLS_STR, "http,https");
    // A redirect from https to http would resend the request (a token request's form: codes,
    // refresh tokens, verifiers) in clear text; libcurl refuses it before connecting.
    curl_easy_setopt(easy, CURLOPT_REDIR_PROTOCOLS_STR, transfer.overTls ? "https" : "http,https");
    curl_easy_setopt(easy, CURLOPT_FOLLOWLOCATION, 1L);
    curl_easy_setopt(easy, CURLOPT_MAXREDIRS, kMaxRedirects);
    // Empty: offer every encoding this libcurl decodes, and decode the answer.
    curl_easy_setopt(easy, CURLOPT_ACCEPT_ENCODING, "");
    curl_easy_setopt(easy, CURLOPT_NOSIGNAL, 1L);
    curl_easy_setopt(easy, CURLOPT_SHARE, share_);
    curl_easy_setopt(easy, CURLOPT_COOKIEFILE, "");
    curl_easy_setopt(easy, CURLOPT_ERRORBUFFER, transfer.errorBuffer);
    curl_easy_setopt(easy, CURLOPT_HEADERFUNCTION, &Core::onHeader);
    curl_easy_setopt(easy, CURLOPT_HEADERDATA, &transfer);
    curl_easy_setopt(easy, CURLOPT_WRITEFUNCTION, &Core::onBody);
    curl_easy_setopt(easy, CURLOPT_WRITEDATA, &transfer);
    if (request.timeout.count() > 0) {
      curl_easy_setopt(easy, CURLOPT_CONNECTTIMEOUT, static_cast<long>(request.timeout.count()));
      curl_easy_setopt(easy, CURLOPT_LOW_SPEED_LIMIT, 1L);
      curl_easy_setopt(easy, CURLOPT_LOW_SPEED_TIME, static_cast<long>(request.timeout.count()));
    }
    if (!caCertificates_.empty()) {
      curl_easy_setopt(easy, CURLOPT_SSL_CTX_FUNCTION, &Core::addCaCertificates);
      curl_easy_setopt(easy, CURLOPT_SSL_CTX_DATA, this);
    }

    const std::string& method = request.method;
    if (request.body) {
      curl_easy_setopt(easy, CURLOPT_POSTFIELDSIZE_LARGE, static_cast<curl_off_t>(request.body->size()));
      curl_easy_setopt(easy, CURLOPT_POSTFIELDS, request.body->data());
      if (method != "POST") curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
    } else if (method == "GET") {
      curl_easy_setopt(easy, CURLOPT_HTTPGET, 1L);
    } else if (method == "HEAD") {
      curl_easy_setopt(easy, CURLOPT_NOBODY, 1L);
    } else {
      curl_easy_setopt(easy, CURLOPT_CUSTOMREQUEST, method.c_str());
    }

    for (const auto& [name, value] : request.headers) {
      // "Name;" is libcurl's way of sending an empty value ("Name:" would remove the header).
      const std::string line = value.empty() ? name + ";" : name + ": " + value;
      transfer.headers = curl_slist_append(transfer.headers, line.c_str());
    }
    // The form type is this client's contract, not left to libcurl's default for POST fields.
    if (request.body && !findHttpHeader(request.headers, "Content-Type")) {
      transfer.headers = curl_slist_append(transfer.headers, "Content-Type: application/x-www-form-urlencoded");
    }
    // No "Expect: 100-continue" round trip before larger bodies.
    if (!findHttpHeader(request.headers, "Expect")) transfer.headers = curl_slist_append(transfer.headers, "Expect:");
    curl_easy_setopt(easy, CURLOPT_HTTPHEADER, transfer.headers);
  }

  static std::size_t onHeader(char* buffer, std::size_t size, std::size_t count, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    const std::size_t length = size * count;
    // Names and values are trimmed of blanks, CR and LF below; a line of those alone matches nothing.
    const std::string_view line(buffer, length);
    if (line.starts_with("HTTP/")) {
      transfer.received.clear();
    } else if (!line.empty() && (line.front() == ' ' || line.front() == '\t')) {
      if (!transfer.received.empty()) {
        auto& value = transfer.received.back().second;
        value += ' ';
        value += trimBlanks(line);
      }
    } else if (const auto colon = line.find(':'); colon != std::string_view::npos) {
      transfer.received.emplace_back(std::string(line.substr(0, colon)), std::string(trimBlanks(line.substr(colon + 1))));
    }
    return length;
  }

  static std::size_t onBody(char* data, std::size_t size, std::size_t count, void* user) {
    auto& transfer = *static_cast<Transfer*>(user);
    const std::size_t length = size * count;
    transfer.core->postResponseOnce(transfer);
    if (length > 0) {
      transfer.core->post(transfer.delivery, [chunk = std::string(data, length)](Delivery& delivery) {
        if (delivery.handlers.onData) delivery.handlers.onData(chunk);
      });
    }
    return length;
  }

  static CURLcode addCaCertificates(CURL*, void* context, void* user) {
    auto& core = *static_cast<Core*>(user);
    X509_STORE* store = SSL_CTX_get_cert_store(static_cast<SSL_CTX*>(context));
    // Added to the store already holding the system's CAs; a certificate already there is no error.
    for (X509* certificate : core.caCertificates_) X509_STORE_add_cert(store, certificate);
    return CURLE_OK;
  }

  void loadCaFile(const std::filesystem::path& path) {
    const std::string unreadable = "the CA file \"" + path.string() + "\" holds no readable certificate";
    BIO* file = BIO_new_file(path.c_str(), "r");
    if (!file) {
      caError_ = unreadable;
      return;
    }
    while (X509* certificate = PEM_read_bio_X509(file, nullptr, nullptr, nullptr)) {
      caCertificates_.push_back(certificate);
    }
    BIO_free(file);
    ERR_clear_error();
    if (caCertificates_.empty()) caError_ = unreadable;
  }

  void complete(CURL* easy, CURLcode result) {
    Transfer* transfer = nullptr;
    curl_easy_getinfo(easy, CURLINFO_PRIVATE, &transfer);
    if (!transfer) return;
    if (result == CURLE_OK) {
      postResponseOnce(*transfer);
      post(transfer->delivery, [](Delivery& delivery) {
        auto handlers = std::exchange(delivery.handlers, {});
        if (handlers.onFinish) handlers.onFinish();
      });
    } else if (const auto target = refusedRedirect(*transfer, result)) {
      postFailure(transfer->delivery,
                  makeHttpError(HttpErrorCode::secureConnectionFailed,
                                "refused to follow a redirect from https to http (\"" + *target + "\")"));
    } else {
      std::string description = transfer->errorBuffer[0] ? transfer->errorBuffer : curl_easy_strerror(result);
      // libcurl's text says "Couldn't connect to server"; the system's reason says why.
      long systemError;
      if (curl_easy_getinfo(easy, CURLINFO_OS_ERRNO, &systemError) == CURLE_OK && systemError != 0) description += " (" + std::string(std::strerror(static_cast<int>(systemError))) + ")";
      postFailure(transfer->delivery, makeHttpError(errorCodeFor(result), std::move(description)));
    }
    curl_multi_remove_handle(multi_, easy);
    transfers_.erase(transfer->id);
  }

  // The address of a redirect that libcurl refused to follow because it leaves https, if it was
  // one. libcurl names no address then, but the head it refused is the latest one received; a
  // relative address keeps the scheme, so only an absolute http one can be refused.
  static std::optional<std::string> refusedRedirect(const Transfer& transfer, CURLcode result) {
    if (result != CURLE_UNSUPPORTED_PROTOCOL || !transfer.overTls) return std::nullopt;
    const auto location = findHttpHeader(transfer.received, "Location");
    const auto uri = location ? boost::urls::parse_uri(*location) : boost::system::result<boost::urls::url_view>();
    if (!uri || asciiLowercase(uri->scheme()) != "http") return std::nullopt;
    return std::string(*location);
  }

  void postResponseOnce(Transfer& transfer) {
    if (transfer.responsePosted) return;
    transfer.responsePosted = true;
    long status = 0;
    curl_easy_getinfo(transfer.easy, CURLINFO_RESPONSE_CODE, &status);
    const char* url = nullptr;
    curl_easy_getinfo(transfer.easy, CURLINFO_EFFECTIVE_URL, &url);
    HttpResponse response{static_cast<int>(status), transfer.received, url ? url : transfer.request.url};
    post(transfer.delivery, [response = std::move(response)](Delivery& delivery) {
      if (delivery.handlers.onResponse) delivery.handlers.onResponse(response);
    });
  }

  void postFailure(const std::weak_ptr<Delivery>& target, Error error) {
    post(target, [error = std::move(error)](Delivery& delivery) {
      auto handlers = std::exchange(delivery.handlers, {});
      if (handlers.onFailure) handlers.onFailure(error);
    });
  }

  // Queues a handler call; the calls of one turn of the worker go to the main thread together,
  // in order, so that an answer that arrived whole (head, body, end) wakes the main thread once.
  template <typename F>
  void post(const std::weak_ptr<Delivery>& target, F&& deliver) {
    deliveries_.push_back([target, deliver = std::forward<F>(deliver)]() mutable {
      // Held for the call, so a handler that destroys its own connection does not destroy the
      // handler that is running.
      if (const auto delivery = target.lock()) deliver(*delivery);
    });
  }

  void flushDeliveries() {
    if (deliveries_.empty()) return;
    mainThread_->post([alive = alive_, calls = std::exchange(deliveries_, {})]() mutable {
      // Checked before each call: a handler may destroy the client.
      for (auto& call : calls) {
        if (!alive->load()) return;
        call();
      }
    });
  }

  const std::shared_ptr<MainThread> mainThread_;
  const std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);
  std::vector<X509*> caCertificates_;
  std::optional<std::string> caError_;
  CURLM* multi_ = nullptr;
  CURLSH* share_ = nullptr;
  // Reads and rewrites the shared cookie jar; never transfers anything.
  CURL* cookieHandle_ = nullptr;
  std::atomic<std::uint64_t> nextId_{0};

  // Handler calls not yet handed to the main thread; the worker's alone.
  std::vector<std::function<void()>> deliveries_;

  std::mutex mutex_;
  std::deque<std::function<void()>> commands_;
  bool stopping_ = false;
  std::thread worker_;

  // Worker thread only.
  std::unordered_map<std::uint64_t, std::unique_ptr<Transfer>> transfers_;

  std::vector<std::string> cookieLines() {
    std::vector<std::string> lines;
    curl_slist* list = nullptr;
    if (curl_easy_getinfo(cookieHandle_, CURLINFO_COOKIELIST, &list) != CURLE_OK) return lines;
    for (const curl_slist* item = list; item; item = item->next) lines.emplace_back(item->data);
    curl_slist_free_all(list);
    return lines;
  }
};

class CurlConnection final : public HttpConnection {
 public:
  CurlConnection(std::shared_ptr<Delivery> delivery, std::weak_ptr<Core> core, std::uint64_t id)
      : delivery_(std::move(delivery)), core_(std::move(core)), id_(id) {}
  ~CurlConnection() override {
    delivery_.reset();
    if (const auto core = core_.lock()) core->cancel(id_);
  }

 private:
  std::shared_ptr<Delivery> delivery_;
  std::weak_ptr<Core> core_;
  std::uint64_t id_;
};

class CurlHttpClient final : public HttpClient, public HttpCookieStore {
 public:
  CurlHttpClient(std::shared_ptr<MainThread> mainThread, const CurlHttpOptions& options)
      : core_(std::make_shared<Core>(std::move(mainThread), options)) {}
  ~CurlHttpClient() override { core_->shutdown(); }

  std::unique_ptr<HttpConnection> start(HttpRequest request, HttpHandlers handlers) override {
    auto delivery = std::make_shared<Delivery>(Delivery{std::move(handlers)});
    const std::uint64_t id = core_->add(std::move(request), delivery);
    return std::make_unique<CurlConnection>(std::move(delivery), core_, id);
  }

  HttpCookieStore& cookies() override { return *this; }
  std::vector<HttpCookie> cookiesForUrl(std::string_view url) override { return core_->cookiesForUrl(url); }
  std::size_t deleteCookiesForUrl(std::string_view url) override { return core_->deleteCookiesForUrl(url); }

 private:
  std::shared_ptr<Core> core_;
};

}  // namespace

std::shared_ptr<HttpClient> makeCurlHttpClient(std::shared_ptr<MainThread> mainThread, CurlHttpOptions options) {
  return std::make_shared<CurlHttpClient>(std::move(mainThread), options);
}

}  // namespace applogic::platform
