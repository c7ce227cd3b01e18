#include <httplib.h>

#include "platform/raw_clip_server.h"
#include "platform/wav_clip.h"
#include "tools/tunevo_process.h"

namespace tunevo::test {
namespace {

TEST(TunevoPlay, PlaysAClipToItsEndWithoutASoundDevice) {
  const std::string clip = applogic::test::writeClip("play clip.wav", 0.3);
  const Outcome run = runTunevo("play --sink 'fakesink sync=true' '" + clip + "'");
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("0:00 / 0:00  "), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\nplayed to the end\n"), std::string::npos) << run.out;
}

// The rewind after the end must not ask such a server for a range it cannot serve.
TEST(TunevoPlay, PlaysToTheEndFromAServerWithoutRanges) {
  std::ifstream in(applogic::test::writeClip("play_plain.wav", 0.3), std::ios::binary);
  applogic::test::RawClipServer server(std::string(std::istreambuf_iterator<char>(in), {}), applogic::test::RawClipServer::whole);
  const Outcome run = runTunevo("play --sink 'fakesink sync=true' " + server.url());
  EXPECT_EQ(run.status, 0) << run.err;
  EXPECT_NE(run.out.find("\nplayed to the end\n"), std::string::npos) << run.out;
  EXPECT_EQ(run.err.find("Failed"), std::string::npos) << run.err;
}

// Each failure ends in one line, with GStreamer's reason.
TEST(TunevoPlay, UnplayableAddressesAndBadUsageAreErrors) {
  httplib::Server notFound;
  const int port = notFound.bind_to_any_port("127.0.0.1");
  std::thread serving([&] { notFound.listen_after_bind(); });
  while (!notFound.is_running()) std::this_thread::yield();
  const std::string text = ::testing::TempDir() + "play_text.txt";
  std::ofstream(text) << "this is text, not sound\n";
  for (const std::string& url : {std::string("file:///nonexistent/clip.wav"),
                                 "http://127.0.0.1:" + std::to_string(port) + "/missing.wav",
                                 std::string("http://127.0.0.1:1/clip.wav"), "file://" + text}) {
    SCOPED_TRACE(url);
    const Outcome run = runTunevo("play --sink 'fakesink sync=true' " + url);
    EXPECT_EQ(run.status, 69);
    const std::string cannot = "tunevo play: cannot play " + url + ": ";
    // That line, with a reason after it, and no other.
    EXPECT_EQ(run.err.rfind(cannot, 0), 0u) << run.err;
    EXPECT_NE(run.err.rfind(cannot + "\n", 0), 0u) << "no reason: " << run.err;
    EXPECT_EQ(run.err.find("tunevo play: cannot play", 1), std::string::npos) << run.err;
    EXPECT_EQ(run.err.find("Failed to play to the end"), std::string::npos) << run.err;
  }
  notFound.stop();
  serving.join();
  // Usage errors, and a sink that does not exist.
  EXPECT_EQ(runTunevo("play").status, 64);
  EXPECT_EQ(runTunevo("play a b").status, 64);
  EXPECT_EQ(runTunevo("play 'http://bad host/x'").status, 64);
  EXPECT_EQ(runTunevo("play --sink no-such-element x.wav").status, 69);
}

}  // namespace
}  // namespace tunevo::test
