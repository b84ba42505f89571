#include "inspect/session.h"

namespace fleifeisa::inspect {

namespace {

bool hasPixels(const KsColorImage& image) {
    return image.raw && image.NofR > 0 && image.NofC > 0;
}

void release(KsColorImage& image) {
    image.KsFreeImageMemory();
    image.Detach();
}

}  // namespace

Session::~Session() {
    tracker_.reset();
    release(frame_);
    release(background_);
}

bool Session::fits(const KsColorImage& frame) const {
    return tracker_ == nullptr || !hasPixels(frame) ||
           (frame.NofR == tracker_->G->NofR && frame.NofC == tracker_->G->NofC);
}

Phase Session::begin(KsColorImage frame, bool trace) {
    frame_ = frame;
    number_++;
    if (!hasPixels(frame_)) return phase_ = Phase::kNoPixels;
    if (tracker_ == nullptr) {
        build();
        return phase_ = Phase::kFirst;
    }
    const control& c = settings_.parameters;
    if (number_ <= c.bg_frames) return phase_ = Phase::kLearning;
    tracker_->DEBUG = trace;
    tracker_->DetectForeground(frame_, number_, c.color_low, c.color_high, c.ir_low, c.ir_high);
    return phase_ = Phase::kDetection;
}

void Session::end() {
    if (phase_ == Phase::kLearning || phase_ == Phase::kDetection)
        tracker_->UpdateBackground(frame_, phase_ == Phase::kLearning);
    if (phase_ == Phase::kFirst && settings_.background == SINGLE)
        background_ = frame_;  // stays alive: the model reads it on every frame
    else
        release(frame_);
    frame_.Detach();
}

// The constants of the analyzer's own set-up.
void Session::build() {
    const int frames = settings_.parameters.bg_frames;
    const BackgroundType background = settings_.background;
    tracker_ = settings_.type == COLOR ? std::make_unique<ColorDiffTracker>(frame_, 240, 480, 1.0, 4, 0.95, COLOR,
                                                                            false, 500, 1200, frames, background)
                                       : std::make_unique<ColorDiffTracker>(frame_, 120, 240, 1.0, 4, 0.99, IR, false,
                                                                            150, 600, frames, background);
}

}  // namespace fleifeisa::inspect
