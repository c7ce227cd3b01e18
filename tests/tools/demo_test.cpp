// `tunevo demo` as a user runs it: from a directory that holds no samples, so that the answers
// must come from the program itself.

#include "tools/tunevo_process.h"

namespace tunevo::test {
namespace {

TEST(TunevoDemo, RunsTheWholeAppOverLoopbackFromAnyDirectory) {
  const Outcome run = runTunevo("demo");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  // The catalog is generated from a fixed seed, so its records are the same on every run.
  const std::vector<std::string> expectedLines{
      "  email: listener@tunevo.test",
      "    Tra.1029   \"Falling Letters\" by The Falling Stranger, 179 s",
      "  error   domain \"applogic.service\", code 404",
      "          message: No track tra.0.",
      "  error   domain \"applogic.service\", code 500",
      "  update for user \"friend-42\"",
      "  page of 5 tracks",
      "  page at offset 11: 1 of 12 tracks",
      "    Giphy image    gph0024",
      "  -- token endpoint requests during the call: 1",
      "  update for user \"tunevo.account.TESTLISTENER1\"",
      "  signed out",
      "  error   AIError code 1: The refresh token is invalid, expired or revoked.",
  };
  for (const std::string& line : expectedLines) {
    EXPECT_NE(run.out.find("\n" + line + "\n"), std::string::npos) << "missing line: " << line << "\n" << run.out;
  }
  EXPECT_NE(run.out.find("\n  status 200, image/gif, 35158 bytes, a GIF of 311x200\n"), std::string::npos) << run.out;
  // The preview plays to its end, then the controller rewinds it and pauses, keeping the track. The
  // sink depends on the machine (the null sink where there is no sound device).
  const auto played = run.out.find("\n  playing: isPlaying true, currentTrack \"Tra.1029\"\n");
  const auto ended = run.out.find("\n  ended: isPlaying false, paused at 0.0 s of 3.0 s, currentTrack \"Tra.1029\"\n");
  EXPECT_NE(played, std::string::npos) << run.out;
  EXPECT_NE(ended, std::string::npos) << run.out;
  EXPECT_LT(played, ended) << run.out;
}

TEST(TunevoDemo, AnUnexpectedArgumentIsAUsageError) {
  const Outcome extra = runTunevo("demo now");
  EXPECT_EQ(extra.status, 64);
  EXPECT_EQ(extra.out, "");
  EXPECT_EQ(extra.err.rfind("tunevo demo: unexpected argument 'now'", 0), 0u) << extra.err;
}

}  // namespace
}  // namespace tunevo::test
