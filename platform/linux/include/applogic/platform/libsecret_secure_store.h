#pragma once

#include <memory>
#include <string>

#include "applogic/export.h"
#include "applogic/platform/secure_store.h"

namespace applogic::platform {

/// The name under which the host app's items live in the desktop keyring.
inline constexpr const char* kDefaultKeyringStoreName = "tunevo";

/// A `SecureStore` over the desktop keyring (the freedesktop Secret Service, through libsecret),
/// for hosts that choose it.
///
/// Every item is a secret of the schema "app.tunevo.SecureItem" in the keyring's default
/// collection, with the attributes "store" (`storeName`: stores of different names never see
/// each other's items), "class", "service", "accessible" (absent when the item has none) and
/// "order" (a number that keeps the order of insertion for "first match"); the data is the
/// secret, of content type "application/octet-stream".
///
/// The keyring is reached on first use, not when the store is made. While no Secret Service
/// can be reached (no session bus, no keyring daemon) every call returns `kNotAvailable` and
/// the next call tries again; the store never falls back to another storage. Other statuses:
/// a keyring that stays locked (the unlock prompt could not be shown or was refused)
/// `kInteractionNotAllowed`; a cancelled prompt or denied access `kAuthFailed`; a malformed
/// answer from the daemon `kDecode`; out of memory `kAllocate`.
///
/// Each call of the daemon is atomic and the daemon serialises its clients, but `add` is a
/// search followed by a creation and `update` may be several calls: two processes adding the
/// same service at the same moment can both succeed, after which reads see the first added.
///
/// Thread contract: safe from any thread; calls of one store are serialised. No GLib main loop
/// needs to run: each call waits on a private main context of its own.
APPLOGIC_EXPORT std::shared_ptr<SecureStore> makeLibsecretSecureStore(std::string storeName = kDefaultKeyringStoreName);

}  // namespace applogic::platform
