// GiphyDataController over a scripted Giphy service: the aspect filter at its exact float
// bounds, what each operation asks the service for, the list and single-picture paths, and the
// still-frame address as a deferred value.

#include "applogic/controllers/giphy_data_controller.h"

#include <gtest/gtest.h>

#include <memory>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "applogic/testing/fixed_locale.h"
#include "applogic/testing/scripted_giphy_service.h"
#include "controllers/controller_fixture.h"

namespace applogic::controllers_test {
namespace {

using controllers_test::describe;
using testing::ServiceCall;

const std::string kUnparsable = "error:GiphyDataController/1";

struct FilterRow {
  const char* width;
  const char* height;
  const char* url;
  bool kept;
};

// The renditions as the answers carry them, so that each row also goes through the parse.
const FilterRow kFilterRows[] = {
    {"480", "480", "https://m.test/a.gif", true},      // 1:1, the lower bound
    {"480", "481", "https://m.test/a.gif", false},     // just below 1:1
    {"700", "300", "https://m.test/a.gif", true},      // 7:3 in float, the upper bound
    {"7", "3", "https://m.test/a.gif", true},
    {"1", "1", "https://m.test/a.gif", true},          // the smallest size: any positive one will do
    {"701", "300", "https://m.test/a.gif", false},     // just above 7:3
    {"2333334", "1000000", "a", false},                // 2.333334 > the float nearest 7/3
    {"0", "300", "https://m.test/a.gif", false},
    {"480", "0", "https://m.test/a.gif", false},
    {"-480", "-300", "https://m.test/a.gif", false},   // a landscape ratio of negative sizes
    {"480", "300", "", false},                         // empty address
    {"inf", "300", "https://m.test/a.gif", false},
    {"nan", "300", "https://m.test/a.gif", false},
    {"480", "300", "not an address", true},            // the address is only required non-empty
};

boost::json::object rendition(const FilterRow& row) {
  return {{"width", row.width}, {"height", row.height}, {"url", row.url}};
}

TEST(GiphyAspectFilter, SquareUpTo7To3LandscapeWithBothBoundsIncluded) {
  for (const FilterRow& row : kFilterRows) {
    const GiphyImageInfo info = GiphyImageInfo::fromRaw(rendition(row));
    EXPECT_EQ(GiphyDataController::filterImageByAspectRatio("original", info), row.kept)
        << row.width << "x" << row.height << " " << row.url;
    EXPECT_EQ(GiphyDataController::filterImageByAspectRatio("", info), row.kept);
  }
}

// ---- answers ----

// A picture with renditions named by their sizes: {"id": id, "images": {"<key>": {...}, ...}}.
struct Rendition {
  std::string key;
  std::string width;
  std::string height;
  std::string url = "https://media.giphy.com/media/x/r.gif";
};

boost::json::object picture(const std::string& id, const std::vector<Rendition>& renditions) {
  boost::json::object images;
  for (const Rendition& r : renditions) {
    images[r.key] = boost::json::object{{"width", r.width}, {"height", r.height}, {"url", r.url}};
  }
  return {{"id", id}, {"rating", "g"}, {"images", std::move(images)}};
}

Json listAnswer(std::vector<boost::json::object> pictures) {
  boost::json::array data;
  for (auto& p : pictures) data.push_back(std::move(p));
  return boost::json::object{{"data", std::move(data)}};
}

Json singleAnswer(boost::json::object p) { return boost::json::object{{"data", std::move(p)}}; }

const Rendition kWide{"original", "480", "270"};
const Rendition kPortrait{"portrait", "270", "480"};

std::string describe(const Giphy& giphy) {
  std::string text = giphy.id + "{";
  for (std::size_t i = 0; i < giphy.images.size(); ++i) text += (i == 0 ? "" : ",") + giphy.images[i].first;
  return text + "}";
}

std::string describe(const std::vector<Giphy>& pictures) {
  std::string text = "[";
  for (std::size_t i = 0; i < pictures.size(); ++i) text += (i == 0 ? "" : ",") + describe(pictures[i]);
  return text + "]";
}

template <class T>
Log collectDescribed(const rx::Observable<T>& source) {
  return collect(source.map([](const T& value) { return describe(value); }));
}

struct GiphyFixture {
  explicit GiphyFixture(std::optional<std::string> language = "de")
      : locale(std::make_shared<testing::FixedLocale>(std::move(language))) {}

