#include "tunevo/catalog_commands.h"

#include <unistd.h>

#include <charconv>
#include <cstdlib>
#include <iomanip>
#include <iostream>
#include <memory>
#include <optional>

#include "applogic/controllers/genre_data_controller.h"
#include "applogic/controllers/playlists_data_controller.h"
#include "applogic/controllers/search_data_controller.h"
#include "applogic/controllers/tracks_data_controller.h"
#include "applogic/controllers/users_tracks_data_controller.h"
#include "applogic/platform/locale.h"
#include "applogic/rx/rx.h"
#include "applogic/services/http_services.h"
#include "tunevo/exit_codes.h"
#include "tunevo/json_output.h"
#include "tunevo/play.h"

namespace tunevo {
namespace {

using namespace applogic;

constexpr std::chrono::seconds kCallTimeout{60};
// A listing that waits at a prompt between pages waits for the user, not for the service.
constexpr std::chrono::seconds kInteractiveTimeout{86400};
constexpr int kMaxCount = 500;

struct CommandInfo {
  std::string_view name;
  std::string_view argument;  // empty: none; in brackets: optional
  std::string_view description;
};

constexpr CommandInfo kCatalogCommands[] = {
    {"top", "", "Prints the catalog's top tracks (--limit, default 20)."},
    {"search", "QUERY", "Prints the tracks whose title, artist or album contains QUERY (--limit, default 20)."},
    {"genres", "[ID]", "Prints the top genres (--lang), or with ID the genre's top tracks (--limit)."},
    {"favorites", "", "Prints the signed-in user's favourite tracks, --page-size per page."},
    {"history", "", "Prints the tracks the signed-in user played last (--limit, default 20)."},
    {"playlist", "ID", "Prints playlist ID and its tracks, --page-size per page."},
    {"preview", "TRACK_ID", "Plays the preview of track TRACK_ID (--sink as for `tunevo play`)."},
};

const CommandInfo* findCommand(std::string_view name) {
  for (const CommandInfo& info : kCatalogCommands) {
    if (info.name == name) return &info;
  }
  return nullptr;
}

std::string usageOf(const CommandInfo& info) {
  std::string text = "usage: tunevo " + std::string(info.name);
  if (!info.argument.empty()) text += " " + std::string(info.argument);
  text += " [--service URL] [--json] [OPTIONS]\n\n" + std::string(info.description) +
          "\nAnswers come from the music service at --service (default: $TUNEVO_SERVICE), signed in with\n"
          "the account of `tunevo login`. A listing of pages asks before each further page when it\n"
          "runs on a terminal, and prints every page otherwise.\n\noptions:\n"
          "  --service URL            the service's API base, e.g. https://127.0.0.1:8443/v1\n"
          "  --json                   print records as JSON instead of a table\n"
          "  --limit N                how many tracks (1 to 500)\n"
          "  --page-size N            tracks per page (1 to 500; default 10)\n"
          "  --lang CODE              the language of genre names (default: the system's)\n"
          "  --sink DESCRIPTION       the GStreamer audio sink of `preview`\n";
  text += kSignInOptionsHelp;
  text += "  --timeout SECONDS        how long to wait for each answer (default 60)\n";
  return text;
}

std::optional<int> parseCount(std::string_view text) {
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size() || value < 1 || value > kMaxCount) return std::nullopt;
  return value;
}

// Display width of UTF-8 text, one column per code point.
std::size_t columns(std::string_view text) {
  std::size_t count = 0;
  for (const char c : text) count += (static_cast<unsigned char>(c) & 0xC0) != 0x80;
  return count;
}

// `text` in exactly `width` columns: padded, or cut at a code point with "…" as its last column.
std::string fit(std::string_view text, std::size_t width) {
  const std::size_t length = columns(text);
  if (length <= width) return std::string(text) + std::string(width - length, ' ');
  std::string out;
  std::size_t taken = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool starts = (static_cast<unsigned char>(text[i]) & 0xC0) != 0x80;
    if (starts && ++taken == width) break;
    out += text[i];
  }
  return out + "\u2026";
}

std::string minutes(std::int64_t seconds) {
  if (seconds < 0) seconds = 0;
  char text[32];
  std::snprintf(text, sizeof text, "%lld:%02lld", static_cast<long long>(seconds / 60),
                static_cast<long long>(seconds % 60));
  return text;
}

