#pragma once

#include <cstddef>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "applogic/controllers/current_user.h"
#include "applogic/controllers/services.h"
#include "applogic/rx/observable.h"
#include "applogic/rx/subjects.h"
#include "applogic/support/error.h"
#include "applogic/support/json_fwd.h"
#include "applogic/support/unit.h"
#include "applogic/testing/fault_plan.h"

/// Scripted doubles of the music-service contracts, for testing code that uses the data
/// controllers (or the services) without a network.
///
/// Each scripted service records every call of its operations (`calls()`: the operation's name
/// and its arguments, in order) and answers each request from a script that the test sets per
/// operation (`script(operation, answers)`):
/// - a request is one subscription to what a plain operation returned (the observables stay
///   cold: subscribing twice is two requests), or one emission of the trigger of a paged
///   operation (one page each);
/// - each request takes the next answer of the operation's script; the last answer then answers
///   every further request; an operation without a script fails its requests with
///   `notScriptedError(operation)`;
/// - answers are delivered on the thread that makes the request, during the subscription (or
///   the trigger's emission), except held answers, which arrive on the thread that releases them.
///
/// Update streams are subjects that the test drives (`topChartsUpdatedSubject()` ...).
///
/// Failures can be injected with a shared `FaultPlan` (`setFaultPlan`): every request asks the
/// plan once, before it takes its answer, under the operation's name; a request told to fail
/// fails with `injectedTransportError(operation)` instead of answering. Every update a
/// subscriber of an update stream receives asks the plan once too, under the stream's name
/// ("topChartsUpdated"...); one told to fail reaches that subscriber as a failure result (same
/// user, `injectedTransportError(stream)`), as a refresh whose fetch failed would.
///
/// Thread contract: every member may be called from any thread. The observables returned keep
/// what they need alive: they may outlive the service object.
namespace applogic::testing {

/// One recorded call: the operation's name and its arguments in order. Strings are recorded as
/// given; numbers in decimal; enumeration values by their index ("3" for
/// `AssetFilterType::tracks`). Update-stream accessors are recorded with no arguments; the
/// trigger of a paged operation is not recorded.
struct ServiceCall {
  std::string operation;
  std::vector<std::string> arguments;

  friend bool operator==(const ServiceCall&, const ServiceCall&) = default;
};

/// Prints `operation(arg, arg)`, for test failures.
std::ostream& operator<<(std::ostream& out, const ServiceCall& call);

/// The answers of held requests, released by the test when it chooses (see `Answer::held`).
/// Copies share the same requests.
class Hold {
 public:
  Hold();

  /// Delivers `answer` to every request currently held here.
  void emit(const Json& answer) const;
  /// Completes every request held here, now and later.
  void complete() const;
  /// Fails every request held here, now and later, with `error`.
  void fail(const Error& error) const;
  /// Whether a request is currently waiting here.
  bool hasWaitingRequests() const;

 private:
  friend class Answer;
  rx::PublishSubject<Json> subject_;
};

/// How one request is answered.
class Answer {
 public:
  /// Emits `answer`, then completes.
  static Answer json(Json answer);
  /// Parses `text` and answers with it as `json` does; text that is not JSON is a programming
  /// error of the test and stops the program.
  static Answer jsonText(std::string_view text);
  /// Emits each answer in order, then completes (a service that answers one request several
  /// times).
  static Answer sequence(std::vector<Json> answers);
  /// Fails with `error`, as a failed transport would.
  static Answer failure(Error error);
  /// Waits: the request receives what the test later pushes into `hold`.
  static Answer held(const Hold& hold);
  /// Emits one JSON null, then completes: the answer of an operation that emits `Unit`, where
  /// every emitted value becomes one `Unit` whatever it holds.
  static Answer unit();

  /// The events of one request answered this way.
  const rx::Observable<Json>& observable() const noexcept { return events_; }

 private:
  explicit Answer(rx::Observable<Json> events) : events_(std::move(events)) {}
  rx::Observable<Json> events_;
};

/// The error of a request whose operation has no script: domain "ScriptedService", code 1,
/// user information {"operation": operation}.
Error notScriptedError(std::string_view operation);

/// The failure of a request (or update) that a `FaultPlan` chose to fail: what the HTTP client
/// reports for a connection lost mid-request (`platform::HttpErrorCode::networkConnectionLost`),
/// with a description naming `operation`.
Error injectedTransportError(std::string_view operation);

/// What every scripted service shares: the scripts, the call record and the request counts.
class ScriptedService {
 public:
  virtual ~ScriptedService();

  /// Replaces the script of `operation` (one of the operation names of the concrete service;
  /// any other name is a programming error of the test and stops the program). `answers` must
  /// not be empty.
  void script(std::string_view operation, std::vector<Answer> answers);
  /// `script(operation, {answer})`.
  void script(std::string_view operation, Answer answer);

