#include "tracks/scene_state.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <utility>

#include "tracks/blobs.h"
#include "tracks/constants.h"

namespace fleifeisa::host {

double colourShare(std::span<const std::uint8_t> rgb, int width, int height) {
    constexpr int kColourless = 8;  // levels between the channels; noise of a compressed grey picture stays below
    std::int64_t coloured = 0, samples = 0;
    for (int y = kSampleStep / 2; y < height; y += kSampleStep) {
        const std::uint8_t* row = rgb.data() + std::int64_t{3} * y * width;
        for (int x = kSampleStep / 2; x < width; x += kSampleStep, ++samples) {
            const auto [least, most] = std::minmax({row[3 * x], row[3 * x + 1], row[3 * x + 2]});
            coloured += most - least > kColourless;
        }
    }
    return samples == 0 ? 1 : static_cast<double>(coloured) / static_cast<double>(samples);
}

void SceneWatch::reset() {
    *this = SceneWatch();
}

SceneState SceneWatch::update(SmoothFrame& frame, Background& background, std::span<const AnalyzerObject> objects,
                              double seconds, bool by_picture) {
    const bool turn = by_picture && turned(frame, seconds);
    const bool still = frozen(frame, seconds);
    const bool nothing = nothingToSee(frame);
    empty_ = nothing;
    blind_for_ = nothing ? blind_for_ + seconds : 0;
    sight_for_ = nothing || still ? 0 : sight_for_ + seconds;
    if (still || blind_for_ >= kBlindSeconds) blind_ = true;
    if (sight_for_ >= kBlindSeconds) blind_ = false;

    if (!nothing && lightChanged(frame, background, objects)) {
        if (!changed_over_) changed_left_ = kChangedSeconds;
    } else {
        changed_over_ = false;
        changed_left_ = std::max(0.0, changed_left_ - seconds);
    }
    if (changed_left_ > 0) {
        changed_for_ += seconds;
        if (changed_for_ > kChangedLongest) {
            changed_over_ = true;
            changed_left_ = 0;
        }
    }
    if (changed_left_ <= 0) {
        changed_for_ = 0;
        turning_ = false;
    } else {
        turning_ |= turn;
    }
    if (blind_) return SceneState::kBlind;
    if (changed_left_ <= 0) return SceneState::kWatching;
    // A picture without anything to see is about to be blind and says nothing about the background.
    if (!nothing) background.heal(frame, {0, 0, frame.width(), frame.height()}, kChangedHealRate * seconds);
    return turning_ ? SceneState::kLearning : SceneState::kChanged;
}

/// The picture has lost its colours, or has them again, a moment ago.
bool SceneWatch::turned(const SmoothFrame& frame, double seconds) {
    constexpr double kMoment = 2;
    const double share = colourShare({frame.pixels(0), frame.pixels(frame.height())}, frame.width(), frame.height());
    turned_left_ = std::max(0.0, turned_left_ - seconds);
    const Colours now = share < kGreyShare ? Colours::kNone : share > kColourShare ? Colours::kSome : colours_;
    if (now != std::exchange(colours_, now)) turned_left_ = kMoment;
    return turned_left_ > 0;
}

namespace {

/// Share of the samples of every `rows`-th sampled row that differ from the background by more than their thresholds.
double differingShare(SmoothFrame& frame, const Background& background, int rows) {
    int count = 0, different = 0;
    for (int y = kSampleStep / 2; y < frame.height(); y += kSampleStep * rows) {
        frame.need(y);
        for (int x = kSampleStep / 2; x < frame.width(); x += kSampleStep, ++count) {
            const int limit = background.threshold(x, y);
            bool differs = false;
            for (int c = 0; c < frame.channels(); ++c)
                differs |= std::abs(frame.row(c, y)[x] - background.level(c, x, y)) > limit;
            different += differs;
        }
    }
    return count == 0 ? 0 : static_cast<double>(different) / count;
}

/// True where most of the 16 parts of the picture that have a texture still have it, brighter or darker. Somebody near
/// the camera, and a camera that moved, show another one.
bool sameTexture(SmoothFrame& frame, const Background& background) {
    constexpr int kParts = 4;
    struct Part {
        std::int64_t both = 0, now = 0, usual = 0, count = 0;
    };
    std::array<Part, kParts * kParts> parts{};
    const int width = frame.width(), height = frame.height();
    for (int y = kSampleStep / 2; y + kSampleStep < height; y += kSampleStep) {
        frame.need(y);
        frame.need(y + kSampleStep);
        for (int x = kSampleStep / 2; x + kSampleStep < width; x += kSampleStep) {
            Part& part = parts[static_cast<std::size_t>(y * kParts / height * kParts + x * kParts / width)];
            const auto add = [&](int x2, int y2) {
                const int now = frame.luma(y2)[x2] - frame.luma(y)[x];
                const int usual = background.luma(x2, y2) - background.luma(x, y);
                part.both += std::int64_t{now} * usual;
                part.now += std::int64_t{now} * now;
                part.usual += std::int64_t{usual} * usual;
                ++part.count;
            };
            add(x + kSampleStep, y);
            add(x, y + kSampleStep);
        }
    }
    int textured = 0, same = 0;
    for (const Part& part : parts) {
        if (part.usual < kChangedTexture * part.count || part.count == 0) continue;
        ++textured;
        const auto both = static_cast<double>(part.both);
        same += part.both > 0 && both * both > kLightCorrelation * kLightCorrelation * static_cast<double>(part.now) *
                                                   static_cast<double>(part.usual);
    }
    return textured >= kParts && same > kChangedPixels * textured;
}

}  // namespace

/// The analyzer covers the picture with boxes, or does not: it may have learned what both lights look like.
bool SceneWatch::lightChanged(SmoothFrame& frame, const Background& background,
                              std::span<const AnalyzerObject> objects) const {
    const int width = frame.width(), height = frame.height();
    std::int64_t covered = 0;
    for (const AnalyzerObject& object : objects)
        covered += areaOf(clipped({object.left, object.top, object.width, object.height}, width, height));
    const bool boxes = static_cast<double>(covered) > kChangedBoxes * width * height;
    if (!boxes && differingShare(frame, background, 4) <= kLitPixels) return false;  // a quick look
    const double different = differingShare(frame, background, 1);
    if (different > (boxes ? kChangedPixels : kAllPixels)) return true;
    return different > kLitPixels && sameTexture(frame, background);
}

bool SceneWatch::nothingToSee(const SmoothFrame& frame) const {
    const int width = frame.width(), height = frame.height();
    std::array<int, 256> levels{};
    int count = 0;
    std::int64_t sum = 0;
    for (int y = kSampleStep / 2; y < height; y += kSampleStep) {
        const std::uint8_t* row = frame.pixels(y);
        for (int x = kSampleStep / 2; x < width; x += kSampleStep, ++count) {
            const int luma = (row[3 * x] + 2 * row[3 * x + 1] + row[3 * x + 2]) / 4;
            ++levels[static_cast<std::size_t>(luma)];
            sum += luma;
        }
    }
    if (count == 0) return false;
    const int mean = static_cast<int>(sum / count);
    std::int64_t spread = 0;
    for (int level = 0; level < 256; ++level)
        spread += std::int64_t{levels[static_cast<std::size_t>(level)]} * std::abs(level - mean);
    // Black and white with a little noise or a time stamp count too; in between there must be next to nothing.
    const int most = mean <= kBlackLevel || mean >= kWhiteLevel ? 2 * kBlindSpread : kBlindSpread;
    return spread < std::int64_t{most} * count;
}

/// True where nothing changed for long in a picture that used to be noisy all over. Something that moved before a still
/// background is no noise: changes must lie in at least half of 16 parts of the picture.
bool SceneWatch::frozen(const SmoothFrame& frame, double seconds) {
    constexpr int kParts = 4;
    const int width = frame.width(), height = frame.height();
    std::array<bool, kParts * kParts> part{};
    std::size_t i = 0;
    bool changed = false;
    const bool first = samples_.empty();
    if (first)
        samples_.resize(static_cast<std::size_t>((width + kSampleStep) / kSampleStep) *
                        static_cast<std::size_t>((height + kSampleStep) / kSampleStep));
    for (int y = kSampleStep / 2; y < height; y += kSampleStep) {
        const std::uint8_t* row = frame.pixels(y);
        int x = kSampleStep / 2;
        for (int column = 0; column < kParts; ++column) {
            int differences = 0;
            for (const int end = ((column + 1) * width + kParts - 1) / kParts; x < end; x += kSampleStep, ++i) {
                const std::uint8_t now = row[3 * x + 1];
                differences |= now ^ samples_[i];
                samples_[i] = now;
            }
            if (differences == 0) continue;
            changed = true;
            part[static_cast<std::size_t>(y * kParts / height * kParts + column)] = true;
        }
    }
    if (first) return false;
    if (changed) {
        const auto parts = std::count(part.begin(), part.end(), true);
        const double share = std::min(1.0, seconds / 2);
        noisy_ += ((parts >= kParts * kParts / 2 ? 1.0 : 0.0) - noisy_) * share;
        had_noise_ = noisy_ > 0.5;
        still_for_ = 0;
        return false;
    }
    still_for_ += seconds;
    return had_noise_ && still_for_ >= kFrozenSeconds;
}

}  // namespace fleifeisa::host
