#include <gtest/gtest.h>

#include "applogic/platform/http_client.h"

namespace applogic {
namespace {

using platform::HttpCookie;

HttpCookie cookie(std::string domain, bool hostOnly, std::string path = "/", bool secure = false) {
  return HttpCookie{.name = "n", .value = "v", .domain = std::move(domain), .hostOnly = hostOnly,
                    .path = std::move(path), .secure = secure};
}

TEST(CookieWouldBeSentTo, FollowsTheDomainPathAndSecureRules) {
  struct Row {
    const char* name;
    HttpCookie cookie;
    const char* url;
    bool sent;
  };
  const Row rows[] = {
      {"host-only, its host", cookie("www.example.com", true), "https://www.example.com/", true},
      {"host-only, a host below", cookie("example.com", true), "https://www.example.com/", false},
      {"domain cookie, a host below", cookie("example.com", false), "https://www.example.com/", true},
      {"domain cookie, two levels below", cookie("example.com", false), "https://a.b.example.com/", true},
      {"domain cookie, the domain itself", cookie("example.com", false), "https://example.com/", true},
      {"domain cookie, a name that only ends alike", cookie("example.com", false), "https://badexample.com/", false},
      {"domain cookie, the parent", cookie("www.example.com", false), "https://example.com/", false},
      {"host in another case, port ignored", cookie("www.example.com", true), "https://WWW.Example.COM:8443/", true},
      {"an address only matches itself", cookie("0.0.1", false), "http://127.0.0.1/", false},
      {"an address, itself", cookie("127.0.0.1", true), "http://127.0.0.1:9/", true},
      {"path, the same", cookie("h.test", true, "/account"), "https://h.test/account", true},
      {"path, below", cookie("h.test", true, "/account"), "https://h.test/account/x", true},
      {"path, a sibling that starts alike", cookie("h.test", true, "/account"), "https://h.test/accounts", false},
      {"path with a slash, below", cookie("h.test", true, "/account/"), "https://h.test/account/x", true},
      {"path, above", cookie("h.test", true, "/account"), "https://h.test/", false},
      {"no path in the address is /", cookie("h.test", true, "/"), "https://h.test", true},
      {"the query is not the path", cookie("h.test", true, "/account"), "https://h.test/?to=/account", false},
      {"secure, https", cookie("h.test", true, "/", true), "https://h.test/", true},
      {"secure, http", cookie("h.test", true, "/", true), "http://h.test/", false},
      {"secure, http to localhost", cookie("localhost", true, "/", true), "http://localhost:8080/", true},
      {"not http", cookie("h.test", true), "ftp://h.test/", false},
      {"not an address", cookie("h.test", true), "h.test/", false},
      {"an empty domain matches nothing", cookie("", false), "https://h.test/", false},
  };
  for (const auto& row : rows) EXPECT_EQ(platform::cookieWouldBeSentTo(row.cookie, row.url), row.sent) << row.name;
}

}  // namespace
}  // namespace applogic
