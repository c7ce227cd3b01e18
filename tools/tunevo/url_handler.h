#pragma once

// The desktop entry that makes the app's URL scheme (`amzn-<bundle id>`, where the sign-in page
// sends its answer) run `tunevo handle-url %u`.

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tunevo {

/// The app's URL scheme for `bundleId`: "amzn-" followed by it. Absent when the result is not a
/// valid URL scheme (a letter, then letters, digits, "+", "-" or "."), which would also break
/// the desktop entry.
std::optional<std::string> appUrlScheme(std::string_view bundleId);

/// The desktop entry's file name: "tunevo-<scheme>.desktop".
std::string urlHandlerDesktopFileName(std::string_view scheme);

/// The text of the desktop entry that hands `scheme`'s URLs to `tunevoPath handle-url %u`.
/// The path is quoted as desktop entries require, so any path works.
std::string urlHandlerDesktopEntry(std::string_view scheme, const std::filesystem::path& tunevoPath);

/// `$XDG_DATA_HOME/applications` (`$HOME/.local/share/applications` when XDG_DATA_HOME is unset
/// or not absolute); absent when neither gives an absolute path.
std::optional<std::filesystem::path> desktopApplicationsDirectory();

/// `tunevo url-handler install|remove [--manifest FILE | --bundle-id ID]`. `install` writes the
/// desktop entry into `desktopApplicationsDirectory()` and makes it the scheme's default handler
/// with `xdg-mime default` when xdg-mime is installed; `remove` deletes the entry and takes it
/// out of the `mimeapps.list` of `$XDG_CONFIG_HOME` (`~/.config`), saying when neither was
/// there. Exit 0 done (nothing to remove included), 64 usage, 65 the manifest holds no usable
/// bundle identifier, 66 the manifest cannot be read, 73 the entry or the list cannot be
/// written or removed. `--help` anywhere prints the usage.
/// argv[0] is "url-handler".
int runUrlHandler(int argc, char** argv);

}  // namespace tunevo
