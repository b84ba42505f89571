// A few seconds of compressed video, as they lie in the ring.
//
// A segment's file is a transport stream that every player takes: first what the host knows of its pictures, in null
// packets, which players pass over; then the stream's tables, then its packets as they came.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "recorder/ts_reader.h"

namespace fleifeisa::host {

constexpr std::int64_t kNoTime = INT64_MIN;

struct SegmentPicture {
    std::int64_t pts = 0, dts = 0;   ///< ticks of the run
    std::int64_t time_ns = kNoTime;  ///< of the camera's frame, kNoTime: it was not decoded
    std::uint32_t offset = 0;        ///< of its first packet in the segment's packets
    bool key = false;

    bool operator==(const SegmentPicture&) const = default;
};

/// What is known without the packets.
struct SegmentHead {
    std::int64_t run = 0;     ///< of the decoder, of its camera: nanoseconds since 1970 at its start, never used twice
    std::int64_t number = 0;  ///< in the run, from 0; a missing one was lost
    std::vector<SegmentPicture> pictures;  ///< in decoding order, at least one

    bool key() const { return !pictures.empty() && pictures.front().key; }
    /// Times of its earliest and latest frame; kNoTime where none is known.
    std::int64_t startNs() const;
    std::int64_t endNs() const;
    std::int64_t lastPts() const;
};

struct Segment {
    SegmentHead head;
    std::vector<std::uint8_t> tables, packets;  ///< whole transport packets
};

/// What is put in front of the tables.
std::vector<std::uint8_t> encodeHead(const SegmentHead& head);

/// Reads it from the begin of a segment's file. @param length  is set to the bytes it takes; nothing where it is
/// damaged
std::optional<SegmentHead> decodeHead(std::span<const std::uint8_t> file, std::size_t& length);

}  // namespace fleifeisa::host
