#pragma once

/// APPLOGIC_EXPORT marks what the library offers to the programs that link it. The library is
/// built with hidden visibility: a symbol that its public headers do not declare is not part of
/// its binary interface. A program that links the static archive defines APPLOGIC_STATIC_DEFINE
/// (the CMake package and applogic.pc do it for it); on Linux the marker is the same either way.
#if defined(_WIN32) && !defined(APPLOGIC_STATIC_DEFINE)
#if defined(APPLOGIC_BUILDING)
#define APPLOGIC_EXPORT __declspec(dllexport)
#else
#define APPLOGIC_EXPORT __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define APPLOGIC_EXPORT __attribute__((visibility("default")))
#else
#define APPLOGIC_EXPORT
#endif
