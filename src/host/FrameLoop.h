// The frame loop: frames from an input, parameters from a control source, replies to an output stream.
#pragma once

#include <iosfwd>

#include "host/Control.h"
#include "host/FrameCycle.h"
#include "host/FrameWatch.h"
#include "host/Streaming.h"

// Where frames come from.
class FrameInput {
 public:
    enum class Result { kFrame, kEnd, kFailed };  // kFailed: what went wrong has been written to standard error

    FrameInput() = default;
    FrameInput(const FrameInput&) = delete;
    FrameInput& operator=(const FrameInput&) = delete;
    virtual ~FrameInput() = default;
    // The next frame that counts, with its message; both are released by the caller. A frame without pixels counts,
    // one that does not fit the frames of `cycle` so far must not come through with its pixels.
    virtual Result Next(KsColorImage& Img, streamin& message, const FrameCycle& cycle) = 0;
    // Whether the first frame is answered.
    virtual bool AnswersFirst() const = 0;
};

class FrameLoop {
 public:
    // `parameters` are those in force; they are read again whenever the source says that they have changed. `watch`,
    // where there is one, is shown every frame.
    struct Setup {
        ImageType type = COLOR;
        int devid = 0, analyzerid = 0;
        control& parameters;
        FrameWatch* watch = nullptr;
    };
    FrameLoop(const Setup& setup, FrameInput& frames, ControlSource& source, std::ostream& out);
    ~FrameLoop();
    FrameLoop(const FrameLoop&) = delete;
    FrameLoop& operator=(const FrameLoop&) = delete;

    // One frame from its arrival to its reply, which may still stand in the stream's buffer. False where there is none;
    // then Status tells why.
    bool Step();
    // Steps to the end. Returns the process's exit status: 0, or 1 where input or output failed.
    int Run();
    int Status() const { return status; }

    Phase Latest() const { return phase; }
    const FrameCycle& Cycle() const { return cycle; }

 private:
    bool TakeFrame();
    void CheckControl();

    const Setup setup;
    FrameInput& input;
    ControlSource& control_source;
    std::ostream& replies;
    FrameCycle cycle;
    KsColorImage Img;       // the frame; owns its pixels
    streamin streamdata{};  // its message
    Phase phase = Phase::kNoPixels;
    int status = 0;
};
