#include "applogic/foundation/find_first.h"

#include <array>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace applogic {
namespace {

struct IsEven {
  bool operator()(int value) const { return value % 2 == 0; }
};

template <class Range>
concept Searchable = requires(Range&& range) { findFirst(std::forward<Range>(range), IsEven{}); };

// A pointer into a temporary would dangle, so temporaries are refused at compile time.
static_assert(Searchable<std::vector<int>&>);
static_assert(Searchable<const std::vector<int>&>);
static_assert(Searchable<std::span<const int>>);
static_assert(!Searchable<std::vector<int>>);

// Asks the predicate in order, stops at the first match and points at it inside the range.
TEST(FindFirst, PointsAtTheFirstMatchInsideTheRange) {
  const std::vector<int> values{5, 2, 7, 4};
  std::vector<int> asked;
  const int* found = findFirst(values, [&asked](int value) {
    asked.push_back(value);
    return value % 2 == 0;
  });
  EXPECT_EQ(found, &values[1]);
  EXPECT_EQ(asked, (std::vector<int>{5, 2}));

  std::array<std::string, 3> words{"a", "bb", "bb"};
  std::string* word = findFirst(words, [](const std::string& w) { return w.size() == 2; });
  ASSERT_EQ(word, &words[1]);
  *word = "changed";
  EXPECT_EQ(words[1], "changed");
}

TEST(FindFirst, NullWhenNothingMatchesOrTheRangeIsEmpty) {
  const std::vector<int> odd{1, 3, 5};
  const std::vector<int> empty;
  EXPECT_EQ(findFirst(odd, IsEven{}), nullptr);
  EXPECT_EQ(findFirst(empty, IsEven{}), nullptr);
  EXPECT_EQ(findFirst(std::span<const int>(odd).subspan(3), IsEven{}), nullptr);
}

}  // namespace
}  // namespace applogic
