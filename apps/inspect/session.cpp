#include "inspect/session.h"

namespace fleifeisa::inspect {

namespace {

void Release(KsColorImage& image) {
    image.KsFreeImageMemory();
    image.Detach();
}

}  // namespace

Session::~Session() {
    Release(frame_);
    Release(background_);
}

Phase Session::Begin(KsColorImage frame, bool trace) {
    frame_ = frame;
    return phase_ = cycle_.Begin(frame_, settings_.parameters, trace);
}

void Session::End() {
    cycle_.End(frame_);
    if (phase_ == Phase::kFirst && settings_.background == SINGLE) {
        background_ = frame_;  // stays alive: the model reads it on every frame
        frame_.Detach();
    } else {
        Release(frame_);
    }
}

}  // namespace fleifeisa::inspect
