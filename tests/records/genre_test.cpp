#include "applogic/records/genre.h"

#include <boost/json.hpp>
#include <gtest/gtest.h>

namespace applogic {
namespace {

Json parse(std::string_view text) { return boost::json::parse(text); }

void expectGenre(const Genre& genre, std::string_view id, std::string_view name,
                 std::string_view description) {
  EXPECT_EQ(genre.id, id);
  EXPECT_EQ(genre.name, name);
  EXPECT_EQ(genre.description, description);
}

TEST(GenreResponseToGenres, EmptyElementGivesAnEmptyGenre) {
  const auto genres = GenreResponseToGenres(parse(R"({"genres":[{}]})"));
  ASSERT_TRUE(genres.has_value());
  ASSERT_EQ(genres->size(), 1u);
  expectGenre((*genres)[0], "", "", "");
}

TEST(GenreResponseToGenres, FailsOnlyOnTheShapeOfTheTopLevels) {
  for (const char* input : {R"({"genres":{}})", R"({"genres":null})", R"({"genres":"g.1"})",
                            R"({"genres":[{}, 1]})", R"({"genres":[[]]})", R"({"Genres":[]})",
                            "{}", "[]", R"([{"genres":[]}])", "null", "1"}) {
    EXPECT_EQ(GenreResponseToGenres(parse(input)).has_value(), false) << input;
  }
  const auto empty = GenreResponseToGenres(parse(R"({"genres":[]})"));
  ASSERT_TRUE(empty.has_value());
  EXPECT_TRUE(empty->empty());
}

TEST(GenreResponseToGenres, ReadsEachGenreInOrderWithMistypedMembersAsEmpty) {
  const auto genres = GenreResponseToGenres(parse(R"({"genres":[
      {"id":"G.21","name":"Rock","description":"Loud","type":"genre"},
      {"id":"g.5","name":"Jazz","description":42},
      {"id":7,"name":null,"description":"Quiet"},
      {"id":"xyz","name":["Pop"],"description":{"text":"?"}}]})"));
  ASSERT_TRUE(genres.has_value());
  ASSERT_EQ(genres->size(), 4u);
  expectGenre((*genres)[0], "g.21", "Rock", "Loud");
  expectGenre((*genres)[1], "g.5", "Jazz", "");
  expectGenre((*genres)[2], "", "", "Quiet");
  expectGenre((*genres)[3], "xyz", "", "");
}

TEST(GenreConstruction, NormalisesOnlyTheId) {
  expectGenre(Genre("G.1", "g.2", "TRA.3"), "g.1", "g.2", "TRA.3");
  expectGenre(Genre::fromRaw(parse(R"({"id":"TAG.x"})")), "tag.x", "", "");
  for (const char* text : {"null", "[]", R"("g.1")"}) {
    expectGenre(Genre::fromRaw(parse(text)), "", "", "");
  }
}

}  // namespace
}  // namespace applogic
