#include "emulator/scripted_browser.h"

#include <httplib.h>

#include <atomic>
#include <boost/url/parse.hpp>
#include <cctype>
#include <optional>
#include <string_view>
#include <thread>
#include <utility>

#include "applogic/support/strings.h"

namespace applogic::emulator {

namespace {

constexpr int kMaxRedirects = 10;
constexpr time_t kNetworkTimeoutSeconds = 10;

// --- reading the page ---------------------------------------------------------------------------

std::string htmlUnescape(std::string_view text) {
  static constexpr std::pair<std::string_view, char> kEntities[] = {
      {"&amp;", '&'}, {"&lt;", '<'}, {"&gt;", '>'}, {"&quot;", '"'}, {"&#39;", '\''}, {"&#x27;", '\''}};
  std::string out;
  for (std::size_t i = 0; i < text.size();) {
    bool replaced = false;
    if (text[i] == '&') {
      for (const auto& [entity, c] : kEntities) {
        if (text.substr(i, entity.size()) == entity) {
          out += c;
          i += entity.size();
          replaced = true;
          break;
        }
      }
    }
    if (!replaced) out += text[i++];
  }
  return out;
}

struct Tag {
  std::string name;                                  // lower case
  std::vector<std::pair<std::string, std::string>> attributes;  // names lower case, values unescaped
  std::size_t end = 0;                               // just after '>'

