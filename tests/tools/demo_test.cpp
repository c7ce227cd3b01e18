// `tunevo demo` as a user runs it: from a directory that holds no samples, so that the answers
// must come from the program itself.

#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tunevo {
namespace {

struct DemoRun {
  int status = -1;
  std::string out;
  std::string err;
};

std::string contentsOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

DemoRun runDemoProgram(const std::string& arguments) {
  const auto dir = std::filesystem::path(::testing::TempDir()) / "tunevo_demo_cwd";
  std::filesystem::create_directories(dir);
  const auto outPath = dir / "out.txt";
  const auto errPath = dir / "err.txt";
  const std::string command = "cd '" + dir.string() + "' && '" + TUNEVO_EXECUTABLE + "' demo " + arguments +
                              " </dev/null >'" + outPath.string() + "' 2>'" + errPath.string() + "'";
  const int raw = std::system(command.c_str());
  DemoRun run;
  run.status = WIFEXITED(raw) ? WEXITSTATUS(raw) : -1;
  run.out = contentsOf(outPath);
  run.err = contentsOf(errPath);
  return run;
}

TEST(TunevoDemo, ShowsRecordsAndErrorsOfEveryControllerFromAnyDirectory) {
  const DemoRun run = runDemoProgram("");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  const std::vector<std::string> expectedLines{
      "== TracksDataController ==",
      "== SearchDataController ==",
      "== UsersTracksDataController ==",
      "== PersonalizedDataController ==",
      "== GenreDataController ==",
      "    Tra.2651947     \"Blue in Green\" by Miles Davis, 337 s",
      "  error   domain \"SearchDataController\", code 1",
      "  error   domain \"NSURLErrorDomain\", code -1009",
      "  update for user \"friend-42\"",
      "  update for user \"listener-1\"",
      "    g.115           Pop: The sound of the charts.",
  };
  for (const std::string& line : expectedLines) {
    EXPECT_NE(run.out.find("\n" + line + "\n"), std::string::npos) << "missing line: " << line << "\n" << run.out;
  }
}

TEST(TunevoDemo, HelpAndUnexpectedArguments) {
  const DemoRun help = runDemoProgram("--help");
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.out.rfind("usage: tunevo demo", 0), 0u) << help.out;

  const DemoRun extra = runDemoProgram("now");
  EXPECT_EQ(extra.status, 64);
  EXPECT_EQ(extra.out, "");
  EXPECT_EQ(extra.err.rfind("tunevo demo: unexpected argument 'now'", 0), 0u) << extra.err;
}

}  // namespace
}  // namespace tunevo
