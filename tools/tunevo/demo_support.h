#pragma once

#include <iosfwd>
#include <optional>
#include <vector>

#include "applogic/controllers/users_tracks_data_controller.h"
#include "applogic/records/genre.h"
#include "applogic/records/giphy.h"
#include "applogic/records/page.h"
#include "applogic/records/playlist.h"
#include "applogic/records/track.h"
#include "applogic/support/error.h"

// How `tunevo demo` shows what the app receives: one line or block per value, as it arrives.
namespace tunevo {

/// Writes `error` as the app receives it: domain and code, then its user information.
void printError(std::ostream& out, const applogic::Error& error);

void print(std::ostream& out, const applogic::Track& track);
void print(std::ostream& out, const applogic::Genre& genre);
void print(std::ostream& out, const std::vector<applogic::Track>& tracks);
void print(std::ostream& out, const std::vector<applogic::Genre>& genres);
void print(std::ostream& out, const applogic::Page<std::vector<applogic::Track>>& page);
void print(std::ostream& out, const applogic::Playlist& playlist);
void print(std::ostream& out, const std::vector<applogic::PlaylistImage>& images);
void print(std::ostream& out, const std::vector<applogic::Giphy>& pictures);
void print(std::ostream& out, const applogic::UserTracksUpdate& update);
void print(std::ostream& out, const applogic::Unit& unit);

}  // namespace tunevo
