// Pixel formats against the definition of their colour spaces, cutting and scaling.
#include "sources/pixels.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <random>

#include "sources/rgb_frame.h"

namespace fleifeisa::host {
namespace {

using Bytes = std::vector<std::uint8_t>;

// The conversion in floating point, one pixel at a time.
std::array<int, 3> reference(double y, double u, double v, Matrix matrix, bool full) {
    const double kr = matrix == Matrix::kBt709 ? 0.2126 : matrix == Matrix::kBt2020 ? 0.2627 : 0.299;
    const double kb = matrix == Matrix::kBt709 ? 0.0722 : matrix == Matrix::kBt2020 ? 0.0593 : 0.114;
    const double luma = full ? y / 255 : (y - 16) / 219;
    const double cb = (u - 128) / (full ? 255 : 224), cr = (v - 128) / (full ? 255 : 224);
    const double r = luma + 2 * (1 - kr) * cr, b = luma + 2 * (1 - kb) * cb;
    const double g = (luma - kr * r - kb * b) / (1 - kr - kb);
    const auto byte = [](double x) { return static_cast<int>(std::clamp(std::floor(x * 255 + 0.5), 0.0, 255.0)); };
    return {byte(r), byte(g), byte(b)};
}

/// What a format's name promises: where the samples of a pixel lie.
struct Row {
    const char* name;
    char layout;       ///< p planes, s luma and interleaved chroma, y packed, r red green blue, g grey
    int across, down;  ///< pixels that share a chroma sample; r: bytes a pixel
    int bits = 8;
    bool full = false;     ///< by name
    bool swapped = false;  ///< s: V first; y: U first; r: blue first
};
const std::array<Row, 29> kRows = {{
    {"gray", 'g', 1, 1},
    {"gray10le", 'g', 1, 1, 10},
    {"gray12le", 'g', 1, 1, 12},
    {"gray16le", 'g', 1, 1, 16},
    {"yuv420p", 'p', 2, 2},
    {"yuvj420p", 'p', 2, 2, 8, true},
    {"yuv422p", 'p', 2, 1},
    {"yuvj422p", 'p', 2, 1, 8, true},
    {"yuv444p", 'p', 1, 1},
    {"yuvj444p", 'p', 1, 1, 8, true},
    {"yuv440p", 'p', 1, 2},
    {"yuvj440p", 'p', 1, 2, 8, true},
    {"yuv411p", 'p', 4, 1},
    {"yuv410p", 'p', 4, 4},
    {"yuv420p10le", 'p', 2, 2, 10},
    {"yuv422p10le", 'p', 2, 1, 10},
    {"yuv444p10le", 'p', 1, 1, 10},
    {"yuv420p12le", 'p', 2, 2, 12},
    {"yuv422p12le", 'p', 2, 1, 12},
    {"nv12", 's', 2, 2},
    {"nv21", 's', 2, 2, 8, false, true},
    {"yuyv422", 'y', 2, 1},
    {"uyvy422", 'y', 2, 1, 8, false, true},
    {"rgb24", 'r', 3, 1},
    {"bgr24", 'r', 3, 1, 8, false, true},
    {"rgba", 'r', 4, 1},
    {"bgra", 'r', 4, 1, 8, false, true},
    {"rgb0", 'r', 4, 1},
    {"bgr0", 'r', 4, 1, 8, false, true},
}};

// Odd: the last chroma samples stand for fewer pixels. More than two of the blocks in which rows are converted.
constexpr int kW = 515, kH = 5;

/// Number of the samples of pixel (x, y): three of them.
std::array<int, 3> samplesOf(const Row& row, int x, int y) {
    const int cw = (kW + row.across - 1) / row.across, ch = (kH + row.down - 1) / row.down;
    const int luma = y * kW + x, chroma = y / row.down * cw + x / row.across;
    const int first = row.swapped ? 1 : 0;
    switch (row.layout) {
        case 'g':
            return {luma, luma, luma};
        case 'p':
            return {luma, kW * kH + chroma, kW * kH + cw * ch + chroma};
        case 's':
            return {luma, kW * kH + 2 * chroma + first, kW * kH + 2 * chroma + 1 - first};
        case 'y':
            return {y * cw * 4 + 2 * x + first, chroma * 4 + 1 - first, chroma * 4 + 3 - first};
        default:
            return {luma * row.across + 2 * first, luma * row.across + 1, luma * row.across + 2 - 2 * first};
    }
}

int samplesOfFrame(const Row& row) {
    const int cw = (kW + row.across - 1) / row.across, ch = (kH + row.down - 1) / row.down;
    if (row.layout == 'r') return kW * kH * row.across;
    if (row.layout == 'g') return kW * kH;
    return row.layout == 'y' ? cw * 4 * kH : kW * kH + 2 * cw * ch;
}

TEST(Pixels, EveryFormatAgreesWithTheDefinition) {
    std::string names;
    std::mt19937 draw(4);
    for (const Row& row : kRows) {
        names += (names.empty() ? "" : "|") + std::string(row.name);
        for (const Matrix matrix : {Matrix::kBt601, Matrix::kBt709, Matrix::kBt2020})
            for (const bool full : {false, true}) {
                const PixelLayout layout{*findFormat(row.name), kW, kH, matrix, full};
                std::vector<int> samples(static_cast<std::size_t>(samplesOfFrame(row)));
                Bytes frame, rgb(kW * kH * 3);
                for (int& sample : samples) {
                    sample = static_cast<int>(draw() & ((1u << row.bits) - 1));
                    frame.push_back(static_cast<std::uint8_t>(sample));
                    if (row.bits > 8) frame.push_back(static_cast<std::uint8_t>(sample >> 8));
                }
                ASSERT_EQ(frameBytes(layout), frame.size()) << row.name;
                toRgb(layout, frame, rgb);
                for (int y = 0; y < kH; ++y)
                    for (int x = 0; x < kW; ++x) {
                        const auto at = samplesOf(row, x, y);
                        const auto sample = [&](int i) {
                            return samples.at(static_cast<std::size_t>(at.at(static_cast<std::size_t>(i)))) >>
                                   (row.bits - 8);
                        };
                        const bool colours = row.layout == 'r' || row.layout == 'g';
                        const auto expected =
                            colours ? std::array{sample(0), sample(1), sample(2)}
                                    : reference(sample(0), sample(1), sample(2), matrix, full || row.full);
                        for (std::size_t c = 0; c < 3; ++c)
                            ASSERT_NEAR(rgb[static_cast<std::size_t>(y * kW + x) * 3 + c], expected[c], colours ? 0 : 1)
                                << row.name << " " << x << "," << y << " channel " << c << " full " << full;
                    }
            }
    }
    EXPECT_EQ(supportedFormats(), names);
    EXPECT_FALSE(findFormat("pal8"));
    // Bits beyond the format's depth do not wrap around.
    Bytes white(3);
    toRgb({*findFormat("gray10le"), 1, 1}, Bytes{0, 0xFF}, white);
    EXPECT_EQ(white, (Bytes{255, 255, 255}));
}

// Every triple of samples in every colour space: the formula in plain integers, with factors in 1/65536.
TEST(Pixels, EveryTripleIsTheRoundedSum) {
    const struct {
        Matrix matrix;
        double kr, kb;
    } spaces[] = {{Matrix::kBt601, 0.299, 0.114}, {Matrix::kBt709, 0.2126, 0.0722}, {Matrix::kBt2020, 0.2627, 0.0593}};
    const auto byte = [](int sum) { return static_cast<std::uint8_t>(std::clamp(sum >> 16, 0, 255)); };
    Bytes frame(256 * 256 * 3), rgb(frame.size()), expected(frame.size());
    for (const auto& space : spaces)
        for (const bool full : {false, true}) {
            const double chroma = 65536 * (full ? 1 : 255.0 / 224), kg = 1 - space.kr - space.kb;
            const int luma = full ? 65536 : static_cast<int>(std::lround(65536 * 255.0 / 219)), zero = full ? 0 : 16;
            const auto rv = static_cast<int>(std::lround(chroma * 2 * (1 - space.kr)));
            const auto bu = static_cast<int>(std::lround(chroma * 2 * (1 - space.kb)));
            const auto gu = static_cast<int>(std::lround(chroma * 2 * (1 - space.kb) * space.kb / kg));
            const auto gv = static_cast<int>(std::lround(chroma * 2 * (1 - space.kr) * space.kr / kg));
            for (int u = 0; u < 256; ++u) {
                for (int y = 0; y < 256; ++y)
                    for (int v = 0; v < 256; ++v) {
                        const auto at = static_cast<std::size_t>(y * 256 + v);
                        const int light = (y - zero) * luma + 32768;
                        frame[at] = static_cast<std::uint8_t>(y);
                        frame[65536 + at] = static_cast<std::uint8_t>(u);
                        frame[131072 + at] = static_cast<std::uint8_t>(v);
                        expected[3 * at] = byte(light + rv * (v - 128));
                        expected[3 * at + 1] = byte(light - gu * (u - 128) - gv * (v - 128));
                        expected[3 * at + 2] = byte(light + bu * (u - 128));
                    }
                toRgb({*findFormat("yuv444p"), 256, 256, space.matrix, full}, frame, rgb);
                ASSERT_EQ(rgb, expected) << space.kr << " full " << full << " u " << u;
            }
        }
}

TEST(Pixels, Crop) {
    Bytes picture(6 * 4 * 3);
    for (std::size_t i = 0; i < picture.size(); ++i) picture[i] = static_cast<std::uint8_t>(i * 3);
    const auto part = crop(picture, 6, {2, 1, 3, 2});
    ASSERT_EQ(part.size(), 18u);
    EXPECT_EQ(part[0], picture[(6 + 2) * 3]);
    EXPECT_EQ(part[17], picture[(12 + 4) * 3 + 2]);
}

TEST(Pixels, ResizeIsTheMeanOfTheCoveredAreaRounded) {
    const struct {
        int width, height, new_width, new_height;
        std::vector<int> red, expected;
    } rows[] = {
        {2, 2, 2, 2, {1, 2, 3, 4}, {1, 2, 3, 4}},     {2, 2, 1, 1, {10, 20, 31, 40}, {25}},  // 25.25
        {2, 2, 1, 1, {10, 20, 31, 41}, {26}},                                                // 25.5
        {2, 2, 1, 1, {10, 20, 30, 43}, {26}},                                                // 25.75
        {3, 1, 2, 1, {30, 60, 90}, {40, 80}},  // the middle one belongs to both: (2 * 30 + 60) / 3 ...
        {1, 3, 1, 2, {31, 60, 90}, {41, 80}},  // (2 * 31 + 60) / 3 = 40.67
        {5, 1, 2, 1, {10, 20, 30, 40, 50}, {18, 42}}, {1, 1, 3, 2, {7}, {7, 7, 7, 7, 7, 7}},
    };
    for (const auto& row : rows) {
        Bytes rgb;
        for (const int red : row.red)
            for (const int value : {red, 255 - red, 0}) rgb.push_back(static_cast<std::uint8_t>(value));
        const Bytes scaled = resize(rgb, row.width, row.height, row.new_width, row.new_height);
        std::vector<int> found;
        for (std::size_t i = 0; i < scaled.size(); i += 3) found.push_back(scaled[i]);
        EXPECT_EQ(found, row.expected);
    }
}

TEST(Masks, CoverThePixelsWhoseMiddlesLieInside) {
    const struct {
        const char* name;
        std::vector<Mask> masks;
        ShownPart part;
        std::string painted;  ///< of 4 x 3 pixels
    } rows[] = {
        {"none", {}, {}, "....|....|...."},
        {"all", {{{0, 0}, {1, 0}, {1, 1}, {0, 1}}}, {}, "####|####|####"},
        {"upper third", {{{0, 0}, {1, 0}, {1, 1.0 / 3}, {0, 1.0 / 3}}}, {}, "####|....|...."},
        {"middles at 0.125 and 0.375", {{{0.12, 0}, {0.37, 0}, {0.37, 1}, {0.12, 1}}}, {}, "#...|#...|#..."},
        {"two",
         {{{0, 0}, {0.25, 0}, {0.25, 1}, {0, 1}}, {{0.75, 0.5}, {1, 0.5}, {1, 1}, {0.75, 1}}},
         {},
         "#...|#..#|#..#"},
        {"triangle", {{{0, 0}, {1, 1}, {0, 1}}}, {}, "#...|##..|###."},
        {"hollow",
         {{{0, 0}, {1, 0}, {1, 1}, {0.75, 1}, {0.75, 0.5}, {0.25, 0.5}, {0.25, 1}, {0, 1}}},
         {},
         "####|#..#|#..#"},
        {"lower right quarter shown",
         {{{0.5, 0.5}, {0.75, 0.5}, {0.75, 1}, {0.5, 1}}},
         {0.5, 0.5, 0.5, 0.5},
         "##..|##..|##.."},
    };
    for (const auto& row : rows) {
        std::vector<std::uint8_t> rgb(4 * 3 * 3, 7);
        paintMasks(row.masks, row.part, 4, 3, rgb);
        std::string painted;
        for (std::size_t i = 0; i < 12; ++i) {
            if (i != 0 && i % 4 == 0) painted += '|';
            const bool all = rgb[3 * i] == kMaskGrey && rgb[3 * i + 1] == kMaskGrey && rgb[3 * i + 2] == kMaskGrey;
            painted += all ? '#' : rgb[3 * i] == 7 && rgb[3 * i + 2] == 7 ? '.' : '?';
        }
        EXPECT_EQ(painted, row.painted) << row.name;
    }
}

// Random triangles, thin ones among them: no pixel that one so much as touches keeps anything of what it showed, and
// far away nothing is lost.
TEST(Masks, NothingOfAPrivateAreaIsLeft) {
    constexpr int kWidth = 61, kHeight = 47;
    std::mt19937 random(3);
    std::uniform_real_distribution<double> share(-0.1, 1.1);
    const ShownPart part{0.25, 0.125, 0.5, 0.75};
    for (int trial = 0; trial < 60; ++trial) {
        SCOPED_TRACE(trial);
        Mask area = {{share(random), share(random)}, {share(random), share(random)}, {share(random), share(random)}};
        if (trial % 3 == 0) area[2] = {area[1].x + 1e-4, area[1].y};
        std::vector<std::uint8_t> rgb(kWidth * kHeight * 3, 7);
        paintPrivate({&area, 1}, part, kWidth, kHeight, rgb);
        const auto at = [&rgb](int x, int y) { return rgb[static_cast<std::size_t>(3 * (y * kWidth + x))]; };
        double nearest[kHeight][kWidth];  // distance to points all over the triangle
        std::fill_n(&nearest[0][0], kWidth * kHeight, 1e9);
        for (int i = 0; i <= 80; ++i)
            for (int j = 0; i + j <= 80; ++j) {
                const double u = i / 80.0, v = j / 80.0, w = 1 - u - v;
                const double px = ((u * area[0].x + v * area[1].x + w * area[2].x) - part.left) / part.width * kWidth;
                const double py = ((u * area[0].y + v * area[1].y + w * area[2].y) - part.top) / part.height * kHeight;
                for (int y = 0; y < kHeight; ++y)
                    for (int x = 0; x < kWidth; ++x) {
                        const double dx = std::max({x - px, px - x - 1, 0.0}), dy = std::max({y - py, py - y - 1, 0.0});
                        nearest[y][x] = std::min(nearest[y][x], std::max(dx, dy));
                    }
            }
        for (int y = 0; y < kHeight; ++y)
            for (int x = 0; x < kWidth; ++x) {
                EXPECT_TRUE(nearest[y][x] > 1 || at(x, y) == 0) << x << ' ' << y;
                EXPECT_TRUE(nearest[y][x] <= 6 || at(x, y) == 7) << x << ' ' << y;
            }
    }
}

TEST(Frames, AreFittedAndMaskedBehindRegionAndSize) {
    const std::pair<std::pair<int, int>, std::pair<int, int>> sizes[] = {{{320, 240}, {320, 240}},
                                                                         {{768, 576}, {384, 288}},
                                                                         {{1920, 1080}, {384, 216}},
                                                                         {{576, 768}, {288, 384}},
                                                                         {{385, 2}, {384, 2}}};
    for (const auto& [source, fitted] : sizes) EXPECT_EQ(fittedSize(source.first, source.second, 384), fitted);
    SourceOptions options;
    options.region = Region{40, 0, 40, 60};  // the right half
    options.longest_side = 30;
    options.masks = {{{0.5, 0}, {1, 0}, {1, 0.5}, {0.5, 0.5}}};
    RawFrame frame;
    frame.layout = {*findFormat("rgb24"), 80, 60};
    frame.bytes.assign(80 * 60 * 3, 9);
    std::vector<std::uint8_t> spare;
    options.private_areas = {{{0.5, 0.75}, {1, 0.75}, {1, 1}, {0.5, 1}}};
    const RgbFrame picture = toRgbFrame(frame, options, spare);
    ASSERT_EQ(std::pair(picture.width, picture.height), std::pair(20, 30));
    for (std::size_t i = 0; i < picture.rgb.size(); ++i)
        ASSERT_EQ(picture.rgb[i], i < 15 * 60 ? kMaskGrey : i < 21 * 60 ? 9 : 0) << i;
}

}  // namespace
}  // namespace fleifeisa::host
