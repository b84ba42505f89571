// Rows of YUV samples as interleaved RGB: the innermost loops of the conversion.
#pragma once

#include <cstdint>

namespace fleifeisa::host {

/// red = (luma * (y - offset) + red_v * (v - 128)) / 65536, rounded to nearest, halves up, and limited to 0 to 255; the
/// others alike. Factors in 1/65536, -131072 to 163839.
struct YuvFactors {
    int offset;  ///< of luma, 0 to 255
    int luma, red_v, green_u, green_v, blue_u;
};

/// Rows of luma that share one row of chroma. Nothing behind the last sample is read.
struct YuvRows {
    const std::uint8_t* y;  ///< rows * width samples, row by row
    const std::uint8_t* u;  ///< sample x holds for 2^shift pixels, `step` bytes from the next
    const std::uint8_t* v;
    int step;         ///< 1, 2 or 4
    int shift;        ///< 0, 1 or 2
    int width, rows;  ///< pixels
};

/// @param rgb  rows * width * 3 bytes
void yuvToRgb(const YuvRows& rows, const YuvFactors& factors, std::uint8_t* rgb);

}  // namespace fleifeisa::host
