#include "applogic/platform/desktop_audio_session.h"

#include <dlfcn.h>
#include <fcntl.h>
#include <glib.h>
#include <gtest/gtest.h>
#include <pulse/introspect.h>
#include <stdio.h>
#include <stdlib.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "applogic/platform/gstreamer_media_player.h"
#include "applogic/platform/run_loop.h"
#include "run_until_quit.h"

// The ports of a sound card, which the test server's null sinks lack: while `cardPorts` holds
// some, every sink the session reads has them (the first one active). The test program wraps
// libpulse's reading of the sinks by defining it: the library's calls reach this one first.
namespace {
std::mutex cardLock;
std::vector<pa_sink_port_info> cardPorts;  // under cardLock
pa_sink_info_cb_t sessionOnSink = nullptr;  // on the loop's thread

void withCardPorts(pa_context* context, const pa_sink_info* info, int last, void* session) {
  std::lock_guard lock(cardLock);
  if (info == nullptr || cardPorts.empty()) return sessionOnSink(context, info, last, session);
  std::vector<pa_sink_port_info*> ports;
  for (pa_sink_port_info& port : cardPorts) ports.push_back(&port);
  pa_sink_info card = *info;
  card.n_ports = static_cast<std::uint32_t>(ports.size());
  card.active_port = ports.front();
  ports.push_back(nullptr);  // as libpulse ends the array
  card.ports = ports.data();
  sessionOnSink(context, &card, last, session);
}
}  // namespace

extern "C" pa_operation* pa_context_get_sink_info_list(pa_context* context, pa_sink_info_cb_t callback, void* data) {
  static const auto real =
      reinterpret_cast<decltype(&pa_context_get_sink_info_list)>(::dlsym(RTLD_NEXT, "pa_context_get_sink_info_list"));
  sessionOnSink = callback;
  return real(context, &withCardPorts, data);
}

namespace applogic {
namespace {

using platform::SoundServerOutput;
using platform::SoundServerPortType;
using platform::SoundServerState;
using Kind = SoundServerPortType;

// Without a sound server (its address points at a socket that does not exist, whatever runs on
// this machine) the session says so quietly, routes to the speaker, grants everything and posts
// nothing. (Each test runs in a process of its own: the variable is not put back.)
TEST(DesktopAudioSession, WithoutASoundServerRoutesToTheSpeakerQuietlyAndPostsNothing) {
  ::setenv("PULSE_SERVER", ("unix:" + ::testing::TempDir() + "no-sound-server").c_str(), 1);
  auto loop = std::make_shared<platform::RunLoop>();
  auto center = platform::makeNotificationCenter();
  int posted = 0;
  auto token = center->addObserver(std::nullopt, nullptr, [&](const platform::Notification&) { ++posted; });
  ::testing::internal::CaptureStderr();
  {
    platform::DesktopAudioSession session(center, loop);
    EXPECT_FALSE(session.followsSoundServer());
    EXPECT_EQ(session.category(), platform::kAudioSessionCategorySoloAmbient);
    EXPECT_TRUE(session.setActive(true, nullptr));
    EXPECT_TRUE(session.setCategory(platform::kAudioSessionCategoryPlayback,
                                    platform::kAudioSessionCategoryOptionMixWithOthers, nullptr));
    EXPECT_EQ(session.category(), platform::kAudioSessionCategoryPlayback);
    EXPECT_TRUE(session.setActive(false, nullptr));
    EXPECT_EQ(session.currentRoute().outputs, (std::vector<platform::AudioSessionPortDescription>{{"Speaker"}}));
    std::optional<bool> granted;
    session.requestRecordPermission([&](bool answer) { granted = answer; });
    EXPECT_EQ(granted, true);
  }
  EXPECT_EQ(::testing::internal::GetCapturedStderr(), "");
  loop->runUntilIdle();
  EXPECT_EQ(posted, 0);
  center->removeObserver(token);
}

// With no file descriptor left, libpulse makes no main loop: the session follows no server and
// routes to the speaker, and the process goes on.
TEST(DesktopAudioSession, WithoutAFreeFileDescriptorFollowsNoServer) {
  ::setenv("PULSE_SERVER", ("unix:" + ::testing::TempDir() + "no-sound-server").c_str(), 1);
  auto loop = std::make_shared<platform::RunLoop>();
  auto center = platform::makeNotificationCenter();
  // Once beforehand: UBSan checks a type the first time with a pipe, which it could not make below.
  platform::DesktopAudioSession(center, loop).followsSoundServer();
  rlimit limit{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &limit), 0);
  const rlimit lowered{std::min<rlim_t>(limit.rlim_cur, 256), limit.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &lowered), 0);
  std::vector<int> taken;
  for (int fd; (fd = ::open("/dev/null", O_RDONLY)) >= 0;) taken.push_back(fd);
  std::optional<platform::DesktopAudioSession> session(std::in_place, center, loop);
  const bool follows = session->followsSoundServer();
  const std::string route = session->currentRoute().outputs.at(0).portType;
  session.reset();
  for (int fd : taken) ::close(fd);
  ::setrlimit(RLIMIT_NOFILE, &limit);
  EXPECT_FALSE(follows);
  EXPECT_EQ(route, "Speaker");
}

