// Somebody who looks at the frames that pass and changes nothing. The analyzer runs without one; the build of it that
// explains what it sees (apps/explain) runs the same loop with one.
#pragma once

#include "host/Control.h"
#include "host/FrameCycle.h"
#include "host/Streaming.h"

// A frame between the two halves of its cycle: the grid and the table show it, and the background is still the one that
// it was compared with.
struct WatchedFrame {
    const FrameCycle& cycle;  // stays where it is until the loop ends
    Phase phase;
    const KsColorImage& image;
    const streamin& message;
    const control& parameters;  // in force for it; stay where they are, too
};

class FrameWatch {
 public:
    FrameWatch() = default;
    FrameWatch(const FrameWatch&) = delete;
    FrameWatch& operator=(const FrameWatch&) = delete;
    virtual ~FrameWatch() = default;
    // Every frame that counts, in order. What it looks at through the cycle must stay as it is: replies follow from it.
    // Records of the grid's cells (GridCells) are not for looking, since asking for one changes how it is kept.
    virtual void Frame(const WatchedFrame& frame) = 0;
    // A descriptor that stays open, and may be written to, when the process is confined; -1 for none. At most 3.
    virtual int Descriptor() const = 0;
};
