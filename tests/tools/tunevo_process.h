#pragma once

// Runs tunevo two ways: `parse` in process through its entry function, and the whole program as
// a user would, from a directory of the current test's own (ctest runs tests in parallel
// processes, and the demo must not find any sample files around it).

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "tunevo/parse.h"

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
  Outcome run;
  run.status = runParse(args, in, out, err);
  run.out = out.str();
  run.err = err.str();
  return run;
}

inline std::string readAll(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

inline Outcome runTunevo(const std::string& arguments, const std::string& stdinPath = "/dev/null") {
  const auto dir = std::filesystem::path(::testing::TempDir()) /
                   (std::string("tunevo_") + ::testing::UnitTest::GetInstance()->current_test_info()->name());
  std::filesystem::create_directories(dir);
  const auto outPath = dir / "out.txt";
  const auto errPath = dir / "err.txt";
  const std::string command = "cd '" + dir.string() + "' && '" + TUNEVO_EXECUTABLE + "' " + arguments + " <'" +
                              stdinPath + "' >'" + outPath.string() + "' 2>'" + errPath.string() + "'";
  const int raw = std::system(command.c_str());
  Outcome run;
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.out = readAll(outPath);
  run.err = readAll(errPath);
  return run;
}

}  // namespace tunevo::test
