// From what decoders deliver to interleaved RGB, in integer arithmetic: the same bytes on every processor.
//
// ffmpeg's own conversion to RGB takes different paths (and rounds differently) from processor to processor; planar YUV
// leaves it bit-exact for all common codecs. So the host takes that and converts here.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace fleifeisa::host {

/// How the bytes of one frame lie in memory.
struct PixelFormat {
    enum Kind { kPlanar, kSemiPlanar, kPacked422, kRgb, kGrey };
    std::string_view name;  ///< ffmpeg's name
    Kind kind = kRgb;
    int shift_x = 0;    ///< chroma planes are narrower by 2^shift_x (rounded up)
    int shift_y = 0;    ///< and lower by 2^shift_y
    int bits = 8;       ///< above 8: two bytes a sample, little-endian
    int order = 0;      ///< kSemiPlanar: 1 = V before U; kPacked422: 1 = U Y V Y; kRgb: 1 = B G R
    int step = 3;       ///< kRgb: bytes a pixel
    bool full = false;  ///< samples span 0 to 255 whatever the stream says
};

/// All formats that can be converted, in the form of ffmpeg's format filter: "gray|yuv420p|...".
std::string supportedFormats();
std::optional<PixelFormat> findFormat(std::string_view name);

enum class Matrix { kBt601, kBt709, kBt2020 };

/// Everything a conversion depends on.
struct PixelLayout {
    PixelFormat format;
    int width = 0, height = 0;
    Matrix matrix = Matrix::kBt601;
    bool full_range = false;
};

/// Bytes of one frame.
std::size_t frameBytes(const PixelLayout& layout);

/// Converts a frame. Chroma samples are repeated, not interpolated. `rgb` has width * height * 3 bytes.
void toRgb(const PixelLayout& layout, std::span<const std::uint8_t> frame, std::span<std::uint8_t> rgb);

struct Region {
    int left, top, width, height;

    bool operator==(const Region&) const = default;
};

/// Cuts a region (which must lie inside) out of an RGB picture.
std::vector<std::uint8_t> crop(std::span<const std::uint8_t> rgb, int width, const Region& region);

/// Scales an RGB picture: every new pixel is the mean of the area it covers, rounded to nearest.
std::vector<std::uint8_t> resize(std::span<const std::uint8_t> rgb, int width, int height, int new_width,
                                 int new_height);

}  // namespace fleifeisa::host
