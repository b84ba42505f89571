// From the ids of single frames to tracks.
//
// The analyzer's ids run from 1 to 99999 and begin again; each fresh analyzer process starts at 1, too; and objects
// that continue no track carry id 0, several of them in one frame perhaps. Formats whose ids must be unique in the
// file write track numbers instead:
//
//   track number = id + 100000 * (number of earlier tracks with this id)
//
// so that the number is the analyzer's id as long as nothing repeats, and the id can always be read from its last five
// digits. An object without a track (id 0, or an id that an object before it in the same frame carries already) gets a
// number for this one frame: 100000, 200000 and so on.
#pragma once

#include <cstdint>
#include <map>
#include <span>
#include <vector>

#include "outputs/output.h"

namespace fleifeisa::host {

/// A track has ended when its id was not seen in this many frames, as many as the analyzer remembers an object.
constexpr std::int64_t kTrackGapFrames = 25;

/// Distance of the track numbers of one id.
constexpr std::int64_t kTrackNumberStep = 100'000;

/// False for the numbers of objects that belong to no track.
constexpr bool isTrack(std::int64_t number) {
    return number % kTrackNumberStep != 0;
}

/// What frame() found; both lists are valid until the next call.
struct FollowedFrame {
    std::span<const std::int64_t> numbers;  ///< of each object of the frame, in its order
    std::span<const std::int64_t> ended;    ///< tracks that ended with this frame, ascending
};

class TrackFollower {
 public:
    FollowedFrame frame(const FrameResult& result);
    /// Ends every track: a fresh analyzer process, or the end of the input. Ascending; valid until the next call.
    std::span<const std::int64_t> endAll();

 private:
    struct Open {
        std::int64_t number;
        std::int64_t last;  ///< sequence number of the frame it was seen in last
    };
    std::int64_t follow(const AnalyzerObject& object, std::int64_t sequence);
    void endUnseen(std::int64_t before);

    std::map<int, Open> open_;                 ///< by id
    std::map<int, std::int64_t> next_number_;  ///< by id, for ids that were used before
    std::int64_t loose_ = 0;                   ///< last number given to an object without a track
    std::vector<std::int64_t> numbers_, ended_;
};

}  // namespace fleifeisa::host
