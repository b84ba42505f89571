// The NUT container, as far as one stream of raw video from ffmpeg's pipe needs it: frames with their exact times.
//
// Raw frames without a container would come without presentation times, and a frame of another length would shift all
// that follow. Big-endian; numbers are 7 bits a byte with the high bit for "more".
#pragma once

#include <array>
#include <cstdint>
#include <vector>

#include "sources/pipe_reader.h"

namespace fleifeisa::host {

class NutReader {
 public:
    explicit NutReader(ByteStream& in) : in_(in) {}

    /// Reads the file's headers. @throws ReadEnd, std::runtime_error where it is no NUT file with one stream
    void readHeaders();
    int width() const { return width_; }
    int height() const { return height_; }

    /// Reads the next frame into `bytes` (resized). False at the end of the stream.
    /// @throws ReadEnd where it ends within a frame or stalls; std::runtime_error where it is damaged
    bool next(std::vector<std::uint8_t>& bytes, std::int64_t& time_ns);

 private:
    struct FrameCode {
        std::uint32_t flags = 0;
        std::uint64_t size_mul = 0, size_lsb = 0, reserved = 0;
        std::int64_t pts_delta = 0;
    };

    std::uint64_t number();
    std::int64_t signedNumber();
    std::uint64_t bytes64(int count);
    void skip(std::uint64_t count);
    /// Reads forward_ptr (and its checksum); the position at which the packet ends.
    std::uint64_t packetEnd();
    void mainHeader();
    void frameTable();
    void streamHeader();
    void syncpoint();
    void readBody(std::vector<std::uint8_t>& bytes, std::size_t size);
    void frameHeader(const FrameCode& code, std::uint64_t& size);

    ByteStream& in_;
    std::array<FrameCode, 256> codes_{};
    std::vector<std::uint64_t> elision_;  ///< lengths of the elided headers
    std::uint64_t time_num_ = 1, time_den_ = 1, time_bases_ = 1;
    int width_ = 0, height_ = 0;
    int msb_pts_shift_ = 0;
    std::int64_t pts_ = 0;  ///< of the last frame or syncpoint, in time base units
};

}  // namespace fleifeisa::host
