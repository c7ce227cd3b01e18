#include "applogic/support/strings.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <string>
#include <vector>

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
      // singletons that normalise to ASCII: KELVIN SIGN, GREEK QUESTION MARK, GREEK VARIA
      {"\xE2\x84\xAA", "K", true}, {"\xCD\xBE", ";", true}, {"\xE1\xBF\xAF", "`", true},
      {"\xE2\x84\xAA", "k", false},
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

// A property over generated pairs: equality is comparing NFC forms, is symmetric, and implies
// equal hashes. Texts are sequences of pieces from small classes of canonically equivalent
// spellings (singletons that normalise to ASCII, composed versus decomposed forms, a lone
// combining mark that composes with what precedes it, an invalid byte); half of the pairs spell
// the same classes differently, so equal pairs of different bytes are frequent.
TEST(CanonicalEquality, AgreesWithNfcAndWithItsHashOverGeneratedPairs) {
  const std::vector<std::vector<std::string>> classes = {
      {"K", "\xE2\x84\xAA"},                     // K, KELVIN SIGN
      {";", "\xCD\xBE"},                         // ;, GREEK QUESTION MARK
      {"`", "\xE1\xBF\xAF"},                     // `, GREEK VARIA
      {"\xC3\x85", "\xE2\x84\xAB", "A\xCC\x8A"},  // A-ring, ANGSTROM SIGN, A + ring
      {"\xC3\xA9", "e\xCC\x81"},                 // e-acute, e + acute
      {"k"}, {"A"}, {"e"}, {"\xCC\x81"}, {"\xCC\xA3"}, {"\xFF"}};
  std::mt19937 random(20240611);
  const auto pick = [&random](std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); };
  const auto spell = [&](const std::vector<std::size_t>& sequence, bool& valid) {
    std::string text;
    for (const std::size_t c : sequence) {
      text += classes[c][pick(classes[c].size())];
      valid = valid && classes[c][0] != "\xFF";
    }
    return text;
  };
  int equalWithAsciiSideOfOtherBytes = 0;
  for (int i = 0; i < 20000; ++i) {
    std::vector<std::size_t> sequenceA(pick(4));
    for (auto& c : sequenceA) c = pick(classes.size());
    std::vector<std::size_t> sequenceB = sequenceA;
    const bool sameClasses = pick(2) == 0;
    if (!sameClasses) {
      sequenceB.resize(pick(4));
      for (auto& c : sequenceB) c = pick(classes.size());
    }
    bool valid = true;
    const std::string a = spell(sequenceA, valid);
    const std::string b = spell(sequenceB, valid);
    const bool equal = canonicallyEqual(a, b);
    SCOPED_TRACE(a + " vs " + b);
    ASSERT_EQ(equal, canonicalForm(a) == canonicalForm(b));
    ASSERT_EQ(equal, canonicallyEqual(b, a));
    if (equal) {
      ASSERT_EQ(canonicalHash(a), canonicalHash(b));
    }
    if (sameClasses && valid) {
      ASSERT_TRUE(equal);
    }
    const auto ascii = [](const std::string& text) {
      return std::all_of(text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < 0x80; });
    };
    if (equal && a != b && (ascii(a) || ascii(b))) ++equalWithAsciiSideOfOtherBytes;
  }
  EXPECT_GT(equalWithAsciiSideOfOtherBytes, 0);
}

TEST(CaseHelpers, LowercaseAndPrefixIgnoreOnlyAsciiCase) {
  EXPECT_EQ(asciiLowercase("TrA.\xC3\x89"), "tra.\xC3\x89");
  EXPECT_TRUE(startsWithIgnoringAsciiCase("TRA.1", "tra."));
  EXPECT_FALSE(startsWithIgnoringAsciiCase("tr", "tra."));
}

// The ends of the folded range, and the bytes just outside it ('@' and '[' sit 32 below '`' and '{').
TEST(CaseHelpers, FoldExactlyAThroughZ) {
  EXPECT_EQ(asciiLowercase("@AZ[`az{"), "@az[`az{");
  EXPECT_TRUE(startsWithIgnoringAsciiCase("AZ", "az"));
  EXPECT_TRUE(startsWithIgnoringAsciiCase("az", "AZ"));
  EXPECT_FALSE(startsWithIgnoringAsciiCase("@", "`"));
  EXPECT_FALSE(startsWithIgnoringAsciiCase("`", "@"));
  EXPECT_FALSE(startsWithIgnoringAsciiCase("[", "{"));
  EXPECT_FALSE(startsWithIgnoringAsciiCase("{", "["));
}

}  // namespace
}  // namespace applogic
