#include "applogic/platform/posix_locale.h"

#include <cstdlib>
#include <string_view>

#include "applogic/support/strings.h"

namespace applogic::platform {

std::optional<std::string> languageCodeFromEnvironment(const EnvironmentLookup& lookup) {
  // The precedence glibc uses for LC_MESSAGES.
  for (const char* name : {"LC_ALL", "LC_MESSAGES", "LANG"}) {
    const char* value = lookup(name);
    if (value == nullptr || *value == '\0') continue;
    const std::string_view text(value);
    const std::string_view language = text.substr(0, text.find_first_of("_.@-"));
    if (language.empty() || language == "C" || language == "POSIX") return std::nullopt;
    return asciiLowercase(language);
  }
  return std::nullopt;
}

PosixLocale::PosixLocale() : PosixLocale([](const char* name) { return std::getenv(name); }) {}

PosixLocale::PosixLocale(const EnvironmentLookup& lookup) : languageCode_(languageCodeFromEnvironment(lookup)) {}

std::shared_ptr<const Locale> systemLocale() {
  static const std::shared_ptr<const Locale> locale = std::make_shared<const PosixLocale>();
  return locale;
}

}  // namespace applogic::platform
