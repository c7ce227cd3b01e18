#include "applogic/support/strings.h"

#include <gtest/gtest.h>

namespace applogic {
namespace {

TEST(CanonicalEquality, AgreesWithUnicodeEquivalence) {
  const struct {
    const char* a;
    const char* b;
    bool equal;
  } rows[] = {
      {"", "", true}, {"abc", "abc", true},
      {"abc", "abd", false}, {"Abc", "abc", false},
      // precomposed e-acute versus e + combining acute
      {"caf\xC3\xA9", "cafe\xCC\x81", true},
      // Angstrom sign versus A-ring: canonical singleton decomposition
      {"\xE2\x84\xAB", "\xC3\x85", true},
      {"caf\xC3\xA9", "cafe", false},
      {"\xC3\xA9", "e", false},
      // invalid UTF-8 compares by bytes
      {"\xFF", "\xFF", true}, {"\xFF", "\xFE", false}};
  for (const auto& row : rows) {
    SCOPED_TRACE(std::string(row.a) + " vs " + row.b);
    EXPECT_EQ(canonicallyEqual(row.a, row.b), row.equal);
    EXPECT_EQ(canonicallyEqual(row.b, row.a), row.equal);
    if (row.equal) {
      EXPECT_EQ(canonicalHash(row.a), canonicalHash(row.b));
    }
  }
}

TEST(CaseHelpers, LowercaseAndPrefixIgnoreOnlyAsciiCase) {
  EXPECT_EQ(asciiLowercase("TrA.\xC3\x89"), "tra.\xC3\x89");
  EXPECT_TRUE(startsWithIgnoringAsciiCase("TRA.1", "tra."));
  EXPECT_FALSE(startsWithIgnoringAsciiCase("tr", "tra."));
}

}  // namespace
}  // namespace applogic
