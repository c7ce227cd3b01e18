#include "applogic/support/strings.h"

#include <gtest/gtest.h>

namespace applogic {
namespace {

struct EqualityRow {
  const char* a;
  const char* b;
  bool equal;
};

class CanonicalEquality : public ::testing::TestWithParam<EqualityRow> {};

TEST_P(CanonicalEquality, AgreesWithUnicodeEquivalence) {
  const auto& row = GetParam();
  EXPECT_EQ(canonicallyEqual(row.a, row.b), row.equal);
  EXPECT_EQ(canonicallyEqual(row.b, row.a), row.equal);
  if (row.equal) {
    EXPECT_EQ(canonicalHash(row.a), canonicalHash(row.b));
  }
}

INSTANTIATE_TEST_SUITE_P(
    Rows, CanonicalEquality,
    ::testing::Values(EqualityRow{"", "", true}, EqualityRow{"abc", "abc", true},
                      EqualityRow{"abc", "abd", false}, EqualityRow{"Abc", "abc", false},
                      // precomposed e-acute versus e + combining acute
                      EqualityRow{"caf\xC3\xA9", "cafe\xCC\x81", true},
                      // Angstrom sign versus A-ring: canonical singleton decomposition
                      EqualityRow{"\xE2\x84\xAB", "\xC3\x85", true},
                      EqualityRow{"caf\xC3\xA9", "cafe", false},
                      EqualityRow{"\xC3\xA9", "e", false},
                      // invalid UTF-8 compares by bytes
                      EqualityRow{"\xFF", "\xFF", true}, EqualityRow{"\xFF", "\xFE", false}));

TEST(CaseHelpers, LowercaseAndPrefixIgnoreOnlyAsciiCase) {
  EXPECT_EQ(asciiLowercase("TrA.\xC3\x89"), "tra.\xC3\x89");
  EXPECT_TRUE(startsWithIgnoringAsciiCase("TRA.1", "tra."));
  EXPECT_FALSE(startsWithIgnoringAsciiCase("tr", "tra."));
}

}  // namespace
}  // namespace applogic
