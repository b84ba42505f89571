// Runs a whole request stream through the frame loop inside this process and shows the tracker after every frame.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "host/FrameLoop.h"

struct ReplayOptions {
    ImageType type = COLOR;
    int bg_frames = 20;
    // Control file changes: after frame F the new bg_frames is seen and starts a relearning period.
    std::map<int, int> changes;
    FrameWatch* watch = nullptr;
};

struct ReplayedFrame {
    int number;  // from 1
    Phase phase;
    const ColorDiffTracker& tracker;
    const std::string& reply;  // every byte written since the previous frame
};

// The first frame must have pixels.
void replay(const std::string& requests, const ReplayOptions& options,
            const std::function<void(const ReplayedFrame&)>& show);
