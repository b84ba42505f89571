// Times of live frames: the wall clock at the start plus the monotonic clock, so that they rise whatever is done to the
// wall clock. Where the two differ by more than kTolerance, the wall clock was stepped, and times follow it at once.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>

namespace fleifeisa::host {

class LiveClock {
 public:
    static constexpr std::int64_t kTolerance = 2'000'000'000;  ///< ns

    /// Both clocks at one moment, in nanoseconds; the wall clock since 1970.
    struct Reading {
        std::int64_t wall_ns, steady_ns;
    };
    struct Moment {
        std::int64_t time_ns = 0;
        std::int64_t step_ns = 0;  ///< by so much the clock was stepped since the frame before, 0: it was not
    };

    /// The time of a frame: later than that of the one before, unless the clock was stepped back.
    Moment ofFrame(const Reading& reading) {
        if (!offset_ns_) offset_ns_ = reading.wall_ns - reading.steady_ns;
        Moment moment{reading.steady_ns + *offset_ns_, 0};
        const std::int64_t ahead = reading.wall_ns - moment.time_ns;
        if (ahead > kTolerance || ahead < -kTolerance) {
            *offset_ns_ += ahead;
            moment = {reading.wall_ns, ahead};
        }
        if (moment.step_ns >= 0 && latest_ns_) moment.time_ns = std::max(moment.time_ns, *latest_ns_ + 1);
        latest_ns_ = moment.time_ns;
        return moment;
    }

    /// What a frame would get now, steps aside.
    std::int64_t now(const Reading& reading) const {
        return offset_ns_ ? reading.steady_ns + *offset_ns_ : reading.wall_ns;
    }

 private:
    std::optional<std::int64_t> offset_ns_, latest_ns_;
};

}  // namespace fleifeisa::host
