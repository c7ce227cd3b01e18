// The local sign-in server over real TLS, driven as the sign-in client and a browser drive it:
// cpp-httplib's client trusts only the CA the server wrote.

#include <httplib.h>
#include <openssl/ssl.h>

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include <boost/json/parse.hpp>
#include <boost/json/value.hpp>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "applogic/testing/manual_clock.h"
#include "emulator/signin_server.h"

namespace applogic::emulator {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;
using Params = std::vector<std::pair<std::string, std::string>>;

constexpr char kBundleId[] = "app.tunevo.test";
constexpr char kClientId[] = "client.tunevo.test";
constexpr char kRedirectUri[] = "amzn-app.tunevo.test://?methodName=signin";
constexpr char kState[] = "6F9619FF-8B86-D011-B42D-00C04FC964FF";
// A verifier and its S256 challenge, computed apart from the server's code.
constexpr char kVerifier[] = "M25iVXpKU3puUjFaYWg3T1NDTDQtcW1ROUY2dGV4ZVQ";
constexpr char kChallenge[] = "VWiDhXHIrC4ohL0Q3wF165dq9Km9W0qLwR5wmrVFncg";
constexpr char kOtherVerifier[] = "other-verifier-that-is-long-enough-0123456789";
// Base64 of {"bundleID":"app.tunevo.test"}.
constexpr char kAppIdentifier[] = "eyJidW5kbGVJRCI6ImFwcC50dW5ldm8udGVzdCJ9";

std::string encode(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (std::isalnum(byte) || c == '-' || c == '.' || c == '_' || c == '~') {
      out += c;
    } else {
      out += '%';
      out += kHex[byte >> 4];
      out += kHex[byte & 0xf];
    }
  }
  return out;
}

std::string encodeList(const Params& params) {
  std::string out;
  for (const auto& [name, value] : params) {
    if (!out.empty()) out += '&';
    out += name + "=" + encode(value);
  }
  return out;
}

std::string decode(std::string_view text) {
  std::string out;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '%' && i + 2 < text.size()) {
      int byte = 0;
      std::from_chars(text.data() + i + 1, text.data() + i + 3, byte, 16);
      out += static_cast<char>(byte);
      i += 2;
    } else {
      out += text[i] == '+' ? ' ' : text[i];
    }
  }
  return out;
}

// The query parameters of an address, decoded.
std::map<std::string, std::string> queryOf(std::string_view address) {
  std::map<std::string, std::string> params;
  const std::size_t start = address.find('?');
  if (start == std::string_view::npos) return params;
  std::string_view rest = address.substr(start + 1);
  while (!rest.empty()) {
    const std::size_t end = std::min(rest.find('&'), rest.size());
    const std::string_view piece = rest.substr(0, end);
    const std::size_t equals = piece.find('=');
    params.emplace(decode(piece.substr(0, equals)), equals == std::string_view::npos ? "" : decode(piece.substr(equals + 1)));
    rest.remove_prefix(std::min(end + 1, rest.size()));
  }
  return params;
}

// What the sign-in client sends on every request, then what the sign-in page request adds.
Params deviceParams() {
  return {{"di.hw.name", "x86_64"}, {"di.os.name", "Linux"}, {"di.os.version", "6.1"}, {"di.sdk.version", "2.1.1"},
          {"appIdentifier", kAppIdentifier}};
}

Params signInParams(std::string scope = "profile") {
  Params params = deviceParams();
  params.insert(params.end(), {{"response_type", "code"},
                               {"scope", std::move(scope)},
                               {"client_id", kClientId},
                               {"redirect_uri", kRedirectUri},
                               {"state", kState},
                               {"amzn_respectRmrMeAuthState", "1"},
                               {"amzn_showRmrMe", "1"},
                               {"amzn_rmrMeDefaultSelected", "1"},
                               {"code_challenge", kChallenge},
                               {"code_challenge_method", "S256"}});
  return params;
}

Params without(Params params, std::string_view name) {
  std::erase_if(params, [&](const auto& pair) { return pair.first == name; });
  return params;
}

Params with(Params params, const std::string& name, const std::string& value) {
  params = without(std::move(params), name);
  params.emplace_back(name, value);
  return params;
}

boost::json::object jsonObject(const std::string& body) {
  boost::system::error_code error;
  boost::json::value value = boost::json::parse(body, error);
  EXPECT_FALSE(error) << body;
  return value.is_object() ? value.as_object() : boost::json::object();
}

std::string jsonString(const boost::json::object& object, std::string_view key) {
  const boost::json::value* value = object.if_contains(key);
  return value != nullptr && value->is_string() ? std::string(value->get_string()) : std::string();
}

struct Reply {
  int status = 0;
  std::string body;
  std::string location;
  std::string error;  // the "error" of a JSON answer or of the redirect
  std::string errorDescription;
};

