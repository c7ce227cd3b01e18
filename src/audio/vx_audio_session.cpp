#include "applogic/audio/vx_audio_session.h"

#include <algorithm>
#include <array>
#include <mutex>
#include <utility>

#include "applogic/support/fatal.h"

namespace applogic {
namespace {

struct SharedState {
  std::mutex mutex;
  std::shared_ptr<platform::AudioSessionBackend> backend;
  std::shared_ptr<platform::NotificationCenter> notificationCenter;
  std::shared_ptr<VXAudioSession> session;
};

SharedState& shared() {
  static SharedState state;
  return state;
}

// The reasons the platform assigns; anything else (5 among them) reads as "unknown", 0.
constexpr std::array<int, 7> kRouteChangeReasons{1, 2, 3, 4, 6, 7, 8};

int routeChangeReason(int platformReason) {
  return std::ranges::find(kRouteChangeReasons, platformReason) != kRouteChangeReasons.end() ? platformReason : 0;
}

std::optional<std::string> firstOutputName(const platform::AudioSessionRouteDescription& route) {
  if (route.outputs.empty()) return std::nullopt;
  return route.outputs.front().portType;
}

// A missing or mistyped number reads as 0, as a missing platform number does.
int intValue(const platform::Notification& notification, std::string_view key) {
  const int* value = platform::userInfoValue<int>(notification, key);
  return value != nullptr ? *value : 0;
}

template <class Token>
void eraseToken(std::vector<Token>& tokens, const Token& token) {
  const auto found = std::find(tokens.begin(), tokens.end(), token);
  if (found != tokens.end()) tokens.erase(found);
}

}  // namespace

VXAudioSession::VXAudioSession(std::shared_ptr<platform::AudioSessionBackend> session,
                               std::shared_ptr<platform::NotificationCenter> notificationCenter)
    : session_(std::move(session)), notificationCenter_(std::move(notificationCenter)) {}

VXAudioSession::~VXAudioSession() {
  notificationCenter_->removeObserver(routeListener_);
  notificationCenter_->removeObserver(interruptListener_);
}

void VXAudioSession::installPlatform(const platform::Platform& platform) {
  auto& state = shared();
  std::lock_guard lock(state.mutex);
  state.backend = platform.audioSessionBackend;
  state.notificationCenter = platform.notificationCenter;
}

std::shared_ptr<VXAudioSession> VXAudioSession::sharedSession() {
  auto& state = shared();
  std::lock_guard lock(state.mutex);
  if (!state.session) {
    if (!state.backend || !state.notificationCenter) {
      fatalError("VXAudioSession.sharedSession needs a platform with an audio session backend and a "
                 "notification center (VXAudioSession::installPlatform)");
    }
    state.session = std::make_shared<VXAudioSession>(state.backend, state.notificationCenter);
  }
  return state.session;
}

void VXAudioSession::resetSharedSession() {
  std::shared_ptr<VXAudioSession> previous;
  auto& state = shared();
  {
    std::lock_guard lock(state.mutex);
    previous = std::exchange(state.session, nullptr);
    state.backend.reset();
    state.notificationCenter.reset();
  }
  // Released outside the lock: its destructor talks to the notification center.
}

void VXAudioSession::sharedDoInterrupt(VXAudioSessionInterruptState state, bool canResume) {
  sharedSession()->doInterrupt(state, canResume);
}

std::optional<std::string> VXAudioSession::sharedGetAudioProperty(int property) {
  return sharedSession()->getAudioProperty(property);
}

std::string VXAudioSession::category() const { return session_->category(); }

bool VXAudioSession::setActive(bool active, Error* error) {
  if (!isApplicationInBackground_) {
    fatalError("VXAudioSession.isApplicationInBackground must be set before setActive");
  }
  if (isApplicationInBackground_()) return true;
  // Read and written separately, not as one atomic step: callers serialise activation.
  const std::int32_t count = activeCount_.load();
  if (active) {
    activeCount_.store(count + 1);
    if (count != 0) return true;
    if (intSetActive(true, error)) return true;
    activeCount_.store(0);
    return false;
  }
  activeCount_.store(count - 1);
  if (count - 1 != 0) return true;
  if (intSetActive(false, error)) return true;
  activeCount_.store(1);
  return false;
}

bool VXAudioSession::intSetActive(bool active, Error* error) {
  Error platformError;
  const bool done = session_->setActive(active, &platformError);
  // The platform's own error is not passed on: callers see one fixed error with status 0.
  if (!done && error != nullptr) {
    *error = Error{std::string(VXAudioSessionErrorDomain), 0, {{std::string(VXAudioSessionOSStatusKey), std::int64_t{0}}}};
  }
  return done;
}

bool VXAudioSession::setCategory(std::string_view category, Error* error) {
  return session_->setCategory(category, error);
}

bool VXAudioSession::setMediaPlayback(bool mediaPlayback, bool mixWithOthers, Error* error) {
  // The bitwise AND of the two flags is the option word: mixing needs both, and playback alone
  // chooses nothing beyond the category that is set anyway.
  const platform::AudioSessionCategoryOptions options =
      (mediaPlayback && mixWithOthers) ? platform::kAudioSessionCategoryOptionMixWithOthers : 0;
  return session_->setCategory(platform::kAudioSessionCategoryPlayback, options, error);
}

void VXAudioSession::requestRecordPermission(std::function<void(bool granted)> response) {
  session_->requestRecordPermission(std::move(response));
}

VXAudioSession::RouteWatcherToken VXAudioSession::doWhenRouteChanges(RouteWatcher watcher, Error* /*error*/) {
  auto token = std::make_shared<const RouteWatcher>(std::move(watcher));
  routeWatchers_.push_back(token);
  if (routeWatchers_.size() == 1) setUpRouteChangeListener();
  return token;
}

void VXAudioSession::stopWhenRouteChanges(const RouteWatcherToken& token) {
  if (!token) return;
  const auto before = routeWatchers_.size();
  eraseToken(routeWatchers_, token);
  if (before != 0 && routeWatchers_.empty()) tearDownRouteChangeListener();
}

VXAudioSession::InterruptWatcherToken VXAudioSession::doWhenInterrupted(InterruptWatcher watcher, Error* /*error*/) {
  auto token = std::make_shared<const InterruptWatcher>(std::move(watcher));
  interruptWatchers_.push_back(token);
  if (interruptWatchers_.size() == 1) setUpInterruptListener();
  return token;
}

void VXAudioSession::stopWhenInterrupted(const InterruptWatcherToken& token) {
  if (!token) return;
  const auto before = interruptWatchers_.size();
  eraseToken(interruptWatchers_, token);
  if (before != 0 && interruptWatchers_.empty()) tearDownInterruptListener();
}

// The listeners capture `this`: the destructor removes them from the center first. Registering
// with the center cannot fail.
void VXAudioSession::setUpRouteChangeListener() {
  routeListener_ = notificationCenter_->addObserver(
      std::string(platform::kAudioSessionRouteChangeNotification), nullptr,
      [this](const platform::Notification& notification) { routeChanged(notification); });
}

void VXAudioSession::tearDownRouteChangeListener() {
  notificationCenter_->removeObserver(std::exchange(routeListener_, nullptr));
}

void VXAudioSession::setUpInterruptListener() {
  interruptListener_ = notificationCenter_->addObserver(
      std::string(platform::kAudioSessionInterruptionNotification), nullptr,
      [this](const platform::Notification& notification) { interruptChanged(notification); });
}

void VXAudioSession::tearDownInterruptListener() {
  notificationCenter_->removeObserver(std::exchange(interruptListener_, nullptr));
}

void VXAudioSession::routeChanged(const platform::Notification& notification) {
  const int reason = routeChangeReason(intValue(notification, platform::kAudioSessionRouteChangeReasonKey));
  const auto* previous = platform::userInfoValue<platform::AudioSessionRouteDescription>(
      notification, platform::kAudioSessionRouteChangePreviousRouteKey);
  const auto fromRoute = previous != nullptr ? firstOutputName(*previous) : std::nullopt;
  // No "Speaker" stands in for a route without outputs here, unlike getAudioProperty.
  const auto toRoute = firstOutputName(session_->currentRoute());
  sendRouteChangeMessage(reason, fromRoute, toRoute);
}

void VXAudioSession::interruptChanged(const platform::Notification& notification) {
  switch (intValue(notification, platform::kAudioSessionInterruptionTypeKey)) {
    case 1:
      sendInterruptMessage(VXAudioSessionInterruptStateInterrupted, false);
      break;
    case 0:
      sendInterruptMessage(VXAudioSessionInterruptStateEnded,
                           intValue(notification, platform::kAudioSessionInterruptionOptionKey) == 1);
      break;
    default:
      sendInterruptMessage(VXAudioSessionInterruptStateNone, false);
      break;
  }
}

void VXAudioSession::doInterrupt(VXAudioSessionInterruptState state, bool canResume) {
  sendInterruptMessage(state, canResume);
}

void VXAudioSession::sendRouteChangeMessage(int reason, const std::optional<std::string>& fromRoute,
                                            const std::optional<std::string>& toRoute) {
  // A copy, so that a watcher may register or remove watchers while being called.
  const auto watchers = routeWatchers_;
  for (const auto& watcher : watchers) (*watcher)(reason, fromRoute, toRoute);
}

void VXAudioSession::sendInterruptMessage(VXAudioSessionInterruptState state, bool shouldResumeOnEnd) {
  interruptState_ = state;
  const auto watchers = interruptWatchers_;
  for (const auto& watcher : watchers) (*watcher)(state, shouldResumeOnEnd);
}

std::optional<std::string> VXAudioSession::getAudioProperty(int property) const {
  if (property != 1) return std::nullopt;
  return firstOutputName(session_->currentRoute()).value_or("Speaker");
}

rx::Observable<bool> VXAudioSession::owningAudioSession() {
  std::weak_ptr<VXAudioSession> weakSelf = weak_from_this();
  if (weakSelf.expired()) fatalError("VXAudioSession.owningAudioSession needs a session owned by a std::shared_ptr");
  return rx::create<bool>([weakSelf](rx::AnyObserver<bool> observer) {
    auto self = weakSelf.lock();
    if (!self) {
      observer.onCompleted();
      return rx::Disposable::empty();
    }
    observer.onNext(self->interruptState() != VXAudioSessionInterruptStateInterrupted);
    // The property is read, not the watcher's argument, so that a state set by another watcher
    // called earlier is what reaches the subscriber.
    auto token = self->doWhenInterrupted(
        [weakSelf, observer](VXAudioSessionInterruptState, bool) {
          if (auto session = weakSelf.lock()) {
            observer.onNext(session->interruptState() != VXAudioSessionInterruptStateInterrupted);
          }
        },
        nullptr);
    return rx::Disposable::create([weakSelf, token] {
      if (auto session = weakSelf.lock()) session->stopWhenInterrupted(token);
    });
  });
}

}  // namespace applogic
