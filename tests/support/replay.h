// Runs a whole request stream through the host functions and the tracker inside this process, as the main loop does,
// and shows the tracker after every frame.
#pragma once

#include <functional>
#include <map>
#include <string>

#include "tracker/kscolortracker.h"

struct ReplayOptions {
    ImageType type = COLOR;
    int bg_frames = 20;
    // Control file changes: after frame F the new bg_frames is seen and starts a relearning period.
    std::map<int, int> changes;
};

enum class FrameMode { kFirst, kLearn, kDetect };

struct ReplayedFrame {
    int number;  // from 1
    FrameMode mode;
    const ColorDiffTracker& tracker;
    const std::string& reply;  // every byte written since the previous frame
};

// Frames without pixels, or of another size than the first, must not occur.
void replay(const std::string& requests, const ReplayOptions& options,
            const std::function<void(const ReplayedFrame&)>& show);
