#include "applogic/testing/scripted_services.h"

#include <algorithm>
#include <map>
#include <ostream>
#include <utility>

#include <boost/json/parse.hpp>

#include "applogic/platform/http_client.h"
#include "applogic/support/fatal.h"

namespace applogic::testing {
namespace {

template <class Enum>
std::string indexOf(Enum value) {
  return std::to_string(static_cast<long long>(value));
}

}  // namespace

std::ostream& operator<<(std::ostream& out, const ServiceCall& call) {
  out << call.operation << '(';
  for (std::size_t i = 0; i < call.arguments.size(); ++i) {
    out << (i == 0 ? "" : ", ") << call.arguments[i];
  }
  return out << ')';
}

Hold::Hold() = default;

void Hold::emit(const Json& answer) const { subject_.onNext(answer); }
void Hold::complete() const { subject_.onCompleted(); }
void Hold::fail(const Error& error) const { subject_.onError(error); }
bool Hold::hasWaitingRequests() const { return subject_.hasObservers(); }

Answer Answer::json(Json answer) { return Answer(rx::just(std::move(answer))); }

Answer Answer::jsonText(std::string_view text) {
  boost::system::error_code error;
  Json answer = boost::json::parse(text, error);
  if (error) fatalError("Answer::jsonText: not JSON: " + error.message());
  return json(std::move(answer));
}

Answer Answer::sequence(std::vector<Json> answers) { return Answer(rx::from(std::move(answers))); }

Answer Answer::failure(Error error) { return Answer(rx::error<Json>(std::move(error))); }

Answer Answer::held(const Hold& hold) { return Answer(hold.subject_.asObservable()); }

Answer Answer::unit() { return json(nullptr); }

Error notScriptedError(std::string_view operation) {
  return Error{"ScriptedService", 1, {{"operation", std::string(operation)}}};
}

Error injectedTransportError(std::string_view operation) {
  return platform::makeHttpError(platform::HttpErrorCode::networkConnectionLost,
                                 "connection lost (injected fault in " + std::string(operation) + ")");
}

struct ScriptedService::State {
  struct Script {
    std::vector<Answer> answers;
    std::size_t next = 0;
  };

  explicit State(std::vector<std::string> names) : operations(std::move(names)) {}

  bool knows(std::string_view operation) const {
    return std::find(operations.begin(), operations.end(), operation) != operations.end();
  }

  // The events of the next request of `operation`. Taken under the lock, subscribed outside it:
  // a held answer may be released from another thread while this one subscribes.
  rx::Observable<Json> take(const std::string& operation) {
    std::lock_guard lock(mutex);
    ++requests[operation];
    if (plan && plan->fails(operation)) return rx::error<Json>(injectedTransportError(operation));
    auto found = scripts.find(operation);
    if (found == scripts.end()) return rx::error<Json>(notScriptedError(operation));
    Script& script = found->second;
    const Answer& answer = script.answers[std::min(script.next, script.answers.size() - 1)];
    ++script.next;
    return answer.observable();
  }