  std::optional<std::string> attribute(std::string_view wanted) const {
    for (const auto& [name, value] : attributes) {
      if (name == wanted) return value;
    }
    return std::nullopt;
  }
};

// The start tag at `html[at]` ('<'), or absent when it is not one.
std::optional<Tag> readTag(std::string_view html, std::size_t at) {
  std::size_t i = at + 1;
  const auto isNameChar = [](char c) { return std::isalnum(static_cast<unsigned char>(c)) || c == '-' || c == '_'; };
  const std::size_t nameStart = i;
  while (i < html.size() && isNameChar(html[i])) ++i;
  if (i == nameStart) return std::nullopt;
  Tag tag{asciiLowercase(html.substr(nameStart, i - nameStart)), {}, 0};
  while (i < html.size()) {
    while (i < html.size() && std::isspace(static_cast<unsigned char>(html[i]))) ++i;
    if (i >= html.size()) return std::nullopt;
    if (html[i] == '>') {
      tag.end = i + 1;
      return tag;
    }
    if (html[i] == '/') {
      ++i;
      continue;
    }
    const std::size_t attributeStart = i;
    while (i < html.size() && !std::isspace(static_cast<unsigned char>(html[i])) && html[i] != '=' && html[i] != '>' &&
           html[i] != '/')
      ++i;
    std::string name = asciiLowercase(html.substr(attributeStart, i - attributeStart));
    std::string value;
    while (i < html.size() && std::isspace(static_cast<unsigned char>(html[i]))) ++i;
    if (i < html.size() && html[i] == '=') {
      ++i;
      while (i < html.size() && std::isspace(static_cast<unsigned char>(html[i]))) ++i;
      if (i < html.size() && (html[i] == '"' || html[i] == '\'')) {
        const char quote = html[i++];
        const std::size_t close = html.find(quote, i);
        if (close == std::string_view::npos) return std::nullopt;
        value = htmlUnescape(html.substr(i, close - i));
        i = close + 1;
      } else {
        const std::size_t valueStart = i;
        while (i < html.size() && !std::isspace(static_cast<unsigned char>(html[i])) && html[i] != '>') ++i;
        value = htmlUnescape(html.substr(valueStart, i - valueStart));
      }
    }
    tag.attributes.emplace_back(std::move(name), std::move(value));
  }
  return std::nullopt;
}

struct Control {
  enum class Kind { input, button } kind;
  std::string type;  // lower case; a button's default is "submit"
  std::string name;
  std::string value;
  std::string text;  // a button's label
};

struct Form {
  std::string action;
  std::string method;  // lower case: "get" or "post"
  std::vector<Control> controls;
};

std::string trim(std::string_view text) {
  std::size_t begin = 0, end = text.size();
  while (begin < end && std::isspace(static_cast<unsigned char>(text[begin]))) ++begin;
  while (end > begin && std::isspace(static_cast<unsigned char>(text[end - 1]))) --end;
  return std::string(text.substr(begin, end - begin));
}

// The first form of the page with its inputs and buttons in document order.
std::optional<Form> readForm(std::string_view html) {
  std::optional<Form> form;
  for (std::size_t at = html.find('<'); at != std::string_view::npos; at = html.find('<', at + 1)) {
    if (html.substr(at, 7) == "</form>" || asciiLowercase(html.substr(at, 7)) == "</form>") {
      if (form) break;
      continue;
    }
    const auto tag = readTag(html, at);
    if (!tag) continue;
    if (tag->name == "form" && !form) {
      form = Form{tag->attribute("action").value_or(""), asciiLowercase(tag->attribute("method").value_or("get")), {}};
    } else if (form && tag->name == "input") {
      form->controls.push_back({Control::Kind::input, asciiLowercase(tag->attribute("type").value_or("text")),
                                tag->attribute("name").value_or(""), tag->attribute("value").value_or(""), ""});
    } else if (form && tag->name == "button") {
      const std::size_t close = asciiLowercase(html.substr(tag->end)).find("</button>");
      const std::string text =
          close == std::string::npos ? std::string() : htmlUnescape(trim(html.substr(tag->end, close)));
      form->controls.push_back({Control::Kind::button, asciiLowercase(tag->attribute("type").value_or("submit")),
                                tag->attribute("name").value_or(""), tag->attribute("value").value_or(""), text});
    }
  }
  return form;
}

std::string formEncode(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (const char c : text) {
    const auto u = static_cast<unsigned char>(c);
    if (std::isalnum(u) || c == '*' || c == '-' || c == '.' || c == '_') {
      out += c;
    } else if (c == ' ') {
      out += '+';
    } else {
      out += '%';
      out += kHex[u >> 4];
      out += kHex[u & 0x0F];
    }
  }
  return out;
}

// The body a browser submits when the user fills the form and presses a button; absent when
// the form lacks what the user needs (the button to press).
std::optional<std::string> submission(const Form& form, const ScriptedBrowserOptions& options, std::string& problem) {
  const Control* pressed = nullptr;
  for (const Control& control : form.controls) {
    if (control.kind != Control::Kind::button || control.type != "submit") continue;
    const bool isCancel = asciiLowercase(control.text) == "cancel";
    if ((options.user == ScriptedUser::cancel) == isCancel) {
      pressed = &control;
      break;
    }
  }
  if (!pressed) {
    problem = options.user == ScriptedUser::cancel ? "the sign-in form has no Cancel button"
                                                   : "the sign-in form has no button to sign in";
    return std::nullopt;
  }
  const bool typing = options.user == ScriptedUser::signIn;
  std::string body;
  const auto add = [&body](std::string_view name, std::string_view value) {
    if (!body.empty()) body += '&';
    body += formEncode(name) + "=" + formEncode(value);
  };
  for (const Control& control : form.controls) {
    if (control.name.empty()) continue;
    if (control.kind == Control::Kind::button) {
      if (&control == pressed) add(control.name, control.value);
    } else if (control.type == "email") {
      add(control.name, typing ? options.email : "");
    } else if (control.type == "password") {
      add(control.name, typing ? options.password : "");
    } else if (control.type != "submit" && control.type != "button" && control.type != "checkbox" &&
               control.type != "radio") {
      add(control.name, control.value);
    }
  }
  return body;
}

// --- the network ------------------------------------------------------------------------------

struct Address {
  std::string origin;  // "https://host:port"
  std::string target;  // path and query, as written
  bool https = false;
};

std::optional<Address> httpAddress(std::string_view url) {
  const auto parsed = boost::urls::parse_uri(url);
  if (!parsed) return std::nullopt;
  const std::string scheme = asciiLowercase(parsed->scheme());
  if (scheme != "http" && scheme != "https") return std::nullopt;
  Address address;
  address.https = scheme == "https";
  std::string port = std::string(parsed->port());
  if (port.empty()) port = address.https ? "443" : "80";
  address.origin = scheme + "://" + std::string(parsed->encoded_host()) + ":" + port;
  address.target = std::string(parsed->encoded_path());
  if (address.target.empty()) address.target = "/";
  if (parsed->has_query()) address.target += "?" + std::string(parsed->encoded_query());
  return address;
}

// `reference` (an action or a Location) read against the page at `base`.
std::string resolve(const Address& base, const std::string& reference) {
  if (reference.empty()) return base.origin + base.target;
  if (reference.find("://") != std::string::npos || reference.rfind("amzn-", 0) == 0) return reference;
  if (reference[0] == '/') return base.origin + reference;
  const std::string path = base.target.substr(0, base.target.find('?'));
  return base.origin + path.substr(0, path.rfind('/') + 1) + reference;
}

struct Outcome {
  enum class Kind { redirect, failure, none } kind;
  std::string text;
};

class Navigator {
 public:
  explicit Navigator(const ScriptedBrowserOptions& options) : options_(options) {}

