#pragma once

#include <iosfwd>

// The Giphy part of `tunevo demo`.
namespace tunevo {

/// Drives `GiphyDataController` over a scripted Giphy service answering with the bundled
/// samples, and writes what the app receives to `out` in the demo's format: trending pictures
/// with the renditions that survived the aspect filter, and the still-frame address for a width
/// as a deferred value, resolved and rejected.
void showGiphy(std::ostream& out);

}  // namespace tunevo
