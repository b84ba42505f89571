// The pictures of the track filter.
#pragma once

#include <vector>

#include "inspect/pictures.h"
#include "inspect/track_stage.h"

namespace fleifeisa::inspect {

/// The refiner's background and what it found, where it looked at the frame, and the tracks. For a frame that was
/// explained.
std::vector<Picture> drawTrackPictures(Session& session, const TrackStage& stage, int scale);

}  // namespace fleifeisa::inspect
