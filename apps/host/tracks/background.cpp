#include "tracks/background.h"

#include <algorithm>
#include <cstdlib>

#include "common/clones.h"
#include "tracks/constants.h"

namespace fleifeisa::host {

static_assert(kRowPhases <= 16);

void Background::reset(int width, int height, int channels) {
    width_ = width;
    height_ = height;
    channels_ = channels;
    ready_ = false;
    const std::size_t columns = static_cast<std::size_t>(width), pixels = columns * static_cast<std::size_t>(height);
    for (int c = 0; c < channels; ++c) levels(c).assign(pixels, 0);
    noise_.assign(pixels, 0);
    steps_.assign(columns, 0);
    forget_.assign(columns, 0);
    difference_.assign(columns, 0);
    samples_.clear();
    seen_ = oldest_ = phase_ = 0;
    phase_ns_.fill(0);
}

void Background::learn(SmoothFrame& frame, int learning_frames) {
    const int every = std::max(1, learning_frames / kLearnSteps);
    if (seen_++ % every != 0) return;
    if (seen_ > every * kLearnSamples * 1000) seen_ = 1;  // learns for very long: only the remainder matters
    const std::size_t pixels = noise_.size();
    std::vector<std::uint8_t>* sample;
    if (samples_.size() < kLearnSamples) {
        sample = &samples_.emplace_back(pixels * static_cast<std::size_t>(channels_));
    } else {
        sample = &samples_[static_cast<std::size_t>(oldest_)];
        oldest_ = (oldest_ + 1) % kLearnSamples;
    }
    frame.needRows(0, height_);
    for (int c = 0; c < channels_; ++c)
        std::copy_n(frame.row(c, 0), pixels, sample->data() + static_cast<std::size_t>(c) * pixels);
}

void Background::start(SmoothFrame& frame) {
    if (samples_.empty()) learn(frame, 0);
    const std::size_t samples = samples_.size();
    sorted_.resize(samples * static_cast<std::size_t>(width_));
    for (int y = 0; y < height_; ++y) startRow(y, samples);
    std::vector<std::vector<std::uint8_t>>().swap(samples_);
    std::vector<std::uint8_t>().swap(sorted_);
    ready_ = true;
}

namespace {

/// Sorts every column of `count` rows by odd-even transposition: no branches, so that whole rows go at once.
void sortColumns(std::uint8_t* rows, std::size_t count, std::size_t width) {
    for (std::size_t round = 0; round < count; ++round) {
        for (std::size_t i = round & 1; i + 1 < count; i += 2) {
            std::uint8_t* a = rows + i * width;
            std::uint8_t* b = a + width;
            for (std::size_t x = 0; x < width; ++x) {
                const std::uint8_t low = std::min(a[x], b[x]), high = std::max(a[x], b[x]);
                a[x] = low;
                b[x] = high;
            }
        }
    }
}

}  // namespace

void Background::startRow(int y, std::size_t samples) {
    const std::size_t width = static_cast<std::size_t>(width_), row = at(0, y), pixels = noise_.size();
    for (int c = 0; c < channels_; ++c) {
        const std::size_t plane = static_cast<std::size_t>(c) * pixels;
        for (std::size_t s = 0; s < samples; ++s)
            std::copy_n(samples_[s].data() + plane + row, width, sorted_.data() + s * width);
        sortColumns(sorted_.data(), samples, width);
        const std::uint8_t* median = sorted_.data() + samples / 2 * width;
        for (std::size_t x = 0; x < width; ++x) levels(c)[row + x] = static_cast<std::int16_t>(median[x] << kLevelBits);
    }
    for (std::size_t s = 0; s < samples; ++s) {
        std::uint8_t* differences = sorted_.data() + s * width;
        std::fill_n(differences, width, std::uint8_t{0});
        for (int c = 0; c < channels_; ++c) {
            const std::uint8_t* sample = samples_[s].data() + static_cast<std::size_t>(c) * pixels + row;
            const std::int16_t* level = levels(c).data() + row;
            for (std::size_t x = 0; x < width; ++x) {
                const int difference = std::abs(sample[x] - (level[x] >> kLevelBits));
                differences[x] = std::max(differences[x], static_cast<std::uint8_t>(difference));
            }
        }
    }
    sortColumns(sorted_.data(), samples, width);
    const std::size_t lower = std::max<std::size_t>(1, samples * 3 / 4);
    const double scale = kNoiseStart * (1 << kLevelBits) / static_cast<double>(lower);
    for (std::size_t x = 0; x < width; ++x) {
        int sum = 0;
        for (std::size_t s = 0; s < lower; ++s) sum += sorted_[s * width + x];
        noise_[row + x] = static_cast<std::int16_t>(std::min(255.0 * 64, sum * scale));
    }
}

namespace {

constexpr int kLeast = kLeastThreshold << kLevelBits, kMost = kMostThreshold << kLevelBits;

FLEIFEISA_INTO_CLONES std::int16_t thresholdOf(std::int16_t noise) {
    constexpr auto kLow = static_cast<std::int16_t>(kLeast / kNoiseFactor);
    constexpr auto kHigh = static_cast<std::int16_t>(kMost / kNoiseFactor);
    return static_cast<std::int16_t>(std::clamp(noise, kLow, kHigh) * kNoiseFactor);
}

/// into[x] = largest |sample - level| of all channels, 1/64 levels
FLEIFEISA_INTO_CLONES void largestDifference(const std::uint8_t* sample, const std::int16_t* level, int count,
                                             bool first, std::int16_t* into) {
    for (int x = 0; x < count; ++x) {
        const auto d = static_cast<std::int16_t>(static_cast<std::int16_t>(sample[x] << kLevelBits) - level[x]);
        const auto size = static_cast<std::int16_t>(d < 0 ? -d : d);
        into[x] = first ? size : std::max(into[x], size);
    }
}

}  // namespace

int Background::threshold(int x, int y) const {
    return thresholdOf(noise_[at(x, y)]) >> kLevelBits;
}

int Background::luma(int x, int y) const {
    const std::size_t i = at(x, y);
    if (channels_ == 1) return (levels(0)[i] + 32) >> kLevelBits;
    return (levels(0)[i] + 2 * levels(1)[i] + levels(2)[i] + 128) >> (kLevelBits + 2);
}

FLEIFEISA_CLONES void Background::compare(const SmoothFrame& frame, int y, int from, int to,
                                          std::uint8_t* foreground) const {
    constexpr int kPiece = 256;
    std::int16_t difference[kPiece];
    for (; from < to; from += kPiece) {
        const int count = std::min(kPiece, to - from);
        for (int c = 0; c < channels_; ++c)
            largestDifference(frame.row(c, y) + from, levels(c).data() + at(from, y), count, c == 0, difference);
        const std::int16_t* noise = noise_.data() + at(from, y);
        for (int x = 0; x < count; ++x) foreground[from + x] = difference[x] > thresholdOf(noise[x]) ? 1 : 0;
    }
}

void Background::follow(SmoothFrame& frame, std::span<const Box> boxes, std::int64_t time_ns) {
    std::int64_t& last = phase_ns_[static_cast<std::size_t>(phase_)];
    double seconds = last == 0 ? 0 : static_cast<double>(time_ns - last) / 1e9;
    seconds = std::clamp(seconds, 0.0, kLongestStep);
    last = time_ns;
    if (seconds > 0)
        for (int y = phase_; y < height_; y += kRowPhases) followRow(frame, y, boxes, seconds);
    phase_ = (phase_ + 1) % kRowPhases;
}

FLEIFEISA_CLONES void Background::followRow(SmoothFrame& frame, int y, std::span<const Box> boxes, double seconds) {
    const auto fast = static_cast<std::int16_t>(std::max(1.0, kFollowOutside * 64 * seconds + 0.5));
    const auto slow = static_cast<std::int16_t>(std::max(1.0, kFollowInside * 64 * seconds + 0.5));
    const auto forget = static_cast<std::int16_t>(std::min(32767.0, 65536 / kNoiseSeconds * seconds + 0.5));
    frame.need(y);
    std::fill(steps_.begin(), steps_.end(), fast);
    std::fill(forget_.begin(), forget_.end(), forget);
    for (const Box& box : boxes) {
        if (y < box.top || y >= box.bottom()) continue;
        std::fill_n(steps_.begin() + box.left, box.width, slow);
        std::fill_n(forget_.begin() + box.left, box.width, std::int16_t{0});
    }
    const std::size_t row = at(0, y);
    for (int c = 0; c < channels_; ++c) {
        const std::uint8_t* sample = frame.row(c, y);
        std::int16_t* level = levels(c).data() + row;
        largestDifference(sample, level, width_, c == 0, difference_.data());
        const std::int16_t* step = steps_.data();
        for (int x = 0; x < width_; ++x) {
            const auto d = static_cast<std::int16_t>(static_cast<std::int16_t>(sample[x] << kLevelBits) - level[x]);
            const auto most = step[x], least = static_cast<std::int16_t>(-step[x]);
            level[x] = static_cast<std::int16_t>(level[x] + std::min(std::max(d, least), most));
        }
    }
    constexpr auto kDown = static_cast<std::int16_t>(-(kNoiseDown << kLevelBits));
    constexpr auto kUp = static_cast<std::int16_t>(kNoiseUp << kLevelBits);
    std::int16_t* noise = noise_.data() + row;
    for (int x = 0; x < width_; ++x) {
        const auto d = static_cast<std::int16_t>(difference_[static_cast<std::size_t>(x)] - noise[x]);
        const int limited = std::min(std::max(d, kDown), kUp);
        noise[x] = static_cast<std::int16_t>(noise[x] + ((limited * forget_[static_cast<std::size_t>(x)]) >> 16));
    }
}

void Background::heal(SmoothFrame& frame, const Box& box, double by) {
    const auto most = static_cast<std::int16_t>(std::clamp(by, 0.0, 256.0) * 64);
    const auto least = static_cast<std::int16_t>(-most);
    const Box part = clipped(box, width_, height_);
    for (int y = part.top; y < part.bottom(); ++y) {
        frame.need(y);
        for (int c = 0; c < channels_; ++c) {
            const std::uint8_t* sample = frame.row(c, y) + part.left;
            std::int16_t* level = levels(c).data() + at(part.left, y);
            for (int x = 0; x < part.width; ++x) {
                const auto d = static_cast<std::int16_t>(static_cast<std::int16_t>(sample[x] << kLevelBits) - level[x]);
                level[x] = static_cast<std::int16_t>(level[x] + std::min(std::max(d, least), most));
            }
        }
    }
}

}  // namespace fleifeisa::host