class SignInServerTest : public ::testing::Test {
 protected:
  void SetUp() override { startServer(); }

  void startServer(SignInServerOptions options = {}) {
    options.bundleId = kBundleId;
    options.clock = clock_;
    client_.reset();
    server_.reset();
    auto started = SignInServer::start(std::move(options));
    ASSERT_TRUE(started.ok()) << started.error();
    server_ = std::move(started).value();
    client_ = newClient(*server_);
  }

  static std::unique_ptr<httplib::SSLClient> newClient(const SignInServer& server) {
    auto client = std::make_unique<httplib::SSLClient>("127.0.0.1", server.port());
    client->set_ca_cert_path(server.caPath().c_str());
    client->enable_server_certificate_verification(true);
    // Guards against a hang; no test depends on these times.
    client->set_connection_timeout(10);
    client->set_read_timeout(30);
    return client;
  }

  static Reply reply(const httplib::Result& result) {
    Reply out;
    if (!result) {
      ADD_FAILURE() << "no answer: " << httplib::to_string(result.error());
      return out;
    }
    out.status = result->status;
    out.body = result->body;
    out.location = result->get_header_value("Location");
    if (out.status == 302) {
      const auto params = queryOf(out.location);
      if (params.contains("error")) out.error = params.at("error");
      if (params.contains("error_description")) out.errorDescription = params.at("error_description");
    } else if (result->get_header_value("Content-Type").starts_with("application/json")) {
      const auto object = jsonObject(out.body);
      out.error = jsonString(object, "error");
      out.errorDescription = jsonString(object, "error_description");
    }
    return out;
  }

  Reply get(const std::string& path, const httplib::Headers& headers = {}) {
    return reply(client_->Get(path.c_str(), headers));
  }
  Reply post(const std::string& path, const std::string& body,
             const std::string& contentType = "application/x-www-form-urlencoded") {
    return reply(client_->Post(path.c_str(), httplib::Headers{}, body, contentType.c_str()));
  }

  // A POST as `curl -X POST` sends it, with neither Content-Length nor Transfer-Encoding (which
  // cpp-httplib's client always adds): the request is written by hand over OpenSSL.
  Reply bodilessPost(const std::string& target) {
    std::unique_ptr<SSL_CTX, decltype(&SSL_CTX_free)> context(SSL_CTX_new(TLS_client_method()), &SSL_CTX_free);
    SSL_CTX_set_verify(context.get(), SSL_VERIFY_PEER, nullptr);
    std::unique_ptr<BIO, decltype(&BIO_free_all)> bio(BIO_new_ssl_connect(context.get()), &BIO_free_all);
    const std::string address = "127.0.0.1:" + std::to_string(server_->port());
    const std::string request = "POST " + target + " HTTP/1.1\r\nHost: " + address + "\r\nConnection: close\r\n\r\n";
    if (SSL_CTX_load_verify_locations(context.get(), server_->caPath().c_str(), nullptr) != 1 ||
        BIO_set_conn_hostname(bio.get(), address.c_str()) != 1 || BIO_do_connect(bio.get()) != 1 ||
        BIO_write(bio.get(), request.data(), static_cast<int>(request.size())) != static_cast<int>(request.size())) {
      ADD_FAILURE() << "cannot send to " << address;
      return {};
    }
    std::string raw;
    char buffer[4096];
    for (int got = 0; (got = BIO_read(bio.get(), buffer, sizeof buffer)) > 0;) raw.append(buffer, got);
    Reply out;
    const std::size_t space = raw.find(' ');
    if (space != std::string::npos) std::from_chars(raw.data() + space + 1, raw.data() + raw.size(), out.status);
    if (const std::size_t end = raw.find("\r\n\r\n"); end != std::string::npos) out.body = raw.substr(end + 4);
    return out;
  }

  Reply signInPage(const Params& params) { return get("/ap/oa?" + encodeList(params)); }

  // Opens the page and submits the form; the page must be served.
  Reply submit(const Params& page, const std::string& email, const std::string& password,
               const std::string& action = "signin") {
    const Reply shown = signInPage(page);
    EXPECT_EQ(shown.status, 200) << shown.body;
    return submitForm(shown, email, password, action);
  }
  // Submits the form of a page shown.
  Reply submitForm(const Reply& shown, const std::string& email, const std::string& password,
                   const std::string& action = "signin") {
    const std::string marker = "name=\"signin_request\" value=\"";
    const std::size_t start = shown.body.find(marker);
    if (start == std::string::npos) return {};
    const std::size_t valueStart = start + marker.size();
    const std::string id = shown.body.substr(valueStart, shown.body.find('"', valueStart) - valueStart);
    return post("/ap/oa", encodeList({{"signin_request", id}, {"email", email}, {"password", password}, {"action", action}}));
  }

