// MPEG transport streams, as far as one program with video from ffmpeg's muxer needs them: where each picture's packets
// begin, its times, and whether decoding can begin there. Trusts no byte.
//
// A stream is packets of 188 bytes: a byte 0x47, flags with the packet identifier (PID), flags with a counter, perhaps
// an adaptation field (which says whether a picture can be decoded without those before it), and payload. The payload
// of a PID is cut into PES packets, here one for each picture, whose headers hold the times, in ticks of 1/90000 s
// modulo 2^33 (they begin again after 26.5 hours).
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <vector>

namespace fleifeisa::host {

constexpr std::size_t kTsPacket = 188;
constexpr std::int64_t kTicksPerSecond = 90'000;

using TsPacket = std::span<const std::uint8_t, kTsPacket>;

/// What begins with a packet.
struct TsPicture {
    std::int64_t pts = 0, dts = 0;  ///< ticks, continued where the 33 bits begin again
    bool key = false;               ///< decoding can begin here
};

class TsReader {
 public:
    /// Each packet of the program's streams, in order; with `picture` where one begins. Tables are not among them.
    using Take = std::function<void(TsPacket packet, const TsPicture* picture)>;

    explicit TsReader(Take take) : take_(std::move(take)) {}

    /// In pieces of any length. What is no packet is passed over and counted.
    void read(std::span<const std::uint8_t> bytes);
    /// The latest tables of the stream, to be put in front of whatever is cut out of it; empty before the first.
    std::span<const std::uint8_t> tables() const { return tables_; }
    std::int64_t damaged() const { return damaged_; }

 private:
    void packet(TsPacket packet);
    void programs(std::span<const std::uint8_t> section);
    void streams(std::span<const std::uint8_t> section);
    std::optional<TsPicture> pictureOf(std::span<const std::uint8_t> pes, bool key);
    std::int64_t continued(std::uint64_t ticks);
    void keepTable(std::size_t which, TsPacket packet);

    const Take take_;
    std::vector<std::uint8_t> rest_;    ///< of a packet that is not whole yet
    std::vector<std::uint8_t> tables_;  ///< two packets: programs, streams of the program
    int table_pid_ = -1;                ///< where the program's streams are told
    int video_pid_ = -1;
    bool hevc_ = false;
    std::array<int, 8> other_pids_{};  ///< sound; further ones are left out
    std::size_t others_ = 0;
    std::optional<std::int64_t> latest_;  ///< time, continued
    std::int64_t damaged_ = 0;            ///< bytes and packets that made no sense
};

/// The time of a PES header, or nothing where there is none: `pes` begins with the header.
/// @param dts  is set to the decoding time, which is the same where the header has only one
std::optional<std::uint64_t> pesTime(std::span<const std::uint8_t> pes, std::uint64_t& dts);

/// Writes both times into a PES header that has room for them; false where it has none.
bool setPesTime(std::span<std::uint8_t> pes, std::int64_t ticks);

/// Where the payload of a packet begins, kTsPacket where it has none.
std::size_t payloadOf(TsPacket packet);

/// The packet's identifier, 0 to 8191.
int pidOf(TsPacket packet);

}  // namespace fleifeisa::host
