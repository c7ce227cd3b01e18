#include "emulator/catalog_server.h"

#include <sys/socket.h>

#include <charconv>
#include <condition_variable>
#include <deque>
#include <limits>
#include <mutex>

#include <httplib.h>

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/parse.hpp>
#include <boost/json/serialize.hpp>

#include "applogic/support/strings.h"
#include "applogic/testing/wav_clip.h"
#include "catalog_media.h"
#include "emulator/catalog_data.h"
#include "errors.h"
#include "https_host.h"
#include "signin_authority.h"
#include "web_text.h"

namespace applogic::emulator {
namespace {

using boost::json::array;
using boost::json::object;
using detail::Answer;
using detail::find;

constexpr std::string_view kControlPrefix = "/__control/catalog/";
// Every client holds up to four event streams beside its pooled requests.
constexpr std::size_t kWorkerThreads = 32;
// JSON answers are sent as they are: cpp-httplib compresses exactly "application/json" with
// brotli at its highest quality, which costs a millisecond or more per answer and saves nothing
// on loopback; with the charset it leaves them alone.
constexpr std::string_view kJsonType = "application/json; charset=utf-8";
constexpr std::size_t kKeptEvents = 256;
// Bounds the memory of a long run (a benchmark's loop).
constexpr std::size_t kKeptRequests = 10000;
constexpr std::int64_t kDefaultLimit = 50;
constexpr std::size_t kRecommendations = 20;
constexpr double kPreviewSeconds = 3;
constexpr std::chrono::milliseconds kWaitSlice{50};
constexpr std::string_view kTopics[] = {"charts.updated", "charts.refreshed", "history.updated", "history.refreshed"};

Answer jsonAnswer(int status, const boost::json::value& body) {
  return Answer{status, std::string(kJsonType), boost::json::serialize(body), {}};
}

Answer apiError(int status, std::string_view message) {
  return jsonAnswer(status, object{{"error", object{{"status", status}, {"message", message}}}});
}

Answer giphyError(int status, std::string_view message) {
  return jsonAnswer(status, object{{"meta", object{{"status", status}, {"msg", message}}}});
}

Answer unauthorized(std::string_view message) {
  Answer answer = apiError(401, message);
  answer.headers.emplace_back("WWW-Authenticate", "Bearer error=\"invalid_token\"");
  return answer;
}

Answer noContent() { return Answer{204, "", "", {}}; }

// A decimal number: digits only.
std::optional<std::int64_t> decimal(std::string_view text) {
  std::int64_t value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (text.empty() || error != std::errc() || end != text.data() + text.size() || value < 0) return std::nullopt;
  return value;
}

std::vector<std::string> split(std::string_view text, char separator) {
  std::vector<std::string> parts;
  std::size_t start = 0;
  while (true) {
    const std::size_t end = text.find(separator, start);
    parts.emplace_back(text.substr(start, end == std::string_view::npos ? std::string_view::npos : end - start));
    if (end == std::string_view::npos) return parts;
    start = end + 1;
  }
}

// Percent-decodes a path segment, where a "+" is itself.
std::string pathDecode(std::string_view segment) {
  std::string escaped;
  for (const char c : segment) escaped += c == '+' ? std::string_view("%2B") : std::string_view(&c, 1);
  return detail::formDecode(escaped);
}

bool isTopic(std::string_view topic) {
  for (std::string_view known : kTopics) {
    if (topic == known) return true;
  }
  return false;
}

// Paging parameters: absent limit = kDefaultLimit, absent offset = 0; anything else out of range
// is refused.
struct Page {
  std::size_t offset = 0;
  std::size_t limit = kDefaultLimit;
};
std::optional<Page> pageOf(const Pairs& query) {
  Page page;
  if (const auto limit = find(query, "limit")) {
    const auto value = decimal(*limit);
    if (!value || *value < 1 || *value > 500) return std::nullopt;
    page.limit = static_cast<std::size_t>(*value);
  }
  if (const auto offset = find(query, "offset")) {
    const auto value = decimal(*offset);
    if (!value) return std::nullopt;
    page.offset = static_cast<std::size_t>(*value);
  }
  return page;
}

// The track ids of a {"trackIds": [...]} body.
std::optional<std::vector<std::string>> trackIdsOf(const std::string& body) {
  boost::system::error_code error;
  const boost::json::value json = boost::json::parse(body, error);
  const auto* list = error || !json.is_object() ? nullptr : json.as_object().if_contains("trackIds");
  if (list == nullptr || !list->is_array()) return std::nullopt;
  std::vector<std::string> ids;
  for (const auto& id : list->as_array()) {
    if (!id.is_string()) return std::nullopt;
    ids.emplace_back(id.as_string());
  }
  return ids;
}

std::optional<std::string> stringMember(const std::string& body, std::string_view name) {
  boost::system::error_code error;
  const boost::json::value json = boost::json::parse(body, error);
  const auto* value = error || !json.is_object() ? nullptr : json.as_object().if_contains(name);
  if (value == nullptr || !value->is_string()) return std::nullopt;
  return std::string(value->as_string());
}

bool isConnectionPseudoHeader(std::string_view name) {
  return name == "REMOTE_ADDR" || name == "REMOTE_PORT" || name == "LOCAL_ADDR" || name == "LOCAL_PORT";
}

struct Event {
  std::uint64_t id = 0;
  std::string topic;
  std::string text;  // the whole event, as sent
};

// A byte range of a preview: [first, first + length).
struct Range {
  std::size_t first = 0;
  std::size_t length = 0;
};
// Absent: unsatisfiable or malformed.
std::optional<Range> rangeOf(std::string_view header, std::size_t size) {
  if (header.rfind("bytes=", 0) != 0 || header.find(',') != std::string_view::npos) return std::nullopt;
  const std::string_view bounds = header.substr(6);
  const std::size_t dash = bounds.find('-');
  if (dash == std::string_view::npos) return std::nullopt;
  const std::string_view from = bounds.substr(0, dash);
  const std::string_view to = bounds.substr(dash + 1);
  if (from.empty()) {  // a suffix: the last n bytes
    const std::int64_t n = decimal(to).value_or(0);
    if (n == 0 || size == 0) return std::nullopt;
    const std::size_t length = std::min(size, static_cast<std::size_t>(n));
    return Range{size - length, length};
  }
  const std::optional<std::int64_t> first = decimal(from);
  const std::int64_t last = to.empty() ? std::numeric_limits<std::int64_t>::max() : decimal(to).value_or(-1);
  if (!first || last < *first || static_cast<std::size_t>(*first) >= size) return std::nullopt;
  const auto begin = static_cast<std::size_t>(*first);
  return Range{begin, std::min(size - 1, static_cast<std::size_t>(last)) - begin + 1};
}

}  // namespace

class CatalogServer::Impl {
 public:
  Impl(CatalogServerOptions options, std::shared_ptr<const detail::TlsIdentity> identity, detail::CaFile caFile)
      : options_(std::move(options)),
        identity_(std::move(identity)),
        caFile_(std::move(caFile)),
        data_(options_.seed),
        latency_(options_.latency),
        preview_(testing::toneWavClip(kPreviewSeconds)),
        host_(*identity_, kWorkerThreads,
              [this](const httplib::Request& request, httplib::Response& response) { handle(request, response); }) {}

