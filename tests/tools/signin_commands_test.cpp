// `tunevo login`, `token`, `profile`, `logout` and `emulator` as a user runs them, against the local sign-in
// server over TLS: the browser is a small script that plays the user on the sign-in page and hands
// the redirect in with `tunevo handle-url`, as the desktop would.

#include <sys/stat.h>

#include <algorithm>
#include <memory>

#include "emulator/signin_flow.h"
#include "emulator/signin_server.h"
#include "signin/client_fixture.h"
#include "tools/tunevo_process.h"
#include "tunevo/signin_commands.h"

namespace tunevo::test {
namespace {

namespace fs = std::filesystem;
namespace signin = applogic::signin;

class SignInCommandsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    fs::create_directories(dir_ / "runtime");
    ::chmod((dir_ / "runtime").c_str(), 0700);
    ::setenv("XDG_RUNTIME_DIR", (dir_ / "runtime").c_str(), 1);

    applogic::emulator::SignInServerOptions options;
    options.bundleId = signin::test::kPackage;
    options.clientId = signin::test::kClientId;
    auto started = applogic::emulator::SignInServer::start(std::move(options));
    ASSERT_TRUE(started.ok()) << started.error();
    server_ = std::move(started).value();
    const std::string base = server_->baseUrl();
    writeFile(dir_ / "app-manifest.json",
              R"({"CFBundleIdentifier": ")" + std::string(signin::test::kPackage) + R"(", "APIKey": ")" +
                  signin::test::apiKeyFor(base + "/ap/oa", base + "/auth/o2/token") + R"("})");
    writeFile(dir_ / "issuer.pub", signin::test::issuerKeys().publicPem);
    writeBrowser("browser", "signin");
    writeBrowser("cancelling-browser", "cancel");
  }
  // A browser that opens the sign-in page it is given, submits the form with `action` ("signin"
  // with the test account, or "cancel") and hands the address it is redirected to to tunevo.
  void writeBrowser(const std::string& name, const std::string& action) {
    const fs::path path = dir_ / name;
    const std::string ca = "'" + server_->caPath().string() + "'";
    writeFile(path, "#!/bin/sh\n"
                    "exec >&2\n"
                    "page=$(curl -sS --cacert " + ca + " \"$1\") || exit 1\n"
                    "id=$(printf '%s' \"$page\" | sed -n 's/.*name=\"signin_request\" value=\"\\([^\"]*\\)\".*/\\1/p')\n"
                    "location=$(curl -sS --cacert " + ca + " -o /dev/null -D - -d \"signin_request=$id\""
                    " --data-urlencode email=listener@tunevo.test --data-urlencode password=tunevo-password"
                    " -d action=" + action + " '" + server_->baseUrl() + "/ap/oa'"
                    " | sed -n 's/^[Ll]ocation: //p' | tr -d '\\r')\n"
                    "exec '" + std::string(TUNEVO_EXECUTABLE) + "' handle-url \"$location\"\n");
    ::chmod(path.c_str(), 0700);
  }

  // The file `name` of the test's directory, quoted for the shell.
  std::string quoted(const std::string& name) const { return "'" + (dir_ / name).string() + "'"; }
  // The options every test shares, after `command`.
  std::vector<std::string> arguments(const std::string& command) const {
    return {command, "--manifest", (dir_ / "app-manifest.json").string(), "--public-key",
            (dir_ / "issuer.pub").string(), "--ca-file", server_->caPath().string(), "--profile-endpoint",
            server_->baseUrl() + "/user/profile", "--store", (dir_ / "store.sqlite3").string(), "--timeout", "30"};
  }
  // `tunevo COMMAND` with those options; `extra` follows them.
  Outcome run(const std::string& command, const std::string& extra = "") {
    std::string line;
    for (const std::string& argument : arguments(command)) line += "'" + argument + "' ";
    return runTunevo(line + extra);
  }

  std::size_t tokenRequests(const std::string& grant) const {
    const auto requests = server_->requests();
    return std::count_if(requests.begin(), requests.end(), [&](const auto& request) {
      return std::find(request.form.begin(), request.form.end(), std::pair<std::string, std::string>("grant_type", grant)) !=
             request.form.end();
    });
  }

  const ScratchDirectory scratch_{"tsi"};  // short: the redirect socket's path must fit a UNIX socket address
  const fs::path dir_ = scratch_.path();
  std::unique_ptr<applogic::emulator::SignInServer> server_;
};

