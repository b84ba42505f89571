// A piece of video in memory, decoded before anything is measured.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

struct Clip {
    std::string name;             // as printed in the tables
    int width = 0;                // pixels
    int height = 0;               // pixels
    std::vector<uint8_t> pixels;  // frames one after the other, interleaved RGB, rows without padding

    [[nodiscard]] size_t frameBytes() const { return static_cast<size_t>(width) * static_cast<size_t>(height) * 3; }
    [[nodiscard]] size_t frames() const { return frameBytes() == 0 ? 0 : pixels.size() / frameBytes(); }
    [[nodiscard]] const uint8_t* frame(size_t i) const { return pixels.data() + i * frameBytes(); }
    [[nodiscard]] uint8_t* frame(size_t i) { return pixels.data() + i * frameBytes(); }
};

// Where a piece of footage comes from and how it is to be decoded.
struct ClipRequest {
    std::string name;
    std::string path;
    int width = 0;  // frames are scaled to this size
    int height = 0;
    size_t first = 0;   // first frame of the file to keep
    size_t frames = 0;  // number of frames to keep
};

// Decodes through the ffmpeg command. Throws std::runtime_error where the command is missing, fails, or delivers fewer
// frames than asked for.
Clip decodeClip(const ClipRequest& request);

// Number of video frames in a file, by decoding it once. Throws std::runtime_error like DecodeClip.
size_t countFrames(const std::string& path);

}  // namespace bench