  ~Impl() {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    host_.stop();
    detail::removeCaFile(caFile_);
  }

  bool tlsReady() const { return host_.ready(); }
  std::optional<Error> listen(std::uint16_t port) {
    return host_.listen(port, [this](std::uint16_t bound) { base_ = "https://127.0.0.1:" + std::to_string(bound); });
  }
  std::uint16_t port() const { return host_.port(); }
  const std::string& base() const { return base_; }
  const std::filesystem::path& caPath() const { return caFile_.path; }

  void setLatency(std::chrono::milliseconds latency) {
    std::lock_guard lock(mutex_);
    latency_ = latency;
  }
  void failNext(int n) { adjust(failures_, n); }
  void dropNext(int n) { adjust(drops_, n); }
  void expireNext(int n) { adjust(expiries_, n); }
  bool pushForeignEvent(std::string_view topic, std::string_view userId) {
    if (topic != "charts.updated" && topic != "history.updated") return false;
    {
      std::lock_guard lock(mutex_);
      emit(std::string(topic), boost::json::value(std::string(userId)));
    }
    changed_.notify_all();
    return true;
  }
  std::vector<RecordedRequest> requests() const {
    std::lock_guard lock(mutex_);
    return {requests_.begin(), requests_.end()};
  }
  int abandonedRequests() const {
    std::lock_guard lock(mutex_);
    return abandoned_;
  }
  void reset() {
    std::lock_guard lock(mutex_);
    data_ = CatalogData(options_.seed);
    latency_ = options_.latency;
    failures_ = drops_ = expiries_ = 0;
    requests_.clear();
    abandoned_ = 0;
    events_.clear();
  }

 private:
  // What a request takes from the knobs when it arrives.
  struct Taken {
    std::chrono::milliseconds latency{0};
    bool drop = false;
    bool fail = false;
    bool expire = false;
    // The last event when the request arrived: a stream without Last-Event-ID starts after it,
    // so an event pushed once the request is recorded reaches it.
    std::uint64_t lastEvent = 0;
  };

  void adjust(int& counter, int n) {
    std::lock_guard lock(mutex_);
    counter += std::max(n, 0);
  }

  void handle(const httplib::Request& request, httplib::Response& response) {
    // Previews answer ranges themselves; cpp-httplib would otherwise cut every answer of a request
    // with a Range header, error pages included. The request object itself is not const.
    const_cast<httplib::Request&>(request).ranges.clear();
    Answer answer;
    try {
      answer = answerFor(request, response);
    } catch (const std::exception& error) {
      answer = apiError(500, error.what());
    }
    if (answer.status == 0) return;  // the answer is already made (a stream, a dropped connection)
    response.status = answer.status;
    for (const auto& [name, value] : answer.headers) response.set_header(name, value);
    if (!answer.contentType.empty()) response.set_content(answer.body, answer.contentType.c_str());
  }

