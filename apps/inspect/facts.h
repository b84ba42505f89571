// The numbers of one frame, as the tracker holds them after detection.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "inspect/frames.h"
#include "inspect/session.h"

namespace fleifeisa::inspect {

/// One record of the frame.
struct ObjectFacts {
    int id, label;
    int x, y, width, height;  ///< box: upper left corner and size, pixels
    int area, density;        ///< pixels; per cent of the box, as in replies
    int row, column;          ///< centre, pixels
    int frames, cells;        ///< length of the track; grid cells of the component
    std::string parents;      ///< components of the previous frame with the cells shared, "3 (12), 5 (2)"
    struct Point {
        int x, y;
        bool corner;  ///< a vertex of the polygon
    };
    std::vector<Point> contour;  ///< closed: the last point repeats the first
    int corners() const;         ///< vertices of the polygon, the closing point not counted
};

/// One track of the camera host's track filter.
struct TrackFacts {
    std::int64_t number;  ///< 0: tentative
    std::string state;    ///< "tentative" ... and "ended"
    int x, y, width, height;
    int frames;                       ///< in which it was seen
    double missed, age, unsupported;  ///< seconds: since it was seen, since it was seen first, without the analyzer
    int area, largest;                ///< foreground pixels: of this frame, and the largest so far
    std::int64_t group;               ///< number of the track that owns its group; 0: alone
    std::string why;
};

struct FrameFacts {
    int number = 0;
    Phase phase = Phase::kNoPixels;
    std::string name, timestamp;
    int sequence = 0;

    // From here on only with a tracker.
    int width = 0, height = 0;
    int cells = 0, main_cells = 0, cell_size = 0;
    double clusters = 0;  ///< mean per cell; 0 for a single-image background

    // From here on only after detection.
    double clt = 0, cht = 0;        ///< thresholds of the difference measure, as used in this frame
    double mean = 0, greatest = 0;  ///< of the difference measure
    int foreground = 0;             ///< cells that belong to a component
    int components = 0;
    int table = 0;  ///< records in the object table, of all frames
    std::vector<ObjectFacts> objects;

    // Of the track filter, where it ran (TrackStage::gather).
    std::string scene;        ///< empty: it did not run
    double least_pixels = 0;  ///< largest area that a track must have shown to be confirmed
    int dropped = 0;          ///< components that became no blob
    int blobs = 0;
    std::vector<TrackFacts> tracks;
};

/// Gathers the numbers and marks the polygons' corners in the contours of this frame's records.
FrameFacts gatherFacts(Session& session, Phase phase, const SourceFrame& frame);

/// "first frame", "learning", "detection" or "no pixels".
const char* phaseName(Phase phase);

}  // namespace fleifeisa::inspect
