// Analyzed frames as compressed video, for sources whose own packets cannot be kept: H.264 by an ffmpeg of its own.
//
// Its cost follows the size of the analyzed frames, not that of the source.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "common/backoff.h"
#include "common/process.h"
#include "recorder/segment_maker.h"

namespace fleifeisa::host {

class Recorder;

class FrameEncoder {
 public:
    static constexpr std::size_t kMostFrames = 6;  ///< that wait

    /// @param live  frames that come too fast are left out and counted; else the caller waits for room
    FrameEncoder(Recorder& recorder, std::string camera, bool live, double rate);
    /// Ends within a second or so; what the encoder has by then is kept.
    ~FrameEncoder();
    FrameEncoder(const FrameEncoder&) = delete;
    FrameEncoder& operator=(const FrameEncoder&) = delete;

    /// R G B interleaved, width * height * 3 bytes. Times rise; where they do not, a new run begins, as with a new
    /// size.
    void frame(std::span<const std::uint8_t> rgb, int width, int height, std::int64_t time_ns);
    std::int64_t leftOut() const;

 private:
    struct Picture {
        std::vector<std::uint8_t> rgb;
        int width = 0, height = 0;
        std::int64_t time_ns = 0;
    };

    void run();
    bool take();
    void begin();
    void end();
    void step(bool waiting);
    void failed(const std::string& why);
    void readPackets();
    void readMessages();

    Recorder& recorder_;
    const std::string camera_;
    const bool live_;
    const double rate_;
    const Event wake_;

    mutable std::mutex mutex_;  // guards everything down to the blank line
    std::condition_variable room_;
    std::deque<Picture> queue_;
    std::vector<std::uint8_t> spare_;
    std::int64_t left_out_ = 0;
    bool ending_ = false;

    // the thread's own
    SegmentMaker maker_;
    std::optional<Process> ffmpeg_;
    std::optional<Picture> picture_;      ///< on its way into the encoder
    bool fresh_ = false;                  ///< nobody has looked at it yet
    std::size_t sent_ = 0;                ///< bytes of it
    std::deque<std::int64_t> under_way_;  ///< times of frames that the encoder has not given back
    int width_ = 0, height_ = 0;
    std::int64_t run_ = 0, first_ns_ = 0, latest_ns_ = 0;
    std::string messages_;
    Backoff retries_;
    std::thread thread_;
};

}  // namespace fleifeisa::host
