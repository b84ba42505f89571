#include "sources/yuv_rows.h"

#include <algorithm>
#include <cstddef>

#include "common/clones.h"

namespace fleifeisa::host {
namespace {

using Low = std::uint16_t;
using High = std::int16_t;

// The sums have 32 bits, but lanes of 16 take half as many instructions: all is calculated as an upper half and a lower
// one. The upper half of a sum is the sum of the upper halves, and one more where the lower ones carry.

/// A factor in 1/65536: whole * 65536 + rest.
struct Factor {
    High whole, rest;
    explicit constexpr Factor(int factor)
        : whole(static_cast<High>((factor + 32768) >> 16)), rest(static_cast<High>(factor - whole * 65536)) {}
};
FLEIFEISA_INTO_CLONES High upperHalf(High sample, Factor f) {
    return static_cast<High>(sample * f.whole + ((sample * f.rest) >> 16));
}
FLEIFEISA_INTO_CLONES Low lowerHalf(High sample, Factor f) {
    return static_cast<Low>(sample * f.rest);
}

constexpr int kBlock = 256;  // pixels at a time: what a block needs stays in the nearest cache

/// What chroma adds to one colour of a block's pixels. Another lower half carries over it when it, seen as a signed
/// number with 32768 less, is greater than `limit`.
struct Addend {
    High upper[kBlock], limit[kBlock];
};
struct Chroma {
    Addend red, green, blue;
};

FLEIFEISA_INTO_CLONES High limitOf(Low lower) {
    return static_cast<High>(lower ^ 0x7FFF);
}

/// Each sample's addend for the pixels for which it holds.
template <int shift>
FLEIFEISA_INTO_CLONES void widen(const Addend& samples, int count, Addend& pixels) {
    for (int i = 0; i < count; ++i)
        for (int k = 0; k < 1 << shift; ++k) pixels.upper[(i << shift) + k] = samples.upper[i];
    for (int i = 0; i < count; ++i)
        for (int k = 0; k < 1 << shift; ++k) pixels.limit[(i << shift) + k] = samples.limit[i];
}

FLEIFEISA_INTO_CLONES void addendOf(const High* samples, Factor f, int count, Addend& result) {
    for (int i = 0; i < count; ++i) {
        result.upper[i] = upperHalf(samples[i], f);
        result.limit[i] = limitOf(lowerHalf(samples[i], f));
    }
}

FLEIFEISA_INTO_CLONES void addendOf(const High* u, const High* v, Factor fu, Factor fv, int count, Addend& result) {
    for (int i = 0; i < count; ++i) {
        const Low first = lowerHalf(u[i], fu), sum = static_cast<Low>(first + lowerHalf(v[i], fv));
        const int carry = sum < first ? 1 : 0;
        result.upper[i] = static_cast<High>(upperHalf(u[i], fu) + upperHalf(v[i], fv) + carry);
        result.limit[i] = limitOf(sum);
    }
}

template <int step>
FLEIFEISA_INTO_CLONES void load(const std::uint8_t* samples, int count, High* result) {
    for (int i = 0; i < count; ++i) result[i] = static_cast<High>(samples[std::ptrdiff_t{i} * step] - 128);
}

FLEIFEISA_INTO_CLONES void load(const std::uint8_t* samples, int step, int count, High* result) {
    if (step == 1)
        load<1>(samples, count, result);
    else if (step == 2)
        load<2>(samples, count, result);
    else
        load<4>(samples, count, result);
}

/// @param from  the block's first pixel: a multiple of kBlock
template <int shift>
FLEIFEISA_INTO_CLONES void chromaOf(const YuvRows& rows, const YuvFactors& f, int from, int pixels, Chroma& chroma) {
    High u[kBlock], v[kBlock];
    const int count = (pixels + (1 << shift) - 1) >> shift;
    const std::ptrdiff_t at = std::ptrdiff_t{from >> shift} * rows.step;
    load(rows.u + at, rows.step, count, u);
    load(rows.v + at, rows.step, count, v);
    Addend samples;
    addendOf(v, Factor(f.red_v), count, samples);
    widen<shift>(samples, count, chroma.red);
    addendOf(u, v, Factor(f.green_u), Factor(f.green_v), count, samples);
    widen<shift>(samples, count, chroma.green);
    addendOf(u, Factor(f.blue_u), count, samples);
    widen<shift>(samples, count, chroma.blue);
}

FLEIFEISA_INTO_CLONES std::uint8_t colour(High luma, High lower, High chroma, High limit) {
    const auto sum = static_cast<High>(luma + chroma + (lower > limit ? 1 : 0));
    return static_cast<std::uint8_t>(std::min<High>(std::max<High>(sum, 0), 255));
}

FLEIFEISA_INTO_CLONES void block(const std::uint8_t* y, const Chroma& chroma, High offset, Factor f, int pixels,
                                 std::uint8_t* rgb) {
    // Planes first, then their bytes in turns: vectors for every processor, of the first part at least.
    std::uint8_t red[kBlock], green[kBlock], blue[kBlock];
    for (int x = 0; x < pixels; ++x) {
        // The half that rounds is added to luma: it turns the lower half's uppermost bit, and carries where that was
        // set. Turned once more, for the signed comparison with limits, it is as it was.
        const auto sample = static_cast<High>(y[x] - offset);
        const auto lower = static_cast<High>(lowerHalf(sample, f));
        const auto luma = static_cast<High>(upperHalf(sample, f) + (lower < 0 ? 1 : 0));
        red[x] = colour(luma, lower, chroma.red.upper[x], chroma.red.limit[x]);
        green[x] = colour(luma, lower, chroma.green.upper[x], chroma.green.limit[x]);
        blue[x] = colour(luma, lower, chroma.blue.upper[x], chroma.blue.limit[x]);
    }
    for (int x = 0; x < pixels; ++x) {
        rgb[3 * x] = red[x];
        rgb[3 * x + 1] = green[x];
        rgb[3 * x + 2] = blue[x];
    }
}

}  // namespace

FLEIFEISA_CLONES void yuvToRgb(const YuvRows& rows, const YuvFactors& factors, std::uint8_t* rgb) {
    const auto offset = static_cast<High>(factors.offset);
    const Factor luma(factors.luma);
    Chroma chroma;
    for (int from = 0; from < rows.width; from += kBlock) {
        const int pixels = std::min(kBlock, rows.width - from);
        if (rows.shift == 0)
            chromaOf<0>(rows, factors, from, pixels, chroma);
        else if (rows.shift == 1)
            chromaOf<1>(rows, factors, from, pixels, chroma);
        else
            chromaOf<2>(rows, factors, from, pixels, chroma);
        for (int row = 0; row < rows.rows; ++row) {
            const std::ptrdiff_t at = std::ptrdiff_t{row} * rows.width + from;
            block(rows.y + at, chroma, offset, luma, pixels, rgb + at * 3);
        }
    }
}

}  // namespace fleifeisa::host
