#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "applogic/export.h"
#include "applogic/platform/audio_session_backend.h"
#include "applogic/platform/bundle_info.h"
#include "applogic/platform/clock.h"
#include "applogic/platform/crypto.h"
#include "applogic/platform/device_info.h"
#include "applogic/platform/http_client.h"
#include "applogic/platform/locale.h"
#include "applogic/platform/main_thread.h"
#include "applogic/platform/media_player.h"
#include "applogic/platform/notification_center.h"
#include "applogic/platform/secure_store.h"
#include "applogic/platform/sign_in_presenter.h"

namespace applogic::platform {

/// The platform services the library runs on, gathered in one place. A host builds it once
/// (`makeLinuxPlatform()` on Linux) and hands it, or the members a class needs, to the library;
/// tests build their own from the doubles of `applogic_testing`. Each member documents its own
/// thread contract. A copy shares the same services.
struct APPLOGIC_EXPORT Platform {
  std::shared_ptr<const Clock> clock;
  std::shared_ptr<const Locale> locale;
  std::shared_ptr<const SecureRandom> secureRandom;
  std::shared_ptr<const Crypto> crypto;
  /// Where the sign-in client keeps its tokens; null means no storage (the client reports code 5).
  std::shared_ptr<SecureStore> secureStore;
  std::shared_ptr<MainThread> mainThread;
  /// The center the audio session backend and the media players post to.
  std::shared_ptr<NotificationCenter> notificationCenter;
  std::shared_ptr<AudioSessionBackend> audioSessionBackend;
  /// Absent when the platform cannot play media (on Linux: GStreamer's playbin is missing).
  std::shared_ptr<MediaPlayerFactory> mediaPlayers;
  /// The app's bundle information (bundle identifier, API key, URL schemes).
  std::shared_ptr<const BundleInfo> bundleInfo;
  /// Delivers its handlers through `mainThread`.
  std::shared_ptr<HttpClient> httpClient;
  std::shared_ptr<const DeviceInfo> deviceInfo;
  /// Shows the sign-in page (browser, other apps, in-app browser, web view); main thread.
  std::shared_ptr<SignInPresenter> signInPresenter;
};

/// Where the Linux platform's secure store keeps the sign-in client's items.
enum class SecureStoreBackend {
  sqlite,   ///< a SQLite file of our own (`LinuxPlatformOptions::secureStorePath`)
  keyring,  ///< the desktop keyring (the Secret Service, through libsecret)
};

/// Options of the Linux ports; every member has a working default.
struct APPLOGIC_EXPORT LinuxPlatformOptions {
  /// The host's choice of secure store. It is never changed behind the host's back: when the
  /// keyring is chosen and cannot be reached, the store's calls answer `kNotAvailable` (and try
  /// again on the next call) rather than writing to the SQLite file, so tokens are never split
  /// over two stores.
  SecureStoreBackend secureStoreBackend = SecureStoreBackend::sqlite;
  /// The SQLite file of the secure store; by default `$XDG_DATA_HOME/tunevo/secure-store.sqlite3`
  /// (`~/.local/share` when XDG_DATA_HOME is unset or not absolute). Unused by the keyring.
  std::optional<std::filesystem::path> secureStorePath;
  /// Where the media players send their sound, as a GStreamer pipeline description; empty: the
  /// system's default output. "fakesink sync=true" plays in real time without a sound device.
  std::string audioSink;
  /// The app manifest that holds the bundle information; by default `app-manifest.json` in the
  /// directory of the running executable (where a bundle keeps its information).
  std::optional<std::filesystem::path> appManifestPath;
  /// PEM certificates the HTTP client trusts besides the system's CAs (a loopback server's CA).
  /// The media players trust them in place of the system's for https items.
  std::optional<std::filesystem::path> httpCaFile;
  /// The program that opens the sign-in page, started with the page's address as its one
  /// argument (a name without "/" is looked up in PATH); by default `xdg-open`.
  std::optional<std::filesystem::path> browserCommand;
};

/// The real Linux ports, configured by `options`. The only function that names the Linux types. `mainThread` is a `RunLoop` ("applogic/platform/run_loop.h") whose main
/// thread is the calling thread; the host runs it there, and gets it typed from
/// `makeLinuxPlatformWithRunLoop` ("applogic/platform/linux_platform.h").
APPLOGIC_EXPORT Platform makeLinuxPlatform(const LinuxPlatformOptions& options = {});

}  // namespace applogic::platform
