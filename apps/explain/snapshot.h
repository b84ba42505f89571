// What an answer is made of: the tracker's state between two steps of the frame loop, to be looked at only.
#pragma once

#include <cstdint>
#include <memory>
#include <span>

#include "host/FrameCycle.h"

namespace fleifeisa::explain {

/// Tenths of a second since the first frame, with the lowest bit for what has been since then: 1 foreground.
using Since = std::uint32_t;

struct Snapshot {
    const FrameCycle* cycle = nullptr;  ///< null: no frame has come
    Phase phase = Phase::kNoPixels;
    bool compared = false;  ///< the background is the one that the frame was compared with; else it has seen the frame
    const control* parameters = nullptr;
    std::int64_t sequence = 0;
    std::shared_ptr<unsigned char[]> pixels;  ///< of the frame, null: they have gone
    std::span<const Since> since;             ///< a cell each, as of the latest frame that was searched
    Since now = 0;                            ///< with the lowest bit 0

    /// Null before the first frame with pixels.
    const ColorDiffTracker* tracker() const { return cycle ? cycle->Tracker() : nullptr; }
    const GridColorDiff& grid() const { return *tracker()->G; }
    const BackgroundModel& background() const { return *tracker()->B; }
    bool searched() const { return phase == Phase::kDetection; }
    double secondsSince(int cell) const {
        const Since then = since[static_cast<std::size_t>(cell)] >> 1;
        return then < now >> 1 ? static_cast<double>((now >> 1) - then) / 10 : 0;
    }
};

}  // namespace fleifeisa::explain
