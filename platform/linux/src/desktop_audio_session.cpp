#include "applogic/platform/desktop_audio_session.h"

#include <pulse/context.h>
#include <pulse/introspect.h>
#include <pulse/proplist.h>
#include <pulse/subscribe.h>
#include <pulse/thread-mainloop.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <future>
#include <list>
#include <string_view>
#include <utility>

namespace applogic::platform {
namespace {

constexpr std::string_view kSpeaker = "Speaker";
constexpr auto kFirstAnswerPatience = std::chrono::seconds(1);

static_assert(static_cast<int>(SoundServerPortType::hdmi) == PA_DEVICE_PORT_TYPE_HDMI);
static_assert(static_cast<int>(SoundServerPortType::analog) == PA_DEVICE_PORT_TYPE_ANALOG);

template <class Key>
struct Row {
  Key key;
  std::string_view portType;
};

constexpr std::array<Row<SoundServerPortType>, 20> kByKind{{
    {SoundServerPortType::speaker, "Speaker"},
    {SoundServerPortType::headphones, "Headphones"},
    {SoundServerPortType::headset, "Headphones"},
    {SoundServerPortType::handset, "Receiver"},
    {SoundServerPortType::earpiece, "Receiver"},
    {SoundServerPortType::phone, "Receiver"},
    {SoundServerPortType::line, "LineOut"},
    {SoundServerPortType::aux, "LineOut"},
    {SoundServerPortType::analog, "LineOut"},
    {SoundServerPortType::spdif, "LineOut"},
    {SoundServerPortType::hifi, "LineOut"},
    {SoundServerPortType::hdmi, "HDMI"},
    {SoundServerPortType::tv, "HDMI"},
    {SoundServerPortType::video, "HDMI"},
    {SoundServerPortType::car, "CarAudio"},
    {SoundServerPortType::network, "AirPlay"},
    {SoundServerPortType::usb, "USBAudio"},
    {SoundServerPortType::bluetooth, "BluetoothA2DPOutput"},
    {SoundServerPortType::handsfree, "BluetoothHFP"},
    {SoundServerPortType::portable, "Speaker"},
}};

constexpr std::array<Row<std::string_view>, 8> kByFormFactor{{
    {"internal", "Speaker"},
    {"speaker", "Speaker"},
    {"headphone", "Headphones"},
    {"headset", "Headphones"},
    {"handset", "Receiver"},
    {"tv", "HDMI"},
    {"car", "CarAudio"},
    {"hifi", "LineOut"},
}};

// Matched in this order, so "hdmi-output-0" is HDMI and "analog-output-speaker" a speaker.
constexpr std::array<Row<std::string_view>, 6> kByPortNameWord{{
    {"headphone", "Headphones"},
    {"hdmi", "HDMI"},
    {"lineout", "LineOut"},
    {"iec958", "LineOut"},
    {"spdif", "LineOut"},
    {"speaker", "Speaker"},
}};

// Profiles and port kinds of Bluetooth's hands-free and headset links (PulseAudio and PipeWire
// spell them differently).
constexpr std::array<std::string_view, 6> kHandsFreeWords{"head_unit", "head-unit", "handsfree", "hfp", "hsp",
                                                          "headset"};

bool contains(std::string_view text, std::string_view word) { return text.find(word) != std::string_view::npos; }

bool isBluetooth(const SoundServerOutput& output) {
  return output.bus == "bluetooth" || output.portType == SoundServerPortType::bluetooth ||
         output.portType == SoundServerPortType::handsfree || output.sink.starts_with("bluez");
}

bool isHandsFree(const SoundServerOutput& output) {
  if (output.portType == SoundServerPortType::handsfree || output.portType == SoundServerPortType::headset) return true;
  return std::any_of(kHandsFreeWords.begin(), kHandsFreeWords.end(), [&](std::string_view word) {
    return contains(output.profile, word) || contains(output.port, word);
  });
}

bool sameRoute(const std::optional<SoundServerOutput>& a, const std::optional<SoundServerOutput>& b) {
  if (!a || !b) return a.has_value() == b.has_value();
  return a->sink == b->sink && a->port == b->port;
}

bool canPlay(const SoundServerState& state, const std::optional<SoundServerOutput>& output) {
  if (!output) return false;
  return std::find(state.playable.begin(), state.playable.end(), std::pair(output->sink, output->port)) !=
         state.playable.end();
}

std::string property(const pa_proplist* properties, const char* key) {
  const char* value = properties == nullptr ? nullptr : pa_proplist_gets(properties, key);
  return value == nullptr ? std::string() : std::string(value);
}

}  // namespace

std::string routePortType(const SoundServerOutput& output) {
  if (isBluetooth(output)) return isHandsFree(output) ? "BluetoothHFP" : "BluetoothA2DPOutput";
  if (output.bus == "usb") return "USBAudio";
  for (const auto& row : kByKind) {
    if (row.key == output.portType) return std::string(row.portType);
  }
  for (const auto& row : kByFormFactor) {
    if (row.key == output.formFactor) return std::string(row.portType);
  }
  for (const auto& row : kByPortNameWord) {
    if (contains(output.port, row.key)) return std::string(row.portType);
  }
  return std::string(kSpeaker);
}

int routeChangeReason(const SoundServerState& before, const SoundServerState& after) {
  if (before.route && !canPlay(after, before.route)) return 2;
  if (after.route && !canPlay(before, after.route)) return 1;
  return 8;
}

// A connection to the sound server on libpulse's threaded main loop. Every callback runs on the
// loop's thread with the loop's lock held. The state is read again (server information, then
// every sink) after each change of a sink or of the server.
class DesktopAudioSession::SoundServer {
 public:
  using Listener = std::function<void(SoundServerState)>;

