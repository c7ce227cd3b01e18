#pragma once

#include <filesystem>
#include <memory>

#include "applogic/export.h"
#include "applogic/platform/bundle_info.h"

namespace applogic::platform {

/// `BundleInfo` read from an app manifest: a JSON object whose top-level members are the bundle
/// keys, for example
///
///     {"CFBundleIdentifier": "app.tunevo.desktop", "APIKey": "eyJ...",
///      "CFBundleURLTypes": [{"CFBundleURLSchemes": ["amzn-app.tunevo.desktop"]}]}
///
/// The file is read once, on the first question, not when the object is made, so hosts that
/// never ask create no I/O. A file that is missing, unreadable, not UTF-8 JSON or not an object
/// reads as a bundle without any key. Thread-safe.
APPLOGIC_EXPORT std::shared_ptr<const BundleInfo> makeAppManifestBundleInfo(std::filesystem::path path);

/// `app-manifest.json` in the directory of the running executable (`/proc/self/exe`); a bare
/// `app-manifest.json` (relative to the working directory) when that link cannot be read.
APPLOGIC_EXPORT std::filesystem::path defaultAppManifestPath();

}  // namespace applogic::platform
