#include "host/FrameLoop.h"

#include <ostream>

FrameLoop::FrameLoop(const Setup& s, FrameInput& frames, ControlSource& source, std::ostream& out)
    : setup(s), input(frames), control_source(source), replies(out), cycle(s.type, s.parameters.bg_frames) {}

FrameLoop::~FrameLoop() {
    Release(Img, streamdata);
}

int FrameLoop::Run() {
    while (Step()) {
    }
    return status;
}

bool FrameLoop::Step() {
    if (!TakeFrame()) return false;
    phase = cycle.Begin(Img, setup.parameters);
    if (setup.watch != nullptr) setup.watch->Frame({cycle, phase, Img, streamdata, setup.parameters});
    cycle.End(Img);
    if (cycle.Number() > 1 || input.AnswersFirst()) cycle.Answer(replies, streamdata, setup.devid, setup.analyzerid);
    CheckControl();
    return true;
}

bool FrameLoop::TakeFrame() {
    Release(Img, streamdata);
    replies.flush();  // before the input waits
    const FrameInput::Result next = replies ? input.Next(Img, streamdata, cycle) : FrameInput::Result::kFailed;
    status = next == FrameInput::Result::kFailed ? 1 : 0;
    if (next != FrameInput::Result::kFrame) return false;
    if (HasPixels(Img)) Img.Share();  // the model keeps the latest frames
    return true;
}

void FrameLoop::CheckControl() {
    if (!control_source.Changed()) return;
    control_source.Read(setup.parameters);
    cycle.Relearn(setup.parameters.bg_frames);
}