  // Null when no server answers within `patience`.
  static std::unique_ptr<SoundServer> connect(Listener listener, std::chrono::milliseconds patience) {
    std::unique_ptr<SoundServer> server(new SoundServer(std::move(listener)));
    return server->start(patience) ? std::move(server) : nullptr;
  }

  ~SoundServer() {
    // libpulse makes no loop when no file descriptor is left.
    if (loop_ == nullptr) return;
    // After stop the loop's thread has ended: no callback runs any more. (Stopping a loop that
    // never started does nothing.)
    pa_threaded_mainloop_stop(loop_);
    if (context_ != nullptr) {
      pa_context_disconnect(context_);
      pa_context_unref(context_);
    }
    pa_threaded_mainloop_free(loop_);
  }

 private:
  explicit SoundServer(Listener listener)
      : listener_(std::move(listener)), loop_(pa_threaded_mainloop_new()) {}

  bool start(std::chrono::milliseconds patience) {
    if (loop_ == nullptr) return false;
    context_ = pa_context_new(pa_threaded_mainloop_get_api(loop_), "applogic");
    if (context_ == nullptr) return false;
    pa_context_set_state_callback(context_, &SoundServer::onContextState, this);
    // No autospawn: a host that plays previews must not start a sound server of its own.
    if (pa_context_connect(context_, nullptr, PA_CONTEXT_NOAUTOSPAWN, nullptr) < 0) return false;
    if (pa_threaded_mainloop_start(loop_) < 0) return false;
    std::future<bool> answer = answered_.get_future();
    return answer.wait_for(patience) == std::future_status::ready && answer.get();
  }

  // The first outcome only: whether the server answered, or the connection failed first.
  void settle(bool answered) {
    if (!std::exchange(settled_, true)) answered_.set_value(answered);
  }

  static void onContextState(pa_context* context, void* data) {
    auto* self = static_cast<SoundServer*>(data);
    switch (pa_context_get_state(context)) {
      case PA_CONTEXT_READY:
        pa_context_set_subscribe_callback(context, &SoundServer::onEvent, self);
        if (pa_operation* subscribing = pa_context_subscribe(
                context, static_cast<pa_subscription_mask_t>(PA_SUBSCRIPTION_MASK_SINK | PA_SUBSCRIPTION_MASK_SERVER),
                nullptr, nullptr)) {
          pa_operation_unref(subscribing);
        }
        self->read();
        break;
      case PA_CONTEXT_FAILED:
      case PA_CONTEXT_TERMINATED:
        self->settle(false);
        break;
      default:
        break;
    }
  }

  static void onEvent(pa_context*, pa_subscription_event_type_t type, uint32_t, void* data) {
    const auto facility = type & PA_SUBSCRIPTION_EVENT_FACILITY_MASK;
    if (facility == PA_SUBSCRIPTION_EVENT_SINK || facility == PA_SUBSCRIPTION_EVENT_SERVER) {
      static_cast<SoundServer*>(data)->read();
    }
  }

  // Both requests go at once. The server answers a client's requests in the order they came, so
  // the answers of one reading all arrive before those of the next.
  void read() {
    for (pa_operation* reading : {pa_context_get_server_info(context_, &SoundServer::onServerInfo, this),
                                  pa_context_get_sink_info_list(context_, &SoundServer::onSink, this)}) {
      // Null only on a context that has failed for good: no answer or change follows.
      if (reading != nullptr) pa_operation_unref(reading);
    }
  }

  static void onServerInfo(pa_context*, const pa_server_info* info, void* data) {
    auto* self = static_cast<SoundServer*>(data);
    self->pending_ = SoundServerState{};
    self->defaultSink_ = info != nullptr && info->default_sink_name != nullptr ? info->default_sink_name : "";
  }

  // Every sink, then the end of the list (no sink, `last` 1) or a failure (`last` -1).
  static void onSink(pa_context*, const pa_sink_info* info, int last, void* data) {
    auto* self = static_cast<SoundServer*>(data);
    if (info != nullptr) return self->add(*info);
    // A failed reading delivers nothing; the next change reads again.
    if (last != 1) return;
    self->listener_(std::move(self->pending_));
    self->settle(true);
  }

