#include "tunevo/demo_support.h"

#include <iomanip>
#include <ostream>
#include <variant>

namespace tunevo {

using namespace applogic;

void printError(std::ostream& out, const Error& error) {
  out << "  error   domain \"" << error.domain << "\", code " << error.code << "\n";
  for (const auto& [key, value] : error.userInfo) {
    out << "          " << key << ": ";
    std::visit([&out](const auto& v) { out << v; }, value);
    out << "\n";
  }
}

void print(std::ostream& out, const Track& track) {
  out << "    " << std::left << std::setw(10) << track.id << " \"" << track.name << "\" by "
      << (track.artistName.empty() ? "(unknown artist)" : track.artistName) << ", " << track.playbackSeconds
      << " s\n";
}

void print(std::ostream& out, const Genre& genre) {
  out << "    " << std::left << std::setw(8) << genre.id << " " << genre.name;
  if (!genre.description.empty()) out << ": " << genre.description;
  out << "\n";
}

void print(std::ostream& out, const std::vector<Track>& tracks) {
  out << "  list of " << tracks.size() << (tracks.size() == 1 ? " track\n" : " tracks\n");
  for (const Track& track : tracks) print(out, track);
}

void print(std::ostream& out, const std::vector<Genre>& genres) {
  out << "  list of " << genres.size() << (genres.size() == 1 ? " genre\n" : " genres\n");
  for (const Genre& genre : genres) print(out, genre);
}

void print(std::ostream& out, const Page<std::vector<Track>>& page) {
  const Metadata& meta = page.metadata;
  out << "  page at offset " << meta.queryOffset << ": " << meta.returnedCount << " of " << meta.totalCount
      << " tracks\n";
  for (const Track& track : page.payload) print(out, track);
}

void print(std::ostream& out, const Playlist& playlist) {
  out << "  playlist " << playlist.id << " \"" << playlist.name << "\", " << (playlist.isPublic ? "public" : "private");
  if (playlist.ownerId) out << ", owner \"" << *playlist.ownerId << "\"";
  if (playlist.images) out << ", " << playlist.images->size() << " images";
  out << "\n";
  if (const auto giphy = playlist.getGiphyImageID()) out << "    Giphy image    " << *giphy << "\n";
  if (const auto custom = playlist.getCustomImage()) out << "    custom image   " << custom->id << "\n";
}

void print(std::ostream& out, const std::vector<PlaylistImage>& images) {
  out << "  list of " << images.size() << " images\n";
  for (const PlaylistImage& image : images) {
    if (const DisplayImage* display = image.displayImage()) {
      out << "    display " << display->id << ", version " << display->version
          << (display->isDefault ? ", the default" : "") << "\n";
    } else if (const std::string* giphy = image.giphyID()) {
      out << "    Giphy   " << *giphy << "\n";
    }
  }
}

void print(std::ostream& out, const std::vector<Giphy>& pictures) {
  out << "  list of " << pictures.size() << " pictures\n";
  for (const Giphy& giphy : pictures) {
    out << "    " << giphy.id << "  rating "
        << (giphy.rating ? rawValue(*giphy.rating) : std::string_view("(none)")) << ", " << giphy.images.size()
        << " renditions suit a cover\n";
  }
}

void print(std::ostream& out, const UserTracksUpdate& update) {
  out << "  update for user \"" << update.userID << "\"\n";
  print(out, update.tracks);
}

void print(std::ostream& out, const Unit& /*unit*/) { out << "  done\n"; }

}  // namespace tunevo
