#include "host/FrameCycle.h"

#include <ostream>

bool FrameCycle::Fits(const KsColorImage& Img) const {
    return TD == nullptr || !HasPixels(Img) || (Img.NofR == TD->G->NofR && Img.NofC == TD->G->NofC);
}

Phase FrameCycle::Begin(KsColorImage& Img, const control& c, bool trace) {
    frame++;
    if (!HasPixels(Img)) return phase = Phase::kNoPixels;
    if (TD == nullptr) {
        TD = MakeTracker(CIr, Img, NofBckgFrames, BT);
        return phase = Phase::kFirst;  // this frame only constructs it
    }
    if (frame <= NofBckgFrames || relearn_time != 0) return phase = Phase::kLearning;
    TD->DEBUG = trace;
    TD->DetectForeground(Img, frame, c.color_low, c.color_high, c.ir_low, c.ir_high);
    return phase = Phase::kDetection;
}

void FrameCycle::End(KsColorImage& Img) {
    if (phase == Phase::kLearning || phase == Phase::kDetection) TD->UpdateBackground(Img, phase == Phase::kLearning);
    if (relearn_time > 0) relearn_time--;
}

// Deliberate: also on the frame on which relearning has just run out, although that one was only learned. A plain
// answer counts down once more, so relearning takes two a frame (MainLoop.RelearningAfterAControlFileChange).
void FrameCycle::Answer(std::ostream& out, streamin& message, int devid, int analyzerid) {
    if (frame > 1 && frame > NofBckgFrames && relearn_time == 0) {
        if (TD != nullptr)
            TD->OutputAnalyticsXML(devid, message.timestamp, message.sequence_num, analyzerid, out);
        else
            OutputEmptyAnalytics(message.timestamp, message.sequence_num, out);
        return;
    }
    AckOK(message, out);
    if (relearn_time > 0) relearn_time--;
}
