#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <string>

#include "applogic/platform/main_thread.h"
#include "applogic/platform/sign_in_presenter.h"

// The browser of `tunevo demo`'s sign-in: it plays the user on the local sign-in server's page.
namespace tunevo {

/// A `SignInPresenter` whose `openURL` loads the sign-in page at `url` from the local sign-in
/// server (trusting the CA in `caFile`), submits its form with `email` and `password`, and posts
/// the address the server redirects to (the app's `amzn-...` scheme) to `onRedirect` on
/// `mainThread`, as the desktop hands it to the app. `openURL` returns false, and nothing is
/// posted, when the page is not the server's or does not redirect; each request gives up after
/// 5 s. Nothing else is offered (no other apps, no in-app browser, no web view). Main thread.
std::shared_ptr<applogic::platform::SignInPresenter> makeDemoBrowser(
    std::string serverBaseUrl, std::filesystem::path caFile, std::string email, std::string password,
    std::shared_ptr<applogic::platform::MainThread> mainThread, std::function<void(const std::string&)> onRedirect);

}  // namespace tunevo
