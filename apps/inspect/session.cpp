#include "inspect/session.h"

namespace fleifeisa::inspect {

namespace {

bool HasPixels(const KsColorImage& image) {
    return image.raw && image.NofR > 0 && image.NofC > 0;
}

void Release(KsColorImage& image) {
    image.KsFreeImageMemory();
    image.Detach();
}

}  // namespace

Session::~Session() {
    tracker_.reset();
    Release(frame_);
    Release(background_);
}

bool Session::Fits(const KsColorImage& frame) const {
    return tracker_ == nullptr || !HasPixels(frame) ||
           (frame.NofR == tracker_->G->NofR && frame.NofC == tracker_->G->NofC);
}

Phase Session::Begin(KsColorImage frame, bool trace) {
    frame_ = frame;
    number_++;
    if (!HasPixels(frame_)) return phase_ = Phase::kNoPixels;
    if (tracker_ == nullptr) {
        tracker_ = MakeTracker(settings_.type, frame_, settings_.parameters.bg_frames, settings_.background);
        return phase_ = Phase::kFirst;
    }
    const control& c = settings_.parameters;
    if (number_ <= c.bg_frames) return phase_ = Phase::kLearning;
    tracker_->DEBUG = trace;
    tracker_->DetectForeground(frame_, number_, c.color_low, c.color_high, c.ir_low, c.ir_high);
    return phase_ = Phase::kDetection;
}

void Session::End() {
    if (phase_ == Phase::kLearning || phase_ == Phase::kDetection)
        tracker_->UpdateBackground(frame_, phase_ == Phase::kLearning);
    if (phase_ == Phase::kFirst && settings_.background == SINGLE)
        background_ = frame_;  // stays alive: the model reads it on every frame
    else
        Release(frame_);
    frame_.Detach();
}

}  // namespace fleifeisa::inspect