  /// The plan that chooses which requests and updates fail (see above); null (the default)
  /// fails none. Applies to requests made from now on, including those of observables returned
  /// earlier.
  void setFaultPlan(std::shared_ptr<FaultPlan> plan);

  /// Every call so far, in order.
  std::vector<ServiceCall> calls() const;
  /// How many requests `operation` has answered so far (subscriptions, or pages asked for).
  std::size_t requests(std::string_view operation) const;

 protected:
  explicit ScriptedService(std::vector<std::string> operations);

  /// Records the call and returns an observable whose every subscription is one request.
  rx::Observable<Json> request(std::string operation, std::vector<std::string> arguments);
  /// Records the call and returns an observable that makes one request per emission of
  /// `nextPageTrigger` and completes once the trigger completed and every page is answered.
  rx::Observable<Json> pagedRequest(std::string operation, std::vector<std::string> arguments,
                                    rx::Observable<Unit> nextPageTrigger);
  /// Records a call without arguments and returns `updates` as the update stream `stream`
  /// (whose updates the fault plan may turn into failures).
  rx::Observable<UserResultUpdate> updateStream(std::string stream, rx::Observable<UserResultUpdate> updates);

 private:
  struct State;
  std::shared_ptr<State> state_;
};

class ScriptedTracksService final : public QAPITracksService, public ScriptedService {
 public:
  ScriptedTracksService();
  rx::Observable<Json> getTrackData(const std::string& trackId) override;
  rx::Observable<Json> getTopTracksData(int limit) override;
};

class ScriptedSearchService final : public QAPISearchService, public ScriptedService {
 public:
  ScriptedSearchService();
  rx::Observable<Json> searchTracks(const std::string& query, int limit) override;
};

/// Its update streams are `topChartsUpdatedSubject()` and `topChartsRefreshedSubject()`.
class ScriptedChartsService final : public QAPIChartsService, public ScriptedService {
 public:
  ScriptedChartsService();
  rx::Observable<Json> getCurrentUserTopCharts(ChartType chartType, Range range, int limit) override;
  rx::Observable<UserResultUpdate> topChartsUpdated() override;
  rx::Observable<UserResultUpdate> topChartsRefreshed() override;

  const rx::PublishSubject<UserResultUpdate>& topChartsUpdatedSubject() const noexcept { return updated_; }
  const rx::PublishSubject<UserResultUpdate>& topChartsRefreshedSubject() const noexcept { return refreshed_; }

 private:
  rx::PublishSubject<UserResultUpdate> updated_;
  rx::PublishSubject<UserResultUpdate> refreshed_;
};

class ScriptedFavoritesService final : public QAPIFavoritesService, public ScriptedService {
 public:
  ScriptedFavoritesService();
  rx::Observable<Json> getCurrentUserFavorites(AssetFilterType filter, int offset, int itemPerPage,
                                               rx::Observable<Unit> nextPageTrigger) override;
};

/// Its update streams are `recentTracksUpdatedSubject()` and `recentTracksRefreshedSubject()`.
class ScriptedListeningHistoryService final : public QAPIListeningHistoryService, public ScriptedService {
 public:
  ScriptedListeningHistoryService();
  rx::Observable<Json> getCurrentUserRecentTracks(int limit) override;
  rx::Observable<UserResultUpdate> recentTracksUpdated() override;
  rx::Observable<UserResultUpdate> recentTracksRefreshed() override;

  const rx::PublishSubject<UserResultUpdate>& recentTracksUpdatedSubject() const noexcept { return updated_; }
  const rx::PublishSubject<UserResultUpdate>& recentTracksRefreshedSubject() const noexcept { return refreshed_; }

 private:
  rx::PublishSubject<UserResultUpdate> updated_;
  rx::PublishSubject<UserResultUpdate> refreshed_;
};

class ScriptedGenreService final : public QAPIGenreService, public ScriptedService {
 public:
  ScriptedGenreService();
  rx::Observable<Json> getTopGenres(const std::string& language) override;
  rx::Observable<Json> getGenreTopTracks(const std::string& genreId, int limit) override;
};

class ScriptedPersonalizedService final : public QAPIPersonalizedService, public ScriptedService {
 public:
  ScriptedPersonalizedService();
  rx::Observable<Json> getNewReleaseRecommendedTracks(int offset, int itemsPerPage,
                                                      rx::Observable<Unit> nextPageTrigger) override;
};

/// A `CurrentUserProvider` whose signed-in user the test sets (absent: nobody signed in).
/// Thread-safe.
class ScriptedCurrentUserProvider final : public CurrentUserProvider {
 public:
  explicit ScriptedCurrentUserProvider(std::optional<std::string> userGuid = std::nullopt);
  std::optional<std::string> userGuid() const override;
  void setUserGuid(std::optional<std::string> userGuid);

 private:
  mutable std::mutex mutex_;
  std::optional<std::string> userGuid_;
};

}  // namespace applogic::testing
