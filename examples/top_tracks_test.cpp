// The app's own test: its screen over the scripted tracks service, answers and a failure.
#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "applogic/testing/fault_plan.h"
#include "applogic/testing/scripted_services.h"
#include "top_tracks.h"

namespace {

int failures = 0;

void expect(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "FAILED: %s\n", what);
    ++failures;
  }
}

}  // namespace

int main() {
  using applogic::testing::Answer;
  auto service = std::make_shared<applogic::testing::ScriptedTracksService>();
  const example::TopTracksScreen screen(std::make_shared<applogic::TracksDataController>(service));

  service->script("getTopTracksData", Answer::jsonText(R"({"tracks": [
      {"id": "t1", "name": "Blue", "artistName": "Kai", "playbackSeconds": 205},
      {"id": "t2", "name": "Red", "artistName": "Ana", "playbackSeconds": 59}]})"));
  const std::vector<std::string> lines = screen.load(2);
  expect(lines == std::vector<std::string>{"1. Blue - Kai (3:25)", "2. Red - Ana (0:59)"}, "two ranked lines");
  expect(service->calls().back().arguments == std::vector<std::string>{"2"}, "the limit reaches the service");

  // A request that fails in transport becomes the screen's one error line.
  auto plan = std::make_shared<applogic::testing::FaultPlan>();
  plan->failAt(1);
  service->setFaultPlan(plan);
  const std::vector<std::string> failed = screen.load(2);
  expect(failed.size() == 1 && failed.front().rfind("cannot load the top tracks: applogic.http ", 0) == 0,
         "a failed request is one error line");

  std::puts(failures == 0 ? "top_tracks_test: passed" : "top_tracks_test: FAILED");
  return failures == 0 ? 0 : 1;
}
