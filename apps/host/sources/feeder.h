// The thread that reads one source and keeps it alive.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>

#include "common/backoff.h"
#include "sources/live_clock.h"
#include "sources/packet_sink.h"
#include "sources/rate_grid.h"
#include "sources/source.h"

namespace fleifeisa::host {

/// Between a source and its camera. Of a live source it holds one frame, the newest; of anything else a few, and the
/// source waits until there is room.
class Feeder {
 public:
    /// @param packets  takes the compressed video, null: nobody does
    Feeder(std::string camera, SourceOptions options, std::shared_ptr<PacketSink> packets = nullptr);
    ~Feeder();
    Feeder(const Feeder&) = delete;
    Feeder& operator=(const Feeder&) = delete;

    void start();
    /// Asks the thread to end; the destructor waits for it.
    void stop();
    /// Stops, and waits until the source is closed.
    void join();

    /// Is set when there is a frame to take or the source has ended.
    const Event& ready() const { return ready_; }
    /// Takes the oldest frame held. `dropped`: live frames replaced since the last one.
    bool take(RawFrame& frame, std::int64_t& dropped);
    /// Gives the memory of a frame back for the next ones.
    void recycle(std::vector<std::uint8_t> bytes);

    /// Nothing more will come (and nothing is held).
    bool ended() const;
    /// sysexits status of the end: 0, or why the source gave up.
    int exitCode() const;
    std::int64_t expectedFrames() const;
    double rate() const;
    bool live() const { return live_; }
    /// How often a live source was lost, that is has to be opened again; ready() tells of it.
    int outages() const;
    /// A frame waits to be taken.
    bool holds() const;
    /// The time that a live frame would get now.
    std::int64_t now() const;
    /// The frames' times are moments since 1970.
    bool dates() const { return hasDates(options_); }
    /// "" while frames come; else "failing since 2026-03-01T12:00:00Z, retried every 30 s: no such file".
    std::string trouble() const;

 private:
    enum class Outcome { kEnded, kEnough, kStopped, kFailed };

    void run();
    Outcome readOnce();
    bool inTime(RawFrame& frame);
    void noteProgress(const Source& source);
    void noteWarnings(Source& source);
    /// Reports a failure and waits until the next try. False when the stop came first.
    bool waitAfterFailure(const std::string& why, bool worked);
    void beginAnew();
    bool readFileAgain();
    RawFrame emptyFrame();
    void deliver(RawFrame&& frame);
    bool waitUntil(Clock::time_point when) const;
    void noteOutage();
    void finish(int code);

    const std::string camera_;
    const SourceOptions options_;
    const bool live_;
    const std::shared_ptr<PacketSink> packets_;
    Event stop_, ready_;

    mutable std::mutex mutex_;  // guards everything down to the blank line
    std::condition_variable room_;
    std::deque<RawFrame> frames_;
    std::deque<std::vector<std::uint8_t>> spare_;
    std::int64_t dropped_ = 0, expected_ = 0;
    double rate_ = 0;
    int outages_ = 0;
    LiveClock clock_;
    bool ended_ = false, stopping_ = false;
    int code_ = 0;
    std::string trouble_;

    // the thread's own
    std::int64_t delivered_ = 0;  ///< frames read in all; a file that is reopened skips them
    std::int64_t handed_on_ = 0;  ///< frames that went to the camera
    RateGrid grid_;
    std::int64_t clock_step_ns_ = 0;                       ///< since the latest frame that was handed on
    Clock::time_point begin_{};                            ///< of the playing in real time
    std::int64_t loop_offset_ns_ = 0, last_time_ns_ = -1;  ///< the last: -1 before any frame
    SourceError failure_{0, ""};
    Backoff backoff_;
    std::string failing_since_;  ///< moment of the first of failures in a row, "": none
    int retries_ = 0;            ///< of a file, in a row without a frame
    bool damaged_ = false;       ///< parts of a file could not be read
    std::thread thread_;
};

}  // namespace fleifeisa::host