TEST_F(SignInCommandsTest, SignsInInTheBrowserThenServesTokenAndProfileAndSignsOut) {
  const Outcome login = run("login", "--browser " + quoted("browser"));
  ASSERT_EQ(login.status, 0) << login.err;
  EXPECT_EQ(tokenRequests("authorization_code"), 1u);
  const std::string prefix = "email: listener@tunevo.test\nuser id: tunevo.account.TESTLISTENER1\naccess token: ";
  ASSERT_EQ(login.out.rfind(prefix, 0), 0u) << login.out;
  const std::string masked = login.out.substr(prefix.size());

  // The stored token, then a refreshed one; each is the one the login masked, or its successor.
  const Outcome stored = run("token");
  ASSERT_EQ(stored.status, 0) << stored.err;
  EXPECT_EQ(maskedToken(stored.out.substr(0, stored.out.size() - 1)) + "\n", masked);
  const Outcome refreshed = run("token", "--force-refresh");
  ASSERT_EQ(refreshed.status, 0) << refreshed.err;
  EXPECT_NE(refreshed.out, stored.out);
  EXPECT_EQ(tokenRequests("refresh_token"), 1u);

  const Outcome profile = run("profile");
  EXPECT_NE(profile.out.find(R"("email":"listener@tunevo.test")"), std::string::npos) << profile.out;
  EXPECT_NE(profile.out.find(R"("user_id":"tunevo.account.TESTLISTENER1")"), std::string::npos) << profile.out;
  // Signed in already: no browser is needed.
  EXPECT_EQ(run("login", "--browser /bin/false").status, 0);

  EXPECT_EQ(run("logout").out, "signed out\n");
  const Outcome after = run("token");
  EXPECT_EQ(after.status, 1);
  EXPECT_EQ(after.out + after.err,
            "tunevo token: AIError code 1: The refresh token is invalid, expired or revoked. (not signed in: run "
            "`tunevo login`)\n");
}

TEST_F(SignInCommandsTest, ATimeoutDuringARefreshStillStoresTheRotatedToken) {
  ASSERT_EQ(run("login", "--browser " + quoted("browser")).status, 0);
  // The server spends the refresh token and answers after the command's timeout. The second
  // delay holds the next refresh until the first has been answered, so that a command which left
  // without storing the rotated token presents the spent one, and the grant is revoked.
  server_->injectDelay(applogic::emulator::Endpoint::token, std::chrono::milliseconds(3000));
  server_->injectDelay(applogic::emulator::Endpoint::token, std::chrono::milliseconds(2500));
  const Outcome late = run("token", "--force-refresh --timeout 1");
  EXPECT_EQ(late.status, 75);
  EXPECT_EQ(late.err,
            "tunevo token: no answer within 1 s; waiting for the token exchange already sent to end, so that a token "
            "the server rotated is kept\n");
  const Outcome next = run("token", "--force-refresh");
  EXPECT_EQ(next.status, 0) << next.err;
  EXPECT_EQ(tokenRequests("refresh_token"), 2u);
}

// Each file argument is read, and the CA file parsed, before anything is sent or opened; a file
// that cannot be used ends the command with one line naming it and why.
TEST_F(SignInCommandsTest, AnUnusableFileArgumentEndsTheCommandBeforeAnythingStarts) {
  writeFile(dir_ / "junk.pem", "-----BEGIN CERTIFICATE-----\nnot base64\n-----END CERTIFICATE-----\n");
  const std::string dir = dir_.string();
  const std::string manifest = " --manifest " + quoted("app-manifest.json");
  const std::string key = " --public-key " + quoted("issuer.pub");
  const std::string store = " --store " + quoted("store.sqlite3");
  const fs::path defaultManifest = fs::weakly_canonical(fs::path(TUNEVO_EXECUTABLE)).parent_path() / "app-manifest.json";
  ASSERT_FALSE(fs::exists(defaultManifest));
  const std::pair<std::string, std::string> rows[] = {
      {"token --ca-file '" + dir + "'" + manifest + key, "tunevo token: cannot read the CA file " + dir + ": is a directory"},
      {"profile --manifest '" + dir + "'" + key, "tunevo profile: cannot read the app manifest " + dir + ": is a directory"},
      {"logout --public-key '" + dir + "'" + manifest, "tunevo logout: cannot read the public key " + dir + ": is a directory"},
      {"login" + key + store + " --browser " + quoted("browser"),
       "tunevo login: cannot read the app manifest " + defaultManifest.string() +
           ": no such file or directory (the default; give one with --manifest)"},
      {"login --ca-file " + quoted("junk.pem") + manifest + key + store + " --browser " + quoted("browser"),
       "tunevo login: the CA file " + (dir_ / "junk.pem").string() + " holds no PEM certificate"},
  };
  for (const auto& [arguments, line] : rows) {
    const Outcome outcome = runTunevo(arguments);
    EXPECT_EQ(outcome.status, 66) << arguments;
    EXPECT_EQ(outcome.err.rfind(line, 0), 0u) << outcome.err;
    EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 1) << outcome.err;
  }
  EXPECT_TRUE(server_->requests().empty());
}

