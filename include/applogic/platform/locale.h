#pragma once

#include <memory>
#include <optional>
#include <string>

#include "applogic/export.h"

namespace applogic::platform {

/// The user's locale, as far as the library needs it.
///
/// Thread contract: implementations are safe to call from any thread, concurrently.
class APPLOGIC_EXPORT Locale {
 public:
  virtual ~Locale() = default;

  /// The locale's language code in lower case ("de"), or absent when the locale names no
  /// language (the portable "C"/"POSIX" locale, or none configured).
  virtual std::optional<std::string> languageCode() const = 0;
};

/// The locale of the system the library runs on, from the platform port chosen when the library
/// was built (on Linux: the POSIX locale variables, see "applogic/platform/posix_locale.h").
/// Made once, on first use, thread-safely; every call returns the same object.
APPLOGIC_EXPORT std::shared_ptr<const Locale> systemLocale();

}  // namespace applogic::platform
