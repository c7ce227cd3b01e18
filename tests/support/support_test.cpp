#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <tuple>
#include <vector>

#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include "applogic/support/error.h"
#include "applogic/support/fatal.h"
#include "applogic/support/json.h"
#include "applogic/support/log.h"
#include "applogic/support/strings.h"
#include "applogic/support/url.h"

namespace applogic {
namespace {

// Generated pairs: equality is comparing NFC forms, is symmetric, implies equal hashes. Texts are sequences of
// classes of equivalent spellings (KELVIN SIGN, GREEK QUESTION MARK, VARIA are ASCII in NFC; A-ring, ANGSTROM
// SIGN, A + ring; e-acute, e + acute; lone marks; an invalid byte); half the pairs spell the same classes.
TEST(CanonicalEquality, AgreesWithNfcAndWithItsHashOverGeneratedPairs) {
  const std::vector<std::vector<std::string>> classes = {
      {"K", "\xE2\x84\xAA"}, {";", "\xCD\xBE"}, {"`", "\xE1\xBF\xAF"}, {"\xC3\x85", "\xE2\x84\xAB", "A\xCC\x8A"},
      {"\xC3\xA9", "e\xCC\x81"}, {"k"}, {"A"}, {"e"}, {"\xCC\x81"}, {"\xCC\xA3"}, {"\xFF"}};
  std::mt19937 random(20240611);
  const auto pick = [&random](std::size_t n) { return std::uniform_int_distribution<std::size_t>(0, n - 1)(random); };
  const auto spell = [&](const std::vector<std::size_t>& classIndices, bool& valid) {
    std::string text;
    for (const std::size_t c : classIndices) text += classes[c][pick(classes[c].size())];
    valid = valid && std::find(classIndices.begin(), classIndices.end(), classes.size() - 1) == classIndices.end();
    return text;
  };
  for (int i = 0; i < 20000; ++i) {
    std::vector<std::size_t> sequenceA(pick(4)), sequenceB(pick(4));
    for (auto* sequence : {&sequenceA, &sequenceB}) for (auto& c : *sequence) c = pick(classes.size());
    if (pick(2) == 0) sequenceB = sequenceA;
    bool valid = true;
    const std::string a = spell(sequenceA, valid), b = spell(sequenceB, valid);
    const bool equal = canonicallyEqual(a, b);
    SCOPED_TRACE(a + " vs " + b);
    ASSERT_EQ(equal, canonicalForm(a) == canonicalForm(b));
    ASSERT_EQ(equal, canonicallyEqual(b, a));
    ASSERT_TRUE(!equal || canonicalHash(a) == canonicalHash(b));
    ASSERT_TRUE(equal || sequenceA != sequenceB || !valid);
  }
}

// The ends of the folded range, the bytes just outside it ('@', '[' sit 32 below '`', '{'), a prefix's last byte.
TEST(CaseHelpers, FoldExactlyAThroughZ) {
  EXPECT_EQ(asciiLowercase("@AZ[`az{\xC3\x89"), "@az[`az{\xC3\x89");
  const struct { const char* text; const char* prefix; bool starts; } rows[] = {
      {"AZ.1", "az", true}, {"az", "AZ", true}, {"az", "", true}, {"tr", "tra", false}, {"tra", "tra", true},
      {"trb", "tra", false}, {"xra", "tra", false}, {"@", "`", false}, {"`", "@", false}, {"[", "{", false}, {"{", "[", false}};
  for (const auto& row : rows) {
    EXPECT_EQ(startsWithIgnoringAsciiCase(row.text, row.prefix), row.starts) << row.text;
    EXPECT_EQ(equalsIgnoringAsciiCase(row.text, row.prefix), row.starts && std::strlen(row.text) == std::strlen(row.prefix));
  }
}

// One row per JSON value: what each typed lookup makes of it (INT64_MAX + 1 does not fit).
TEST(TypedLookups, FollowOneRuleForEveryParser) {
  const struct { const char* json; std::optional<std::string_view> asString; std::optional<std::int64_t> asInteger;
                 std::optional<bool> asBoolean; } rows[] = {{R"("true")", "true", {}, {}}, {"-1", {}, -1, {}}, {"215.0", {}, {}, {}},
              {"9223372036854775807", {}, INT64_MAX, {}}, {"9223372036854775808", {}, {}, {}},
              {"true", {}, {}, true}, {"false", {}, {}, false}, {"null", {}, {}, {}}};
  for (const auto& row : rows) {
    const Json answer = boost::json::parse(std::string(R"({"k":)") + row.json + "}");
    const JsonObject& object = *json::object(answer);
    EXPECT_EQ(std::tuple(json::string(object, "k"), json::integer(object, "k"), json::boolean(object, "k")),
              std::tuple(row.asString, row.asInteger, row.asBoolean)) << row.json;
    EXPECT_EQ(json::string(object, "missing"), std::nullopt);
  }
  EXPECT_EQ(json::integer(Json(std::uint64_t{INT64_MAX})), INT64_MAX);  // the largest that fits, held unsigned
}

// Which keys each container lookup accepts: arrayOfObjects wants every element to be an object.
TEST(ContainerLookups, ArrayOfObjectsRequiresEveryElementToBeAnObject) {
  const Json answer = boost::json::parse(R"({"ok":[{},{"a":1}],"empty":[],"mixed":[{},5],"object":{},"null":null})");
  const JsonObject& object = *json::object(answer);
  const struct { const char* key; bool array, arrayOfObjects, member; } rows[] = {
      {"ok", true, true, true}, {"empty", true, true, true}, {"mixed", true, false, true},
      {"object", false, false, true}, {"null", false, false, false}, {"missing", false, false, false}};
  for (const auto& row : rows) {
    EXPECT_EQ(json::array(object, row.key) != nullptr, row.array) << row.key;
    EXPECT_EQ(json::arrayOfObjects(answer, row.key) != nullptr, row.arrayOfObjects) << row.key;
    EXPECT_EQ(json::member(object, row.key) != nullptr, row.member) << row.key;
  }
  EXPECT_EQ(json::arrayOfObjects(object, "ok")->size(), 2u);
  EXPECT_EQ(json::arrayOfObjects(Json(boost::json::array{}), "ok"), nullptr);
}

// What the serializer wrote reads back as the same double; anything but one document is nothing.
TEST(ParseExactly, ReadsBackTheWrittenDoubleAndOnlyOneDocument) {
  for (const double d : {1.7004444444444443e42, 0.1, -2.5e-300, 1.7976931348623157e308, 5e-324, 1700000000.25}) {
    const std::string text = boost::json::serialize(Json(JsonArray{d, "x", nullptr, true, -7}));
    const auto read = json::parseExactly(text);
    ASSERT_TRUE(read) << text;
    EXPECT_EQ(read->at(0).as_double(), d) << text;
    EXPECT_EQ(boost::json::serialize(*read), text);
  }
  EXPECT_EQ(json::parseExactly(" {\"a\": 18446744073709551615} \n")->at("a").as_uint64(), UINT64_MAX);
  // Escapes and long texts reach the value in parts.
  const auto parts = json::parseExactly(R"({"k\u00e9y":"a\tb","n":0.)" + std::string(400, '3') + "}");
  ASSERT_TRUE(parts);
  EXPECT_EQ(parts->at("k\xC3\xA9y"), Json("a\tb"));
  EXPECT_EQ(parts->at("n").as_double(), 1.0 / 3);
  EXPECT_TRUE(std::isinf(json::parseExactly("1e999")->as_double()));
  for (const char* bad : {"", "{} x", "[1,", "{\"a\" 1}", "1.5.2"}) EXPECT_EQ(json::parseExactly(bad), std::nullopt) << bad;
}

TEST(ErrorAndUrl, PrintAndParse) {
  EXPECT_EQ(testing::PrintToString(Error{"d", 2, {}}), "d (2)");
  EXPECT_EQ(testing::PrintToString(Error{"d", 2, {{"a", std::int64_t{1}}, {"m", std::string("x")}}}), "d (2) {a: 1, m: x}");
  for (const char* good : {"https://host/p?q", "/path", "path"}) EXPECT_EQ(Url::parse(good)->string(), good);
  for (const char* bad : {"", "a b", "%zz"}) EXPECT_EQ(Url::parse(bad), std::nullopt) << bad;
}

// Echoes each line to standard error after its prefix.
struct EchoingSink : LogSink {
  explicit EchoingSink(const char* prefix) : prefix(prefix) {}
  void write(std::string_view line) override { std::fprintf(stderr, "%s%.*s\n", prefix, int(line.size()), line.data()); }
  const char* prefix;
};

TEST(Log, GoesToTheInstalledSinkOrStandardErrorAndTheScopeRestoresThePreviousSink) {
  testing::internal::CaptureStderr();
  ScopedLogSink outer(std::make_shared<EchoingSink>("outer: "));
  [] { ScopedLogSink inner(std::make_shared<EchoingSink>("inner: ")); log("a"); }();
  log("b");
  ScopedLogSink none(nullptr);
  log("c");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "inner: a\nouter: b\nc\n");
}

// The installed sink gets the line too, then standard error, then the process aborts.
TEST(FatalErrorDeathTest, WritesTheLineToTheSinkAndStandardErrorThenAborts) {
  EXPECT_DEATH(setLogSink(std::make_shared<EchoingSink>("sink: ")); fatalError("no id"),
               "sink: Fatal error: no id\nFatal error: no id\n");
}

}  // namespace
}  // namespace applogic
