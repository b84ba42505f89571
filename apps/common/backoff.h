// How long to wait before something that fails is tried again.
#pragma once

#include <algorithm>

#include "common/fd.h"

namespace fleifeisa {

/// Each wait is twice the one before, up to a limit; what worked soundly for a while begins with the first one again.
/// Knows no clock: the times are handed in.
class Backoff {
 public:
    struct Limits {
        double first, longest;  ///< seconds
        Clock::duration sound;  ///< working so long counts as sound
    };
    explicit Backoff(const Limits& limits) : limits_(limits) {}

    /// A try begins.
    void began(Clock::time_point now) { began_ = now; }
    /// It ended; `worked`: it did something useful meanwhile. Returns the seconds until the next try.
    double failed(Clock::time_point now, bool worked = true) {
        if (worked && now - began_ > limits_.sound) delay_ = 0;
        delay_ = delay_ == 0 ? limits_.first : std::min(2 * delay_, limits_.longest);
        next_ = now + seconds(delay_);
        return delay_;
    }
    /// The earliest moment of the next try; before the first failure any moment will do.
    Clock::time_point nextTry() const { return next_; }

 private:
    Limits limits_;
    Clock::time_point began_{}, next_{};
    double delay_ = 0;
};

}  // namespace fleifeisa