// The error's text: the service's message, the HTTP client's description, or the sign-in
// client's message.
std::string describe(const Error& error) {
  for (const char* key : {"message", "description", "NSLocalizedDescription"}) {
    const auto found = error.userInfo.find(key);
    if (found == error.userInfo.end()) continue;
    if (const auto* text = std::get_if<std::string>(&found->second)) return *text;
  }
  return "(no message)";
}

bool interactive() { return isatty(STDIN_FILENO) == 1 && isatty(STDOUT_FILENO) == 1; }

// Asks whether to fetch the next page; false on "q" or the end of input.
bool askForMore() {
  std::cout << "-- more: Enter, q to stop -- " << std::flush;
  std::string line;
  if (!std::getline(std::cin, line)) return false;
  return line != "q" && line != "Q";
}

// What a command works with: the signed-in session and the controllers over the HTTP clients.
class Catalog {
 public:
  Catalog(std::string_view name, const CatalogCommandOptions& options, std::unique_ptr<SignInSession> session,
          services::HttpServices clients)
      : name_(name), options_(options), session_(std::move(session)), clients_(std::move(clients)) {}

  // Runs `source` until it ends, handing each element to `each`; 0 or the exit status of the
  // failure, which is reported.
  template <class T, class Each>
  int run(const rx::Observable<T>& source, Each each, std::chrono::seconds timeout) {
    std::optional<Error> failure;
    rx::Disposable subscription;
    const SignInSession::Stop stop = session_->await(
        [&](std::function<void()> done) {
          subscription = source.subscribe([&each](const T& value) { each(value); },
                                          [&failure, done](const Error& error) {
                                            failure = error;
                                            done();
                                          },
                                          done);
        },
        timeout);
    subscription.dispose();
    if (stop == SignInSession::Stop::interrupted) {
      std::cerr << "tunevo " << name_ << ": cancelled\n";
      return kExitInterrupted;
    }
    if (stop != SignInSession::Stop::none) {
      std::cerr << "tunevo " << name_ << ": no answer within " << timeout.count() << " s\n";
      return kExitTimedOut;
    }
    if (failure) {
      std::cerr << "tunevo " << name_ << ": " << failure->domain << " code " << failure->code << ": "
                << describe(*failure) << "\n";
      return kExitSignInError;
    }
    return kExitOk;
  }

  template <class T>
  int one(const rx::Observable<T>& source, std::optional<T>& out) {
    return run(source, [&out](const T& value) { out = value; }, timeout());
  }

  std::chrono::seconds timeout() const { return options_.signIn.timeout.value_or(kCallTimeout); }
  const services::HttpServices& clients() const { return clients_; }
  const CatalogCommandOptions& options() const { return options_; }
  SignInSession& session() { return *session_; }

 private:
  std::string_view name_;
  const CatalogCommandOptions& options_;
  std::unique_ptr<SignInSession> session_;
  services::HttpServices clients_;
};

template <class T>
int listing(Catalog& catalog, const rx::Observable<std::vector<T>>& source) {
  std::optional<std::vector<T>> items;
  if (const int status = catalog.one(source, items); status != kExitOk) return status;
  if (catalog.options().json) {
    writeDocument(std::cout, toJson(*items));
  } else if constexpr (std::is_same_v<T, Genre>) {
    printGenreTable(std::cout, *items);
  } else {
    printTrackTable(std::cout, *items);
  }
  return kExitOk;
}

// Favourites: one page per trigger, asked for at a prompt on a terminal.
int favorites(Catalog& catalog) {
  const auto& clients = catalog.clients();
  const auto controller = std::make_shared<UsersTracksDataController>(
      nullptr, std::make_shared<TracksDataController>(clients.tracks), clients.charts, clients.favorites,
      clients.history);
  const bool prompt = interactive() && !catalog.options().json;
  rx::PublishSubject<Unit> trigger;
  std::vector<Track> all;
  int position = 1;
  const int status = catalog.run(
      // The first page is asked for at once; each further one when the previous has been shown.
      controller->getUserFavoriteTracks("", 0, catalog.options().pageSize,
                                        rx::merge(std::vector{rx::just(unit), trigger.asObservable()})),
      [&](const std::vector<Track>& page) {
        if (catalog.options().json) {
          all.insert(all.end(), page.begin(), page.end());
        } else {
          printTrackTable(std::cout, page, position);
        }
        position += static_cast<int>(page.size());
        if (prompt && !askForMore()) {
          trigger.onCompleted();
        } else {
          trigger.onNext(unit);
        }
      },
      prompt ? kInteractiveTimeout : catalog.timeout());
  if (status == kExitOk && catalog.options().json) writeDocument(std::cout, toJson(all));
  return status;
}

