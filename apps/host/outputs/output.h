// What the host hands to its outputs, one call a frame.
//
// An output belongs to one camera and is only ever called from that camera's thread, in this order:
//
//   started (frame frame ...) [started (frame ...)] ... finish
//
// Each `started` announces a fresh analyzer process, when its first frame is known: its background is unlearnt and its
// object ids begin again. Tracks live on. `handedOver` stands in its place where the new process has learned from
// earlier frames and answers like the one before it. `ended` may come between any two of these calls, and comes before
// `finish` where tracks live then.
//
// An output that fails throws OutputError and tries again by itself with what it is given later: state() says how it
// stands. The camera goes on, and reports both.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "analyzer/reply.h"
#include "common/file_writer.h"
#include "events/rule_steps.h"
#include "tracks/track_maker.h"

namespace fleifeisa::host {

/// One answered frame. All views are valid during the call only.
struct FrameResult {
    std::string_view camera;    ///< the camera's name
    std::int64_t sequence = 0;  ///< from 1, without gaps per camera (dropped live frames are never numbered)
    std::int64_t time_ns = 0;   ///< live: nanoseconds since 1970 (UTC); else presentation time from the start
    bool live = false;          ///< which of the two `time_ns` is: true also for a file with a start time
    bool realtime = false;      ///< live, or played at its own speed: somebody may be watching the files
    std::int64_t dropped = 0;   ///< frames since the one before that nobody answered: a live source dropped them for
                                ///< newer ones, or they went down with an analyzer
    int width = 0;              ///< pixels
    int height = 0;             ///< pixels
    bool detection = false;     ///< false: a plain OK, the background was learnt
    std::span<const AnalyzerObject> objects;  ///< in the reply's order; empty while learning
    std::span<const std::uint8_t> rgb;        ///< width * height * 3 bytes, rows from the top, R G B interleaved
    TrackFrame tracks;                        ///< what the frame came to
    std::string_view request;                 ///< header bytes of the request, empty line included; its body is `rgb`
    std::string_view reply;                   ///< the exact bytes of the answer
};

/// What is known of a camera when its outputs are made (nothing was read then: no rate), and at each `started`.
struct CameraInfo {
    std::string name;    ///< as in the configuration; of a single source: its base name
    std::string source;  ///< as the user wrote it, without passwords
    int device = 1;
    int analyzer_id = 1;
    bool infrared = false;           ///< IR instead of COLOR
    bool live = false;               ///< times since 1970; of a live source also: frames may be dropped
    double rate = 0;                 ///< nominal frames a second, 0 where unknown
    std::string control;             ///< text of the analyzer's control file, "" where none was written
    std::string title = {};          ///< what people read in place of the name
    std::optional<Box> region = {};  ///< cut out of the source picture, in its pixels
    TrackSettings tracks = {};       ///< in force, with the number of the next track
    bool fresh_tracks = true;        ///< tracks and rules begin anew with this analyzer
    RuleSetup rules = {};            ///< in force, with the number of the next event
};

/// A frame that a new analyzer was given before it took over, and its answer, of which nobody was told.
struct WarmUpFrame {
    std::string_view request;           ///< header bytes of the request, empty line included
    std::span<const std::uint8_t> rgb;  ///< its body
    std::string_view reply;
};

/// A new analyzer takes the place of another between two frames. All views are valid during the call only.
struct HandedOver {
    std::int64_t time_ns = 0;  ///< of the latest frame that was answered
    std::string_view why;      ///< one word
    bool new_picture = false;  ///< frames look otherwise than before: tracks learn their background anew
    std::span<const WarmUpFrame> frames;
};

/// How an output stands.
struct OutputState {
    bool failing = false;               ///< what it was given last is not (yet) in its file
    std::uint64_t lost = 0;             ///< records that are in no file and will never be
    bool wants_fresh_analyzer = false;  ///< it can begin a new file only where an analyzer begins
};

class Output {
 public:
    Output() = default;
    Output(const Output&) = delete;
    Output& operator=(const Output&) = delete;
    virtual ~Output() = default;

    /// A fresh analyzer process answers from the next frame on.
    virtual void started(const CameraInfo&) {}
    /// The same, but it has learned already. `camera` holds the control file that it has learned with.
    virtual void handedOver(const CameraInfo& /*camera*/, const HandedOver&) {}
    /// The control file changed between two frames: `control` is its new text.
    virtual void controlChanged(std::string_view /*control*/) {}
    virtual void frame(const FrameResult& result) = 0;
    /// All tracks ended behind the latest frame: the source was lost or came to its end, the clock was set back.
    virtual void ended(const TrackFrame& /*frame*/, TrackEnd /*why*/) {}
    /// What the rules are told between frames: the source is lost, the analyzer was restarted, the clock stepped ...
    virtual void stepped(const RuleStep&) {}
    /// What the rules made of the latest frame, end of tracks, or step; not called where that is nothing.
    virtual void ruled(const RuleResults&) {}
    /// One message of an event. Where there is a store: later, when it is safe on disk.
    virtual void told(const CameraEvent&) {}
    /// Makes the files complete. Called once more than needed is harmless. Destruction without it leaves what
    /// there is, where that is of use.
    virtual void finish() = 0;
    /// Whoever rotates files has moved them away: what is buffered goes out, new files are begun.
    virtual void reopen() {}
    virtual OutputState state() const { return {}; }
};

/// One output as configured: `type` names an output, `path` the file it writes, "-" standard output.
struct OutputChoice {
    std::string type;
    std::string path;
    FilePolicy policy = {};

    bool operator==(const OutputChoice&) const = default;
};

}  // namespace fleifeisa::host
