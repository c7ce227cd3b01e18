#pragma once

// Exit statuses of tunevo, shared by its commands. Usage and input errors follow sysexits.h.
namespace tunevo {

inline constexpr int kExitOk = 0;
inline constexpr int kExitNotJson = 2;
inline constexpr int kExitUsage = 64;    // EX_USAGE
inline constexpr int kExitDataError = 65;  // EX_DATAERR
inline constexpr int kExitNoInput = 66;  // EX_NOINPUT
inline constexpr int kExitUnavailable = 69;  // EX_UNAVAILABLE
inline constexpr int kExitCantCreate = 73;   // EX_CANTCREAT

}  // namespace tunevo
