#include "sources/pixels.h"

#include <algorithm>
#include <array>

#include "sources/yuv_rows.h"

namespace fleifeisa::host {
namespace {

using F = PixelFormat;
constexpr std::array<F, 29> kFormats = {{
    {"gray", F::kGrey, 0, 0, 8, 0, 1, true},
    {"gray10le", F::kGrey, 0, 0, 10, 0, 1, true},
    {"gray12le", F::kGrey, 0, 0, 12, 0, 1, true},
    {"gray16le", F::kGrey, 0, 0, 16, 0, 1, true},
    {"yuv420p", F::kPlanar, 1, 1},
    {"yuvj420p", F::kPlanar, 1, 1, 8, 0, 3, true},
    {"yuv422p", F::kPlanar, 1, 0},
    {"yuvj422p", F::kPlanar, 1, 0, 8, 0, 3, true},
    {"yuv444p", F::kPlanar, 0, 0},
    {"yuvj444p", F::kPlanar, 0, 0, 8, 0, 3, true},
    {"yuv440p", F::kPlanar, 0, 1},
    {"yuvj440p", F::kPlanar, 0, 1, 8, 0, 3, true},
    {"yuv411p", F::kPlanar, 2, 0},
    {"yuv410p", F::kPlanar, 2, 2},
    {"yuv420p10le", F::kPlanar, 1, 1, 10},
    {"yuv422p10le", F::kPlanar, 1, 0, 10},
    {"yuv444p10le", F::kPlanar, 0, 0, 10},
    {"yuv420p12le", F::kPlanar, 1, 1, 12},
    {"yuv422p12le", F::kPlanar, 1, 0, 12},
    {"nv12", F::kSemiPlanar, 1, 1},
    {"nv21", F::kSemiPlanar, 1, 1, 8, 1},
    {"yuyv422", F::kPacked422, 1, 0},
    {"uyvy422", F::kPacked422, 1, 0, 8, 1},
    {"rgb24", F::kRgb, 0, 0, 8, 0, 3, true},
    {"bgr24", F::kRgb, 0, 0, 8, 1, 3, true},
    {"rgba", F::kRgb, 0, 0, 8, 0, 4, true},
    {"bgra", F::kRgb, 0, 0, 8, 1, 4, true},
    {"rgb0", F::kRgb, 0, 0, 8, 0, 4, true},
    {"bgr0", F::kRgb, 0, 0, 8, 1, 4, true},
}};

std::size_t area(int width, int height) {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}
int chromaWidth(const PixelLayout& l) {
    return (l.width + (1 << l.format.shift_x) - 1) >> l.format.shift_x;
}
int chromaHeight(const PixelLayout& l) {
    return (l.height + (1 << l.format.shift_y) - 1) >> l.format.shift_y;
}

/// From the weights of red and blue in luma (1/10000), by integer division rounded to nearest.
constexpr YuvFactors makeFactors(std::int64_t kr, std::int64_t kb, bool full) {
    constexpr std::int64_t kOne = 65536;
    const std::int64_t kg = 10000 - kr - kb;
    const std::int64_t num = full ? 1 : 255;  // chroma spans 224 of 255 steps in the limited range, luma 219
    const std::int64_t den = full ? 1 : 224;
    const auto ratio = [](std::int64_t a, std::int64_t b) { return static_cast<int>((a + b / 2) / b); };
    return {full ? 0 : 16,
            full ? 65536 : ratio(kOne * 255, 219),
            ratio(kOne * 2 * (10000 - kr) * num, 10000 * den),
            -ratio(kOne * 2 * (10000 - kb) * kb * num, 10000 * kg * den),
            -ratio(kOne * 2 * (10000 - kr) * kr * num, 10000 * kg * den),
            ratio(kOne * 2 * (10000 - kb) * num, 10000 * den)};
}

YuvFactors factorsOf(Matrix matrix, bool full) {
    switch (matrix) {
        case Matrix::kBt709:
            return makeFactors(2126, 722, full);
        case Matrix::kBt2020:
            return makeFactors(2627, 593, full);
        default:
            return makeFactors(2990, 1140, full);
    }
}

void planarToRgb(const PixelLayout& l, const std::uint8_t* frame, std::uint8_t* rgb) {
    const YuvFactors factors = factorsOf(l.matrix, l.full_range || l.format.full);
    const int cw = chromaWidth(l);
    const bool semi = l.format.kind == F::kSemiPlanar;
    const std::uint8_t* first = frame + area(l.width, l.height);
    const std::uint8_t* second = semi ? first + 1 : first + area(cw, chromaHeight(l));
    if (l.format.order == 1) std::swap(first, second);
    const std::size_t stride = static_cast<std::size_t>(semi ? 2 * cw : cw);
    const int together = 1 << l.format.shift_y;
    for (int row = 0; row < l.height; row += together) {
        const std::size_t chroma = static_cast<std::size_t>(row >> l.format.shift_y) * stride;
        const std::size_t at = area(l.width, row);
        yuvToRgb({frame + at, first + chroma, second + chroma, semi ? 2 : 1, l.format.shift_x, l.width,
                  std::min(together, l.height - row)},
                 factors, rgb + at * 3);
    }
}

void packedToRgb(const PixelLayout& l, const std::uint8_t* frame, std::uint8_t* rgb) {
    const YuvFactors factors = factorsOf(l.matrix, l.full_range);
    const auto width = static_cast<std::size_t>(l.width);
    const std::size_t stride = static_cast<std::size_t>(chromaWidth(l)) * 4;
    const std::size_t luma = l.format.order == 1 ? 1 : 0;
    std::vector<std::uint8_t> y(width);
    for (int row = 0; row < l.height; ++row) {
        const std::uint8_t* p = frame + static_cast<std::size_t>(row) * stride;
        for (std::size_t x = 0; x < width; ++x) y[x] = p[2 * x + luma];
        yuvToRgb({y.data(), p + 1 - luma, p + 3 - luma, 4, 1, l.width, 1}, factors, rgb + area(l.width, row) * 3);
    }
}

/// Samples of more than 8 bits, cut to their upper 8.
std::vector<std::uint8_t> upperBits(std::span<const std::uint8_t> frame, int bits) {
    std::vector<std::uint8_t> result(frame.size() / 2);
    for (std::size_t i = 0; i < result.size(); ++i)
        result[i] = static_cast<std::uint8_t>(std::min((frame[2 * i] | frame[2 * i + 1] << 8) >> (bits - 8), 255));
    return result;
}

}  // namespace

std::string supportedFormats() {
    std::string list;
    for (const F& format : kFormats) list += (list.empty() ? "" : "|") + std::string(format.name);
    return list;
}

std::optional<PixelFormat> findFormat(std::string_view name) {
    for (const F& format : kFormats)
        if (format.name == name) return format;
    return std::nullopt;
}

std::size_t frameBytes(const PixelLayout& l) {
    const std::size_t luma = area(l.width, l.height);
    const std::size_t sample = l.format.bits > 8 ? 2 : 1;
    switch (l.format.kind) {
        case F::kGrey:
            return luma * sample;
        case F::kRgb:
            return luma * static_cast<std::size_t>(l.format.step);
        case F::kPacked422:
            return area(chromaWidth(l), l.height) * 4;
        default:
            return (luma + 2 * area(chromaWidth(l), chromaHeight(l))) * sample;
    }
}

void toRgb(const PixelLayout& layout, std::span<const std::uint8_t> frame, std::span<std::uint8_t> rgb) {
    const F& format = layout.format;
    std::vector<std::uint8_t> narrow;
    if (format.bits > 8) {
        narrow = upperBits(frame, format.bits);
        frame = narrow;
    }
    const std::size_t pixels = area(layout.width, layout.height);
    if (format.kind == F::kGrey) {
        for (std::size_t i = 0; i < pixels; ++i) rgb[3 * i] = rgb[3 * i + 1] = rgb[3 * i + 2] = frame[i];
    } else if (format.kind == F::kRgb) {
        const auto step = static_cast<std::size_t>(format.step);
        const std::size_t red = format.order == 1 ? 2 : 0;
        for (std::size_t i = 0; i < pixels; ++i) {
            rgb[3 * i] = frame[step * i + red];
            rgb[3 * i + 1] = frame[step * i + 1];
            rgb[3 * i + 2] = frame[step * i + 2 - red];
        }
    } else if (format.kind == F::kPacked422) {
        packedToRgb(layout, frame.data(), rgb.data());
    } else {
        planarToRgb(layout, frame.data(), rgb.data());
    }
}

std::vector<std::uint8_t> crop(std::span<const std::uint8_t> rgb, int width, const Region& region) {
    std::vector<std::uint8_t> result(area(region.width, region.height) * 3);
    const auto row_bytes = static_cast<std::ptrdiff_t>(region.width) * 3;
    for (int row = 0; row < region.height; ++row) {
        const auto from = (std::ptrdiff_t{region.top + row} * width + region.left) * 3;
        std::copy_n(rgb.begin() + from, row_bytes, result.begin() + row * row_bytes);
    }
    return result;
}

std::vector<std::uint8_t> resize(std::span<const std::uint8_t> rgb, int width, int height, int new_width,
                                 int new_height) {
    // In units of 1/new of an old pixel a new pixel covers exactly `old` units, so all weights are whole numbers.
    std::vector<std::uint8_t> result(area(new_width, new_height) * 3);
    const std::int64_t total = std::int64_t{width} * height;
    for (int y = 0; y < new_height; ++y) {
        const std::int64_t y0 = std::int64_t{y} * height, y1 = y0 + height;
        for (int x = 0; x < new_width; ++x) {
            const std::int64_t x0 = std::int64_t{x} * width, x1 = x0 + width;
            std::array<std::int64_t, 3> sum{};
            for (std::int64_t sy = y0 / new_height; sy * new_height < y1; ++sy) {
                const std::int64_t wy = std::min(y1, (sy + 1) * new_height) - std::max(y0, sy * new_height);
                for (std::int64_t sx = x0 / new_width; sx * new_width < x1; ++sx) {
                    const std::int64_t wx = std::min(x1, (sx + 1) * new_width) - std::max(x0, sx * new_width);
                    const auto at = static_cast<std::size_t>((sy * width + sx) * 3);
                    for (std::size_t c = 0; c < 3; ++c) sum[c] += wx * wy * rgb[at + c];
                }
            }
            const std::size_t at =
                (static_cast<std::size_t>(y) * static_cast<std::size_t>(new_width) + static_cast<std::size_t>(x)) * 3;
            for (std::size_t c = 0; c < 3; ++c)
                result[at + c] = static_cast<std::uint8_t>((sum[c] + total / 2) / total);
        }
    }
    return result;
}

}  // namespace fleifeisa::host
