// At most so many frames a second, whatever the jitter of their times.
#pragma once

#include <cmath>
#include <cstdint>

namespace fleifeisa::host {

class RateGrid {
 public:
    /// @param rate  frames a second, 0: all
    explicit RateGrid(double rate) : rate_(rate) {}

    /// Whether a frame of this time falls into another interval than the latest that was taken; it is taken then. A
    /// quarter of an interval of tolerance keeps every frame of a source that already has that rate, with jitter.
    bool takes(std::int64_t time_ns) {
        if (rate_ <= 0) return true;
        if (slot_ < 0) start_ns_ = time_ns;
        const auto slot =
            static_cast<std::int64_t>(std::floor(static_cast<double>(time_ns - start_ns_) * rate_ / 1e9 + 0.25));
        if (slot <= slot_) return false;
        slot_ = slot;
        return true;
    }
    /// The next frame is taken, and the intervals begin with it.
    void restart() { slot_ = -1; }

 private:
    double rate_;
    std::int64_t slot_ = -1, start_ns_ = 0;
};

}  // namespace fleifeisa::host
