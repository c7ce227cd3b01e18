#pragma once

#include "applogic/records/track.h"

namespace applogic::detail {

/// Sets every field of `track` from `raw` by the rules of `Track::fromRaw`. Lets the serializers
/// build each track in its final place in the list: its strings are made once, where they stay.
void readTrack(const JsonObject& raw, Track& track);

}  // namespace applogic::detail