  Answer answerFor(const httplib::Request& request, httplib::Response& response) {
    const std::string_view target = request.target;
    const std::size_t questionMark = target.find('?');
    const Pairs query =
        questionMark == std::string_view::npos ? Pairs{} : detail::parseForm(target.substr(questionMark + 1));
    if (request.path.rfind(kControlPrefix, 0) == 0) return control(request, query);

    const int socket = detail::socketOf(request);
    const std::string_view path = request.path;
    const bool credentialed = path.rfind("/v1/", 0) == 0 || path.rfind("/giphy/v1/", 0) == 0;
    Taken taken;
    {
      std::lock_guard lock(mutex_);
      record(request, query);
      taken.lastEvent = nextEventId_ - 1;
      taken.latency = latency_;
      const auto takeOne = [](int& counter) { return counter > 0 && counter-- > 0; };
      taken.drop = takeOne(drops_);
      taken.fail = !taken.drop && takeOne(failures_);
      taken.expire = credentialed && !taken.drop && !taken.fail && takeOne(expiries_);
    }
    if (taken.latency.count() > 0 && !waitOrAbandon(socket, taken.latency)) return drop(socket, response);
    if (taken.drop) return drop(socket, response);

    const bool giphy = path.rfind("/giphy/", 0) == 0;
    if (taken.fail) {
      return giphy ? giphyError(500, "Internal Server Error") : apiError(500, "The service is temporarily unable to answer.");
    }
    if (path.rfind("/previews/", 0) == 0) return preview(request, path.substr(10));
    if (path.rfind("/giphy/media/", 0) == 0) return giphyMedia(path.substr(13));
    if (path.rfind("/giphy/v1/", 0) == 0) {
      if (taken.expire || find(query, "api_key") != std::optional<std::string_view>(options_.giphyApiKey)) {
        return giphyError(401, "Unauthorized");
      }
      return giphyApi(request.method, path.substr(10), query);
    }
    if (path.rfind("/v1/", 0) != 0) return apiError(404, "Nothing is served at " + request.path + ".");
    if (taken.expire) return unauthorized("The access token has expired.");
    const std::string authorization = request.get_header_value("Authorization");
    if (authorization.size() <= 7 || !equalsIgnoringAsciiCase(authorization.substr(0, 7), "Bearer ")) {
      return unauthorized("The request carries no bearer token.");
    }
    const std::optional<std::string> user = options_.verifyToken(std::string_view(authorization).substr(7));
    if (!user) return unauthorized("The access token is unknown, expired or revoked.");

    std::vector<std::string> segments = split(path.substr(4), '/');
    for (std::string& segment : segments) segment = pathDecode(segment);
    if (request.method == "GET" && segments == std::vector<std::string>{"me", "events"}) {
      return events(request, query, response, socket, taken.lastEvent);
    }
    std::lock_guard lock(mutex_);
    Answer answer = api(request, segments, query);
    if (emitted_) {
      emitted_ = false;
      changed_.notify_all();
    }
    return answer;
  }

  // Waits `latency`; false when the client closed the connection meanwhile. Stopping the server
  // ends the wait at once.
  bool waitOrAbandon(int socket, std::chrono::milliseconds latency) {
    const auto deadline = std::chrono::steady_clock::now() + latency;
    while (true) {
      {
        std::lock_guard lock(mutex_);
        if (stopping_) return true;
      }
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
      if (left.count() <= 0) return true;
      if (detail::peerClosed(socket, std::min(left, kWaitSlice))) {
        std::lock_guard lock(mutex_);
        ++abandoned_;
        return false;
      }
    }
  }

  static Answer drop(int socket, httplib::Response& response) {
    if (socket >= 0) ::shutdown(socket, SHUT_RDWR);
    response.status = 500;
    return Answer{0, "", "", {}};
  }

  // Under the lock.
  void record(const httplib::Request& request, const Pairs& query) {
    RecordedRequest recorded{request.method, request.path, {}, query, {}, request.body};
    for (const auto& [name, value] : request.headers) {
      if (!isConnectionPseudoHeader(name)) recorded.headers.emplace_back(name, value);
    }
    requests_.push_back(std::move(recorded));
    if (requests_.size() > kKeptRequests) requests_.pop_front();
  }

  object track(std::size_t index) const {
    const CatalogTrack& track = data_.tracks()[index];
    const CatalogAlbum& album = data_.albums()[track.album];
    const CatalogArtist& artist = data_.artists()[album.artist];
    return object{{"type", "track"},
                  {"id", track.id},
                  {"name", track.name},
                  {"playbackSeconds", track.playbackSeconds},
                  {"explicit", track.isExplicit},
                  {"artistId", artist.id},
                  {"artistName", artist.name},
                  {"albumId", album.id},
                  {"albumName", album.name},
                  {"genreId", data_.genres()[track.genre].id},
                  {"isStreamable", track.isStreamable},
                  {"previewURL", base_ + "/previews/" + track.id + ".wav"}};
  }

