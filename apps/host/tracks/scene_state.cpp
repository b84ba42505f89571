#include "tracks/scene_state.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include "tracks/blobs.h"
#include "tracks/constants.h"

namespace fleifeisa::host {

void SceneWatch::reset() {
    *this = SceneWatch();
}

SceneState SceneWatch::update(SmoothFrame& frame, Background& background, std::span<const AnalyzerObject> objects,
                              double seconds) {
    const bool still = frozen(frame, seconds);
    const bool nothing = nothingToSee(frame);
    blind_for_ = nothing ? blind_for_ + seconds : 0;
    sight_for_ = nothing || still ? 0 : sight_for_ + seconds;
    if (still || blind_for_ >= kBlindSeconds) blind_ = true;
    if (sight_for_ >= kBlindSeconds) blind_ = false;

    if (lightChanged(frame, background, objects)) {
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
    if (changed_left_ <= 0) changed_for_ = 0;
    if (blind_) return SceneState::kBlind;
    if (changed_left_ <= 0) return SceneState::kWatching;
    background.heal(frame, {0, 0, frame.width(), frame.height()}, kChangedHealRate * seconds);
    return SceneState::kChanged;
}

bool SceneWatch::lightChanged(SmoothFrame& frame, const Background& background,
                              std::span<const AnalyzerObject> objects) const {
    const int width = frame.width(), height = frame.height();
    std::int64_t covered = 0;
    for (const AnalyzerObject& object : objects)
        covered += areaOf(clipped({object.left, object.top, object.width, object.height}, width, height));
    if (static_cast<double>(covered) <= kChangedBoxes * width * height) return false;
    int count = 0, different = 0;
    for (int y = kSampleStep / 2; y < height; y += kSampleStep) {
        frame.need(y);
        for (int x = kSampleStep / 2; x < width; x += kSampleStep, ++count) {
            const int limit = background.threshold(x, y);
            bool differs = false;
            for (int c = 0; c < frame.channels(); ++c)
                differs |= std::abs(frame.row(c, y)[x] - background.level(c, x, y)) > limit;
            different += differs;
        }
    }
    return different > kChangedPixels * count;
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
        for (int x = kSampleStep / 2; x < width; x += kSampleStep, ++i) {
            const std::uint8_t now = row[3 * x + 1];
            if (now == samples_[i]) continue;
            samples_[i] = now;
            changed = true;
            part[static_cast<std::size_t>(y * kParts / height * kParts + x * kParts / width)] = true;
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
