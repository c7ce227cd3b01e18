// `tunevo demo` as a user runs it: from a directory that holds no samples, so that the answers
// must come from the program itself.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tools/tunevo_process.h"

namespace tunevo::test {
namespace {

TEST(TunevoDemo, ShowsRecordsAndErrorsOfEveryControllerFromAnyDirectory) {
  const Outcome run = runTunevo("demo");
  ASSERT_EQ(run.status, 0) << run.err;
  EXPECT_EQ(run.err, "");
  const std::vector<std::string> expectedLines{
      "getFavoriteTrack(\"listener-1\")\n  service answers with favorites_page1.json\n  track\n    Tra.2651943     \"So What\" by Miles Davis, 562 s",
      "  error   domain \"NSURLErrorDomain\", code -1009",
      "  update for user \"listener-1\"",
      "    g.115           Pop: The sound of the charts.",
      "  playlist mp.77 \"Late Night Jazz\", public, owner \"listener-1\", 3 images",
      "    Giphy image    ZqlvCTNHpqrio",
      "  -- next offset 2 + 1 = 3, the total: this was the last page",
      "  done",
      "    Zj5Wq2n7Lb3mTq  rating g, kept 5 of 6 renditions",
      "      fixed_width_still   200x113  https://giphy-media.tunevo.app/media/Zj5Wq2n7Lb3mTq/200w_s.gif?cid=ecf05e47&rid=200w_s.gif",
      "    (Vq8Lm3Zc1Rk0Sy dropped: none of its 2 renditions suits a cover)",
      "  resolved https://giphy-media.tunevo.app/media/Zj5Wq2n7Lb3mTq/200_s.gif?cid=ecf05e47&rid=200_s.gif",
      "  error   domain \"No still image url\", code 0",
      "  email: listener@tunevo.test",
      "  signed out",
      "  error   AIError code 1: The refresh token is invalid, expired or revoked.",
      "  playing: isPlaying true, currentTrack \"tra.demo\"",
  };
  for (const std::string& line : expectedLines) {
    EXPECT_NE(run.out.find("\n" + line + "\n"), std::string::npos) << "missing line: " << line << "\n" << run.out;
  }
  // The clip plays to its end, then the controller rewinds it and pauses, keeping the track. The
  // sink depends on the machine (the null sink where there is no sound device).
  const auto played = run.out.find("\n  playing: ");
  const auto ended = run.out.find("\n  ended: isPlaying false, paused at 0.0 s of 1.5 s, currentTrack \"tra.demo\"\n");
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