int playlist(Catalog& catalog, const std::string& id) {
  const PlaylistsDataController controller(catalog.clients().playlists);
  std::optional<Playlist> record;
  if (const int status = catalog.one(controller.get(id), record); status != kExitOk) return status;
  const bool prompt = interactive() && !catalog.options().json;
  if (!catalog.options().json) {
    std::cout << record->name << " (" << record->id << "), " << (record->isPublic ? "public" : "private");
    if (const auto giphy = record->getGiphyImageID()) std::cout << ", Giphy image " << *giphy;
    if (const auto custom = record->getCustomImage()) std::cout << ", cover image " << custom->id;
    std::cout << "\n";
  }
  boost::json::array tracks;
  int offset = 0;
  for (;;) {
    std::optional<Page<std::vector<Track>>> page;
    const int status = catalog.one(controller.getPlaylistTracks(id, catalog.options().pageSize, offset), page);
    if (status != kExitOk) return status;
    if (catalog.options().json) {
      for (const Track& track : page->payload) tracks.push_back(toJson(track));
    } else {
      printTrackTable(std::cout, page->payload, offset + 1);
    }
    const auto returned = static_cast<int>(page->payload.size());
    offset += returned;
    if (returned == 0 || offset >= page->metadata.totalCount) break;
    if (prompt && !askForMore()) break;
  }
  if (catalog.options().json) {
    boost::json::object document;
    document["playlist"] = toJson(*record);
    document["tracks"] = std::move(tracks);
    writeDocument(std::cout, document);
  }
  return kExitOk;
}

int preview(Catalog& catalog, const std::string& trackId) {
  const TracksDataController controller(catalog.clients().tracks);
  std::optional<Track> track;
  if (const int status = catalog.one(controller.getTrack(trackId), track); status != kExitOk) return status;
  std::cout << "\"" << track->name << "\" by " << track->artistName << ": " << track->previewURL << "\n";
  return playPreview(catalog.session().host(), *track, "preview", catalog.options().sink);
}

int dispatch(std::string_view name, Catalog& catalog) {
  const auto& clients = catalog.clients();
  const auto& options = catalog.options();
  if (name == "top") return listing(catalog, TracksDataController(clients.tracks).getTopTracks(options.limit));
  if (name == "search") {
    return listing(catalog, SearchDataController(clients.search).searchTracks(options.argument, options.limit));
  }
  if (name == "genres") {
    const GenreDataController genres(clients.genres);
    if (!options.argument.empty()) {
      return listing(catalog, genres.getGenreTopTracksObservable(options.argument, options.limit));
    }
    return listing(catalog, genres.getTopGenresObservable(options.language));
  }
  if (name == "history") {
    const UsersTracksDataController controller(nullptr, std::make_shared<TracksDataController>(clients.tracks),
                                               clients.charts, clients.favorites, clients.history);
    return listing(catalog, controller.getUserRecentTracks("", options.limit));
  }
  if (name == "favorites") return favorites(catalog);
  if (name == "playlist") return playlist(catalog, options.argument);
  return preview(catalog, options.argument);
}

}  // namespace

