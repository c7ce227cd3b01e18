// `tunevo emulator signin` as a separate process, driven as a test of another program drives it:
// read the address and CA it prints, talk to it over TLS, stop it with SIGINT.

#include <httplib.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include <gtest/gtest.h>

#include "tools/tunevo_process.h"

extern char** environ;

namespace tunevo::test {
namespace {

std::string lineAfter(const std::string& text, const std::string& label) {
  const std::size_t start = text.find(label);
  if (start == std::string::npos) return {};
  const std::size_t valueStart = start + label.size();
  return text.substr(valueStart, text.find('\n', valueStart) - valueStart);
}

TEST(TunevoEmulator, ServesUntilInterruptedAndPrintsWhereToFindIt) {
  const auto dir = std::filesystem::path(::testing::TempDir()) / "tunevo_emulator_signin";
  std::filesystem::create_directories(dir);
  const std::string caOut = (dir / "ca.pem").string();
  const std::string outPath = (dir / "out.txt").string();

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, outPath.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  std::string program = TUNEVO_EXECUTABLE;
  std::vector<std::string> args{program,   "emulator", "signin",    "--ca-out",
                                caOut,     "--account", "me@tunevo.test:secret:with:colons"};
  std::vector<char*> argv;
  for (std::string& arg : args) argv.push_back(arg.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  ASSERT_EQ(posix_spawn(&pid, program.c_str(), &actions, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&actions);

  // Waits for the banner; bounded so that a program that never starts fails instead of hanging.
  std::string out;
  for (int i = 0; i < 3000 && out.find("Ctrl-C stops the server.\n") == std::string::npos; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
    out = readAll(outPath);
  }
  const std::string baseUrl = lineAfter(out, "sign-in server: ");
  EXPECT_EQ(lineAfter(out, "CA certificate: "), caOut) << out;
  EXPECT_EQ(lineAfter(out, "account: "), "me@tunevo.test secret:with:colons");
  EXPECT_EQ(lineAfter(out, "control: "), baseUrl + "/__control/");

  const std::string prefix = "https://127.0.0.1:";
  if (baseUrl.rfind(prefix, 0) == 0) {
    httplib::SSLClient client("127.0.0.1", std::stoi(baseUrl.substr(prefix.size())));
    client.set_ca_cert_path(caOut.c_str());
    client.enable_server_certificate_verification(true);
    client.set_connection_timeout(10);
    client.set_read_timeout(30);
    // No ASSERT before the kill below: the program must not outlive the test.
    const auto page = client.Get("/ap/oa");
    EXPECT_EQ(page ? page->status : 0, 400);  // no client id: an error page, no redirect
    const auto log = client.Get("/__control/requests");
    EXPECT_NE((log ? log->body : std::string()).find("\"path\":\"/ap/oa\""), std::string::npos);
  } else {
    ADD_FAILURE() << "no base URL in: " << out;
  }

  kill(pid, SIGINT);
  int status = 0;
  ASSERT_EQ(waitpid(pid, &status, 0), pid);
  ASSERT_TRUE(WIFEXITED(status));
  EXPECT_EQ(WEXITSTATUS(status), 0);
  EXPECT_NE(readAll(outPath).find("\nstopped\n"), std::string::npos);
  EXPECT_TRUE(std::filesystem::exists(caOut));
}

TEST(TunevoEmulator, UsageAndStartErrors) {
  EXPECT_EQ(runTunevo("emulator").status, 64);
  EXPECT_EQ(runTunevo("emulator catalog").status, 64);
  EXPECT_EQ(runTunevo("emulator signin --port 70000").status, 64);
  EXPECT_EQ(runTunevo("emulator signin --port").status, 64);
  EXPECT_EQ(runTunevo("emulator signin --account nocolon").status, 64);
  EXPECT_EQ(runTunevo("emulator signin --verbose").status, 64);
  const Outcome help = runTunevo("emulator signin --help");
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("usage: tunevo emulator signin", 0), 0u) << help.out;
  const Outcome unwritable = runTunevo("emulator signin --ca-out /nonexistent/dir/ca.pem");
  EXPECT_EQ(unwritable.status, 73);
  EXPECT_NE(unwritable.err.find("/nonexistent/dir/ca.pem"), std::string::npos) << unwritable.err;
}

}  // namespace
}  // namespace tunevo::test
