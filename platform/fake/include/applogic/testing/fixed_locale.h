#pragma once

#include <optional>
#include <string>
#include <utility>

#include "applogic/platform/locale.h"

namespace applogic::testing {

/// A `Locale` with a language code fixed at construction (absent: a locale without language).
/// Immutable; any thread.
class FixedLocale final : public platform::Locale {
 public:
  explicit FixedLocale(std::optional<std::string> languageCode) : languageCode_(std::move(languageCode)) {}
  std::optional<std::string> languageCode() const override { return languageCode_; }

 private:
  std::optional<std::string> languageCode_;
};

}  // namespace applogic::testing
