// Cuts one run's packets into segments and finds out at which time the camera saw each picture.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <span>

#include "recorder/segment.h"

namespace fleifeisa::host {

/// Used by one thread. A segment ends before the first picture after kSegment at which decoding can begin. Where none
/// comes, the segment goes on in parts: one that does not begin with such a picture belongs to the one before.
///
/// Frames come behind their packets, a decoder's delay later: a segment waits for its latest frame. Where frames stay
/// away, it is handed on without their times.
class SegmentMaker {
 public:
    static constexpr std::int64_t kSegment = 2 * kTicksPerSecond, kLongestPart = 4 * kTicksPerSecond;
    static constexpr std::size_t kMostBytes = 8 << 20;  ///< of a part
    static constexpr std::size_t kMostWaiting = 8;      ///< segments
    static constexpr std::size_t kMostFrames = 4096;    ///< whose pictures have not come
    static constexpr std::int64_t kSame = 9;            ///< ticks: times of one picture, rounded in two ways

    /// Segments in order; each has at least one picture with a time.
    explicit SegmentMaker(std::function<void(Segment)> ready) : ready_(std::move(ready)) {}

    void begin(std::int64_t run);
    void packets(std::span<const std::uint8_t> bytes);
    /// Pictures of later packets may already have a frame; they need not come in order.
    void frame(std::int64_t pts, std::int64_t time_ns);
    /// Hands on what there is.
    void end();

    bool running() const { return reader_.has_value(); }
    /// May write over the first packet of each picture, and say what its times are then.
    using Change = std::function<void(std::span<std::uint8_t, kTsPacket> packet, TsPicture& picture)>;
    void rewrite(Change change) { change_ = std::move(change); }

 private:
    void packet(TsPacket original, const TsPicture* begins);
    bool endsBefore(const TsPicture& picture) const;
    void close();
    void handOn();
    void giveTimes(Segment& segment);

    const std::function<void(Segment)> ready_;
    Change change_;
    std::optional<TsReader> reader_;
    std::int64_t run_ = 0, number_ = 0;
    Segment current_;
    bool begun_ = false;  ///< a picture came at which decoding can begin
    std::deque<Segment> waiting_;
    std::map<std::int64_t, std::int64_t> frames_;  ///< time by pts
    std::int64_t latest_frame_ = INT64_MIN;        ///< pts
};

}  // namespace fleifeisa::host