TEST_F(SignInCommandsTest, ALoginEndsWithTheErrorWhenTheUserCancelsTheKeyIsNotValidOrNoAnswerComes) {
  const Outcome cancelled = run("login", "--browser " + quoted("cancelling-browser"));
  EXPECT_EQ(cancelled.status, 1);
  EXPECT_EQ(cancelled.err.substr(cancelled.err.find('\n') + 1),
            "tunevo login: AmazonLogin code 4: The user cancelled the sign-in.\n");

  // Without the issuer's public key no API key is valid.
  const Outcome unverified = runTunevo("login --manifest " + quoted("app-manifest.json") + " --store " +
                                       quoted("store.sqlite3"));
  EXPECT_EQ(unverified.status, 1);
  EXPECT_EQ(unverified.err,
            "tunevo login: AmazonLogin code 6: APIKey for the Application is invalid. (the API key and bundle "
            "identifier come from the app manifest, --manifest; the key's signature is checked with --public-key)\n");

  // Without an answer: the timeout, or Ctrl-C.
  const Outcome silent = run("login", "--browser /bin/true --timeout 1");
  EXPECT_EQ(silent.status, 75);
  EXPECT_NE(silent.err.find("tunevo login: no answer within 1 s\n"), std::string::npos) << silent.err;

  std::vector<std::string> args = arguments("login");
  args.insert(args.end(), {"--browser", "/bin/true"});
  RunningTunevo login(std::move(args), STDERR_FILENO, dir_ / "interrupted.err");
  const std::string waiting = login.waitFor("Ctrl-C cancels");
  EXPECT_EQ(login.interrupt(), 130) << waiting;
  EXPECT_NE(login.waitFor("tunevo login: cancelled\n").find("tunevo login: cancelled\n"), std::string::npos);
}

TEST(SignInCommands, BadOptionsAreUsageErrors) {
  const std::pair<std::string, std::string> rows[] = {
      {"token --bogus", "unknown option '--bogus'"},
      {"login --force-refresh", "unknown option '--force-refresh'"},
      {"profile now", "unexpected argument 'now'"},
      {"logout --store", "--store needs a value"},
      {"token --timeout 0", "--timeout takes a whole number of seconds from 1 to 86400"},
      {"login --manifest ''", "--manifest needs a value"},
  };
  for (const auto& [arguments, problem] : rows) {
    const Outcome run = runTunevo(arguments);
    EXPECT_EQ(run.status, 64) << arguments;
    const std::string command = arguments.substr(0, arguments.find(' '));
    EXPECT_EQ(run.err.rfind("tunevo " + command + ": " + problem + "\nusage: tunevo " + command, 0), 0u) << run.err;
  }
  EXPECT_EQ(runTunevo("token --help").out.rfind("usage: tunevo token [--force-refresh] [OPTIONS]", 0), 0u);
}

TEST(SignInCommands, TheAccessTokenIsMaskedToItsFirstSixCharacters) {
  EXPECT_EQ(maskedToken("Atza|IwEBIExampleToken"), "Atza|I\u2026");
  EXPECT_EQ(maskedToken("Atza|Iw"), "Atza|I\u2026");
  EXPECT_EQ(maskedToken("Atza|I"), "\u2026");
  EXPECT_EQ(maskedToken(""), "\u2026");
}

// `tunevo emulator signin` as a separate process, driven as a test of another program drives it:
// read the address and CA it prints, stop it with SIGINT (the README's tested example talks to it
// with curl).
std::string lineAfter(const std::string& text, const std::string& label) {
  const std::size_t start = text.find(label);
  if (start == std::string::npos) return {};
  const std::size_t valueStart = start + label.size();
  return text.substr(valueStart, text.find('\n', valueStart) - valueStart);
}

