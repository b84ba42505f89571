#include "inspect/session.h"

#include <sstream>

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

std::string Session::answer() {
    std::ostringstream out;
    std::string timestamp = " 0";
    streamin message{};
    message.timestamp = timestamp.data();
    message.sequence_num = number();
    cycle_.Answer(out, message, 1, 1);
    if (phase_ == Phase::kDetection) {  // what was reported is to be reported again by the detections document
        ColorDiffTracker& t = *cycle_.Tracker();
        for (int i = 0; i < t.numobjects; i++)
            if (t.Ob[t.usedob[i]].framenum == t.t) t.Ob[t.usedob[i]].reportit = true;
    }
    return out.str();
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
