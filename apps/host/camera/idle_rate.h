// Which frames a quiet camera's analyzer is given: few, until something is there, and all of them until a while after.
//
// What is decided depends on frames' times and on replies to frames at least two before, as they come from the source,
// so that it is the same however fast anybody is: a file's next frame may be sent while the one before is at work.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>

#include "analyzer/reply.h"
#include "sources/rate_grid.h"
#include "tracks/track.h"

namespace fleifeisa::host {

/// Nothing is there. While light changes and while anybody learns, every frame counts.
bool showsNothing(const Reply& reply, const TrackFrame& frame);

class IdleRate {
 public:
    /// For so long after the latest object or track every frame is wanted: somebody may come back.
    static constexpr std::int64_t kStaysNs = 5'000'000'000;

    /// @param rate  frames a second while nothing is there, 0: all of them
    explicit IdleRate(double rate) : rate_(rate), grid_(rate) {}

    /// All replies are known on which the next decision depends.
    bool decidable() const;
    /// Whether the source's next frame is wanted; it is to be answered then. Asked once a frame, where decidable().
    bool wants(std::int64_t time_ns);
    /// The oldest wanted frame that has no answer yet has got one, or will never get one.
    /// @param quiet  it shows that nothing is there
    void answered(bool quiet);
    /// All frames are wanted until answers say otherwise: an analyzer begins to learn.
    void wake() { busy_ns_.reset(); }

 private:
    struct Wanted {
        std::int64_t index, time_ns;
        bool answered, quiet;
    };

    const double rate_;
    RateGrid grid_;
    std::int64_t next_ = 0;                ///< index of the source's next frame
    std::int64_t latest_ns_ = 0;           ///< time of the one before
    std::deque<Wanted> wanted_;            ///< that count for decisions to come
    std::optional<std::int64_t> busy_ns_;  ///< time of the latest frame that counts with something in it
};

}  // namespace fleifeisa::host