  array tracks(const std::vector<std::size_t>& indexes, std::size_t offset = 0,
               std::size_t limit = static_cast<std::size_t>(-1)) const {
    array list;
    for (std::size_t i = offset; i < indexes.size() && i - offset < limit; ++i) list.push_back(track(indexes[i]));
    return list;
  }

  static object meta(const Page& page, std::size_t returned, std::size_t total) {
    return object{{"query", object{{"limit", page.limit}, {"offset", page.offset}}},
                  {"returnedCount", returned},
                  {"totalCount", total}};
  }

  Answer pagedTracks(const std::vector<std::size_t>& indexes, const Page& page) const {
    array list = tracks(indexes, page.offset, page.limit);
    const std::size_t returned = list.size();
    return jsonAnswer(200, object{{"meta", meta(page, returned, indexes.size())}, {"tracks", std::move(list)}});
  }

  object history(std::size_t limit) const {
    array list;
    for (const CatalogPlay& play : data_.history()) {
      if (list.size() == limit) break;
      object entry = track(play.track);
      entry["playedAt"] = detail::isoUtc(play.at);
      list.push_back(std::move(entry));
    }
    return object{{"tracks", std::move(list)}};
  }

  object charts(bool month, std::size_t limit) const {
    array list;
    for (std::size_t index : data_.chart(month)) {
      if (list.size() == limit) break;
      const CatalogTrack& entry = data_.tracks()[index];
      list.push_back(object{{"id", entry.id},
                            {"type", "track"},
                            {"playCount", month ? entry.monthPlays : entry.allTimePlays},
                            {"linked", object{{"tracks", array{track(index)}}}}});
    }
    return object{{"charts", std::move(list)}};
  }

  object playlist(std::size_t index, std::optional<std::pair<std::string, std::string>> size = std::nullopt) const {
    const CatalogPlaylist& playlist = data_.playlists()[index];
    return object{{"type", "playlist"},
                  {"id", playlist.id},
                  {"name", playlist.name},
                  {"privacy", playlist.privacy},
                  {"artistId", options_.accountUserId},
                  {"trackCount", playlist.tracks.size()},
                  {"images", images(index, std::move(size))}};
  }

  array images(std::size_t index, std::optional<std::pair<std::string, std::string>> size) const {
    const CatalogPlaylist& playlist = data_.playlists()[index];
    array list;
    for (const CatalogImage& image : playlist.displayImages) {
      std::string url = base_ + "/v1/images/" + image.id;
      if (size) url += "?width=" + size->first + "&height=" + size->second;
      list.push_back(object{{"imageType", "displayImage"},
                            {"id", image.id},
                            {"version", image.version},
                            {"isDefault", image.isDefault},
                            {"url", url}});
    }
    if (playlist.giphyId) list.push_back(object{{"imageType", "giphyImage"}, {"id", *playlist.giphyId}});
    return list;
  }

  // Under the lock. Keeps an event for `topic`; `user` is null for the account's own lists.
  void emit(const std::string& topic, boost::json::value user) {
    object answer = topic.rfind("history.", 0) == 0 ? history(kDefaultLimit) : charts(true, kDefaultLimit);
    const std::uint64_t id = nextEventId_++;
    const std::string data = boost::json::serialize(object{{"user", std::move(user)}, {"answer", std::move(answer)}});
    events_.push_back(Event{id, topic, "id: " + std::to_string(id) + "\nevent: " + topic + "\ndata: " + data + "\n\n"});
    if (events_.size() > kKeptEvents) events_.pop_front();
    emitted_ = true;
  }

  // Under the lock.
  void play(std::size_t track) {
    data_.recordPlay(track, std::chrono::system_clock::now());
    emit("history.updated", nullptr);
    emit("charts.updated", nullptr);
  }

