// What one run of a clip came to, as comparing and judging need it: which tracks were shown where in each frame, and
// the events. Places are shares of the analyzed picture, so that runs at different sizes can be laid upon each other.
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <vector>

#include "events/event.h"
#include "tracks/track.h"

namespace fleifeisa::host {

/// A rectangle in shares of the picture's width and height; may reach beyond 0 and 1.
struct ShareBox {
    double left = 0, top = 0, right = 0, bottom = 0;

    double area() const { return (right - left) * (bottom - top); }
    Point centre() const { return {(left + right) / 2, (top + bottom) / 2}; }
    bool operator==(const ShareBox&) const = default;
};

/// Area in both of area in either, 0 to 1.
double overlap(const ShareBox& a, const ShareBox& b);

struct ShownTrack {
    std::int64_t track = 0;  ///< its number
    ShareBox box;

    bool operator==(const ShownTrack&) const = default;
};

struct ResultFrame {
    std::int64_t time_ns = 0;
    bool detection = false;         ///< false: the analyzer learned
    std::vector<ShownTrack> shown;  ///< by track number

    bool operator==(const ResultFrame&) const = default;
};

struct ClipResult {
    int width = 0, height = 0;        ///< of the analyzed frames, pixels
    std::vector<ResultFrame> frames;  ///< times strictly rising
    std::vector<CameraEvent> events;  ///< each as it was told last, by number

    /// From the first frame to the end of the last one.
    std::int64_t lengthNs() const;
    /// From the first frame to the first with detection; the whole length where there is none.
    std::int64_t learningNs() const;
    /// Usual distance of two frames: the median, 0 with fewer than two.
    std::int64_t stepNs() const;
};

/// Files that no run writes like this, or none at all: a sentence with the path.
struct ResultError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// Reads what `play`, `replay` and `batch` write into a directory: frames.jsonl, mot.csv and, where it is there,
/// events.jsonl. Frames beyond the size of the first (a camera that was turned) keep their own shares.
/// @throws ResultError
ClipResult readResult(const std::string& directory);
/// True where readResult() finds its files.
bool holdsResult(const std::string& directory);

}  // namespace fleifeisa::host