TEST(TunevoEmulator, ServesUntilInterruptedAndPrintsWhereToFindIt) {
  const ScratchDirectory dir("tunevo_emulator_signin");
  const std::string caOut = (dir / "ca.pem").string();
  RunningTunevo emulator({"emulator", "signin", "--ca-out", caOut, "--account", "me@tunevo.test:secret:with:colons"},
                         STDOUT_FILENO, dir / "out.txt");
  const std::string out = emulator.waitFor("Ctrl-C stops the server.\n");
  const std::string baseUrl = lineAfter(out, "sign-in server: ");
  EXPECT_EQ(lineAfter(out, "CA certificate: "), caOut) << out;
  EXPECT_EQ(lineAfter(out, "account: "), "me@tunevo.test secret:with:colons");
  EXPECT_EQ(lineAfter(out, "control: "), baseUrl + "/__control/");
  EXPECT_EQ(baseUrl.rfind("https://127.0.0.1:", 0), 0u) << out;
  EXPECT_EQ(emulator.interrupt(), 0);
  EXPECT_NE(emulator.waitFor("\nstopped\n").find("\nstopped\n"), std::string::npos);
  EXPECT_TRUE(fs::exists(caOut));
}

// `emulator all` serves both servers under one CA (the README's quick start signs in with it and
// lists its catalog); a separate `emulator catalog` accepts the tokens of that sign-in server,
// which it asks over the control endpoint.
TEST(TunevoEmulator, CatalogsAcceptTheTokensOfTheirSignInServer) {
  const ScratchDirectory dir("tunevo_emulator_all");
  const std::string ca = (dir / "ca.pem").string();
  RunningTunevo all({"emulator", "all", "--ca-out", ca}, STDOUT_FILENO, dir / "all.txt");
  const std::string allOut = all.waitFor("Ctrl-C stops the servers.\n");
  const std::string signInUrl = lineAfter(allOut, "sign-in server: ");
  EXPECT_EQ(lineAfter(allOut, "API base: "), lineAfter(allOut, "catalog service: ") + "/v1") << allOut;
  EXPECT_EQ(lineAfter(allOut, "catalog control: "), lineAfter(allOut, "catalog service: ") + "/__control/catalog/");
  const std::string otherCa = (dir / "catalog-ca.pem").string();
  RunningTunevo catalog({"emulator", "catalog", "--signin", signInUrl, "--signin-ca", ca, "--ca-out", otherCa},
                        STDOUT_FILENO, dir / "catalog.txt");
  httplib::Client client(lineAfter(catalog.waitFor("Ctrl-C stops the server.\n"), "catalog service: "));
  client.set_ca_cert_path(otherCa.c_str());
  client.enable_server_certificate_verification(true);
  client.set_read_timeout(30);

  httplib::SSLClient signIn("127.0.0.1", std::stoi(signInUrl.substr(signInUrl.rfind(':') + 1)));
  signIn.set_ca_cert_path(ca.c_str());
  const std::string token = applogic::emulator::signInForAccessToken(signIn);
  ASSERT_FALSE(token.empty());
  const auto accepted = client.Get("/v1/genres", {{"Authorization", "Bearer " + token}});
  ASSERT_TRUE(accepted);
  EXPECT_EQ(accepted->status, 200);
  EXPECT_EQ(client.Get("/v1/genres", {{"Authorization", "Bearer x" + token}})->status, 401);
  EXPECT_EQ(catalog.interrupt(), 0);
  EXPECT_EQ(all.interrupt(), 0);
}

TEST(TunevoEmulator, UsageAndStartErrors) {
  for (const char* usage : {"", " catalog", " signin --port 65536", " signin --port", " signin --account nocolon",
                            " signin --verbose", " catalog --signin https://127.0.0.1:1", " all --latency soon",
                            " all --signin https://127.0.0.1:1"}) {
    EXPECT_EQ(runTunevo(std::string("emulator") + usage).status, 64) << usage;
  }
  const Outcome unwritable = runTunevo("emulator signin --port 65535 --ca-out /nonexistent/dir/ca.pem");
  EXPECT_EQ(unwritable.status, 73);
  EXPECT_NE(unwritable.err.find("/nonexistent/dir/ca.pem"), std::string::npos) << unwritable.err;
}

}  // namespace
}  // namespace tunevo::test
