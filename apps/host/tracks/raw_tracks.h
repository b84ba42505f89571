// What `--tracks raw` gives: the analyzer's ids as tracks, without a second look at the pixels.
//
// The analyzer's ids run from 1 to 99999 and begin again; each fresh analyzer process starts at 1, too; and objects
// that continue no track carry id 0, several of them in one frame perhaps. A track's number is unique:
//
//   track number = id + 100000 * (number of earlier tracks with this id)
//
// so that the number is the analyzer's id as long as nothing repeats, and the id can always be read from its last five
// digits. An object without a track (id 0, or an id that an object before it in the same frame carries already) gets a
// number for this one frame, 100000, 200000 and so on, and is told as tentative.
#pragma once

#include <cstdint>
#include <map>
#include <vector>

#include "tracks/track_filter.h"

namespace fleifeisa::host {

/// A track has ended when its id was not seen in this many frames, as many as the analyzer remembers an object.
constexpr std::int64_t kRawGapFrames = 25;

/// Distance of the track numbers of one id.
constexpr std::int64_t kRawNumberStep = 100'000;

class RawTracks {
 public:
    /// First the objects in the reply's order, then the tracks that are still expected, then those that ended.
    /// The result's views are valid until the next call.
    TrackFrame frame(const FilterInput& input);
    /// Ends every track for this reason, by number.
    TrackFrame end(TrackEnd why);
    /// Its ids begin again: what lives ends with the next frame (lost).
    void analyzerRestarted();

 private:
    struct Open {
        Track track;
        std::int64_t last = 0;  ///< number of the frame it was seen in last
    };
    void see(const AnalyzerObject& object, std::int64_t time_ns);
    void tellLoose(const AnalyzerObject& object, std::int64_t time_ns);
    void closeAll(TrackEnd why);

    std::int64_t frames_ = 0;                  ///< all so far
    std::map<int, Open> open_;                 ///< by id
    std::map<int, std::int64_t> next_number_;  ///< by id, for ids that were used before
    std::int64_t loose_ = 0;                   ///< last number given to an object without a track
    TrackFrame latest_;                        ///< time and size for end()
    std::vector<Track> told_, ended_;
};

}  // namespace fleifeisa::host
