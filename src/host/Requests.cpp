#include "host/Requests.h"

#include <cstring>
#include <iostream>
#include <limits>
#include <new>

RequestReader::Result RequestReader::Read(KsColorImage& Img, streamin& message) {
    out.flush();
    if (!out) return kUnwritable;
    const bool ended = in.peek() == std::char_traits<char>::eof();
    if (in.bad()) return kUnreadable;
    if (ended) return kEnd;
    message = StreamIO(&Img, in, out);
    if (in.bad()) return kUnreadable;
    if (TruncatedBody()) return kCutOff;
    const bool too_long = in.fail() && !in.eof();
    in.clear();  // the end of input is found again before the next message
    if (!too_long) return kMessage;
    in.ignore(std::numeric_limits<std::streamsize>::max(), '\n');
    if (in.bad()) return kUnreadable;
    AckError("Line too long.", out);
    return kTooLong;
}

FrameInput::Result RequestFrames::Next(KsColorImage& Img, streamin& message, const FrameCycle& cycle) {
    for (;;) {
        Release(Img, message);
        switch (reader.Read(Img, message)) {
            case RequestReader::kMessage:
                break;
            case RequestReader::kTooLong:
                continue;
            case RequestReader::kEnd:
                return Result::kEnd;
            case RequestReader::kCutOff:
                std::cerr << "The input ended inside a message body." << std::endl;
                return Result::kFailed;
            case RequestReader::kUnreadable:
                std::cerr << "Cannot read standard input." << std::endl;
                return Result::kFailed;
            case RequestReader::kUnwritable:
                return Result::kFailed;
        }
        if (message.ret_status == kShutdown) return Result::kEnd;
        if (message.ret_status != kFrame) continue;
        if (!cycle.Fits(Img)) {
            AckError("Image size differs from the first frame.", out);
            continue;
        }
        if (message.timestamp == nullptr) message.timestamp = strdup("");
        if (message.timestamp == nullptr) throw std::bad_alloc();
        return Result::kFrame;
    }
}
