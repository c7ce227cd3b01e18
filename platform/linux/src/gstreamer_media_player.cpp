#include "applogic/platform/gstreamer_media_player.h"

#include <gst/gst.h>

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace applogic::platform {
namespace {

bool gstreamerAvailable() {
  static const bool available = gst_init_check(nullptr, nullptr, nullptr) &&
                                gst_registry_check_feature_version(gst_registry_get(), "playbin", 1, 0, 0);
  return available;
}

// A new floating sink element, or null when the description names none.
GstElement* makeAudioSink(const std::string& description) {
  if (description.empty()) return gst_element_factory_make("autoaudiosink", nullptr);
  GError* error = nullptr;
  GstElement* sink = gst_parse_bin_from_description(description.c_str(), TRUE, &error);
  if (error != nullptr) {
    g_error_free(error);
    if (sink != nullptr) gst_object_unref(sink);
    return nullptr;
  }
  return sink;
}

// playbin's GstPlayFlags: sound only (no video or subtitle branches). Not its software volume:
// nothing sets a volume, and with it playsink (GStreamer 1.22) keeps one volume element per load.
constexpr int kPlayFlagAudio = 1 << 1;

class GStreamerItem final : public MediaPlayerItem {
 public:
  explicit GStreamerItem(Url url) : url_(std::move(url)) {}
  const Url& url() const override { return url_; }

 private:
  Url url_;
};

class GStreamerPlayer;

enum class Report { end, failure, bufferingStarted, bufferingDone };

// What the bus handler needs, on GStreamer's threads, without touching the player itself: a
// strong reference taken there could be the last one and destroy the player on a streaming
// thread, which would then wait for itself.
struct BusContext {
  std::weak_ptr<GStreamerPlayer> player;
  std::shared_ptr<MainThread> mainThread;
  std::shared_ptr<const std::atomic<std::uint64_t>> generation;
};

// What the sink pad's probe needs, on the streaming thread: the item generation of the player
// (counting `replaceCurrentItem`s, not reloads) and the last generation whose first buffer was
// reported.
struct FirstBufferContext {
  std::function<void()> hook;
  std::shared_ptr<const std::atomic<std::uint64_t>> generation;
  std::atomic<std::uint64_t> reported{~std::uint64_t{0}};
};

class GStreamerPlayer final : public MediaPlayer, public std::enable_shared_from_this<GStreamerPlayer> {
 public:
  GStreamerPlayer(GstElement* playbin, std::shared_ptr<MainThread> mainThread,
                  std::shared_ptr<NotificationCenter> notificationCenter)
      : playbin_(playbin), mainThread_(std::move(mainThread)), notificationCenter_(std::move(notificationCenter)) {}

  // Before the first item: the probe sees every buffer that reaches `sink`.
  void reportFirstBuffers(GstElement* sink, std::function<void()> hook) {
    GstPad* pad = gst_element_get_static_pad(sink, "sink");
    if (pad == nullptr) return;
    auto* context = new FirstBufferContext{std::move(hook), itemGeneration_};
    gst_pad_add_probe(
        pad, static_cast<GstPadProbeType>(GST_PAD_PROBE_TYPE_BUFFER | GST_PAD_PROBE_TYPE_BUFFER_LIST),
        [](GstPad*, GstPadProbeInfo*, gpointer data) {
          auto* self = static_cast<FirstBufferContext*>(data);
          const std::uint64_t generation = self->generation->load();
          if (self->reported.exchange(generation) != generation) self->hook();
          return GST_PAD_PROBE_OK;
        },
        context, [](gpointer data) { delete static_cast<FirstBufferContext*>(data); });
    gst_object_unref(pad);
  }

  ~GStreamerPlayer() override {
    gst_element_set_state(playbin_, GST_STATE_NULL);
    GstBus* bus = gst_element_get_bus(playbin_);
    gst_bus_set_sync_handler(bus, nullptr, nullptr, nullptr);
    gst_object_unref(bus);
    gst_object_unref(playbin_);
  }

  void listen() {
    GstBus* bus = gst_element_get_bus(playbin_);
    auto* context = new BusContext{weak_from_this(), mainThread_, generation_};
    gst_bus_set_sync_handler(bus, &GStreamerPlayer::onBusMessage, context,
                             [](gpointer data) { delete static_cast<BusContext*>(data); });
    gst_object_unref(bus);
  }

  void replaceCurrentItem(std::shared_ptr<MediaPlayerItem> item) override {
    // After the NULL state returns no streaming thread of the old item runs; reports it made
    // before carry the old generation and are dropped on the main thread.
    gst_element_set_state(playbin_, GST_STATE_NULL);
    generation_->fetch_add(1);
    itemGeneration_->fetch_add(1);
    const bool playing = [&] {
      std::lock_guard lock(mutex_);
      item_ = item;
      buffering_ = false;
      ended_ = false;
      duration_.reset();
      loaded_ = item != nullptr;
      return rate_ > 0.0f;
    }();
    if (!item) return;
    g_object_set(playbin_, "uri", item->url().string().c_str(), nullptr);
    gst_element_set_state(playbin_, playing ? GST_STATE_PLAYING : GST_STATE_PAUSED);
  }

  std::shared_ptr<MediaPlayerItem> currentItem() const override {
    std::lock_guard lock(mutex_);
    return item_;
  }

  // After a failure only `play` opens the address again (from its start): the app asked for it.
  void play() override {
    std::unique_lock lock(mutex_);
    const bool hasItem = item_ != nullptr;
    const bool held = buffering_ && waits_;
    if (hasItem) loaded_ = true;
    ended_ = false;
    lock.unlock();
    if (hasItem && !held) gst_element_set_state(playbin_, GST_STATE_PLAYING);
    changeRate(1.0f);
  }

  // Pausing an item that is not loaded would preroll it, that is open it again; after a failure
  // that would fail again, and the failure handler that pauses would loop.
  void pause() override {
    if (isLoaded()) gst_element_set_state(playbin_, GST_STATE_PAUSED);
    changeRate(0.0f);
  }

  float rate() const override {
    std::lock_guard lock(mutex_);
    return rate_;
  }

  std::unique_ptr<MediaPlayerRateObservation> observeRate(std::function<void(float rate)> handler) override {
    auto observer = std::make_shared<std::function<void(float)>>(std::move(handler));
    float now = 0.0f;
    {
      std::lock_guard lock(mutex_);
      observers_.push_back(observer);
      now = rate_;
    }
    if (*observer) (*observer)(now);
    return std::make_unique<Observation>(weak_from_this(), observer);
  }

  // An item that is not loaded starts from its beginning when `play` loads it again. So does an
  // item rewound after its end: a stream whose server cannot seek (no Range requests) fails the
  // seek, while loading it again works everywhere and costs the same one request.
  void seek(std::chrono::nanoseconds time) override {
    std::unique_lock lock(mutex_);
    if (!item_ || !loaded_) return;
    const bool rewindAfterTheEnd = ended_ && time.count() == 0;
    lock.unlock();
    if (rewindAfterTheEnd) return unload();
    gst_element_seek_simple(playbin_, GST_FORMAT_TIME,
                            static_cast<GstSeekFlags>(GST_SEEK_FLAG_FLUSH | GST_SEEK_FLAG_ACCURATE),
                            static_cast<gint64>(time.count()));
  }

  std::chrono::nanoseconds currentTime() const override {
    gint64 position = 0;
    if (!currentItem() || !gst_element_query_position(playbin_, GST_FORMAT_TIME, &position) || position < 0) {
      return std::chrono::nanoseconds(0);
    }
    return std::chrono::nanoseconds(position);
  }

  // Kept while the item is dropped (after its end or a failure): the pipeline then knows nothing.
  std::optional<std::chrono::nanoseconds> duration() const override {
    gint64 length = 0;
    if (!isLoaded() || !gst_element_query_duration(playbin_, GST_FORMAT_TIME, &length) || length < 0) {
      std::lock_guard lock(mutex_);
      return item_ ? duration_ : std::nullopt;
    }
    std::lock_guard lock(mutex_);
    duration_ = std::chrono::nanoseconds(length);
    return duration_;
  }

  void setAutomaticallyWaitsToMinimizeStalling(bool waits) override {
    std::lock_guard lock(mutex_);
    waits_ = waits;
  }

 private:
  using Observer = std::shared_ptr<std::function<void(float)>>;

  class Observation final : public MediaPlayerRateObservation {
   public:
    Observation(std::weak_ptr<GStreamerPlayer> player, Observer observer)
        : player_(std::move(player)), observer_(std::move(observer)) {}
    ~Observation() override {
      if (auto player = player_.lock()) {
        std::lock_guard lock(player->mutex_);
        std::erase(player->observers_, observer_);
      }
    }

   private:
    std::weak_ptr<GStreamerPlayer> player_;
    Observer observer_;
  };

  // A sync handler that drops a message owns it: the message holds its source, and with it the
  // pipeline, until it is released.
  static GstBusSyncReply onBusMessage(GstBus* /*bus*/, GstMessage* message, gpointer data) {
    hand(*static_cast<const BusContext*>(data), message);
    gst_message_unref(message);
    return GST_BUS_DROP;
  }

  // Hands what the player reacts to over to the main thread.
  static void hand(const BusContext& context, GstMessage* message) {
    Report report = Report::end;
    std::string reason;
    switch (GST_MESSAGE_TYPE(message)) {
      case GST_MESSAGE_EOS:
        report = Report::end;
        break;
      case GST_MESSAGE_ERROR: {
        report = Report::failure;
        g_autoptr(GError) error = nullptr;  // never null in an error message
        gst_message_parse_error(message, &error, nullptr);
        reason = error->message;
        break;
      }
      case GST_MESSAGE_BUFFERING: {
        gint percent = 100;
        gst_message_parse_buffering(message, &percent);
        report = percent < 100 ? Report::bufferingStarted : Report::bufferingDone;
        break;
      }
      default:
        return;
    }
    const std::uint64_t generation = context.generation->load();
    context.mainThread->post([player = context.player, report, generation, reason = std::move(reason)] {
      if (auto self = player.lock()) self->handle(report, generation, reason);
    });
  }

  // On the main thread.
  void handle(Report report, std::uint64_t generation, const std::string& reason) {
    std::unique_lock state(mutex_);
    if (generation != generation_->load() || !item_) return;
    const std::shared_ptr<MediaPlayerItem> item = item_;
    const bool playing = rate_ > 0.0f;
    const bool waits = waits_;
    state.unlock();
    switch (report) {
      case Report::end:
        gst_element_set_state(playbin_, GST_STATE_PAUSED);
        {
          std::lock_guard lock(mutex_);
          ended_ = true;
        }
        changeRate(0.0f);
        notificationCenter_->post(Notification{std::string(kMediaPlayerItemDidPlayToEndTimeNotification), item.get(), {}});
        break;
      case Report::failure: {
        // The player drops what it loaded, so that a later play tries the address again from
        // the start. One failed load makes several elements post an error (the source, then the
        // demuxer that starved...): the new generation drops the others, so one failure posts
        // one notification.
        unload();
        changeRate(0.0f);
        Notification failed{std::string(kMediaPlayerItemFailedToPlayToEndTimeNotification), item.get(), {}};
        failed.userInfo.emplace(std::string(kGStreamerErrorReasonKey), reason);
        notificationCenter_->post(failed);
        break;
      }
      case Report::bufferingStarted:
        if (!waits || (playing && stillPrerolling())) break;
        {
          std::lock_guard lock(mutex_);
          buffering_ = true;
        }
        if (playing) gst_element_set_state(playbin_, GST_STATE_PAUSED);
        break;
      case Report::bufferingDone: {
        bool wasBuffering = false;
        {
          std::lock_guard lock(mutex_);
          wasBuffering = std::exchange(buffering_, false);
        }
        if (wasBuffering && playing) gst_element_set_state(playbin_, GST_STATE_PLAYING);
        break;
      }
    }
  }

  // Whether the pipeline is still on its way to the state last asked for. A pause asked for then,
  // on the way to PLAYING, turns into a second preroll that a clip already queued whole never
  // completes: the pipeline would wait in PAUSED for good, deaf to the later PLAYING. So while it
  // prerolls a play goes on; should the data stall once it plays, the queue reports buffering
  // again and the pause comes then.
  bool stillPrerolling() const {
    return gst_element_get_state(playbin_, nullptr, nullptr, 0) == GST_STATE_CHANGE_ASYNC;
  }

  // Drops the pipeline's stream; reports it made before carry the old generation and are dropped.
  // (`ended_` may stay: it is read only while loaded, and whatever loads again clears it.)
  void unload() {
    static_cast<void>(duration());
    gst_element_set_state(playbin_, GST_STATE_NULL);
    generation_->fetch_add(1);
    std::lock_guard lock(mutex_);
    loaded_ = false;
    buffering_ = false;
  }

  bool isLoaded() const {
    std::lock_guard lock(mutex_);
    return item_ != nullptr && loaded_;
  }

  void changeRate(float rate) {
    std::vector<Observer> observers;
    {
      std::lock_guard lock(mutex_);
      if (rate_ == rate) return;
      rate_ = rate;
      observers = observers_;
    }
    for (const auto& observer : observers) {
      if (*observer) (*observer)(rate);
    }
  }

  GstElement* const playbin_;
  const std::shared_ptr<MainThread> mainThread_;
  const std::shared_ptr<NotificationCenter> notificationCenter_;
  const std::shared_ptr<std::atomic<std::uint64_t>> generation_ = std::make_shared<std::atomic<std::uint64_t>>(0);
  const std::shared_ptr<std::atomic<std::uint64_t>> itemGeneration_ = std::make_shared<std::atomic<std::uint64_t>>(0);
  mutable std::mutex mutex_;
  std::shared_ptr<MediaPlayerItem> item_;
  float rate_ = 0.0f;
  bool waits_ = true;
  bool buffering_ = false;
  // Whether the pipeline holds the current item (not dropped after a failure or a rewind at the end).
  bool loaded_ = false;
  bool ended_ = false;
  mutable std::optional<std::chrono::nanoseconds> duration_;
  std::vector<Observer> observers_;
};

// playbin makes its source element per item; an http(s) source that can be told which CAs to
// trust (souphttpsrc's "ssl-ca-file") is told as it is made. The path lives as long as playbin.
void trustCaFile(GstElement* playbin, const std::string& path) {
  g_signal_connect_data(
      playbin, "source-setup",
      G_CALLBACK(+[](GstElement* /*playbin*/, GstElement* source, gpointer data) {
        if (g_object_class_find_property(G_OBJECT_GET_CLASS(source), "ssl-ca-file") != nullptr) {
          g_object_set(source, "ssl-ca-file", static_cast<const char*>(data), nullptr);
        }
      }),
      g_strdup(path.c_str()), +[](gpointer data, GClosure* /*closure*/) { g_free(data); }, GConnectFlags{});
}

class GStreamerFactory final : public MediaPlayerFactory {
 public:
  GStreamerFactory(std::shared_ptr<MainThread> mainThread, std::shared_ptr<NotificationCenter> notificationCenter,
                   GStreamerMediaOptions options)
      : mainThread_(std::move(mainThread)),
        notificationCenter_(std::move(notificationCenter)),
        options_(std::move(options)) {}

  std::shared_ptr<MediaPlayer> makePlayer() override {
    GstElement* playbin = gst_element_factory_make("playbin", nullptr);
    GstElement* sink = makeAudioSink(options_.audioSink);
    if (playbin == nullptr || sink == nullptr) {
      if (playbin != nullptr) gst_object_unref(playbin);
      if (sink != nullptr) gst_object_unref(sink);
      return nullptr;
    }
    g_object_set(playbin, "audio-sink", sink, "flags", kPlayFlagAudio, nullptr);
    auto player = std::make_shared<GStreamerPlayer>(playbin, mainThread_, notificationCenter_);
    // playbin took the floating reference; the sink lives as long as the player.
    if (options_.onFirstBuffer) player->reportFirstBuffers(sink, options_.onFirstBuffer);
    if (options_.caFile) trustCaFile(playbin, options_.caFile->string());
    player->listen();
    return player;
  }

  std::shared_ptr<MediaPlayerItem> makeItem(const Url& url) override { return std::make_shared<GStreamerItem>(url); }

 private:
  std::shared_ptr<MainThread> mainThread_;
  std::shared_ptr<NotificationCenter> notificationCenter_;
  GStreamerMediaOptions options_;
};

}  // namespace

bool audioOutputDevicePresent() {
  if (!gstreamerAvailable()) return false;
  GstDeviceMonitor* monitor = gst_device_monitor_new();
  gst_device_monitor_add_filter(monitor, "Audio/Sink", nullptr);
  bool present = false;
  // Starting probes every provider once; the list is what they found.
  if (gst_device_monitor_start(monitor)) {
    GList* devices = gst_device_monitor_get_devices(monitor);
    present = devices != nullptr;
    g_list_free_full(devices, gst_object_unref);
    gst_device_monitor_stop(monitor);
  }
  gst_object_unref(monitor);
  return present;
}

std::shared_ptr<MediaPlayerFactory> makeGStreamerMediaPlayers(std::shared_ptr<MainThread> mainThread,
                                                              std::shared_ptr<NotificationCenter> notificationCenter,
                                                              GStreamerMediaOptions options) {
  if (!gstreamerAvailable()) return nullptr;
  GstElement* sink = makeAudioSink(options.audioSink);
  if (sink == nullptr) return nullptr;
  gst_object_unref(gst_object_ref_sink(sink));
  return std::make_shared<GStreamerFactory>(std::move(mainThread), std::move(notificationCenter), std::move(options));
}

}  // namespace applogic::platform
