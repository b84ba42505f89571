// What becomes of one frame after the other: which of them are learnt and which are searched for objects, and what is
// answered. Where frames come from and what makes the parameters change is up to the caller (see FrameLoop.h).
#pragma once

#include <iosfwd>
#include <memory>

#include "host/Control.h"
#include "host/Streaming.h"
#include "tracker/kscolortracker.h"

enum class Phase {
    kNoPixels,  // counted, nothing else
    kFirst,     // built the tracker
    kLearning,  // only brings the background up to date
    kDetection
};

inline bool HasPixels(const KsColorImage& img) {
    return img.raw && img.NofR > 0 && img.NofC > 0;
}

class FrameCycle {
 public:
    // NofBF: frames up to this number are learnt, the first one is 1.
    FrameCycle(ImageType type, int NofBF, BackgroundType background = MULTIPLE)
        : CIr(type), BT(background), NofBckgFrames(NofBF) {}

    // Whether the frame has the size of those before it, or has no pixels.
    bool Fits(const KsColorImage& Img) const;

    // Counts the frame and searches it for objects; over the first frame with pixels, builds the tracker. Until End,
    // the grid and the table show this frame, and the background is the one that it was compared with. `trace` prints
    // the detection's trace to standard output.
    Phase Begin(KsColorImage& Img, const control& c, bool trace = false);
    // Brings the background up to date with the same frame.
    void End(KsColorImage& Img);
    // Writes the reply to the frame. Call it once between two frames, or never.
    void Answer(std::ostream& out, streamin& message, int devid, int analyzerid);
    // The coming frames are learnt. Deliberate: half as many as the number says, since frames and plain answers both
    // count (MainLoop.RelearningAfterAControlFileChange).
    void Relearn(int count) { relearn_time = count; }

    int Number() const { return frame; }                    // of the latest frame
    ColorDiffTracker* Tracker() const { return TD.get(); }  // null before the first frame with pixels

 private:
    ImageType CIr;
    BackgroundType BT;
    int NofBckgFrames;
    std::unique_ptr<ColorDiffTracker> TD;
    int frame = 0;  // frames counted
    int relearn_time = 0;
    Phase phase = Phase::kNoPixels;
};