  std::string code(const std::string& scope = "profile") {
    const Reply redirect = submit(signInParams(scope), "listener@tunevo.test", "tunevo-password");
    EXPECT_EQ(redirect.status, 302);
    return queryOf(redirect.location)["code"];
  }

  Params exchangeParams(const std::string& code) {
    Params params = deviceParams();
    params.insert(params.end(), {{"code_verifier", kVerifier},
                                 {"client_id", kClientId},
                                 {"code", code},
                                 {"grant_type", "authorization_code"},
                                 {"redirect_uri", kRedirectUri}});
    return params;
  }

  Reply exchange(const Params& params) { return post("/auth/o2/token", encodeList(params)); }

  Reply refresh(const std::string& refreshToken, const std::string& scope = "profile") {
    Params params = deviceParams();
    params.insert(params.end(), {{"code_verifier", kOtherVerifier},
                                 {"scope", scope},
                                 {"grant_type", "refresh_token"},
                                 {"client_id", kClientId},
                                 {"refresh_token", refreshToken}});
    return post("/auth/o2/token", encodeList(params));
  }

  Reply profile(const std::string& accessToken) {
    Params params = deviceParams();
    params.emplace_back("code_verifier", kOtherVerifier);
    return get("/user/profile?" + encodeList(params), {{"Authorization", "Bearer " + accessToken}});
  }

  struct Tokens {
    std::string access;
    std::string refresh;
  };
  Tokens signIn(const std::string& scope = "profile") {
    const Reply answer = exchange(exchangeParams(code(scope)));
    EXPECT_EQ(answer.status, 200) << answer.body;
    const auto object = jsonObject(answer.body);
    return {jsonString(object, "access_token"), jsonString(object, "refresh_token")};
  }

  std::shared_ptr<testing::ManualClock> clock_ = std::make_shared<testing::ManualClock>();
  std::unique_ptr<SignInServer> server_;
  std::unique_ptr<httplib::SSLClient> client_;
};

TEST_F(SignInServerTest, CodeFlowFromThePageToTheProfile) {
  const Reply page = signInPage(signInParams());
  ASSERT_EQ(page.status, 200);
  for (const char* part : {"<label for=\"email\">", "<input id=\"email\" name=\"email\" type=\"email\"",
                           "<label for=\"password\">", "<input id=\"password\" name=\"password\" type=\"password\"",
                           "<button type=\"submit\" name=\"action\" value=\"signin\">Sign in</button>"}) {
    EXPECT_THAT(page.body, HasSubstr(part));
  }

  // The e-mail address is not case-sensitive.
  const Reply redirect = submit(signInParams(), "Listener@Tunevo.TEST", "tunevo-password");
  ASSERT_EQ(redirect.status, 302);
  EXPECT_THAT(redirect.location, StartsWith(std::string(kRedirectUri) + "&"));
  auto params = queryOf(redirect.location);
  EXPECT_EQ(params["methodName"], "signin");
  EXPECT_EQ(params["state"], kState);
  EXPECT_EQ(params["scope"], "profile");
  EXPECT_FALSE(params.contains("error"));

  const Reply tokens = exchange(exchangeParams(params["code"]));
  ASSERT_EQ(tokens.status, 200) << tokens.body;
  const auto answer = jsonObject(tokens.body);
  EXPECT_EQ(jsonString(answer, "token_type"), "bearer");
  EXPECT_EQ(jsonString(answer, "scope"), "profile");
  ASSERT_TRUE(answer.contains("expires_in"));
  EXPECT_EQ(answer.at("expires_in").as_int64(), 3600);
  const std::string access = jsonString(answer, "access_token");
  const std::string refreshToken = jsonString(answer, "refresh_token");
  EXPECT_FALSE(access.empty());
  EXPECT_FALSE(refreshToken.empty());
  EXPECT_NE(access, refreshToken);

  const Reply user = profile(access);
  ASSERT_EQ(user.status, 200) << user.body;
  const auto shown = jsonObject(user.body);
  EXPECT_EQ(jsonString(shown, "user_id"), "tunevo.account.TESTLISTENER1");
  EXPECT_EQ(jsonString(shown, "email"), "listener@tunevo.test");
  EXPECT_EQ(jsonString(shown, "name"), "Test Listener");
}