// pactl's output (trailing newline dropped), or nothing when it fails.
std::optional<std::string> pactl(const std::string& arguments) {
  FILE* pipe = ::popen(("pactl " + arguments + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return std::nullopt;
  std::string out;
  char chunk[256];
  while (::fgets(chunk, sizeof chunk, pipe) != nullptr) out += chunk;
  if (::pclose(pipe) != 0) return std::nullopt;
  while (!out.empty() && out.back() == '\n') out.pop_back();
  return out;
}

// On the throw-away server of scripts/with-test-pulse (a null sink "applogic_test_speaker"):
// the speaker's card ports change, with only the sink's own events; then a Bluetooth headset sink
// arrives and the default output moves to it, back, to it again; the headset goes, and at last
// every output. Each move is one notification with the reason and the route before it. The
// session leaves no file descriptor behind; GStreamer sees the server's sink as an audio output.
TEST(DesktopAudioSessionOnATestServer, FollowsTheDefaultOutputAndSaysWhyItMoved) {
  if (const char* test = std::getenv("APPLOGIC_TEST_PULSE"); test == nullptr || std::string(test) != "1") {
    GTEST_SKIP() << "runs inside scripts/with-test-pulse (ctest: platform.AudioSessionOnATestPulseServer)";
  }
  ASSERT_TRUE(pactl("set-default-sink applogic_test_speaker"));
// Not under ASan (GStreamer's PulseAudio plugin leaks, in libpulse's frames alone) nor TSan (this
// test runs there without the GStreamer options).
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  g_log_set_always_fatal(static_cast<GLogLevelFlags>(G_LOG_FATAL_MASK | G_LOG_LEVEL_CRITICAL));  // a misuse
  EXPECT_TRUE(platform::audioOutputDevicePresent());
#endif
  const auto openFiles = [] { return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {}); };
  auto loop = std::make_shared<platform::RunLoop>();
  const auto filesBefore = openFiles();  // the loop's own descriptor stays with it
  auto center = platform::makeNotificationCenter();
  std::optional<platform::DesktopAudioSession> optionalSession(std::in_place, center, loop);
  platform::DesktopAudioSession& session = *optionalSession;
  ASSERT_TRUE(session.followsSoundServer());
  const auto route = [&] { return session.currentRoute().outputs.at(0).portType; };
  EXPECT_EQ(route(), "Speaker");

  // "reason: previous route -> route now"
  std::vector<std::string> changes;
  auto token = center->addObserver(std::string(platform::kAudioSessionRouteChangeNotification), &session,
                                   [&](const platform::Notification& notification) {
                                     const int* reason =
                                         platform::userInfoValue<int>(notification, platform::kAudioSessionRouteChangeReasonKey);
                                     const auto* previous = platform::userInfoValue<platform::AudioSessionRouteDescription>(
                                         notification, platform::kAudioSessionRouteChangePreviousRouteKey);
                                     changes.push_back(std::to_string(reason ? *reason : -1) + ": " +
                                                       (previous ? previous->outputs.at(0).portType : "?") + " -> " +
                                                       route());
                                     loop->quit();
                                   });
  const auto moveTo = [&](const std::string& command) {
    ASSERT_TRUE(pactl(command)) << command;
    ASSERT_TRUE(test::runUntilQuit(*loop)) << "no route change after " << command;
  };
  const auto cardChanges = [&](std::vector<pa_sink_port_info> ports) {
    {
      std::lock_guard lock(cardLock);
      cardPorts = std::move(ports);
    }
    moveTo("set-sink-mute applogic_test_speaker toggle");  // a change of the sink alone
  };
  // name, description, priority, availability, availability group, kind
  const pa_sink_port_info speaker{"analog-output-speaker", "", 0, PA_PORT_AVAILABLE_YES, "", PA_DEVICE_PORT_TYPE_SPEAKER};
  const pa_sink_port_info headphones{"analog-output-headphones", "", 0, PA_PORT_AVAILABLE_YES, "", PA_DEVICE_PORT_TYPE_HEADPHONES};
  const pa_sink_port_info noHeadphones{"analog-output-headphones", "", 0, PA_PORT_AVAILABLE_NO, "", PA_DEVICE_PORT_TYPE_HEADPHONES};
  cardChanges({speaker, noHeadphones});
  cardChanges({headphones, speaker});  // plugged in
  cardChanges({speaker, noHeadphones});  // pulled out
  cardChanges({{"analog-output", "", 0, PA_PORT_AVAILABLE_UNKNOWN, "", PA_DEVICE_PORT_TYPE_ANALOG}, speaker});
  cardChanges({});
  const auto headset = pactl(
      "load-module module-null-sink sink_name=applogic_test_headset "
      "'sink_properties=\"device.bus=bluetooth device.profile.name=headset_head_unit\"'");
  ASSERT_TRUE(headset);
  moveTo("set-default-sink applogic_test_headset");   // arrived since the route was set: new device
  moveTo("set-default-sink applogic_test_speaker");   // both were there: the choice changed
  moveTo("set-default-sink applogic_test_headset");
  moveTo("unload-module " + *headset);                // the headset goes: old device unavailable
  moveTo("unload-module module-null-sink");           // no output at all
  center->removeObserver(token);
  EXPECT_EQ(changes, (std::vector<std::string>{"2: Speaker -> Speaker", "1: Speaker -> Headphones",
                                               "2: Headphones -> Speaker", "1: Speaker -> LineOut", "2: LineOut -> Speaker",
                                               "1: Speaker -> BluetoothHFP", "8: BluetoothHFP -> Speaker",
                                               "8: Speaker -> BluetoothHFP", "2: BluetoothHFP -> Speaker",
                                               "2: Speaker -> Speaker"}));
  optionalSession.reset();
  EXPECT_EQ(openFiles(), filesBefore);
}

SoundServerOutput output(std::string sink, std::string port, Kind kind = Kind::unknown, std::string bus = "",
                         std::string formFactor = "", std::string profile = "") {
  return SoundServerOutput{std::move(sink), std::move(port), kind, std::move(bus), std::move(formFactor),
                           std::move(profile)};
}

TEST(RoutePortType, MapsTheServersOutputToThePortTypeOfTheRoute) {
  struct Row {
    const char* name;
    SoundServerOutput output;
    const char* portType;
  };
  const Row rows[] = {
      // The bus decides first: a Bluetooth or USB device is that whatever its port says.
      {"Bluetooth A2DP (PulseAudio)", output("bluez_sink.00_11.a2dp_sink", "headphone-output", Kind::headphones, "bluetooth", "headphone", "a2dp_sink"), "BluetoothA2DPOutput"},
      {"Bluetooth HFP by profile", output("bluez_output.00_11.1", "", Kind::unknown, "bluetooth", "", "headset-head-unit"), "BluetoothHFP"},
      {"Bluetooth HFP by port kind", output("bluez_sink.00_11.handsfree_head_unit", "handsfree-output", Kind::handsfree), "BluetoothHFP"},
      {"a bluez sink without properties", output("bluez_sink.00_11", ""), "BluetoothA2DPOutput"},
      {"USB headset", output("alsa_output.usb-Logi.analog-stereo", "analog-output-headphones", Kind::headphones, "usb"), "USBAudio"},
      // Then the port's kind.
      {"network", output("raop_output.living-room", "", Kind::network), "AirPlay"},
      // Then the form factor, then words of the port's name (servers before kinds, PipeWire's ALSA sinks).
      {"form factor headset", output("x", "", Kind::unknown, "", "headset"), "Headphones"},
      {"port name headphones", output("x", "analog-output-headphones"), "Headphones"},
      // Nothing known: a null sink.
      {"null sink", output("auto_null", ""), "Speaker"},
  };
  for (const Row& row : rows) {
    EXPECT_EQ(platform::routePortType(row.output), row.portType) << row.name;
  }
}

}  // namespace
}  // namespace applogic
