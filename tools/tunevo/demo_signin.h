#pragma once

#include <iosfwd>

// The sign-in part of `tunevo demo`.
namespace tunevo {

/// Starts the local sign-in server in this process, issues an API key for the demo app with a key
/// pair made for the occasion, and runs the sign-in client on the Linux ports (libcurl over TLS,
/// the SQLite store in a temporary directory) with a scripted browser that signs in on the
/// server's page: it writes to `out` what `tunevo login` prints, then an access token (masked),
/// the profile, the sign-out, and the error a token request gets afterwards. Each step gives up
/// after 10 s. Returns false, after writing the reason to `err`, when a step failed or did not
/// answer in time.
bool showSignIn(std::ostream& out, std::ostream& err);

}  // namespace tunevo
