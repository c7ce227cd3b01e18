// The catalog commands' arguments and tables. Their runs against the local services are in the
// README's quick start (ReadmeExamples) and in `tunevo demo`.

#include "tunevo/catalog_commands.h"

#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tunevo {
namespace {

struct OptionsCase {
  const char* command;
  std::vector<std::string> args;
  const char* environment;
  const char* problem;  // empty: accepted
};

TEST(CatalogOptions, RefuseWhatCannotBeRunAndTakeWhatCan) {
  const std::vector<OptionsCase> cases{
      {"top", {}, "https://s/v1", ""},
      {"top", {}, "", "no service: give --service URL or set TUNEVO_SERVICE"},
      {"top", {"--service", "https://s/v1"}, "", ""},
      {"top", {"--limit", "0"}, "https://s/v1", "--limit takes a whole number from 1 to 500"},
      {"top", {"--limit", "501"}, "https://s/v1", "--limit takes a whole number from 1 to 500"},
      {"top", {"--limit", "500"}, "https://s/v1", ""},
      {"top", {"--limit"}, "https://s/v1", "--limit needs a value"},
      {"top", {"extra"}, "https://s/v1", "unexpected argument 'extra'"},
      {"search", {}, "https://s/v1", "the QUERY is missing"},
      {"search", {"a", "b"}, "https://s/v1", "unexpected argument 'b'"},
      {"genres", {}, "https://s/v1", ""},
      {"playlist", {"--page-size", "3"}, "https://s/v1", "the ID is missing"},
      // A sign-in option's value is not the positional argument.
      {"preview", {"--store", "tokens.sqlite3", "tra.1"}, "https://s/v1", ""},
      {"top", {"--force-refresh"}, "https://s/v1", "unknown option '--force-refresh'"},
  };
  for (const OptionsCase& c : cases) {
    const auto parsed = parseCatalogOptions(c.command, c.args, c.environment);
    const auto* problem = std::get_if<std::string>(&parsed);
    if (std::string_view(c.problem).empty()) {
      EXPECT_EQ(problem, nullptr) << c.command << ": " << *problem;
    } else {
      ASSERT_NE(problem, nullptr) << c.command << " " << c.problem;
      EXPECT_EQ(problem->rfind(c.problem, 0), 0u) << *problem;
    }
  }
  const auto preview = std::get<CatalogCommandOptions>(
      parseCatalogOptions("preview", {"--store", "tokens.sqlite3", "tra.1", "--json", "--service", "u", "--lang", "fr",
                                      "--sink", "fakesink"},
                          "env"));
  EXPECT_EQ(preview.argument, "tra.1");
  EXPECT_EQ(preview.service, "u");
  EXPECT_EQ(preview.language, "fr");
  EXPECT_EQ(preview.sink, "fakesink");
  EXPECT_TRUE(preview.json);
  EXPECT_EQ(preview.signIn.store, std::filesystem::path("tokens.sqlite3"));
}

TEST(TrackTable, ColumnsAreCutAtACodePointWithAnEllipsis) {
  applogic::Track fits;
  fits.id = "Tra.1";
  fits.name = std::string(30, 'a');  // exactly the title column
  fits.artistName = "Artist";
  fits.playbackSeconds = 61;
  applogic::Track cut = fits;
  cut.name = std::string(28, 'b') + "\u00e9\u00e9";  // 30 code points, 32 bytes: fits
  applogic::Track longer = fits;
  longer.name = std::string(29, 'c') + "\u00e9\u00e9";  // 31 code points: cut after 29
  std::ostringstream out;
  printTrackTable(out, {fits, cut, longer}, 7);
  std::istringstream lines(out.str());
  std::vector<std::string> rows;
  for (std::string line; std::getline(lines, line);) rows.push_back(line);
  ASSERT_EQ(rows.size(), 4u);
  EXPECT_EQ(rows[1].substr(0, 18 + 30), "7   Tra.1         " + std::string(30, 'a'));
  EXPECT_NE(rows[2].find(std::string(28, 'b') + "\u00e9\u00e9Artist"), std::string::npos) << rows[2];
  EXPECT_NE(rows[3].find(std::string(29, 'c') + "\u2026Artist"), std::string::npos) << rows[3];
  EXPECT_EQ(rows[1].substr(rows[1].size() - 4), "1:01");

  std::ostringstream empty;
  printTrackTable(empty, {});
  EXPECT_EQ(empty.str(), "(no tracks)\n");
}

}  // namespace
}  // namespace tunevo
