#include "applogic/platform/curl_http_client.h"

#include <curl/curl.h>
#include <poll.h>
#include <openssl/err.h>
#include <openssl/pem.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstring>
#include <mutex>
#include <string>
#include <unordered_map>

#include <boost/url/parse.hpp>

#include "applogic/support/strings.h"

namespace applogic::platform {
namespace {

constexpr long kMaxRedirects = 16;

// The handlers of one request. The connection owns them; the handler calls queued for the main
// thread hold them weakly, so a destroyed connection (or one destroyed by its own handler) gets
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
// value with CR/LF as given, splitting it into two headers. Sets `overTls` for an https address.
std::optional<Error> problemWith(const HttpRequest& request, bool& overTls) {
  const auto uri = boost::urls::parse_uri(request.url);
  const std::string scheme = uri ? asciiLowercase(uri->scheme()) : std::string();
  if (!uri || (scheme != "http" && scheme != "https") || uri->encoded_host().empty()) {
    return makeHttpError(HttpErrorCode::badUrl, "not an absolute http or https address: \"" + request.url + "\"");
  }
  overTls = scheme == "https";
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

// libcurl's side of one request.
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

// Everything libcurl does happens on the main thread, woken by the run loop when one of libcurl's
// sockets or its timer needs it: an answer costs no hand-off between threads, and handler calls
// need no lock. Only the cookie jar is also read from other threads, under libcurl's share locks.
class Core : public std::enable_shared_from_this<Core> {
 public:
  Core(std::shared_ptr<RunLoop> loop, const CurlHttpOptions& options) : loop_(std::move(loop)) {
    initializeCurlOnce();
    if (options.caFile) loadCaFile(*options.caFile);
    multi_ = curl_multi_init();
    curl_multi_setopt(multi_, CURLMOPT_SOCKETFUNCTION, &Core::onSocketChange);
    curl_multi_setopt(multi_, CURLMOPT_SOCKETDATA, this);
    curl_multi_setopt(multi_, CURLMOPT_TIMERFUNCTION, &Core::onTimerChange);
    curl_multi_setopt(multi_, CURLMOPT_TIMERDATA, this);
    share_ = curl_share_init();
    curl_share_setopt(share_, CURLSHOPT_LOCKFUNC, &Core::lockShared);
    curl_share_setopt(share_, CURLSHOPT_UNLOCKFUNC, &Core::unlockShared);
    curl_share_setopt(share_, CURLSHOPT_USERDATA, this);
    curl_share_setopt(share_, CURLSHOPT_SHARE, CURL_LOCK_DATA_COOKIE);
    cookieHandle_ = curl_easy_init();
    curl_easy_setopt(cookieHandle_, CURLOPT_SHARE, share_);
  }

  ~Core() {
    shutdown();
    curl_easy_cleanup(cookieHandle_);
    // libcurl says which sockets to stop watching as it closes them, here too.
    curl_multi_cleanup(multi_);
    curl_share_cleanup(share_);
    for (X509* certificate : caCertificates_) X509_free(certificate);
  }

  Core(const Core&) = delete;
  Core& operator=(const Core&) = delete;

  // Main thread: no handler runs after this, and every transfer ends unreported.
  void shutdown() {
    alive_->store(false);
    for (auto& [id, transfer] : transfers_) curl_multi_remove_handle(multi_, transfer->easy);
    transfers_.clear();
    deliveries_.clear();
    if (timer_) loop_->cancelTimer(*timer_);
    timer_.reset();
  }

  std::uint64_t add(HttpRequest request, std::weak_ptr<Delivery> delivery) {
    const std::uint64_t id = ++nextId_;
    onMainThread([this, id, request = std::move(request), delivery = std::move(delivery)]() mutable {
      begin(id, std::move(request), std::move(delivery));
      flushDeliveries();
    });
    return id;
  }

  void cancel(std::uint64_t id) {
    onMainThread([this, id] {
      const auto found = transfers_.find(id);
      if (found == transfers_.end()) return;
      curl_multi_remove_handle(multi_, found->second->easy);
      transfers_.erase(found);
    });
  }

  std::vector<HttpCookie> cookiesForUrl(std::string_view url) {
    std::vector<HttpCookie> cookies;
    for (const auto& line : cookieLines()) {
      auto cookie = parseCookieLine(line);
      if (cookie && !isExpired(*cookie) && cookieWouldBeSentTo(*cookie, url)) cookies.push_back(std::move(*cookie));
    }
    return cookies;
  }

  std::size_t deleteCookiesForUrl(std::string_view url) {
    // libcurl deletes no single cookie, so the jar is emptied and what stays is added back in the
    // form libcurl listed it, all under the jar's lock: no transfer sees the jar in between.
    std::lock_guard handle(cookieHandleMutex_);
    std::lock_guard jar(sharedLocks_[CURL_LOCK_DATA_COOKIE]);
    std::vector<std::string> kept;
    std::size_t deleted = 0;
    for (const auto& line : cookieLinesLocked()) {
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
  }

 private:
  // Runs `work` now on the main thread, or posts it there, where it runs while the client lives.
  template <typename F>
  void onMainThread(F work) {
    if (loop_->isMainThread()) return work();
    loop_->post([weak = weak_from_this(), work = std::move(work)]() mutable {
      if (const auto core = weak.lock(); core && core->alive_->load()) work();
    });
  }

  // libcurl asks for a socket to be watched for `what`, or no longer (CURL_POLL_REMOVE).
  static int onSocketChange(CURL*, curl_socket_t socket, int what, void* user, void*) {
    auto& core = *static_cast<Core*>(user);
    if (what == CURL_POLL_REMOVE) {
      core.loop_->unwatch(socket);
      return 0;
    }
    const short events = static_cast<short>(((what & CURL_POLL_IN) ? POLLIN : 0) | ((what & CURL_POLL_OUT) ? POLLOUT : 0));
    core.loop_->watch(socket, events, [weak = core.weak_from_this(), socket](short ready) {
      const int mask = ((ready & POLLIN) ? CURL_CSELECT_IN : 0) | ((ready & POLLOUT) ? CURL_CSELECT_OUT : 0) |
                       ((ready & (POLLERR | POLLHUP)) ? CURL_CSELECT_ERR : 0);
      if (const auto alive = weak.lock()) alive->act(socket, mask);
    });
    return 0;
  }

  // libcurl wants to be called in `timeoutMs` (0: as soon as possible), or no longer (-1).
  static int onTimerChange(CURLM*, long timeoutMs, void* user) {
    auto& core = *static_cast<Core*>(user);
    if (core.timer_) core.loop_->cancelTimer(*core.timer_);
    core.timer_.reset();
    if (timeoutMs < 0) return 0;
    core.timer_ = core.loop_->startTimer(RunLoop::Clock::now() + std::chrono::milliseconds(timeoutMs),
                                         [weak = core.weak_from_this()] {
                                           if (const auto alive = weak.lock()) {
                                             alive->timer_.reset();
                                             alive->act(CURL_SOCKET_TIMEOUT, 0);
                                           }
                                         });
    return 0;
  }

  static void lockShared(CURL*, curl_lock_data data, curl_lock_access, void* user) {
    static_cast<Core*>(user)->sharedLocks_[data].lock();
  }
  static void unlockShared(CURL*, curl_lock_data data, void* user) { static_cast<Core*>(user)->sharedLocks_[data].unlock(); }

  // Lets libcurl move its transfers on `socket` (or its timer), then hands what ended to the
  // handlers.
  void act(curl_socket_t socket, int mask) {
    int running;  // libcurl's count of live transfers; the messages below say which ended
    curl_multi_socket_action(multi_, socket, mask, &running);
    int left = 0;
    while (CURLMsg* message = curl_multi_info_read(multi_, &left)) {
      if (message->msg == CURLMSG_DONE) complete(message->easy_handle, message->data.result);
    }
    flushDeliveries();
  }

  void begin(std::uint64_t id, HttpRequest request, std::weak_ptr<Delivery> delivery) {
    auto transfer = std::make_unique<Transfer>();
    transfer->id = id;
    transfer->request = std::move(request);
    transfer->delivery = std::move(delivery);
    transfer->core = this;
    if (caError_) return postFailure(transfer->delivery, makeHttpError(HttpErrorCode::invalidRequest, *caError_));
    if (auto problem = problemWith(transfer->request, transfer->overTls)) {
      return postFailure(transfer->delivery, std::move(*problem));
    }
    transfer->easy = curl_easy_init();
    if (!transfer->easy) {
      return postFailure(transfer->delivery, makeHttpError(HttpErrorCode::unknown, "libcurl could not make a transfer"));
    }
    configure(*transfer);
    if (curl_multi_add_handle(multi_, transfer->easy) != CURLM_OK) {
      return postFailure(transfer->delivery, makeHttpError(HttpErrorCode::unknown, "libcurl could not start a transfer"));
    }
    transfers_.emplace(transfer->id, std::move(transfer));
    // libcurl has asked for its timer at once; moving the transfer now (connecting, or sending on a
    // kept-alive connection) spares the loop a turn.
    act(CURL_SOCKET_TIMEOUT, 0);
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

  // Queues a handler call; the calls of one turn of libcurl go to the main thread's queue together,
  // in order. Handlers never run inside libcurl, or inside `start`: they may start, cancel and
  // destroy anything.
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
    loop_->post([alive = alive_, calls = std::exchange(deliveries_, {})]() mutable {
      // Checked before each call: a handler may destroy the client.
      for (auto& call : calls) {
        if (!alive->load()) return;
        call();
      }
    });
  }

  const std::shared_ptr<RunLoop> loop_;
  const std::shared_ptr<std::atomic<bool>> alive_ = std::make_shared<std::atomic<bool>>(true);
  std::vector<X509*> caCertificates_;
  std::optional<std::string> caError_;
  CURLM* multi_ = nullptr;
  CURLSH* share_ = nullptr;
  // Reads and rewrites the shared cookie jar from any thread; never transfers anything.
  CURL* cookieHandle_ = nullptr;
  std::mutex cookieHandleMutex_;
  // libcurl's locks of what the share holds (the cookie jar, and the share itself). Recursive,
  // because a rewrite of the jar holds its lock around libcurl's own.
  std::recursive_mutex sharedLocks_[CURL_LOCK_DATA_LAST];
  std::atomic<std::uint64_t> nextId_{0};

  // Main thread only.
  std::unordered_map<std::uint64_t, std::unique_ptr<Transfer>> transfers_;
  std::optional<RunLoop::TimerId> timer_;
  // Handler calls not yet handed to the main thread's queue.
  std::vector<std::function<void()>> deliveries_;

  std::vector<std::string> cookieLines() {
    std::lock_guard handle(cookieHandleMutex_);
    return cookieLinesLocked();
  }

  std::vector<std::string> cookieLinesLocked() {
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
  CurlHttpClient(std::shared_ptr<RunLoop> loop, const CurlHttpOptions& options)
      : core_(std::make_shared<Core>(std::move(loop), options)) {}
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

std::shared_ptr<HttpClient> makeCurlHttpClient(std::shared_ptr<RunLoop> loop, CurlHttpOptions options) {
  return std::make_shared<CurlHttpClient>(std::move(loop), options);
}

}  // namespace applogic::platform
