#include "applogic/support/json.h"

#include <gtest/gtest.h>

#include <sstream>

#include <boost/json/parse.hpp>

#include "applogic/support/result.h"

namespace applogic {
namespace {

// One row per JSON value: what each typed lookup makes of it.
TEST(TypedLookups, FollowOneRuleForEveryParser) {
  const struct {
    const char* json;
    std::optional<std::string_view> asString;
    std::optional<std::int64_t> asInteger;
    std::optional<bool> asBoolean;
  } rows[] = {
      {R"("215")", "215", std::nullopt, std::nullopt},
      {R"("true")", "true", std::nullopt, std::nullopt},
      {"215", std::nullopt, 215, std::nullopt},
      {"-1", std::nullopt, -1, std::nullopt},
      {"215.0", std::nullopt, std::nullopt, std::nullopt},
      {"9223372036854775807", std::nullopt, INT64_MAX, std::nullopt},
      {"9223372036854775808", std::nullopt, std::nullopt, std::nullopt},
      {"true", std::nullopt, std::nullopt, true},
      {"false", std::nullopt, std::nullopt, false},
      {"0", std::nullopt, 0, std::nullopt},
      {"null", std::nullopt, std::nullopt, std::nullopt},
      {"[]", std::nullopt, std::nullopt, std::nullopt},
      {"{}", std::nullopt, std::nullopt, std::nullopt}};
  for (const auto& row : rows) {
    const Json answer = boost::json::parse(std::string(R"({"k":)") + row.json + "}");
    const JsonObject& object = *json::object(answer);
    EXPECT_EQ(json::string(object, "k"), row.asString) << row.json;
    EXPECT_EQ(json::integer(object, "k"), row.asInteger) << row.json;
    EXPECT_EQ(json::boolean(object, "k"), row.asBoolean) << row.json;
    EXPECT_EQ(json::string(object, "missing"), std::nullopt);
  }
}

TEST(ContainerLookups, ArrayOfObjectsRequiresEveryElementToBeAnObject) {
  const Json answer = boost::json::parse(R"({"ok":[{},{"a":1}],"empty":[],"mixed":[{},5],"object":{},"null":null})");
  const JsonObject& object = *json::object(answer);
  ASSERT_NE(json::arrayOfObjects(object, "ok"), nullptr);
  EXPECT_EQ(json::arrayOfObjects(object, "ok")->size(), 2u);
  ASSERT_NE(json::arrayOfObjects(object, "empty"), nullptr);
  EXPECT_EQ(json::arrayOfObjects(object, "mixed"), nullptr);
  EXPECT_NE(json::array(object, "mixed"), nullptr);
  EXPECT_EQ(json::arrayOfObjects(object, "object"), nullptr);
  EXPECT_NE(json::object(object, "object"), nullptr);
  EXPECT_EQ(json::member(object, "null"), nullptr);
  EXPECT_EQ(json::object(object, "null"), nullptr);
  EXPECT_EQ(json::object(Json(5)), nullptr);
  EXPECT_EQ(json::arrayOfObjects(answer, "ok"), json::arrayOfObjects(object, "ok"));
  EXPECT_EQ(json::arrayOfObjects(answer, "mixed"), nullptr);
  EXPECT_EQ(json::arrayOfObjects(Json(boost::json::array{}), "ok"), nullptr);
}

TEST(ResultAndError, HoldOneSideAndCompareByValue) {
  const auto success = Result<int>::success(3);
  const auto failure = Result<int>::failure(Error{"d", 2, {{"message", std::string("m")}}});
  ASSERT_TRUE(success.ok());
  EXPECT_EQ(success.value(), 3);
  ASSERT_FALSE(failure.ok());
  EXPECT_EQ(failure.error(), (Error{"d", 2, {{"message", std::string("m")}}}));
  EXPECT_NE(failure.error(), (Error{"d", 2, {}}));
  std::ostringstream printed;
  printed << failure.error();
  EXPECT_EQ(printed.str(), "d (2) {message: m}");
}

}  // namespace
}  // namespace applogic