  void add(const pa_sink_info& sink) {
    const std::string name = sink.name == nullptr ? "" : sink.name;
    // libpulse hands `n_ports` ports, none of them null.
    if (sink.n_ports == 0) pending_.playable.emplace_back(name, "");
    for (std::uint32_t i = 0; i < sink.n_ports; ++i) {
      const pa_sink_port_info& port = *sink.ports[i];
      if (port.available != PA_PORT_AVAILABLE_NO && port.name != nullptr) pending_.playable.emplace_back(name, port.name);
    }
    if (name != defaultSink_) return;
    SoundServerOutput output;
    output.sink = name;
    if (sink.active_port != nullptr) {
      if (sink.active_port->name != nullptr) output.port = sink.active_port->name;
      if (sink.active_port->type <= PA_DEVICE_PORT_TYPE_ANALOG) {
        output.portType = static_cast<SoundServerPortType>(sink.active_port->type);
      }
    }
    output.bus = property(sink.proplist, "device.bus");
    output.formFactor = property(sink.proplist, "device.form_factor");
    for (const char* key : {"bluetooth.protocol", "api.bluez5.profile", "device.profile.name"}) {
      output.profile = property(sink.proplist, key);
      if (!output.profile.empty()) break;
    }
    pending_.route = std::move(output);
  }

  const Listener listener_;
  pa_threaded_mainloop* const loop_;
  pa_context* context_ = nullptr;
  // On the loop's thread only.
  std::string defaultSink_;
  SoundServerState pending_;
  // The first outcome, waited for by `start`. (settle runs in `start`, before the loop's thread
  // starts, or on that thread.)
  bool settled_ = false;
  std::promise<bool> answered_;
};

DesktopAudioSession::DesktopAudioSession(std::shared_ptr<NotificationCenter> notificationCenter)
    : notificationCenter_(std::move(notificationCenter)) {}

DesktopAudioSession::DesktopAudioSession(std::shared_ptr<NotificationCenter> notificationCenter,
                                         std::shared_ptr<MainThread> mainThread)
    : notificationCenter_(std::move(notificationCenter)), mainThread_(std::move(mainThread)) {
  // `this` outlives the connection: soundServer_ is destroyed first, which ends the loop's thread.
  soundServer_ = SoundServer::connect([this](SoundServerState state) { serverStateChanged(std::move(state)); },
                                      kFirstAnswerPatience);
}

DesktopAudioSession::~DesktopAudioSession() = default;

void DesktopAudioSession::serverStateChanged(SoundServerState state) {
  AudioSessionRouteDescription previous;
  int reason = 0;
  {
    std::lock_guard lock(mutex_);
    // The first answer sets the route the session starts with; only later changes are news.
    // The state is kept from the moment the route was set, so that an output which arrived
    // since then counts as new when the route moves to it, even if other readings came between.
    if (server_ && sameRoute(server_->route, state.route)) return;
    const std::optional<SoundServerState> before = std::exchange(server_, state);
    previous = AudioSessionRouteDescription{{}, {AudioSessionPortDescription{portType_}}};
    portType_ = state.route ? routePortType(*state.route) : std::string(kSpeaker);
    if (!before) return;
    reason = routeChangeReason(*before, state);
  }
  if (!mainThread_) return;
  // The session is the notification's object by address only, so the task needs no reference to it.
  mainThread_->post([center = notificationCenter_, object = static_cast<const void*>(this), reason,
                     previous = std::move(previous)] {
    Notification notification{std::string(kAudioSessionRouteChangeNotification), object, {}};
    notification.userInfo.emplace(kAudioSessionRouteChangeReasonKey, reason);
    notification.userInfo.emplace(kAudioSessionRouteChangePreviousRouteKey, previous);
    center->post(notification);
  });
}

bool DesktopAudioSession::followsSoundServer() const { return soundServer_ != nullptr; }

bool DesktopAudioSession::setActive(bool /*active*/, Error* /*error*/) { return true; }

bool DesktopAudioSession::setCategory(std::string_view category, Error* error) {
  return setCategory(category, 0, error);
}

bool DesktopAudioSession::setCategory(std::string_view category, AudioSessionCategoryOptions /*options*/,
                                      Error* /*error*/) {
  std::lock_guard lock(mutex_);
  category_ = category;
  return true;
}

std::string DesktopAudioSession::category() const {
  std::lock_guard lock(mutex_);
  return category_;
}

AudioSessionRouteDescription DesktopAudioSession::currentRoute() const {
  std::lock_guard lock(mutex_);
  return AudioSessionRouteDescription{{}, {AudioSessionPortDescription{portType_}}};
}

void DesktopAudioSession::requestRecordPermission(std::function<void(bool granted)> response) {
  if (response) response(true);
}

}  // namespace applogic::platform
