#pragma once

// Exit statuses of tunevo, shared by its commands. Usage and input errors follow sysexits.h.
namespace tunevo {

inline constexpr int kExitOk = 0;
inline constexpr int kExitSignInError = 1;  // the sign-in client answered with an error
inline constexpr int kExitNotJson = 2;
inline constexpr int kExitUsage = 64;    // EX_USAGE
inline constexpr int kExitDataError = 65;  // EX_DATAERR
inline constexpr int kExitNoInput = 66;  // EX_NOINPUT
inline constexpr int kExitUnavailable = 69;  // EX_UNAVAILABLE
inline constexpr int kExitSoftware = 70;     // EX_SOFTWARE: a fault of tunevo itself
inline constexpr int kExitCantCreate = 73;   // EX_CANTCREAT
inline constexpr int kExitTimedOut = 75;     // EX_TEMPFAIL: no answer in time
inline constexpr int kExitInterrupted = 130;  // ended by Ctrl-C, as shells report SIGINT

}  // namespace tunevo
