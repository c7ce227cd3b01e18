#include "applogic/platform/posix_locale.h"

#include <gtest/gtest.h>

#include <map>
#include <optional>
#include <string>

namespace applogic::platform {
namespace {

using Environment = std::map<std::string, std::string>;

EnvironmentLookup lookupIn(const Environment& environment) {
  return [&environment](const char* name) -> const char* {
    const auto found = environment.find(name);
    return found == environment.end() ? nullptr : found->second.c_str();
  };
}

struct LocaleRow {
  Environment environment;
  std::optional<std::string> language;
};

TEST(PosixLocale, LanguageOfTheFirstNonEmptyVariable) {
  const LocaleRow rows[] = {
      {{{"LANG", "de_DE.UTF-8"}}, "de"},
      {{{"LANG", "pt_BR"}}, "pt"},
      {{{"LANG", "ca@valencia"}}, "ca"},
      {{{"LANG", "sr.UTF-8@latin"}}, "sr"},
      {{{"LANG", "en-US"}}, "en"},
      {{{"LANG", "FR_fr"}}, "fr"},
      {{{"LANG", "tlh"}}, "tlh"},
      {{{"LC_ALL", "fr_FR.UTF-8"}, {"LC_MESSAGES", "it_IT"}, {"LANG", "de_DE"}}, "fr"},
      {{{"LC_MESSAGES", "it_IT"}, {"LANG", "de_DE"}}, "it"},
      {{{"LC_ALL", ""}, {"LC_MESSAGES", ""}, {"LANG", "de_DE"}}, "de"},
      {{{"LC_CTYPE", "de_DE"}, {"LANGUAGE", "de"}}, std::nullopt},  // neither is consulted
      {{}, std::nullopt},
      {{{"LANG", ""}}, std::nullopt},
      {{{"LANG", "C"}}, std::nullopt},
      {{{"LANG", "C.UTF-8"}}, std::nullopt},
      {{{"LANG", "POSIX"}}, std::nullopt},
      {{{"LANG", "_DE"}}, std::nullopt},
      {{{"LC_ALL", "C"}, {"LANG", "de_DE"}}, std::nullopt},  // the first non-empty one decides
      {{{"LANG", "c"}}, "c"},
  };
  for (const LocaleRow& row : rows) {
    std::string described;
    for (const auto& [name, value] : row.environment) described += name + "=" + value + " ";
    EXPECT_EQ(languageCodeFromEnvironment(lookupIn(row.environment)), row.language) << described;
    EXPECT_EQ(PosixLocale(lookupIn(row.environment)).languageCode(), row.language) << described;
  }
}

TEST(PosixLocale, ReadsTheEnvironmentOnceWhenMade) {
  Environment environment{{"LANG", "de_DE"}};
  const PosixLocale locale(lookupIn(environment));
  environment["LANG"] = "fr_FR";
  EXPECT_EQ(locale.languageCode(), "de");
  EXPECT_EQ(systemLocale(), systemLocale());
}

}  // namespace
}  // namespace applogic::platform
