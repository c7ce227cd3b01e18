#pragma once

#include <iosfwd>

// The playlists part of `tunevo demo`.
namespace tunevo {

/// Drives `PlaylistsDataController` over a scripted playlists service answering with the
/// bundled samples, and writes what the app receives to `out` in the demo's format: a playlist
/// with its custom image and Giphy id, its tracks page by page with the next offset worked out
/// from each page's paging block, and a write that emits `Unit`.
void showPlaylists(std::ostream& out);

}  // namespace tunevo