  // Under the lock.
  Answer api(const httplib::Request& request, const std::vector<std::string>& segments, const Pairs& query) {
    const std::string& method = request.method;
    const auto badRequest = [](std::string_view message) { return apiError(400, message); };
    const std::size_t n = segments.size();
    const auto is = [&](std::initializer_list<std::string_view> parts) {
      if (parts.size() != n) return false;
      std::size_t i = 0;
      for (std::string_view part : parts) {
        if (part != "*" && part != segments[i]) return false;
        ++i;
      }
      return true;
    };
    const std::optional<Page> page = pageOf(query);
    if (!page) return badRequest("limit is 1 to 500 and offset 0 or more.");

    if (method == "GET") {
      if (is({"tracks", "top"})) {
        const std::vector<std::size_t> all = data_.chart(false);
        return pagedTracks(all, *page);
      }
      if (is({"tracks", "*"})) {
        const auto index = data_.track(segments[1]);
        if (!index) return apiError(404, "No track " + segments[1] + ".");
        return jsonAnswer(200, object{{"meta", object{{"returnedCount", 1}, {"totalCount", 1}}},
                                      {"tracks", array{track(*index)}}});
      }
      if (is({"search"})) {
        const std::string q(find(query, "q").value_or(""));
        const std::vector<std::size_t> found = data_.search(q);
        array list = tracks(found, 0, page->limit);
        const std::size_t returned = list.size();
        return jsonAnswer(200, object{{"meta", object{{"query", q}, {"returnedCount", returned}, {"totalCount", found.size()}}},
                                      {"data", std::move(list)}});
      }
      if (is({"me", "charts", "tracks"})) {
        const auto range = find(query, "range").value_or("month");
        if (range != "month" && range != "all") return badRequest("range is month or all.");
        return jsonAnswer(200, charts(range == "month", page->limit));
      }
      if (is({"me", "favorites"})) {
        const auto filter = find(query, "filter").value_or("all");
        if (filter != "all" && filter != "artists" && filter != "albums" && filter != "tracks" && filter != "playlists") {
          return badRequest("filter is all, artists, albums, tracks or playlists.");
        }
        static const std::vector<std::size_t> none;
        const std::vector<std::size_t>& favourites =
            filter == "all" || filter == "tracks" ? data_.favourites() : none;
        array list;
        for (std::size_t i = page->offset; i < favourites.size() && list.size() < page->limit; ++i) {
          list.push_back(object{{"id", data_.tracks()[favourites[i]].id},
                                {"type", "track"},
                                {"linked", object{{"tracks", array{track(favourites[i])}}}}});
        }
        const std::size_t returned = list.size();
        return jsonAnswer(200, object{{"meta", meta(*page, returned, favourites.size())}, {"favorites", std::move(list)}});
      }
      if (is({"me", "history"})) return jsonAnswer(200, history(page->limit));
      if (is({"genres"})) {
        array list;
        for (const CatalogGenre& genre : data_.genres()) {
          list.push_back(object{{"id", genre.id}, {"name", genre.name}, {"description", genre.description},
                                {"shortcut", genre.shortcut}});
        }
        return jsonAnswer(200, object{{"genres", std::move(list)}});
      }
      if (is({"genres", "*", "tracks"})) {
        const auto genre = data_.genre(segments[1]);
        if (!genre) return apiError(404, "No genre " + segments[1] + ".");
        return jsonAnswer(200, object{{"tracks", tracks(data_.genreTracks(*genre), 0, page->limit)}});
      }
      if (is({"me", "new-releases"})) return pagedTracks(data_.newReleases(), *page);
      if (is({"images", "*"})) {
        const auto width = decimal(find(query, "width").value_or("64"));
        const auto height = decimal(find(query, "height").value_or("64"));
        if (!width || !height || *width < 1 || *height < 1 || *width > 2000 || *height > 2000) {
          return badRequest("width and height are 1 to 2000.");
        }
        std::uint32_t seed = 0;
        for (char c : segments[1]) seed = seed * 31 + static_cast<unsigned char>(c);
        return Answer{200, "image/png", detail::solidPng(static_cast<int>(*width), static_cast<int>(*height), seed), {}};
      }
    }
    if (method == "POST" && is({"me", "history"})) {
      const auto id = stringMember(request.body, "trackId");
      if (!id) return badRequest("The body is {\"trackId\": id}.");
      const auto index = data_.track(*id);
      if (!index) return badRequest("No track " + *id + ".");
      play(*index);
      return noContent();
    }
    if (method == "POST" && (is({"me", "charts", "refresh"}) || is({"me", "history", "refresh"}))) {
      emit(segments[1] + ".refreshed", nullptr);
      return noContent();
    }
    if (method == "POST" && is({"me", "recommendations", "rejections"})) {
      const auto ids = trackIdsOf(request.body);
      if (!ids) return badRequest("The body is {\"trackIds\": [id, ...]}.");
      const auto rejected = data_.reject(*ids);
      if (!rejected) return badRequest("An id is not a track of the catalog.");
      return jsonAnswer(200, object{{"rejected", *rejected}});
    }
    if (n >= 2 && segments[0] == "playlists") return playlists(request, segments, *page, query);
    return apiError(404, "Nothing is served at " + request.method + " " + request.path + ".");
  }