  std::shared_ptr<testing::ScriptedGiphyService> service = std::make_shared<testing::ScriptedGiphyService>();
  std::shared_ptr<testing::FixedLocale> locale;
  GiphyDataController controller{service, locale, "proxy.test"};
};

TEST(GiphyDataController, AsksTheServiceWithRatingGPageSize25AndTheLocalesLanguage) {
  for (const std::optional<std::string>& language : {std::optional<std::string>("de"), std::optional<std::string>()}) {
    const std::string expected = language.value_or("en");
    GiphyFixture f(language);
    (void)f.controller.getTrending();
    (void)f.controller.search(" cats ");
    (void)f.controller.searchPaginated("dogs", rx::just(unit));
    (void)f.controller.get("xT9IgG50Fb7Mi0prBC");
    EXPECT_EQ(f.service->calls(), (std::vector<ServiceCall>{{"getTrending", {"g", "25"}},
                                                            {"search", {" cats ", "g", expected, "0", "25"}},
                                                            {"searchPaginated", {"dogs", "g", expected, "25"}},
                                                            {"get", {"xT9IgG50Fb7Mi0prBC"}}}));
    EXPECT_EQ(f.service->requests("getTrending") + f.service->requests("search") + f.service->requests("get"), 0u);
  }
}

TEST(GiphyDataController, ListsKeepAcceptableRenditionsAndDropPicturesLeftWithout) {
  GiphyFixture f;
  const Json answer = listAnswer({picture("a", {kPortrait, kWide, {"fixed_width_still", "200", "113"}}),
                                  picture("b", {kPortrait, {"zero", "0", "100"}, {"no_url", "480", "270", ""}}),
                                  picture("c", {kWide})});
  f.service->script("getTrending", Answer::json(answer));
  f.service->script("search", Answer::json(answer));
  const Log expected{"[a{original,fixed_width_still},c{original}]", "completed"};
  EXPECT_EQ(collectDescribed(f.controller.getTrending()), expected);
  EXPECT_EQ(collectDescribed(f.controller.search("x")), expected);
}

TEST(GiphyDataController, ListAnswers) {
  struct Row {
    const char* name;
    Json answer;
    Log outcome;
  };
  const Row rows[] = {
      {"no acceptable rendition anywhere", listAnswer({picture("a", {kPortrait}), picture("b", {})}),
       {"[]", "completed"}},
      {"empty data", listAnswer({}), {"[]", "completed"}},
      {"no data", boost::json::object{{"pagination", boost::json::object{}}}, {kUnparsable}},
      {"data is one picture", singleAnswer(picture("a", {kWide})), {kUnparsable}},
      {"a picture is not an object", boost::json::object{{"data", boost::json::array{picture("a", {kWide}), 5}}},
       {kUnparsable}},
  };
  for (const Row& row : rows) {
    GiphyFixture f;
    f.service->script("getTrending", Answer::json(row.answer));
    EXPECT_EQ(collectDescribed(f.controller.getTrending()), row.outcome) << row.name;
  }
}

TEST(GiphyDataController, SearchPaginatedParsesEachPage) {
  GiphyFixture f;
  f.service->script("searchPaginated", {Answer::json(listAnswer({picture("a", {kWide})})),
                                        Answer::json(listAnswer({picture("b", {kPortrait})})),
                                        Answer::json(singleAnswer(picture("c", {kWide})))});
  rx::PublishSubject<Unit> nextPage;
  EventLog log;
  log.subscribeTo(f.controller.searchPaginated("cats", nextPage.asObservable()).map([](const std::vector<Giphy>& p) {
    return describe(p);
  }));
  nextPage.onNext(unit);
  nextPage.onNext(unit);
  EXPECT_EQ(log.events(), (Log{"[a{original}]", "[]"}));
  nextPage.onNext(unit);
  EXPECT_EQ(log.events(), (Log{"[a{original}]", "[]", kUnparsable}));
  EXPECT_EQ(f.service->requests("searchPaginated"), 3u);
}

TEST(GiphyDataController, GetEmitsThePictureOrFailsAlikeForUnparsableAndFullyFiltered) {
  struct Row {
    const char* name;
    Json answer;
    Log outcome;
  };
  const Row rows[] = {
      {"a picture", singleAnswer(picture("a", {kPortrait, kWide})), {"a{original}", "completed"}},
      {"every rendition filtered out", singleAnswer(picture("a", {kPortrait})), {kUnparsable}},
      {"no images", singleAnswer(boost::json::object{{"id", "a"}}), {kUnparsable}},
      {"no data", boost::json::object{{"meta", boost::json::object{{"status", 404}}}}, {kUnparsable}},
      {"data is a list", listAnswer({picture("a", {kWide})}), {kUnparsable}},
  };
  for (const Row& row : rows) {
    GiphyFixture f;
    f.service->script("get", Answer::json(row.answer));
    EXPECT_EQ(collectDescribed(f.controller.get("a")), row.outcome) << row.name;
  }
}

TEST(GiphyDataController, AddressesOnTheConfiguredHost) {
  GiphyFixture f;
  f.service->script("get", Answer::json(singleAnswer(picture("a", {kWide}))));
  const auto events = rx::blockingCollect(f.controller.get("a"));
  ASSERT_EQ(events.values.size(), 1u);
  EXPECT_EQ(events.values[0].images.at(0).second.urlString, "https://proxy.test/media/x/r.gif");
}

// ---- the still-frame address ----

std::string describe(const ZDSDeferred<Url>& deferred) {
  const auto outcome = deferred.outcome();
  if (!outcome) return "pending";
  return outcome->ok() ? outcome->value().string() : describe(outcome->error());
}

TEST(GiphyStillImageUrl, TheClosestAcceptableStillFrameOrNoStillImageUrl) {
  struct Row {
    const char* name;
    std::vector<Rendition> renditions;
    float width;
    std::string outcome;
  };
  const Rendition still200{"fixed_width_still", "200", "113", "https://media.giphy.com/s200.gif"};
  const Rendition still480{"480w_still", "480", "270", "https://media.giphy.com/s480.gif"};
  const Row rows[] = {
      {"closest", {kWide, still200, still480}, 400, "https://proxy.test/s480.gif"},
      {"a tie goes to the first in the answer", {still480, still200}, 340, "https://proxy.test/s480.gif"},
      {"a tie goes to the first in the answer, reversed", {still200, still480}, 340, "https://proxy.test/s200.gif"},
      {"the portrait still is never offered", {kWide, {"portrait_still", "270", "480"}, still200}, 270,
       "https://proxy.test/s200.gif"},
      {"no still rendition", {kWide}, 200, "error:No still image url/0"},
      {"no acceptable still", {kWide, {"portrait_still", "270", "480"}}, 200, "error:No still image url/0"},
      {"the address is not a URI reference", {kWide, {"still", "480", "270", "not an address"}}, 480,
       "error:No still image url/0"},
      {"nothing acceptable at all", {kPortrait}, 200, kUnparsable},
  };
  for (const Row& row : rows) {
    GiphyFixture f;
    f.service->script("get", Answer::json(singleAnswer(picture("a", row.renditions))));
    const ZDSDeferred<Url> deferred = f.controller.getGiphySillImageUrl("a", row.width);
    EXPECT_EQ(f.service->calls(), (std::vector<ServiceCall>{{"get", {"a"}}})) << row.name;
    EXPECT_EQ(describe(deferred), row.outcome) << row.name;
  }
}

TEST(GiphyStillImageUrl, SettlesWhenTheServiceAnswersOnItsThread) {
  GiphyFixture f;
  testing::Hold hold;
  f.service->script("get", Answer::held(hold));
  const ZDSDeferred<Url> deferred = f.controller.getGiphySillImageUrl("a", 200);
  std::optional<std::thread::id> resolvedOn;
  deferred.then([&resolvedOn](const Url&) { resolvedOn = std::this_thread::get_id(); });
  EXPECT_EQ(describe(deferred), "pending");
  std::thread service([&hold] {
    hold.emit(singleAnswer(picture("a", {{"still", "200", "200", "https://media.giphy.com/s.gif"}})));
    hold.emit(singleAnswer(picture("a", {{"still", "200", "200", "https://media.giphy.com/later.gif"}})));
  });
  const std::thread::id serviceThread = service.get_id();
  service.join();
  EXPECT_EQ(describe(deferred), "https://proxy.test/s.gif");
  EXPECT_EQ(resolvedOn, serviceThread);
  EXPECT_FALSE(hold.hasWaitingRequests());  // the first address ended the request
}

}  // namespace
}  // namespace applogic::controllers_test
