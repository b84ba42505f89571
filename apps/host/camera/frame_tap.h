// Whoever looks at a camera's frames as they are kept for hand-overs, without the camera knowing what for.
#pragma once

#include <deque>
#include <memory>

#include "camera/frame_ring.h"
#include "outputs/output.h"

namespace fleifeisa::host {

/// Called from the camera's thread, which waits for nobody.
class FrameTap {
 public:
    FrameTap() = default;
    FrameTap(const FrameTap&) = delete;
    FrameTap& operator=(const FrameTap&) = delete;
    virtual ~FrameTap() = default;

    /// The latest answered frames, one a second, and how many of them a hand-over would learn from.
    virtual void begin(const std::deque<std::shared_ptr<const KeptFrame>>& frames, std::size_t learning) = 0;
    /// A frame that was just answered, and what the camera made of it.
    virtual void add(std::shared_ptr<const KeptFrame> frame, const FrameResult& result) = 0;
};

}  // namespace fleifeisa::host