  // Under the lock.
  Answer playlists(const httplib::Request& request, const std::vector<std::string>& segments, const Page& page,
                   const Pairs& query) {
    const auto index = data_.playlist(segments[1]);
    if (!index) return apiError(404, "No playlist " + segments[1] + ".");
    const std::string& method = request.method;
    const std::string part = segments.size() == 3 ? segments[2] : segments.size() == 2 ? "" : "/";
    const auto one = [&] { return jsonAnswer(200, object{{"playlists", array{playlist(*index)}}}); };
    if (method == "GET" && part.empty()) return one();
    if (method == "GET" && part == "tracks") return pagedTracks(data_.playlists()[*index].tracks, page);
    if (method == "GET" && part == "images") {
      const auto width = find(query, "width");
      const auto height = find(query, "height");
      if (width.has_value() != height.has_value() || (width && (!decimal(*width) || !decimal(*height)))) {
        return apiError(400, "width and height are both given, as decimal numbers, or neither.");
      }
      std::optional<std::pair<std::string, std::string>> size;
      if (width) size.emplace(*width, *height);
      return jsonAnswer(200, object{{"images", images(*index, std::move(size))}});
    }
    if (method == "GET" && part == "recommendations") {
      return jsonAnswer(200, object{{"tracks", tracks(data_.recommendations(*index, kRecommendations))}});
    }
    if (method == "PUT" && part == "giphy") {
      const auto gif = stringMember(request.body, "gifId");
      if (!gif || gif->empty()) return apiError(400, "The body is {\"gifId\": id}.");
      data_.setGiphy(*index, *gif);
      return one();
    }
    if (method == "DELETE" && part == "giphy") {
      data_.setGiphy(*index, std::nullopt);
      return one();
    }
    if (method == "PUT" && part == "image") {
      if (request.body.empty()) return apiError(400, "The body is the image's bytes.");
      data_.addDisplayImage(*index);
      return noContent();
    }
    if ((method == "POST" || method == "PUT") && part == "tracks") {
      const auto ids = trackIdsOf(request.body);
      if (!ids) return apiError(400, "The body is {\"trackIds\": [id, ...]}.");
      const bool changed = method == "POST" ? data_.appendTracks(*index, *ids) : data_.replaceTracks(*index, *ids);
      if (!changed) return apiError(400, "An id is not a track of the catalog.");
      return noContent();
    }
    return apiError(404, "Nothing is served at " + request.method + " " + request.path + ".");
  }

  Answer events(const httplib::Request& request, const Pairs& query, httplib::Response& response, int socket,
                std::uint64_t lastEventAtArrival) {
    std::vector<std::string> topics = split(find(query, "topics").value_or(""), ',');
    for (const std::string& topic : topics) {
      if (!isTopic(topic)) return apiError(400, "topics are charts.updated, charts.refreshed, history.updated or history.refreshed.");
    }
    std::uint64_t after = lastEventAtArrival;
    if (const auto last = decimal(request.get_header_value("Last-Event-ID"))) after = static_cast<std::uint64_t>(*last);
    response.status = 200;
    response.set_header("Cache-Control", "no-cache");
    auto sent = std::make_shared<std::uint64_t>(after);
    response.set_chunked_content_provider(
        "text/event-stream",
        [this, topics = std::move(topics), sent, socket](std::size_t, httplib::DataSink& sink) {
          return stream(topics, *sent, socket, sink);
        });
    return Answer{0, "", "", {}};
  }

  // One call of an event stream's provider: writes the next events or a keep-alive comment;
  // false ends the stream (the server stops, or the client went away).
  bool stream(const std::vector<std::string>& topics, std::uint64_t& sent, int socket, httplib::DataSink& sink) {
    const auto keepAliveAt = std::chrono::steady_clock::now() + options_.keepAliveInterval;
    // The client went away (its close seen, or a write refused), unless the server is stopping.
    const auto gone = [this] {
      std::lock_guard lock(mutex_);
      if (!stopping_) ++abandoned_;
      return false;
    };
    while (true) {
      std::string out;
      {
        std::unique_lock lock(mutex_);
        changed_.wait_for(lock, kWaitSlice, [&] { return stopping_ || nextEventId_ - 1 > sent; });
        if (stopping_) return false;
        for (const Event& event : events_) {
          if (event.id <= sent) continue;
          if (std::find(topics.begin(), topics.end(), event.topic) != topics.end()) out += event.text;
        }
        sent = std::max(sent, nextEventId_ - 1);
      }
      if (out.empty() && std::chrono::steady_clock::now() >= keepAliveAt) out = ": keep-alive\n\n";
      if (!out.empty()) return sink.write(out.data(), out.size()) || gone();
      if (detail::peerClosed(socket, std::chrono::milliseconds(0))) return gone();
    }
  }

  Answer preview(const httplib::Request& request, std::string_view name) {
    constexpr std::string_view kSuffix = ".wav";
    if (name.size() <= kSuffix.size() || name.substr(name.size() - kSuffix.size()) != kSuffix) {
      return apiError(404, "Previews are /previews/<trackId>.wav.");
    }
    const std::string id = pathDecode(name.substr(0, name.size() - kSuffix.size()));
    std::lock_guard lock(mutex_);
    const auto index = data_.track(id);
    if (!index) return apiError(404, "No track " + id + ".");
    Answer answer{200, "audio/wav", preview_, {}};
    if (request.has_header("Range")) {
      const std::string size = std::to_string(preview_.size());
      const auto range = rangeOf(request.get_header_value("Range"), preview_.size());
      if (!range) return Answer{416, "text/plain", "No such range of the preview.\n", {{"Content-Range", "bytes */" + size}}};
      answer = Answer{206, "audio/wav", preview_.substr(range->first, range->length),
                      {{"Content-Range", "bytes " + std::to_string(range->first) + "-" +
                                             std::to_string(range->first + range->length - 1) + "/" + size}}};
      if (range->first != 0) return answer;
    }
    play(*index);
    changed_.notify_all();
    return answer;
  }

