#include "tunevo/demo_playlists.h"

#include <cstdint>
#include <iomanip>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <string_view>
#include <vector>


#include "applogic/controllers/playlists_data_controller.h"
#include "applogic/rx/rx.h"
#include "applogic/testing/scripted_playlists_service.h"
#include "tunevo/demo_support.h"

namespace tunevo {
namespace {

namespace rx = applogic::rx;
using applogic::Metadata;
using applogic::Playlist;
using applogic::Track;
using applogic::testing::Answer;

using TracksPage = applogic::Page<std::vector<Track>>;

Answer sample(std::string_view name) { return sampleAnswer(name); }

std::string known(std::int64_t value) { return value < 0 ? "unknown" : std::to_string(value); }

void print(std::ostream& out, const Playlist& playlist) {
  out << "  playlist " << playlist.id << " \"" << playlist.name << "\", " << (playlist.isPublic ? "public" : "private")
      << ", owner " << (playlist.ownerId ? "\"" + *playlist.ownerId + "\"" : "unknown") << ", "
      << (playlist.images ? std::to_string(playlist.images->size()) : "no list of") << " images\n";
  const std::optional<applogic::DisplayImage> custom = playlist.getCustomImage();
  out << "    custom image   " << (custom ? custom->id + " (version " + std::to_string(custom->version) + ")" : "none")
      << "\n    Giphy image    " << playlist.getGiphyImageID().value_or("none") << "\n";
}

void print(std::ostream& out, const TracksPage& page) {
  const Metadata& meta = page.metadata;
  out << "  page of " << page.payload.size() << (page.payload.size() == 1 ? " track" : " tracks") << ": offset "
      << known(meta.queryOffset) << ", limit " << known(meta.queryLimit) << ", returned " << known(meta.returnedCount)
      << " of " << known(meta.totalCount) << "\n";
  for (const Track& track : page.payload) {
    out << "    " << std::left << std::setw(15) << track.id << " \"" << track.name << "\" by " << track.artistName
        << ", " << track.playbackSeconds << " s\n";
  }
}

void print(std::ostream& out, const applogic::Unit&) { out << "  done\n"; }

void print(std::ostream& out, const applogic::Error& error) { printError(out, error); }

// Where the next page starts, from the page's own paging block: the controller keeps no paging
// position. Unknown when the block lacks the offset or the count.
std::optional<std::int64_t> nextOffset(const Metadata& meta) {
  if (meta.queryOffset < 0 || meta.returnedCount < 0) return std::nullopt;
  return meta.queryOffset + meta.returnedCount;
}

class PlaylistsDemo {
 public:
  explicit PlaylistsDemo(std::ostream& out) : out_(out) {}

  void run() {
    out_ << "\n== PlaylistsDataController ==\n";

    service_->script("get", sample("playlist"));
    call("get(\"MP.77\")", "answers with playlist.json: a default image, a Giphy picture, an unknown kind, a custom image");
    show(playlists_.get("MP.77"));

    service_->script("getPlaylistTracks", {sample("playlist_tracks_page1"), sample("playlist_tracks_page2")});
    std::optional<std::int64_t> offset = 0;
    for (int number = 1; offset; ++number) offset = showTracksPage(*offset, number);

    service_->script("addTracks", Answer::unit());
    call("addTracks(\"mp.77\", [\"tra.1204470\"])", "accepts the tracks");
    show(playlists_.addTracks("mp.77", {"tra.1204470"}));
  }

 private:
  // Shows the page at `offset` and says where the next one starts; that offset, when more
  // tracks remain.
  std::optional<std::int64_t> showTracksPage(std::int64_t offset, int number) {
    call("getPlaylistTracks(\"mp.77\", 2, " + std::to_string(offset) + ")",
         "answers with playlist_tracks_page" + std::to_string(number) + ".json");
    std::optional<TracksPage> page;
    show(playlists_.getPlaylistTracks("mp.77", 2, static_cast<int>(offset)), &page);
    if (!page) return std::nullopt;
    const Metadata& meta = page->metadata;
    const std::optional<std::int64_t> next = nextOffset(meta);
    if (!next) {
      note("the next offset is unknown: the page does not say where it started or how much it held");
      return std::nullopt;
    }
    const std::string sum = "next offset " + std::to_string(meta.queryOffset) + " + " +
                            std::to_string(meta.returnedCount) + " = " + std::to_string(*next);
    if (meta.totalCount < 0) {
      note(sum + "; the total is unknown, so the app asks until a page comes back empty");
      return page->payload.empty() ? std::nullopt : next;
    }
    if (*next >= meta.totalCount) {
      note(sum + ", the total: this was the last page");
      return std::nullopt;
    }
    note(sum + "; " + std::to_string(meta.totalCount - *next) + " of " + std::to_string(meta.totalCount) +
         " tracks remain");
    return next;
  }

  void call(std::string_view operation, std::string_view service) {
    out_ << "\n" << operation << "\n  service " << service << "\n";
  }

  void note(std::string_view text) { out_ << "  -- " << text << "\n"; }

  // Prints every event; the scripted service answers during the subscription, so everything has
  // arrived when this returns. The last value is kept in `last` when asked for.
  template <class T>
  void show(const rx::Observable<T>& source, std::optional<T>* last = nullptr) {
    source.subscribe(
        [this, last](const T& value) {
          print(out_, value);
          if (last != nullptr) *last = value;
        },
        [this](const applogic::Error& error) { print(out_, error); }, [this] { out_ << "  completed\n"; });
  }

  std::ostream& out_;
  std::shared_ptr<applogic::testing::ScriptedPlaylistsService> service_ =
      std::make_shared<applogic::testing::ScriptedPlaylistsService>();
  applogic::PlaylistsDataController playlists_{service_};
};

}  // namespace

void showPlaylists(std::ostream& out) { PlaylistsDemo(out).run(); }

}  // namespace tunevo
