#pragma once

#include <functional>
#include <optional>
#include <string>

#include "applogic/export.h"
#include "applogic/platform/locale.h"

namespace applogic::platform {

/// Reads one environment variable: its value, or null when it is not set (the shape of
/// `std::getenv`).
using EnvironmentLookup = std::function<const char*(const char* name)>;

/// The language that the POSIX locale variables name for messages: the first non-empty one of
/// LC_ALL, LC_MESSAGES and LANG, up to its first '_', '.', '@' or '-', in ASCII lower case
/// ("de_DE.UTF-8" → "de", "pt@euro" → "pt"). Absent when all three are unset or empty, or when the
/// chosen value names no language: "C", "POSIX", "C.UTF-8" and the like, or a value that starts
/// with a separator. A set but empty variable is skipped, as the C library does. Pure apart from
/// calling `lookup`; any thread.
APPLOGIC_EXPORT std::optional<std::string> languageCodeFromEnvironment(const EnvironmentLookup& lookup);

/// The Linux `Locale`: the language of the environment, read once when the object is made (a
/// later `setenv` does not change it).
///
/// Thread contract: immutable after construction; any thread.
class APPLOGIC_EXPORT PosixLocale final : public Locale {
 public:
  /// Reads the process environment.
  PosixLocale();
  /// Reads the variables through `lookup` (tests pass a fixed table).
  explicit PosixLocale(const EnvironmentLookup& lookup);

  std::optional<std::string> languageCode() const override { return languageCode_; }

 private:
  std::optional<std::string> languageCode_;
};

}  // namespace applogic::platform
