// What the filter saw on its way to one frame's tracks: for tools that show why something is a track, or is none. Taken
// only where it is asked for.
#pragma once

#include <cstdint>
#include <vector>

#include "tracks/blobs.h"
#include "tracks/tracker.h"

namespace fleifeisa::host {

/// Why a component became no blob.
enum class Drop {
    kTooSmall,   ///< fewer pixels than kLeastComponent
    kNoSupport,  ///< too little of it lies in the analyzer's boxes or where tracks are expected
    kGhost,      ///< edges in the background, none in the frame: the background is wrong there
    kLight,      ///< the background's texture, brighter or darker
    kHealing,    ///< its place was found to be ghost or light just before, and heals on
    kTooMany,    ///< beyond kMostBlobs, the smaller ones
};

struct DroppedComponent {
    Box box;
    int pixels = 0;
    Drop why = Drop::kTooSmall;
};

/// One frame. Planes are by row, `width` values each.
struct FilterView {
    int width = 0, height = 0;             ///< pixels; 0: the frame was not valid
    bool refined = false;                  ///< the refiner looked at this frame; only then are its parts below filled
    double seconds = 0;                    ///< since the frame before
    double least_pixels = 0;               ///< largest area that a track must have shown to be confirmed
    int least_component = 0;               ///< pixels of the smallest component that may become a blob
    std::vector<std::uint8_t> background;  ///< 3 * width * height: the refiner's, as this frame was compared with it
    std::vector<std::uint8_t> looked_at;   ///< 1 where the refiner looked
    std::vector<std::uint8_t> foreground;  ///< 1 where it found foreground, after opening and closing
    std::vector<DroppedComponent> dropped;
    std::vector<Blob> blobs;    ///< accepted, after joining
    std::vector<Mover> movers;  ///< all that live on, as the tracker keeps them; those that ended are in the TrackFrame
};

}  // namespace fleifeisa::host