  // GET or POST `url`, then every http(s) redirect; stops at a page, an address of another
  // scheme (`left`) or a failure.
  httplib::Result request(std::string url, const std::string* formBody, Address& at, std::string& left,
                          std::string& problem) {
    for (int hop = 0; hop <= kMaxRedirects; ++hop) {
      const auto address = httpAddress(url);
      if (!address) {
        left = url;
        return httplib::Result(nullptr, httplib::Error::Unknown);
      }
      at = *address;
      httplib::Client client(address->origin);
      client.set_connection_timeout(kNetworkTimeoutSeconds, 0);
      client.set_read_timeout(kNetworkTimeoutSeconds, 0);
      client.set_write_timeout(kNetworkTimeoutSeconds, 0);
      client.set_follow_location(false);
      if (address->https) {
        if (!options_.caFile.empty()) client.set_ca_cert_path(options_.caFile.c_str());
        client.enable_server_certificate_verification(true);
      }
      httplib::Result result =
          formBody ? client.Post(address->target, *formBody, "application/x-www-form-urlencoded")
                   : client.Get(address->target);
      if (!result) {
        problem = "cannot load " + url + ": " + httplib::to_string(result.error());
        return result;
      }
      if (result->status < 300 || result->status >= 400 || !result->has_header("Location")) return result;
      url = resolve(*address, result->get_header_value("Location"));
      formBody = nullptr;  // a redirect is followed with GET
    }
    problem = "more than " + std::to_string(kMaxRedirects) + " redirects";
    return httplib::Result(nullptr, httplib::Error::Unknown);
  }

 private:
  const ScriptedBrowserOptions& options_;
};

Outcome play(const std::string& url, const ScriptedBrowserOptions& options) {
  Navigator navigator(options);
  Address at;
  std::string left;
  std::string problem;
  auto page = navigator.request(url, nullptr, at, left, problem);
  if (!left.empty()) return {Outcome::Kind::redirect, left};
  if (!page) return {Outcome::Kind::failure, problem};
  if (page->status != 200) {
    return {Outcome::Kind::failure, "the sign-in page answered " + std::to_string(page->status)};
  }
  const auto form = readForm(page->body);
  if (!form) return {Outcome::Kind::failure, "the sign-in page has no form"};
  if (options.user == ScriptedUser::leave) return {Outcome::Kind::none, {}};
  auto body = submission(*form, options, problem);
  if (!body) return {Outcome::Kind::failure, problem};

  const std::string action = resolve(at, form->action);
  std::string target = action;
  const std::string* postBody = nullptr;
  if (form->method == "post") {
    postBody = &*body;
  } else {
    target = action.substr(0, action.find('?')) + "?" + *body;
  }
  auto answer = navigator.request(target, postBody, at, left, problem);
  if (!left.empty()) return {Outcome::Kind::redirect, left};
  if (!answer) return {Outcome::Kind::failure, problem};
  // A refused password shows the form again with its error; typing the same again would not help.
  constexpr std::string_view kAlert = "role=\"alert\">";
  if (const std::size_t alert = answer->body.find(kAlert); answer->status == 200 && alert != std::string::npos) {
    const std::size_t start = alert + kAlert.size();
    return {Outcome::Kind::failure,
            "the sign-in page says: " + answer->body.substr(start, answer->body.find('<', start) - start)};
  }
  return {Outcome::Kind::failure,
          "the sign-in form answered " + std::to_string(answer->status) + " instead of a redirect to the app"};
}

}  // namespace

struct ScriptedBrowser::Shared {
  // Touched on the main thread only (the setters and the posted results).
  RedirectHandler onRedirect;
  FailureHandler onFailure;
  // Cleared by the destructor, so that results posted after it are dropped.
  std::atomic<bool> alive{true};
  std::vector<std::thread> users;
};

ScriptedBrowser::ScriptedBrowser(std::shared_ptr<platform::MainThread> mainThread, ScriptedBrowserOptions options)
    : mainThread_(std::move(mainThread)), options_(std::move(options)), shared_(std::make_shared<Shared>()) {}

ScriptedBrowser::~ScriptedBrowser() {
  shared_->alive.store(false);
  for (std::thread& user : shared_->users) user.join();
}

void ScriptedBrowser::setRedirectHandler(RedirectHandler handler) { shared_->onRedirect = std::move(handler); }
void ScriptedBrowser::setFailureHandler(FailureHandler handler) { shared_->onFailure = std::move(handler); }
void ScriptedBrowser::setUser(ScriptedUser user) { options_.user = user; }

bool ScriptedBrowser::openURL(const std::string& url) {
  opened_.push_back(url);
  if (!httpAddress(url)) return false;
  // The user runs beside the main thread: the client's own HTTP exchanges are delivered through
  // the main thread's loop, which must keep turning while the page is being filled in.
  shared_->users.emplace_back([url, options = options_, shared = shared_, mainThread = mainThread_] {
    Outcome outcome = play(url, options);
    if (outcome.kind == Outcome::Kind::none || !shared->alive.load()) return;
    mainThread->post([outcome = std::move(outcome), shared] {
      if (!shared->alive.load()) return;
      if (outcome.kind == Outcome::Kind::redirect) {
        if (shared->onRedirect) shared->onRedirect(outcome.text);
      } else if (shared->onFailure) {
        shared->onFailure(outcome.text);
      }
    });
  });
  return true;
}

}  // namespace applogic::emulator
