// Who takes the compressed video beside the frames that are decoded from it.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>

namespace fleifeisa::host {

/// What is copied of a source's packets.
enum class PacketCopy { kNone, kVideo, kVideoAndSound };

/// In the copy a frame's time is so much later than in the decoded stream, so that decoding times are never negative.
constexpr int kPacketOffsetSeconds = 10;

/// Called from the source's thread, which it must never hold up. Each decoder is a run:
///
///   began (codec | packets | frame ...) ended
///
/// `packets` and `frame` come in any order beside each other.
class PacketSink {
 public:
    PacketSink() = default;
    PacketSink(const PacketSink&) = delete;
    PacketSink& operator=(const PacketSink&) = delete;
    virtual ~PacketSink() = default;

    /// What the next decoder is to copy.
    virtual PacketCopy wanted() const = 0;
    virtual void began() = 0;
    /// As ffmpeg calls it: "h264", "hevc", "mjpeg" ...; "" where frames come from no decoder. False: its packets are of
    /// no use. Also called where nothing is copied.
    virtual bool codec(std::string_view name) = 0;
    /// MPEG-TS, in pieces of any length.
    virtual void packets(std::span<const std::uint8_t> bytes) = 0;
    /// A frame was decoded. @param run_ns  its time in this run  @param time_ns  its time as the camera has it
    virtual void frame(std::int64_t run_ns, std::int64_t time_ns) = 0;
    virtual void ended() = 0;
    /// Copying ended the decoder: packets without times, for example. Not to be wanted again.
    virtual void failed(const std::string& why) = 0;
};

}  // namespace fleifeisa::host
