#include "inspect/session.h"

namespace fleifeisa::inspect {

namespace {

void release(KsColorImage& image) {
    image.KsFreeImageMemory();
    image.Detach();
}

}  // namespace

Session::~Session() {
    release(frame_);
    release(background_);
}

Phase Session::begin(KsColorImage frame, bool trace) {
    frame_ = frame;
    return phase_ = cycle_.Begin(frame_, settings_.parameters, trace);
}

void Session::end() {
    cycle_.End(frame_);
    if (phase_ == Phase::kFirst && settings_.background == SINGLE) {
        background_ = frame_;  // stays alive: the model reads it on every frame
        frame_.Detach();
    } else {
        release(frame_);
    }
}

}  // namespace fleifeisa::inspect
