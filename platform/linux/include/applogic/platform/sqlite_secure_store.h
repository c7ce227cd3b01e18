#pragma once

#include <filesystem>
#include <functional>
#include <memory>

#include "applogic/export.h"
#include "applogic/platform/secure_store.h"

namespace applogic::platform {

/// `$XDG_DATA_HOME/tunevo/secure-store.sqlite3`, or `$HOME/.local/share/tunevo/...` when
/// XDG_DATA_HOME is unset, empty or not absolute; empty when neither gives an absolute path.
/// `getenv` defaults to the process environment.
APPLOGIC_EXPORT std::filesystem::path defaultSecureStorePath(const std::function<const char*(const char*)>& getenv = {});

/// The default `SecureStore` of Linux: one SQLite file at `path`.
///
/// The file (and its directory) is created on first use, with mode 0600; it runs in WAL mode
/// with `secure_delete` on, so deleted secrets are overwritten. Every call is one transaction,
/// and writers of several processes wait for each other (busy timeout) instead of failing.
/// While the file cannot be opened every call returns `kNotAvailable` and the next call tries
/// again; a file that is not a store gives `kDecode`. A write that cannot land (a read-only file
/// or directory, a full disk or a file-size limit) returns `kNotAvailable`; one that another
/// connection keeps locked past the busy timeout (a few seconds) returns `kInteractionNotAllowed`,
/// while reads still answer. Either way the call changes nothing, and the store works again once
/// the cause is gone.
///
/// Thread contract: safe from any thread; calls are serialised on one connection.
APPLOGIC_EXPORT std::shared_ptr<SecureStore> makeSqliteSecureStore(std::filesystem::path path);

}  // namespace applogic::platform
