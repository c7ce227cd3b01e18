#include "applogic/platform/http_client.h"

#include <boost/url/parse.hpp>

#include "applogic/support/strings.h"

namespace applogic::platform {
namespace {

// RFC 6265 5.1.4: "/a" covers "/a" and "/a/b" but not "/ab".
bool pathMatches(std::string_view requestPath, std::string_view cookiePath) {
  if (!requestPath.starts_with(cookiePath)) return false;
  return requestPath.size() == cookiePath.size() || cookiePath.ends_with('/') ||
         requestPath[cookiePath.size()] == '/';
}

}  // namespace

std::optional<std::string_view> findHttpHeader(const HttpHeaders& headers, std::string_view name) {
  for (const auto& [key, value] : headers) {
    if (equalsIgnoringAsciiCase(key, name)) return std::string_view(value);
  }
  return std::nullopt;
}

Error makeHttpError(HttpErrorCode code, std::string description) {
  return Error{std::string(kHttpErrorDomain), static_cast<std::int64_t>(code),
               {{std::string(kHttpErrorDescriptionKey), std::move(description)}}};
}

std::string httpErrorDescription(const Error& error) {
  const auto found = error.userInfo.find(kHttpErrorDescriptionKey);
  if (found == error.userInfo.end()) return {};
  const auto* text = std::get_if<std::string>(&found->second);
  return text ? *text : std::string();
}

bool cookieWouldBeSentTo(const HttpCookie& cookie, std::string_view url) {
  const auto parsed = boost::urls::parse_uri(url);
  if (!parsed) return false;
  const auto& uri = *parsed;
  const std::string scheme = asciiLowercase(uri.scheme());
  if (scheme != "http" && scheme != "https") return false;

  const auto hostType = uri.host_type();
  const bool isAddress = hostType == boost::urls::host_type::ipv4 || hostType == boost::urls::host_type::ipv6;
  const std::string host =
      asciiLowercase(hostType == boost::urls::host_type::ipv6 ? std::string(uri.host_address()) : uri.host());
  if (host.empty()) return false;

  const std::string domain = asciiLowercase(cookie.domain);
  bool domainMatches = host == domain;
  if (!domainMatches && !cookie.hostOnly && !isAddress && !domain.empty() && host.size() > domain.size() + 1) {
    domainMatches = host.ends_with(domain) && host[host.size() - domain.size() - 1] == '.';
  }
  if (!domainMatches) return false;

  std::string_view path = uri.encoded_path();
  if (path.empty() || path.front() != '/') path = "/";
  if (!pathMatches(path, cookie.path)) return false;

  if (cookie.secure) {
    const bool loopback = host == "localhost" || host == "127.0.0.1" || host == "::1";
    if (scheme != "https" && !loopback) return false;
  }
  return true;
}

}  // namespace applogic::platform
