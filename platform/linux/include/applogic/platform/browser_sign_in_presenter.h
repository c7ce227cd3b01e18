#pragma once

#include <filesystem>
#include <memory>
#include <optional>

#include "applogic/export.h"
#include "applogic/platform/sign_in_presenter.h"

namespace applogic::platform {

/// The Linux `SignInPresenter`: the sign-in page opens in the desktop's browser. `browserCommand`
/// (by default `xdg-open`) is started with the address as its one argument, without a shell; a
/// name without "/" is looked up in PATH. `openURL` returns false when the command cannot be
/// started or the address is empty or begins with "-" (it would read as an option); the command
/// runs on without being waited for, and its exit status is not reported (a browser that starts
/// reports its own problems to the user). Other apps' schemes, an in-app browser and a web view
/// are not offered: `canOpenAppURL`, `inAppBrowserAvailable` and `webViewAvailable` answer false,
/// and the presenting calls return false. Main thread, like every `SignInPresenter`.
APPLOGIC_EXPORT std::shared_ptr<SignInPresenter> makeBrowserSignInPresenter(
    std::optional<std::filesystem::path> browserCommand = std::nullopt);

}  // namespace applogic::platform