  Answer giphyMedia(std::string_view rest) {
    const std::vector<std::string> parts = split(rest, '/');
    if (parts.size() == 2 && parts[1].size() > 4 && parts[1].substr(parts[1].size() - 4) == ".gif") {
      const std::string key = parts[1].substr(0, parts[1].size() - 4);
      std::lock_guard lock(mutex_);
      if (const auto index = data_.picture(parts[0])) {
        for (const GiphyRendition& rendition : data_.giphy()[*index].renditions) {
          if (rendition.key == key) return Answer{200, "image/gif", detail::solidGif(rendition.width, rendition.height), {}};
        }
      }
    }
    return giphyError(404, "Not Found");
  }

  object picture(std::size_t index) const {
    const GiphyPicture& picture = data_.giphy()[index];
    object images;
    for (const GiphyRendition& rendition : picture.renditions) {
      images[rendition.key] = object{{"width", std::to_string(rendition.width)},
                                     {"height", std::to_string(rendition.height)},
                                     {"url", base_ + "/giphy/media/" + picture.id + "/" + rendition.key + ".gif"}};
    }
    return object{{"type", "gif"},
                  {"id", picture.id},
                  {"url", "https://giphy.com/gifs/" + picture.id},
                  {"bitly_url", "https://gph.is/" + picture.id},
                  {"title", picture.title},
                  {"rating", picture.rating},
                  {"images", std::move(images)}};
  }

  Answer giphyApi(const std::string& method, std::string_view rest, const Pairs& query) {
    if (method != "GET") return giphyError(405, "Method Not Allowed");
    const auto ok = [](boost::json::value data, std::optional<object> pagination = std::nullopt) {
      object body{{"data", std::move(data)}};
      if (pagination) body["pagination"] = std::move(*pagination);
      body["meta"] = object{{"status", 200}, {"msg", "OK"}};
      return jsonAnswer(200, body);
    };
    const std::optional<Page> page = pageOf(query);
    if (!page) return giphyError(400, "Bad Request");
    std::lock_guard lock(mutex_);
    if (rest == "gifs/trending" || rest == "gifs/search") {
      const std::vector<std::size_t> found =
          data_.searchGiphy(rest == "gifs/search" ? find(query, "q").value_or("") : "");
      const std::size_t offset = rest == "gifs/search" ? page->offset : 0;
      array list;
      for (std::size_t i = offset; i < found.size() && list.size() < page->limit; ++i) list.push_back(picture(found[i]));
      const std::size_t count = list.size();
      return ok(std::move(list), object{{"total_count", found.size()}, {"count", count}, {"offset", offset}});
    }
    if (rest.rfind("gifs/", 0) == 0) {
      if (const auto index = data_.picture(pathDecode(rest.substr(5)))) return ok(picture(*index));
    }
    return giphyError(404, "Not Found");
  }

  Answer control(const httplib::Request& request, const Pairs& query) {
    const std::string_view action = std::string_view(request.path).substr(kControlPrefix.size());
    const auto refused = [](int status, std::string_view description) {
      return Answer{status, "text/plain; charset=utf-8", std::string(description) + "\n", {}};
    };
    const auto count = [&]() -> std::optional<int> {
      const auto text = find(query, "n");
      if (!text) return 1;
      const auto value = decimal(*text);
      if (!value || *value > 1000000) return std::nullopt;
      return static_cast<int>(*value);
    };
    if (action == "requests") {
      if (request.method != "GET") return refused(400, "GET the requests.");
      array list;
      for (const RecordedRequest& recorded : requests()) {
        object headers;
        for (const auto& [name, value] : recorded.headers) {
          if (!headers.contains(name)) headers[name] = value;
        }
        object params;
        for (const auto& [name, value] : recorded.query) {
          if (!params.contains(name)) params[name] = value;
        }
        list.push_back(object{{"method", recorded.method}, {"path", recorded.path}, {"headers", std::move(headers)},
                              {"query", std::move(params)}, {"body", recorded.body}});
      }
      return jsonAnswer(200, list);
    }
    if (action == "abandoned") {
      if (request.method != "GET") return refused(400, "GET the count.");
      return jsonAnswer(200, object{{"abandoned", abandonedRequests()}});
    }
    if (request.method != "POST") return refused(400, "POST to change the server.");
    if (action == "reset") {
      reset();
    } else if (action == "latency") {
      const auto ms = decimal(find(query, "ms").value_or(""));
      if (!ms) return refused(400, "Give ms=N.");
      setLatency(std::chrono::milliseconds(*ms));
    } else if (action == "fail" || action == "drop" || action == "expire") {
      const auto n = count();
      if (!n) return refused(400, "Give n=N.");
      if (action == "fail") failNext(*n);
      if (action == "drop") dropNext(*n);
      if (action == "expire") expireNext(*n);
    } else if (action == "event") {
      const auto user = find(query, "user");
      if (!user || user->empty() || !pushForeignEvent(find(query, "topic").value_or(""), *user)) {
        return refused(400, "Give topic=charts.updated|history.updated and user=ID.");
      }
    } else {
      return refused(404, "Unknown control: reset, latency, fail, drop, expire, event, requests or abandoned.");
    }
    return noContent();
  }

