// The frame stream protocol: requests on standard input, replies on standard output (docs/protocol.md), or on whatever
// streams the caller gives. Nothing here flushes; see RequestReader in Requests.h.
#pragma once

#include <iostream>

#include "image/kscolor.h"

// One received message. The texts come from strdup and belong to the caller, who releases them with free.
struct streamin {
    int sequence_num;   // 0 when absent
    char* status;       // value of Status, and of Status-text
    char* status_text;  // Deliberate: never set (StreamIo.MessageTable), see ReadHeader
    char* timestamp;    // verbatim, with its leading blank
    int ret_status;     // StreamCode
};

enum StreamCode {
    kNothing = 0,      // rejected first line, lone blank, or neither command nor body
    kFrame = 1,        // a body of type image/rgb is attached to the image
    kReconfigure = 2,  // command without body
    kShutdown = 3,     // command without body
    kOtherBody = 4     // a body of another type, discarded
};

constexpr long kMaxBody = 268435456;  // bytes; also the limit of width x height x 3

// Reads one message; blocks until it is complete. The image owns an attached body. Where the input ends inside a body,
// the message is dropped: ret_status is kNothing, nothing is written, and the input is at its end with TruncatedBody().
streamin StreamIO(KsColorImage* Img, std::istream& in = std::cin, std::ostream& out = std::cout);

// Releases the pixels and the texts of a message, and leaves both as freshly constructed.
void Release(KsColorImage& Img, streamin& message);

// Whether the latest StreamIO met the end of input inside a body.
bool TruncatedBody();

// The plain OK reply. A null timestamp puts the stream into its failed state.
void AckOK(const streamin& streamdata, std::ostream& out = std::cout);
// An error reply.
void AckError(const char* msg, std::ostream& out = std::cout);

// Ends the process with status 0.
[[noreturn]] void shutdown();
