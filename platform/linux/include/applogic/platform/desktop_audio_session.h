#pragma once

#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "applogic/export.h"
#include "applogic/platform/audio_session_backend.h"
#include "applogic/platform/main_thread.h"
#include "applogic/platform/notification_center.h"

namespace applogic::platform {

/// The kinds of port a sound server names for an output, numbered as the PulseAudio protocol
/// numbers them (PipeWire's server speaks it too).
enum class SoundServerPortType : int {
  unknown = 0, aux = 1, speaker = 2, headphones = 3, line = 4, mic = 5, headset = 6, handset = 7,
  earpiece = 8, spdif = 9, hdmi = 10, tv = 11, radio = 12, video = 13, usb = 14, bluetooth = 15,
  portable = 16, handsfree = 17, car = 18, hifi = 19, phone = 20, network = 21, analog = 22,
};

/// One output of the sound server: a sink and, when the sink has ports, one of its ports, with
/// what the server says about its kind.
struct APPLOGIC_EXPORT SoundServerOutput {
  std::string sink;    ///< the sink's name ("alsa_output.pci-0000_00_1f.3.analog-stereo")
  std::string port;    ///< the port's name ("analog-output-headphones"); empty for a sink without ports
  SoundServerPortType portType = SoundServerPortType::unknown;
  std::string bus;         ///< the sink's "device.bus" ("pci", "usb", "bluetooth"), or empty
  std::string formFactor;  ///< the sink's "device.form_factor" ("internal", "headphone", "tv"...), or empty
  std::string profile;     ///< the Bluetooth profile ("a2dp_sink", "headset_head_unit"...), or empty

  friend bool operator==(const SoundServerOutput&, const SoundServerOutput&) = default;
};

/// What the route needs of the sound server's state at one moment.
struct APPLOGIC_EXPORT SoundServerState {
  /// The default sink with its active port; absent when the server has no default sink.
  std::optional<SoundServerOutput> route;
  /// (sink, port) of every output that can play now: every port of every sink whose
  /// availability is not "unplugged" (a sink without ports counts with port "").
  std::vector<std::pair<std::string, std::string>> playable;
};

/// The `portType` that the audio session reports for `output`, first match wins:
/// - on the Bluetooth bus (or of the Bluetooth kind, or a "bluez" sink): "BluetoothHFP" for a
///   hands-free or headset profile or port, else "BluetoothA2DPOutput";
/// - on the USB bus, or of the USB kind: "USBAudio";
/// - by the port's kind: speaker "Speaker"; headphones, headset "Headphones"; handset, earpiece,
///   phone "Receiver"; line, aux, analog, S/PDIF, hi-fi "LineOut"; HDMI, TV, video "HDMI";
///   car "CarAudio"; network (AirPlay, tunnels) "AirPlay";
/// - by the form factor: internal, speaker "Speaker"; headphone, headset "Headphones"; handset
///   "Receiver"; tv "HDMI"; car "CarAudio"; hifi "LineOut";
/// - by words in the port's name: "headphone" "Headphones", "hdmi" "HDMI", "lineout", "iec958",
///   "spdif" "LineOut", "speaker" "Speaker";
/// - otherwise "Speaker" (a null sink, an unknown analog output).
/// Pure; any thread.
APPLOGIC_EXPORT std::string routePortType(const SoundServerOutput& output);

/// The route-change reason for a change of route from `before` (the state when the route was
/// last set) to `after` (the routes differ): 2 (old device unavailable) when the old route can no
/// longer play, else 1 (new device available) when the new route could not play in `before`
/// (it arrived since), else 8 (route configuration change: the user or the server chose another
/// output that was already there). Pure; any thread.
APPLOGIC_EXPORT int routeChangeReason(const SoundServerState& before, const SoundServerState& after);

/// The Linux `AudioSessionBackend`. A desktop has no session to claim: activation and category
/// changes always succeed (the category is remembered), recording needs no permission (the
/// answer is "granted", inside the call).
///
/// The route has one output. Made with a main thread, the session asks the sound server for its
/// default output (PulseAudio's protocol, which PipeWire's server speaks too) and maps it with
/// `routePortType`; it waits at most a second for the first answer. While no server answers
/// (none runs, as on build machines) the route is "Speaker" and nothing is posted; no server is
/// started. Afterwards, when the server's default output changes, the session updates the route
/// and posts `kAudioSessionRouteChangeNotification` (reason from `routeChangeReason`, the
/// previous route) with itself as object, on `mainThread`. If the server goes away, the last
/// route stands. Made without a main thread, it never asks a server: the route is "Speaker".
///
/// Thread contract: any thread, concurrently. Notifications arrive on the main thread.
class APPLOGIC_EXPORT DesktopAudioSession final : public AudioSessionBackend {
 public:
  /// Routes to "Speaker" without asking any server.
  explicit DesktopAudioSession(std::shared_ptr<NotificationCenter> notificationCenter);
  /// Follows the sound server's default output, posting route changes on `mainThread`.
  DesktopAudioSession(std::shared_ptr<NotificationCenter> notificationCenter, std::shared_ptr<MainThread> mainThread);
  ~DesktopAudioSession() override;
  DesktopAudioSession(const DesktopAudioSession&) = delete;
  DesktopAudioSession& operator=(const DesktopAudioSession&) = delete;

  bool setActive(bool active, Error* error) override;
  bool setCategory(std::string_view category, Error* error) override;
  bool setCategory(std::string_view category, AudioSessionCategoryOptions options, Error* error) override;
  std::string category() const override;
  AudioSessionRouteDescription currentRoute() const override;
  void requestRecordPermission(std::function<void(bool granted)> response) override;

  /// Whether a sound server answered (the route then comes from it).
  bool followsSoundServer() const;

 private:
  class SoundServer;
  void serverStateChanged(SoundServerState state);

  std::shared_ptr<NotificationCenter> notificationCenter_;
  std::shared_ptr<MainThread> mainThread_;
  mutable std::mutex mutex_;
  std::string category_{kAudioSessionCategorySoloAmbient};
  std::optional<SoundServerState> server_;
  std::string portType_{"Speaker"};
  // Declared last: destroyed first, so no answer of the server arrives into a half-destroyed session.
  std::unique_ptr<SoundServer> soundServer_;
};

}  // namespace applogic::platform
