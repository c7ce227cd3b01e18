#include "applogic/platform/linux_platform.h"

#include <utility>

#include "applogic/platform/app_manifest_bundle_info.h"
#include "applogic/platform/browser_sign_in_presenter.h"
#include "applogic/platform/libsecret_secure_store.h"
#include "applogic/platform/openssl_crypto.h"
#include "applogic/platform/sqlite_secure_store.h"

#include "applogic/platform/curl_http_client.h"
#include "applogic/platform/desktop_audio_session.h"
#include "applogic/platform/gstreamer_media_player.h"
#include "applogic/platform/linux_device_info.h"
#include "applogic/platform/run_loop.h"

namespace applogic::platform {
namespace {

class SystemClock final : public Clock {
 public:
  TimePoint now() const override { return std::chrono::system_clock::now(); }
};

}  // namespace

Platform makeLinuxPlatform(const LinuxPlatformOptions& options) { return makeLinuxPlatformWithRunLoop(options).platform; }

LinuxPlatform makeLinuxPlatformWithRunLoop(const LinuxPlatformOptions& options) {
  auto runLoop = std::make_shared<RunLoop>();
  Platform platform;
  platform.clock = std::make_shared<SystemClock>();
  platform.locale = systemLocale();
  platform.secureRandom = makeOpenSslSecureRandom();
  platform.crypto = makeOpenSslCrypto();
  platform.secureStore = options.secureStoreBackend == SecureStoreBackend::keyring
                             ? makeLibsecretSecureStore()
                             : makeSqliteSecureStore(options.secureStorePath.value_or(defaultSecureStorePath()));
  platform.mainThread = runLoop;
  platform.notificationCenter = makeNotificationCenter();
  platform.audioSessionBackend = std::make_shared<DesktopAudioSession>(platform.notificationCenter, runLoop);
  platform.mediaPlayers = makeGStreamerMediaPlayers(platform.mainThread, platform.notificationCenter,
                                                    GStreamerMediaOptions{options.audioSink, {}, options.httpCaFile});
  platform.bundleInfo = makeAppManifestBundleInfo(options.appManifestPath.value_or(defaultAppManifestPath()));
  platform.httpClient = makeCurlHttpClient(runLoop, CurlHttpOptions{options.httpCaFile});
  platform.deviceInfo = std::make_shared<LinuxDeviceInfo>();
  platform.signInPresenter = makeBrowserSignInPresenter(options.browserCommand);
  return LinuxPlatform{std::move(platform), std::move(runLoop)};
}

}  // namespace applogic::platform
