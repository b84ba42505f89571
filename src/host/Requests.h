// The requests of a host as frames (docs/protocol.md).
#pragma once

#include <iosfwd>

#include "host/FrameLoop.h"

// Reads messages one by one; what is wrong with one is answered on `out`.
class RequestReader {
 public:
    RequestReader(std::istream& in_stream, std::ostream& out_stream) : in(in_stream), out(out_stream) {}

    enum Result {
        kMessage,
        kTooLong,     // a line of it was: it is dropped, and the input goes on behind that line
        kEnd,         // of the input
        kCutOff,      // the input ended inside a message body
        kUnreadable,  // the input failed, which is not its end
        kUnwritable   // the output failed
    };
    // Flushes what has been answered, waits for a message and reads it. Whatever the result, the caller releases both.
    Result Read(KsColorImage& Img, streamin& message);

 private:
    std::istream& in;
    std::ostream& out;
};

class RequestFrames : public FrameInput {
 public:
    RequestFrames(std::istream& in, std::ostream& out_stream) : reader(in, out_stream), out(out_stream) {}
    Result Next(KsColorImage& Img, streamin& message, const FrameCycle& cycle) override;
    bool AnswersFirst() const override { return true; }

 private:
    RequestReader reader;
    std::ostream& out;
};