  const CatalogServerOptions options_;
  const std::shared_ptr<const detail::TlsIdentity> identity_;
  const detail::CaFile caFile_;
  std::string base_;

  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool stopping_ = false;
  CatalogData data_;
  std::chrono::milliseconds latency_;
  int failures_ = 0;
  int drops_ = 0;
  int expiries_ = 0;
  std::deque<RecordedRequest> requests_;
  int abandoned_ = 0;
  std::deque<Event> events_;
  std::uint64_t nextEventId_ = 1;
  bool emitted_ = false;
  const std::string preview_;

  // Last: destroyed (stopped) first, while what the handler uses is alive.
  detail::HttpsHost host_;
};

TokenVerifier localTokenVerifier(const SignInServer& server) {
  return [&server](std::string_view token) -> std::optional<std::string> {
    auto info = server.checkAccessToken(token);
    if (!info) return std::nullopt;
    return std::move(info->userId);
  };
}

TokenVerifier remoteTokenVerifier(std::string signInBaseUrl, std::filesystem::path caPath) {
  return [base = std::move(signInBaseUrl), ca = std::move(caPath)](std::string_view token) -> std::optional<std::string> {
    httplib::Client client(base);
    client.set_ca_cert_path(ca.c_str());
    client.enable_server_certificate_verification(true);
    client.set_connection_timeout(5);
    client.set_read_timeout(10);
    const auto result =
        client.Get("/__control/token?access_token=" + detail::percentEncode(token));
    if (!result || result->status != 200) return std::nullopt;
    boost::system::error_code error;
    const boost::json::value json = boost::json::parse(result->body, error);
    if (error || !json.is_object()) return std::nullopt;
    const auto* active = json.as_object().if_contains("active");
    const auto* user = json.as_object().if_contains("user_id");
    if (active == nullptr || !active->is_bool() || !active->as_bool() || user == nullptr || !user->is_string()) {
      return std::nullopt;
    }
    return std::string(user->as_string());
  };
}

Result<std::unique_ptr<CatalogServer>> CatalogServer::start(CatalogServerOptions options) {
  using Started = Result<std::unique_ptr<CatalogServer>>;
  const auto failure = [](const Error& error) {
    return Started::failure(Error{kCatalogServerErrorDomain, error.code, error.userInfo});
  };
  if (!options.verifyToken) return failure(detail::serverError(0, "no token verifier is given"));
  std::shared_ptr<const detail::TlsIdentity> identity;
  detail::CaFile caFile;
  if (options.tls && options.tls->identity) {
    identity = options.tls->identity;
    caFile.path = options.tls->caPath;
  } else {
    Result<detail::TlsIdentity> made = detail::makeLoopbackTlsIdentity();
    if (!made) return failure(made.error());
    Result<detail::CaFile> written = detail::writeCaFile(made.value().caPem, options.caOut, "tunevo-catalog");
    if (!written) return failure(written.error());
    identity = std::make_shared<const detail::TlsIdentity>(std::move(made).value());
    caFile = std::move(written).value();
  }
  const std::uint16_t port = options.port;
  auto impl = std::make_unique<Impl>(std::move(options), std::move(identity), std::move(caFile));
  if (!impl->tlsReady()) return failure(detail::serverError(kSignInServerCertificateError, "the TLS context cannot be made"));
  if (std::optional<Error> error = impl->listen(port)) return failure(*error);
  return Started::success(std::unique_ptr<CatalogServer>(new CatalogServer(std::move(impl))));
}

CatalogServer::CatalogServer(std::unique_ptr<Impl> impl) : impl_(std::move(impl)) {}
CatalogServer::~CatalogServer() = default;

std::uint16_t CatalogServer::port() const { return impl_->port(); }
std::string CatalogServer::baseUrl() const { return impl_->base(); }
std::string CatalogServer::apiBaseUrl() const { return impl_->base() + "/v1"; }
std::string CatalogServer::giphyBaseUrl() const { return impl_->base() + "/giphy/v1"; }
const std::filesystem::path& CatalogServer::caPath() const { return impl_->caPath(); }
void CatalogServer::setLatency(std::chrono::milliseconds latency) { impl_->setLatency(latency); }
void CatalogServer::failNext(int n) { impl_->failNext(n); }
void CatalogServer::dropNext(int n) { impl_->dropNext(n); }
void CatalogServer::expireNext(int n) { impl_->expireNext(n); }
bool CatalogServer::pushForeignEvent(std::string_view topic, std::string_view userId) {
  return impl_->pushForeignEvent(topic, userId);
}
std::vector<RecordedRequest> CatalogServer::requests() const { return impl_->requests(); }
int CatalogServer::abandonedRequests() const { return impl_->abandonedRequests(); }
void CatalogServer::reset() { impl_->reset(); }

}  // namespace applogic::emulator
