// What the host hands to its outputs, one call a frame.
//
// An output belongs to one camera and is only ever called from that camera's thread, in this order:
//
//   started (frame frame ...) [started (frame ...)] ... finish
//
// Each `started` announces a fresh analyzer process, when its first frame is known: its background is unlearnt and its
// object ids begin again, so whatever was followed until then has ended.
//
// An output that fails throws OutputError. The host reports it once, drops that output and the camera goes on.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

#include "analyzer/reply.h"
#include "common/file_writer.h"

namespace fleifeisa::host {

/// One answered frame. All views are valid during the call only.
struct FrameResult {
    std::string_view camera;    ///< the camera's name
    std::int64_t sequence = 0;  ///< from 1, without gaps per camera (dropped live frames are never numbered)
    std::int64_t time_ns = 0;   ///< live: nanoseconds since 1970 (UTC); else presentation time from the start
    bool live = false;          ///< which of the two `time_ns` is
    std::int64_t dropped = 0;   ///< frames of a live source dropped since the frame before
    int width = 0;              ///< pixels
    int height = 0;             ///< pixels
    bool detection = false;     ///< false: a plain OK, the background was learnt
    std::span<const AnalyzerObject> objects;  ///< in the reply's order; empty while learning
    std::span<const std::uint8_t> rgb;       ///< width * height * 3 bytes, rows from the top, R G B interleaved
    std::string_view request;                ///< header bytes of the request, empty line included; its body is `rgb`
    std::string_view reply;                  ///< the exact bytes of the answer
};

/// What is known of a camera when its outputs are made (nothing was read then: no rate), and at each `started`.
struct CameraInfo {
    std::string name;    ///< as in the configuration; of a single source: its base name
    std::string source;  ///< as the user wrote it, without passwords
    int device = 1;
    int analyzer_id = 1;
    bool infrared = false;  ///< IR instead of COLOR
    bool live = false;      ///< wall clock times, frames may be dropped
    double rate = 0;        ///< nominal frames a second, 0 where unknown
    std::string control;    ///< text of the analyzer's control file, "" where none was written
};

class Output {
 public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    virtual ~Output() = default;

    /// A fresh analyzer process answers from the next frame on.
    virtual void started(const CameraInfo&) {}
    /// The control file changed between two frames: `control` is its new text.
    virtual void controlChanged(std::string_view /*control*/) {}
    virtual void frame(const FrameResult& result) = 0;
    /// Makes the files complete. Called once more than needed is harmless. Destruction without it leaves what
    /// there is, where that is of use.
    virtual void finish() = 0;
};

/// One output as configured: `type` names an output, `path` the file (or directory) it writes.
struct OutputChoice {
    std::string type;
    std::string path;

    bool operator==(const OutputChoice&) const = default;
};

}  // namespace fleifeisa::host
