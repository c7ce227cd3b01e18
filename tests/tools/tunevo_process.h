#pragma once

// Runs tunevo three ways: `parse` in process through its entry function, the whole program as a
// user would, from a directory of the current test's own (ctest runs tests in parallel processes,
// and the demo must not find any sample files around it), and a program left running until it is
// interrupted. The tools' tests take the standard headers below, and googletest, from here.

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "tunevo/parse.h"

extern char** environ;

namespace tunevo::test {

struct Outcome {
  int status = -1;
  std::string out;
  std::string err;
};

inline Outcome parse(const std::vector<std::string>& args, std::string_view input = "") {
  std::istringstream in{std::string(input)};
  std::ostringstream out;
  std::ostringstream err;
  const int status = runParse(args, in, out, err);
  return {status, out.str(), err.str()};
}

inline std::string readAll(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

inline std::filesystem::path writeFile(const std::filesystem::path& path, std::string_view text) {
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

// A directory of this test process's own (ctest runs tests in parallel processes), empty at the
// start and removed at the end; with `variable`, that environment variable names it. The name
// stays short so that a UNIX socket's path under it fits.
class ScratchDirectory {
 public:
  explicit ScratchDirectory(const std::string& leaf, const char* variable = nullptr)
      : path_(std::filesystem::path(::testing::TempDir()) / (leaf + std::to_string(::getpid()))) {
    std::filesystem::remove_all(path_);
    std::filesystem::create_directories(path_);
    if (variable != nullptr) ::setenv(variable, path_.c_str(), 1);
  }
  ~ScratchDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }
  std::filesystem::path operator/(const std::string& name) const { return path_ / name; }

 private:
  std::filesystem::path path_;
};

inline Outcome runTunevo(const std::string& arguments, const std::string& stdinPath = "/dev/null") {
  const auto dir = std::filesystem::path(::testing::TempDir()) /
                   (std::string("tunevo_") + ::testing::UnitTest::GetInstance()->current_test_info()->name());
  std::filesystem::create_directories(dir);
  const auto outPath = dir / "out.txt";
  const auto errPath = dir / "err.txt";
  const std::string command = "cd '" + dir.string() + "' && '" + TUNEVO_EXECUTABLE + "' " + arguments + " <'" +
                              stdinPath + "' >'" + outPath.string() + "' 2>'" + errPath.string() + "'";
  const int raw = std::system(command.c_str());
  return {WIFEXITED(raw) ? WEXITSTATUS(raw) : -1, readAll(outPath), readAll(errPath)};
}

// tunevo with `args`, running in the background with its standard output or error (`fd`) in
// `path`, until `interrupt`; a program still running at the end of the test is killed.
class RunningTunevo {
 public:
  RunningTunevo(std::vector<std::string> args, int fd, std::filesystem::path path) : path_(std::move(path)) {
    args.insert(args.begin(), TUNEVO_EXECUTABLE);
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, fd, path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    if (posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ) != 0) pid_ = 0;
    posix_spawn_file_actions_destroy(&actions);
    EXPECT_NE(pid_, 0) << "cannot start " << TUNEVO_EXECUTABLE;
  }
  ~RunningTunevo() {
    if (pid_ > 0 && ::kill(pid_, SIGKILL) == 0) ::waitpid(pid_, nullptr, 0);
  }
  RunningTunevo(const RunningTunevo&) = delete;
  RunningTunevo& operator=(const RunningTunevo&) = delete;

  // What the program wrote once it holds `text`; bounded (a minute) so that a program that never
  // gets there fails the test instead of hanging it.
  std::string waitFor(std::string_view text) const {
    std::string written = readAll(path_);
    for (int i = 0; i < 6000 && pid_ > 0 && written.find(text) == std::string::npos; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      written = readAll(path_);
    }
    return written;
  }
  // Sends SIGINT and waits for the end: the exit status, or -1 for a program that did not exit.
  int interrupt() {
    int status = 0;
    if (pid_ <= 0 || ::kill(pid_, SIGINT) != 0 || ::waitpid(pid_, &status, 0) != pid_) return -1;
    pid_ = 0;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  std::filesystem::path path_;
  pid_t pid_ = 0;
};

}  // namespace tunevo::test