  const std::vector<std::string> operations;
  mutable std::mutex mutex;
  std::map<std::string, Script, std::less<>> scripts;
  std::map<std::string, std::size_t, std::less<>> requests;
  std::vector<ServiceCall> calls;
  std::shared_ptr<FaultPlan> plan;
};

ScriptedService::ScriptedService(std::vector<std::string> operations)
    : state_(std::make_shared<State>(std::move(operations))) {}

ScriptedService::~ScriptedService() = default;

void ScriptedService::script(std::string_view operation, std::vector<Answer> answers) {
  if (!state_->knows(operation)) fatalError("ScriptedService::script: no operation named " + std::string(operation));
  if (answers.empty()) fatalError("ScriptedService::script: no answer for " + std::string(operation));
  std::lock_guard lock(state_->mutex);
  state_->scripts.insert_or_assign(std::string(operation), State::Script{std::move(answers), 0});
}

void ScriptedService::script(std::string_view operation, Answer answer) {
  script(operation, std::vector<Answer>{std::move(answer)});
}

void ScriptedService::setFaultPlan(std::shared_ptr<FaultPlan> plan) {
  std::lock_guard lock(state_->mutex);
  state_->plan = std::move(plan);
}

std::vector<ServiceCall> ScriptedService::calls() const {
  std::lock_guard lock(state_->mutex);
  return state_->calls;
}

std::size_t ScriptedService::requests(std::string_view operation) const {
  std::lock_guard lock(state_->mutex);
  auto found = state_->requests.find(operation);
  return found == state_->requests.end() ? 0 : found->second;
}

rx::Observable<Json> ScriptedService::request(std::string operation, std::vector<std::string> arguments) {
  {
    std::lock_guard lock(state_->mutex);
    state_->calls.push_back(ServiceCall{operation, std::move(arguments)});
  }
  // The answer is taken when someone subscribes, not when the operation is called, so that
  // every subscription is a request of its own.
  return rx::just(unit).flatMap(
      [state = state_, operation = std::move(operation)](const Unit&) { return state->take(operation); });
}

rx::Observable<Json> ScriptedService::pagedRequest(std::string operation, std::vector<std::string> arguments,
                                                   rx::Observable<Unit> nextPageTrigger) {
  {
    std::lock_guard lock(state_->mutex);
    state_->calls.push_back(ServiceCall{operation, std::move(arguments)});
  }
  return nextPageTrigger.flatMap(
      [state = state_, operation = std::move(operation)](const Unit&) { return state->take(operation); });
}

rx::Observable<UserResultUpdate> ScriptedService::updateStream(std::string stream,
                                                               rx::Observable<UserResultUpdate> updates) {
  {
    std::lock_guard lock(state_->mutex);
    state_->calls.push_back(ServiceCall{stream, {}});
  }
  return updates.map([state = state_, stream = std::move(stream)](const UserResultUpdate& update) {
    std::shared_ptr<FaultPlan> plan;
    {
      std::lock_guard lock(state->mutex);
      plan = state->plan;
    }
    if (!plan || !plan->fails(stream)) return update;
    return UserResultUpdate{update.user, Result<Json>::failure(injectedTransportError(stream))};
  });
}

ScriptedTracksService::ScriptedTracksService() : ScriptedService({"getTrackData", "getTopTracksData"}) {}

rx::Observable<Json> ScriptedTracksService::getTrackData(const std::string& trackId) {
  return request("getTrackData", {trackId});
}

rx::Observable<Json> ScriptedTracksService::getTopTracksData(int limit) {
  return request("getTopTracksData", {std::to_string(limit)});
}

ScriptedSearchService::ScriptedSearchService() : ScriptedService({"searchTracks"}) {}

rx::Observable<Json> ScriptedSearchService::searchTracks(const std::string& query, int limit) {
  return request("searchTracks", {query, std::to_string(limit)});
}

ScriptedChartsService::ScriptedChartsService() : ScriptedService({"getCurrentUserTopCharts"}) {}

rx::Observable<Json> ScriptedChartsService::getCurrentUserTopCharts(ChartType chartType, Range range, int limit) {
  return request("getCurrentUserTopCharts", {indexOf(chartType), indexOf(range), std::to_string(limit)});
}

rx::Observable<UserResultUpdate> ScriptedChartsService::topChartsUpdated() {
  return updateStream("topChartsUpdated", updated_.asObservable());
}

rx::Observable<UserResultUpdate> ScriptedChartsService::topChartsRefreshed() {
  return updateStream("topChartsRefreshed", refreshed_.asObservable());
}

ScriptedFavoritesService::ScriptedFavoritesService() : ScriptedService({"getCurrentUserFavorites"}) {}

rx::Observable<Json> ScriptedFavoritesService::getCurrentUserFavorites(AssetFilterType filter, int offset,
                                                                       int itemPerPage,
                                                                       rx::Observable<Unit> nextPageTrigger) {
  return pagedRequest("getCurrentUserFavorites", {indexOf(filter), std::to_string(offset), std::to_string(itemPerPage)},
                      std::move(nextPageTrigger));
}

ScriptedListeningHistoryService::ScriptedListeningHistoryService()
    : ScriptedService({"getCurrentUserRecentTracks"}) {}

rx::Observable<Json> ScriptedListeningHistoryService::getCurrentUserRecentTracks(int limit) {
  return request("getCurrentUserRecentTracks", {std::to_string(limit)});
}

rx::Observable<UserResultUpdate> ScriptedListeningHistoryService::recentTracksUpdated() {
  return updateStream("recentTracksUpdated", updated_.asObservable());
}

rx::Observable<UserResultUpdate> ScriptedListeningHistoryService::recentTracksRefreshed() {
  return updateStream("recentTracksRefreshed", refreshed_.asObservable());
}

ScriptedGenreService::ScriptedGenreService() : ScriptedService({"getTopGenres", "getGenreTopTracks"}) {}

rx::Observable<Json> ScriptedGenreService::getTopGenres(const std::string& language) {
  return request("getTopGenres", {language});
}

rx::Observable<Json> ScriptedGenreService::getGenreTopTracks(const std::string& genreId, int limit) {
  return request("getGenreTopTracks", {genreId, std::to_string(limit)});
}

ScriptedPersonalizedService::ScriptedPersonalizedService() : ScriptedService({"getNewReleaseRecommendedTracks"}) {}

rx::Observable<Json> ScriptedPersonalizedService::getNewReleaseRecommendedTracks(
    int offset, int itemsPerPage, rx::Observable<Unit> nextPageTrigger) {
  return pagedRequest("getNewReleaseRecommendedTracks", {std::to_string(offset), std::to_string(itemsPerPage)},
                      std::move(nextPageTrigger));
}

ScriptedCurrentUserProvider::ScriptedCurrentUserProvider(std::optional<std::string> userGuid)
    : userGuid_(std::move(userGuid)) {}

std::optional<std::string> ScriptedCurrentUserProvider::userGuid() const {
  std::lock_guard lock(mutex_);
  return userGuid_;
}

void ScriptedCurrentUserProvider::setUserGuid(std::optional<std::string> userGuid) {
  std::lock_guard lock(mutex_);
  userGuid_ = std::move(userGuid);
}

}  // namespace applogic::testing