std::variant<CatalogCommandOptions, std::string> parseCatalogOptions(std::string_view name,
                                                                     const std::vector<std::string>& args,
                                                                     std::string_view environmentService) {
  const CommandInfo* info = findCommand(name);
  if (!info) return "unknown command " + std::string(name);
  CatalogCommandOptions options;
  options.service = environmentService;
  std::vector<std::string> signInArgs;
  bool positional = false;
  for (std::size_t i = 0; i < args.size(); ++i) {
    const std::string& arg = args[i];
    const bool ours = arg == "--service" || arg == "--limit" || arg == "--page-size" || arg == "--lang" || arg == "--sink";
    if (arg == "--json") {
      options.json = true;
    } else if (ours) {
      if (i + 1 >= args.size() || args[i + 1].empty()) return arg + " needs a value";
      const std::string& value = args[++i];
      if (arg == "--service") options.service = value;
      if (arg == "--lang") options.language = value;
      if (arg == "--sink") options.sink = value;
      if (arg == "--limit" || arg == "--page-size") {
        const auto count = parseCount(value);
        if (!count) return arg + " takes a whole number from 1 to " + std::to_string(kMaxCount);
        (arg == "--limit" ? options.limit : options.pageSize) = *count;
      }
    } else if (arg.starts_with("-")) {
      signInArgs.push_back(arg);
      if (signInOptionTakesValue(arg) && i + 1 < args.size()) signInArgs.push_back(args[++i]);
    } else if (!info->argument.empty() && !positional) {
      options.argument = arg;
      positional = true;
    } else {
      return "unexpected argument '" + arg + "'";
    }
  }
  auto signIn = parseSignInOptions("profile", signInArgs);
  if (const auto* problem = std::get_if<std::string>(&signIn)) return *problem;
  options.signIn = std::get<SignInCommandOptions>(std::move(signIn));
  if (options.signIn.help) return options;
  if (!positional && !info->argument.empty() && info->argument.front() != '[') {
    return "the " + std::string(info->argument) + " is missing";
  }
  if (options.service.empty()) return "no service: give --service URL or set TUNEVO_SERVICE";
  return options;
}

void printTrackTable(std::ostream& out, const std::vector<Track>& tracks, int firstPosition) {
  if (tracks.empty()) {
    out << "(no tracks)\n";
    return;
  }
  out << fit("#", 4) << fit("id", 14) << fit("title", 30) << fit("artist", 24) << fit("album", 24) << "time\n";
  int position = firstPosition;
  for (const Track& track : tracks) {
    out << fit(std::to_string(position++), 4) << fit(track.id, 14) << fit(track.name, 30)
        << fit(track.artistName, 24) << fit(track.albumName, 24) << minutes(track.playbackSeconds) << "\n";
  }
}

void printGenreTable(std::ostream& out, const std::vector<Genre>& genres) {
  if (genres.empty()) {
    out << "(no genres)\n";
    return;
  }
  out << fit("id", 10) << fit("name", 20) << "description\n";
  for (const Genre& genre : genres) out << fit(genre.id, 10) << fit(genre.name, 20) << genre.description << "\n";
}

int runCatalogCommand(int argc, char** argv) {
  const std::string_view name = argv[0];
  const char* environment = std::getenv("TUNEVO_SERVICE");
  auto parsed = parseCatalogOptions(name, std::vector<std::string>(argv + 1, argv + argc),
                                    environment ? environment : "");
  const CommandInfo* info = findCommand(name);
  if (const auto* problem = std::get_if<std::string>(&parsed)) {
    std::cerr << "tunevo " << name << ": " << *problem << "\n";
    if (info) std::cerr << usageOf(*info);
    return kExitUsage;
  }
  auto& options = std::get<CatalogCommandOptions>(parsed);
  if (options.signIn.help) {
    std::cout << usageOf(*info);
    return kExitOk;
  }
  if (options.language.empty()) options.language = platform::systemLocale()->languageCode().value_or("en");
  options.signIn.audioSink = options.sink;
  auto opened = openSignInSession(name, options.signIn, options.signIn.timeout.value_or(kCallTimeout));
  if (const int* status = std::get_if<int>(&opened)) return *status;
  auto session = std::move(std::get<std::unique_ptr<SignInSession>>(opened));
  const platform::Platform& system = session->host().platform;
  Result<services::HttpServices> clients = services::makeHttpServices(
      services::ServiceConfiguration{options.service, system.httpClient, system.mainThread, session->accessTokens()});
  if (!clients) {
    std::cerr << "tunevo " << name << ": " << describe(clients.error()) << "\n";
    return kExitUsage;
  }
  Catalog catalog(name, options, std::move(session), std::move(clients).value());
  return dispatch(name, catalog);
}

}  // namespace tunevo