TEST_F(SignInServerTest, SignInPageRefusesRequestsItCannotServe) {
  struct Row {
    const char* name;
    Params params;
    int status;          // 400: an error page; 302: a redirect with `error`
    const char* error;   // of the redirect
    bool keepsState = true;
  };
  const Params good = signInParams();
  const Row rows[] = {
      {"no client id", without(good, "client_id"), 400, ""},
      {"no redirect address", without(good, "redirect_uri"), 400, ""},
      {"another app's redirect", with(good, "redirect_uri", "amzn-other.app://?methodName=signin"), 400, ""},
      {"not an app scheme", with(good, "redirect_uri", "https://example.test/back"), 400, ""},
      {"no response type", without(good, "response_type"), 302, "invalid_request"},
      {"token response type", with(good, "response_type", "token"), 302, "unsupported_response_type"},
      {"no scope", without(good, "scope"), 302, "invalid_request"},
      {"unknown scope", with(good, "scope", "profile music"), 302, "invalid_scope"},
      {"no state", without(good, "state"), 302, "invalid_request", false},
      {"no challenge", without(good, "code_challenge"), 302, "invalid_request"},
      {"no challenge method", without(good, "code_challenge_method"), 302, "invalid_request"},
      {"plain method", with(good, "code_challenge_method", "plain"), 302, "invalid_request"},
      {"short challenge", with(good, "code_challenge", "abc"), 302, "invalid_request"},
      {"no sdk version", without(good, "di.sdk.version"), 302, "invalid_request"},
      {"no device model", without(good, "di.hw.name"), 302, "invalid_request"},
      {"no app identifier", without(good, "appIdentifier"), 302, "invalid_request"},
      {"app identifier of another app", with(good, "appIdentifier", "eyJidW5kbGVJRCI6Im90aGVyIn0="), 302,
       "invalid_request"},
      {"repeated parameter", [&] { Params p = good; p.emplace_back("scope", "profile"); return p; }(), 302,
       "invalid_request"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Reply answer = signInPage(row.params);
    EXPECT_EQ(answer.status, row.status) << answer.body;
    if (row.status != 302) {
      EXPECT_EQ(answer.location, "");
      continue;
    }
    EXPECT_THAT(answer.location, StartsWith(std::string(kRedirectUri) + "&error="));
    EXPECT_EQ(answer.error, row.error);
    EXPECT_FALSE(answer.errorDescription.empty());
    EXPECT_EQ(queryOf(answer.location).contains("state"), row.keepsState);
  }
  // The escaped Base64 the client sends ("=" as %3D, escaped once more by its list encoding) is
  // read like the plain form.
  EXPECT_EQ(signInPage(with(good, "appIdentifier", "eyJidW5kbGVJRCI6ImFwcC50dW5ldm8udGVzdCJ9%3D%3D")).status, 200);
}

TEST_F(SignInServerTest, SignInFormShowsWrongCredentialsAgainAndRedirectsACancel) {
  struct Row {
    const char* name;
    std::string email;
    std::string password;
    std::string action;
  };
  const Row rows[] = {
      {"wrong password", "listener@tunevo.test", "guess", "signin"},
      {"password in other case", "listener@tunevo.test", "TUNEVO-PASSWORD", "signin"},
      {"unknown account", "someone@tunevo.test", "tunevo-password", "signin"},
      {"cancelled", "", "", "cancel"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Reply answer = submit(signInParams(), row.email, row.password, row.action);
    if (row.action == "cancel") {
      EXPECT_EQ(answer.status, 302);
      EXPECT_EQ(answer.error, "access_denied");
      EXPECT_EQ(queryOf(answer.location)["state"], kState);
      EXPECT_FALSE(queryOf(answer.location).contains("code"));
      continue;
    }
    // A typo is the user's to correct on the page: the form again, for the same sign-in.
    EXPECT_EQ(answer.status, 200);
    EXPECT_EQ(answer.location, "");
    EXPECT_THAT(answer.body, HasSubstr("<p role=\"alert\">The e-mail address or password is incorrect.</p>"));
    const Reply corrected = submitForm(answer, "listener@tunevo.test", "tunevo-password");
    EXPECT_EQ(corrected.status, 302);
    EXPECT_EQ(queryOf(corrected.location)["state"], kState);
    EXPECT_TRUE(queryOf(corrected.location).contains("code"));
  }
  // A form whose sign-in is unknown (or already answered) gets a page, not a redirect.
  const Reply stale = post("/ap/oa", "signin_request=sr.unknown&email=listener%40tunevo.test&password=tunevo-password");
  EXPECT_EQ(stale.status, 400);
  EXPECT_EQ(stale.location, "");
}

TEST_F(SignInServerTest, CodeExchangeRefusesWhatDoesNotMatchTheSignIn) {
  struct Row {
    const char* name;
    std::function<Params(Params)> change;
    const char* error;
    int status = 400;
  };
  const Row rows[] = {
      {"wrong verifier", [](Params p) { return with(p, "code_verifier", kOtherVerifier); }, "invalid_grant"},
      {"other client", [](Params p) { return with(p, "client_id", "client.other"); }, "invalid_grant"},
      {"other redirect", [](Params p) { return with(p, "redirect_uri", "amzn-app.tunevo.test://?x=1"); },
       "invalid_grant"},
      {"unknown code", [](Params p) { return with(p, "code", "ac.unknown"); }, "invalid_grant"},
      {"no verifier", [](Params p) { return without(p, "code_verifier"); }, "invalid_request"},
      {"no code", [](Params p) { return without(p, "code"); }, "invalid_request"},
      {"no client id", [](Params p) { return without(p, "client_id"); }, "invalid_request"},
      {"no grant type", [](Params p) { return without(p, "grant_type"); }, "invalid_request"},
      {"other grant type", [](Params p) { return with(p, "grant_type", "password"); }, "unsupported_grant_type"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    const Reply answer = exchange(row.change(exchangeParams(code())));
    EXPECT_EQ(answer.status, row.status) << answer.body;
    EXPECT_EQ(answer.error, row.error);
    EXPECT_FALSE(answer.errorDescription.empty());
  }
  // A form without its content type is refused: the server cannot know it is a form.
  const Reply untyped = post("/auth/o2/token", encodeList(exchangeParams(code())), "");
  EXPECT_EQ(untyped.status, 400);
  EXPECT_EQ(untyped.error, "invalid_request");
}

TEST_F(SignInServerTest, CodeIsSpentByItsFirstUseAndReuseRevokesWhatItGave) {
  const std::string first = code();
  EXPECT_EQ(exchange(with(exchangeParams(first), "code_verifier", kOtherVerifier)).error, "invalid_grant");
  EXPECT_EQ(exchange(exchangeParams(first)).error, "invalid_grant") << "a failed attempt spends the code";

  const std::string second = code();
  const Reply issued = exchange(exchangeParams(second));
  ASSERT_EQ(issued.status, 200);
  const auto tokens = jsonObject(issued.body);
  const Reply again = exchange(exchangeParams(second));
  EXPECT_EQ(again.status, 400);
  EXPECT_EQ(again.error, "invalid_grant");
  EXPECT_EQ(profile(jsonString(tokens, "access_token")).error, "invalid_token");
  EXPECT_EQ(refresh(jsonString(tokens, "refresh_token")).error, "invalid_grant");
}

TEST_F(SignInServerTest, RefreshRotatesAndAnOldTokenUsedAgainRevokesTheGrant) {
  const Tokens first = signIn();
  const Reply rotated = refresh(first.refresh);
  ASSERT_EQ(rotated.status, 200) << rotated.body;
  const auto answer = jsonObject(rotated.body);
  const std::string secondRefresh = jsonString(answer, "refresh_token");
  const std::string secondAccess = jsonString(answer, "access_token");
  EXPECT_NE(secondRefresh, first.refresh);
  EXPECT_NE(secondAccess, first.access);
  EXPECT_EQ(jsonString(answer, "scope"), "profile");
  EXPECT_EQ(profile(secondAccess).status, 200);

  const Reply reused = refresh(first.refresh);
  EXPECT_EQ(reused.status, 400);
  EXPECT_EQ(reused.error, "invalid_grant");
  EXPECT_EQ(refresh(secondRefresh).error, "invalid_grant");
  EXPECT_EQ(profile(secondAccess).error, "invalid_token");

  // A refresh may narrow the scopes, never widen them.
  const Tokens wide = signIn("profile postal_code");
  const Reply narrowed = refresh(wide.refresh, "postal_code");
  ASSERT_EQ(narrowed.status, 200);
  EXPECT_EQ(jsonString(jsonObject(narrowed.body), "scope"), "postal_code");
  EXPECT_EQ(refresh(jsonString(jsonObject(narrowed.body), "refresh_token"), "profile profile:user_id").error,
            "invalid_scope");
}

// What a client that does not share one refresh among its callers meets: the refresh token is
// rotated exactly once, and every other use of it revokes the grant.
TEST_F(SignInServerTest, ConcurrentRefreshesWithOneTokenRotateItOnceAndRevokeTheGrant) {
  const Tokens tokens = signIn();
  constexpr int kCallers = 6;
  std::vector<std::future<int>> statuses;
  for (int i = 0; i < kCallers; ++i) {
    statuses.push_back(std::async(std::launch::async, [&] {
      auto client = newClient(*server_);
      Params params = deviceParams();
      params.insert(params.end(), {{"grant_type", "refresh_token"}, {"client_id", kClientId},
                                   {"refresh_token", tokens.refresh}});
      const auto result = client->Post("/auth/o2/token", encodeList(params), "application/x-www-form-urlencoded");
      return result ? result->status : 0;
    }));
  }
  std::map<int, int> counts;
  for (auto& status : statuses) ++counts[status.get()];
  EXPECT_EQ(counts, (std::map<int, int>{{200, 1}, {400, kCallers - 1}}));
  EXPECT_EQ(profile(tokens.access).error, "invalid_token");
}

TEST_F(SignInServerTest, ProfileAnswersByTokenAndScope) {
  const Tokens full = signIn("profile postal_code");
  const Tokens idOnly = signIn("profile:user_id");
  const Tokens noProfile = signIn("postal_code");
  struct Row {
    const char* name;
    std::optional<std::string> authorization;
    int status;
    const char* error;
    std::vector<std::string> keys;
  };
  const Row rows[] = {
      {"full profile", "Bearer " + full.access, 200, "", {"email", "name", "postal_code", "user_id"}},
      {"scheme in other case", "bearer " + full.access, 200, "", {"email", "name", "postal_code", "user_id"}},
      {"user id only", "Bearer " + idOnly.access, 200, "", {"user_id"}},
      {"no profile scope", "Bearer " + noProfile.access, 403, "insufficient_scope", {"error", "error_description"}},
      {"unknown token", "Bearer at.unknown", 401, "invalid_token", {"error", "error_description"}},
      {"refresh token", "Bearer " + full.refresh, 401, "invalid_token", {"error", "error_description"}},
      {"not bearer", "Basic " + full.access, 400, "invalid_request", {"error", "error_description"}},
      {"no header", std::nullopt, 400, "invalid_request", {"error", "error_description"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    httplib::Headers headers;
    if (row.authorization) headers.emplace("Authorization", *row.authorization);
    const Reply answer = get("/user/profile", headers);
    EXPECT_EQ(answer.status, row.status) << answer.body;
    EXPECT_EQ(answer.error, row.error);
    std::vector<std::string> keys;
    for (const auto& member : jsonObject(answer.body)) keys.emplace_back(member.key());
    std::sort(keys.begin(), keys.end());
    EXPECT_EQ(keys, row.keys);
  }
  // The client drops "profile" from its refresh token when the description says this.
  std::string description = get("/user/profile", {{"Authorization", "Bearer " + noProfile.access}}).errorDescription;
  std::transform(description.begin(), description.end(), description.begin(), ::tolower);
  EXPECT_THAT(description, HasSubstr("scope required profile"));
}

TEST_F(SignInServerTest, AccessTokenLifetimeIsSetAndExpiresExactlyAtItsEnd) {
  server_->setAccessTokenLifetime(std::chrono::seconds(60));
  const Reply issued = exchange(exchangeParams(code()));
  const auto answer = jsonObject(issued.body);
  EXPECT_EQ(answer.at("expires_in").as_int64(), 60);
  const std::string access = jsonString(answer, "access_token");

  clock_->advance(std::chrono::seconds(59));
  EXPECT_EQ(profile(access).status, 200);
  clock_->advance(std::chrono::seconds(1));
  const Reply expired = profile(access);
  EXPECT_EQ(expired.status, 401);
  EXPECT_EQ(expired.error, "invalid_token");
  EXPECT_THAT(expired.errorDescription, HasSubstr("expired"));
  // The refresh token does not expire.
  EXPECT_EQ(refresh(jsonString(answer, "refresh_token")).status, 200);
}

// Each injection through the C++ API and through the control paths over HTTP, posted without a
// body with the parameters in the query, as the README shows with curl.
class SignInServerInjectionTest : public SignInServerTest, public ::testing::WithParamInterface<bool> {
 protected:
  void control(const std::string& action, const Params& params, const std::function<void()>& direct) {
    if (!GetParam()) {
      direct();
      return;
    }
    const Reply answer = bodilessPost("/__control/" + action + "?" + encodeList(params));
    ASSERT_EQ(answer.status, 204) << answer.body;
  }
};

TEST_P(SignInServerInjectionTest, EachInjectionAnswersTheNextMatchingRequestsThenStops) {
  Tokens current = signIn();
  struct Row {
    const char* name;
    std::string action;
    Params params;
    std::function<void(SignInServer&)> direct;
    std::function<Reply()> request;
    int status;
    const char* error;
    int times = 1;
  };
  const std::function<Reply()> tokenRequest = [&] { return refresh(current.refresh); };
  const std::function<Reply()> profileRequest = [&] { return profile(current.access); };
  const std::function<Reply()> pageRequest = [&] { return signInPage(signInParams()); };
  const Row rows[] = {
      {"server error on the token endpoint, twice", "server-error", {{"endpoint", "token"}, {"times", "2"}},
       [](SignInServer& s) { s.injectServerError(Endpoint::token, 2); }, tokenRequest, 500, "server_error", 2},
      {"server error on the profile", "server-error", {{"endpoint", "profile"}},
       [](SignInServer& s) { s.injectServerError(Endpoint::profile); }, profileRequest, 500, "server_error"},
      {"invalid_grant", "fault", {{"name", "invalid_grant"}}, [](SignInServer& s) { s.inject(Fault::invalidGrant); },
       tokenRequest, 400, "invalid_grant"},
      {"invalid_token", "fault", {{"name", "invalid_token"}}, [](SignInServer& s) { s.inject(Fault::invalidToken); },
       profileRequest, 401, "invalid_token"},
      {"insufficient_scope", "fault", {{"name", "insufficient_scope"}},
       [](SignInServer& s) { s.inject(Fault::insufficientScope); }, profileRequest, 403, "insufficient_scope"},
      {"version_denied", "fault", {{"name", "version_denied"}},
       [](SignInServer& s) { s.inject(Fault::versionDenied); }, pageRequest, 302, "version_denied"},
      {"refusal", "fault", {{"name", "refusal"}}, [](SignInServer& s) { s.inject(Fault::refusal); }, pageRequest,
       302, "access_denied"},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.name);
    control(row.action, row.params, [&] { row.direct(*server_); });
    for (int i = 0; i < row.times; ++i) {
      const Reply answer = row.request();
      EXPECT_EQ(answer.status, row.status) << answer.body;
      EXPECT_EQ(answer.error, row.error);
      if (row.status == 302) {
        EXPECT_EQ(queryOf(answer.location)["state"], kState);
      }
    }
    // Injections change no state: the tokens still work once the injection is used up.
    const Reply after = row.request();
    EXPECT_EQ(after.status, 200) << after.body;
    const auto answer = jsonObject(after.status == 200 && row.status != 302 ? after.body : "{}");
    if (answer.contains("refresh_token")) {
      current = {jsonString(answer, "access_token"), jsonString(answer, "refresh_token")};
    }
  }
}

INSTANTIATE_TEST_SUITE_P(CppAndHttp, SignInServerInjectionTest, ::testing::Bool(),
                         [](const ::testing::TestParamInfo<bool>& via) { return via.param ? "OverHttp" : "InProcess"; });

TEST_P(SignInServerInjectionTest, DelayedRequestIsAnsweredAndStoppingCutsADelayShort) {
  const Tokens tokens = signIn();
  control("delay", {{"endpoint", "profile"}, {"ms", "20"}},
          [&] { server_->injectDelay(Endpoint::profile, std::chrono::milliseconds(20)); });
  EXPECT_EQ(profile(tokens.access).status, 200);

  control("delay", {{"endpoint", "profile"}, {"ms", "3600000"}},
          [&] { server_->injectDelay(Endpoint::profile, std::chrono::hours(1)); });
  const std::size_t before = server_->requests().size();
  auto otherClient = newClient(*server_);
  auto pending = std::async(std::launch::async, [&] {
    return otherClient->Get("/user/profile", {{"Authorization", "Bearer " + tokens.access}});
  });
  // The request is recorded on arrival, before its delay.
  for (int i = 0; i < 10000 && server_->requests().size() == before; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  EXPECT_EQ(server_->requests().size(), before + 1);  // no ASSERT: the server must still be stopped below
  server_.reset();
  ASSERT_EQ(pending.wait_for(std::chrono::seconds(60)), std::future_status::ready) << "stopping hung";
  const auto result = pending.get();
  ASSERT_TRUE(result) << httplib::to_string(result.error());
  EXPECT_EQ(result->status, 200);
  client_.reset();
}

TEST_F(SignInServerTest, RecordsRequestsAsTheyArrivedAndResetForgetsEverything) {
  const std::string issued = code();
  const Reply exchanged = exchange(exchangeParams(issued));
  const Tokens tokens{jsonString(jsonObject(exchanged.body), "access_token"), ""};
  EXPECT_EQ(profile(tokens.access).status, 200);
  const std::vector<RecordedRequest> requests = server_->requests();
  ASSERT_EQ(requests.size(), 4u);
  EXPECT_EQ(requests[0].method, "GET");
  EXPECT_EQ(requests[0].path, "/ap/oa");
  EXPECT_EQ(requests[0].query, signInParams());
  EXPECT_EQ(requests[1].method, "POST");
  EXPECT_EQ(requests[1].path, "/ap/oa");

  EXPECT_EQ(requests[2].path, "/auth/o2/token");
  EXPECT_EQ(requests[2].form, exchangeParams(issued));
  EXPECT_EQ(requests[2].body, encodeList(exchangeParams(issued)));
  EXPECT_TRUE(requests[2].query.empty());
  EXPECT_THAT(requests[2].headers, ::testing::Contains(std::pair<std::string, std::string>(
                                       "Content-Type", "application/x-www-form-urlencoded")));

  const RecordedRequest& profiled = requests[3];
  EXPECT_EQ(profiled.method, "GET");
  EXPECT_EQ(profiled.query[0], (std::pair<std::string, std::string>("di.hw.name", "x86_64")));
  EXPECT_THAT(profiled.headers,
              ::testing::Contains(std::pair<std::string, std::string>("Authorization", "Bearer " + tokens.access)));
  for (const auto& [name, value] : profiled.headers) EXPECT_NE(name, "REMOTE_ADDR");

  // The same over HTTP; control requests are not recorded.
  const Reply listed = get("/__control/requests");
  ASSERT_EQ(listed.status, 200);
  boost::system::error_code error;
  const boost::json::value list = boost::json::parse(listed.body, error);
  ASSERT_TRUE(list.is_array());
  ASSERT_EQ(list.as_array().size(), 4u);
  const auto& last = list.as_array()[3].as_object();
  EXPECT_EQ(jsonString(last, "path"), "/user/profile");
  EXPECT_EQ(jsonString(last.at("query").as_object(), "di.sdk.version"), "2.1.1");
  EXPECT_EQ(jsonString(last.at("headers").as_object(), "Authorization"), "Bearer " + tokens.access);
  EXPECT_EQ(jsonString(list.as_array()[2].as_object().at("form").as_object(), "grant_type"), "authorization_code");

  // Reset over HTTP forgets the log, the tokens and the lifetime.
  server_->setAccessTokenLifetime(std::chrono::seconds(5));
  server_->inject(Fault::invalidToken);
  EXPECT_EQ(post("/__control/reset", "").status, 204);
  EXPECT_TRUE(server_->requests().empty());
  const Reply forgotten = profile(tokens.access);
  EXPECT_EQ(forgotten.status, 401);
  EXPECT_THAT(forgotten.errorDescription, HasSubstr("not known"));
  EXPECT_EQ(jsonObject(exchange(exchangeParams(code())).body).at("expires_in").as_int64(), 3600);

  // Bad control requests are refused without effect, saying what a good one looks like.
  const std::size_t logged = server_->requests().size();
  const struct {
    Reply reply;
    int status;
    const char* says;
  } refusals[] = {
      {post("/__control/server-error", "endpoint=elsewhere"), 400, "Give endpoint=signin|token|profile"},
      {bodilessPost("/__control/fault?name=teapot"), 400, "Give name=invalid_grant|"},
      {post("/__control/delay", "endpoint=token&ms=-1"), 400, "Give endpoint=signin|token|profile and ms=N"},
      {bodilessPost("/__control/nothing"), 404, "Unknown control: reset,"},
      {get("/__control/reset"), 400, "POST to change"},
  };
  for (const auto& refusal : refusals) {
    EXPECT_EQ(refusal.reply.status, refusal.status) << refusal.says;
    EXPECT_THAT(refusal.reply.body, StartsWith(refusal.says));
  }
  EXPECT_EQ(server_->requests().size(), logged);
}

TEST(SignInServerStart, WritesItsCaWhereAskedRefusesClientsThatDoNotTrustItAndReportsWhatFails) {
  const auto dir = std::filesystem::path(::testing::TempDir()) / "signin_server_start";
  std::filesystem::create_directories(dir);
  SignInServerOptions options;
  options.caOut = dir / "ca.pem";
  auto first = SignInServer::start(options);
  ASSERT_TRUE(first.ok()) << first.error();
  std::ifstream file(dir / "ca.pem");
  const std::string written((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  EXPECT_EQ(written, first.value()->caPem());
  EXPECT_THAT(written, StartsWith("-----BEGIN CERTIFICATE-----"));
  EXPECT_THAT(first.value()->baseUrl(), StartsWith("https://127.0.0.1:"));
  // A client that does not trust the CA is refused.
  {
    httplib::SSLClient client("127.0.0.1", first.value()->port());
    client.enable_server_certificate_verification(true);
    client.set_ca_cert_path("/dev/null");
    client.set_connection_timeout(10);
    client.set_read_timeout(30);
    EXPECT_FALSE(client.Get("/ap/oa"));
  }

  SignInServerOptions samePort;
  samePort.port = first.value()->port();
  auto second = SignInServer::start(samePort);
  ASSERT_FALSE(second.ok());
  EXPECT_EQ(second.error().domain, kSignInServerErrorDomain);
  EXPECT_EQ(second.error().code, kSignInServerPortError);

  SignInServerOptions unwritable;
  unwritable.caOut = dir / "missing" / "ca.pem";
  auto third = SignInServer::start(unwritable);
  ASSERT_FALSE(third.ok());
  EXPECT_EQ(third.error().code, kSignInServerCaFileError);

  // A CA in a directory of its own goes with the server.
  auto fourth = SignInServer::start({});
  ASSERT_TRUE(fourth.ok());
  const std::filesystem::path temporary = fourth.value()->caPath();
  EXPECT_TRUE(std::filesystem::exists(temporary));
  fourth.value().reset();
  EXPECT_FALSE(std::filesystem::exists(temporary.parent_path()));
  // A given CA path stays.
  first.value().reset();
  EXPECT_TRUE(std::filesystem::exists(dir / "ca.pem"));
}

}  // namespace
}  // namespace applogic::emulator
