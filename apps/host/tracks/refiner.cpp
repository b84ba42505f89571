#include "tracks/refiner.h"

#include <algorithm>
#include <cmath>

#include "tracks/constants.h"
#include "tracks/filter_view.h"
#include "tracks/judgement.h"
#include "tracks/track_filter.h"

namespace fleifeisa::host {

void Refiner::reset(int width, int height) {
    width_ = width;
    height_ = height;
    foreground_mask_.reset(width, height);
    blobs_.clear();
    healing_.clear();
    foreground_ = 0;
}

void Refiner::paint(std::span<const AnalyzerObject> objects, std::span<const Mover> movers) {
    where_.begin(width_, height_);
    support_.begin(width_, height_);
    for (const AnalyzerObject& object : objects) {
        const Box box = clipped({object.left, object.top, object.width, object.height}, width_, height_);
        support_.add(box);
        where_.add(grown(box, static_cast<int>(box.width * kGrowBoxX), static_cast<int>(box.height * kGrowBoxY)));
    }
    for (const Mover& mover : movers) {
        const double longest = mover.arrived ? kUnsupportedSeconds : kUnsupportedUnmoved;
        if (mover.confirmed ? mover.unsupported > longest : mover.track.frames < 2) continue;
        const Box box = clipped(mover.box(), width_, height_);
        if (box.width == 0 || box.height == 0) continue;
        support_.add(box);
        where_.add(
            grown(box, static_cast<int>(box.width * kGrowTrackX) + 2, static_cast<int>(box.height * kGrowTrackY) + 2));
    }
    support_.finish();
    where_.finish();
}

bool Refiner::healsAlready(const Box& box) const {
    return std::any_of(healing_.begin(), healing_.end(), [&](const Healing& one) {
        return one.found >= kHealingSure && commonArea(one.box, box) == areaOf(box);
    });
}

void Refiner::found(const Box& box, double seconds) {
    for (Healing& one : healing_) {
        if (2 * commonArea(one.box, box) < std::min(areaOf(one.box), areaOf(box))) continue;
        if (one.found < kHealingSure) one.box = unionOf(one.box, box);
        one.found += seconds;
        one.left = kHealingKept;
        return;
    }
    if (healing_.size() < static_cast<std::size_t>(kMostHealing))
        healing_.push_back({grown(box, 2, 2), seconds, kHealingKept});
}

namespace {

/// Number of the track that this piece by itself is, 0 where there is none.
std::int64_t knownAs(const Box& box, std::span<const Mover> movers) {
    std::int64_t number = 0;
    double most = kKnownOverlap;
    for (const Mover& mover : movers) {
        if (!mover.confirmed || !mover.arrived) continue;
        const std::int64_t common = commonArea(mover.box(), box);
        const double overlap =
            static_cast<double>(common) / static_cast<double>(areaOf(mover.box()) + areaOf(box) - common);
        if (overlap <= most) continue;
        most = overlap;
        number = mover.track.number;
    }
    return number;
}

}  // namespace

std::span<const Blob> Refiner::find(SmoothFrame& frame, Background& background, std::span<const AnalyzerObject> objects,
                                    std::span<const Mover> movers, const FilterSettings& settings, double seconds,
                                    FilterView* view) {
    paint(objects, movers);
    const double pixels = static_cast<double>(width_) * height_;
    const int least = std::max(4, static_cast<int>(std::lround(kLeastComponent * pixels)));
    const int least_light = std::max(9, static_cast<int>(std::lround(kLightPixels / (384.0 * 288) * pixels)));
    const bool shadow_test = settings.shadow_test && frame.channels() == kChannels;
    for (Healing& one : healing_) one.left -= seconds;
    std::erase_if(healing_, [](const Healing& one) { return one.left <= 0; });
    blobs_.clear();
    parts_.clear();
    const auto drop = [view](const Box& box, int count, Drop why) {
        if (view) view->dropped.push_back({box, count, why});
    };
    // Small components are collected only to be shown.
    const int collected = view ? 1 : least;
    for (const Component& one : foreground_mask_.find(frame, background, where_, support_, shadow_test, collected)) {
        if (one.pixels < least) {
            drop(one.box, one.pixels, Drop::kTooSmall);
            continue;
        }
        if (one.supported < kLeastSupport * one.pixels) {
            drop(one.box, one.pixels, Drop::kNoSupport);
            continue;
        }
        const bool known = std::any_of(movers.begin(), movers.end(), [&](const Mover& mover) {
            const Box box = mover.box();
            const std::int64_t common = commonArea(box, one.box);
            if (mover.stopped) return 2 * common > areaOf(one.box);
            return mover.confirmed && mover.arrived &&
                   static_cast<double>(common) >
                       kKnownOverlap * static_cast<double>(areaOf(box) + areaOf(one.box) - common);
        });
        const bool ghost = !known && isGhost(frame, background, foreground_mask_, one);
        const bool none = ghost || (!known && isLight(frame, background, foreground_mask_, one, least_light));
        if (none) found(one.box, seconds);
        if (none || (!known && healsAlready(one.box))) {
            background.heal(frame, one.box, kHealRate * seconds);
            drop(one.box, one.pixels, ghost ? Drop::kGhost : none ? Drop::kLight : Drop::kHealing);
            continue;
        }
        if (settings.split_people)
            splitPeople(one, parts_);
        else
            parts_.push_back({one.box, one.pixels});
    }
    // Largest first where there are too many; ties by place, so that every machine keeps the same.
    const auto before = [](const Blob& a, const Blob& b) {
        if (a.pixels != b.pixels) return a.pixels > b.pixels;
        return a.box.top != b.box.top ? a.box.top < b.box.top : a.box.left < b.box.left;
    };
    std::stable_sort(parts_.begin(), parts_.end(), before);
    for (std::size_t i = kMostBlobs; i < parts_.size(); ++i) drop(parts_[i].box, parts_[i].pixels, Drop::kTooMany);
    if (parts_.size() > static_cast<std::size_t>(kMostBlobs)) parts_.resize(kMostBlobs);
    blobs_ = parts_;
    for (Blob& blob : blobs_) blob.known = knownAs(blob.box, movers);
    const auto of_number = [movers](std::int64_t number) -> const Mover& {
        return *std::find_if(movers.begin(), movers.end(),
                             [number](const Mover& mover) { return mover.track.number == number; });
    };
    joinPieces(blobs_, [&](std::int64_t a, std::int64_t b) { return !mayBeOne(of_number(a), of_number(b)); });
    foreground_ = 0;
    for (const Blob& blob : blobs_) foreground_ += blob.pixels / pixels;
    if (view) {
        view->least_component = least;
        show(*view);
    }
    return blobs_;
}

void Refiner::show(FilterView& view) const {
    view.refined = true;
    view.blobs = blobs_;
    view.looked_at.clear();
    view.foreground.clear();
    for (int y = 0; y < height_; ++y) {
        for (int x = 0; x < width_; ++x) view.looked_at.push_back(where_.pixel(x, y) ? 1 : 0);
        view.foreground.insert(view.foreground.end(), foreground_mask_.row(y), foreground_mask_.row(y) + width_);
    }
}

void Refiner::follow(SmoothFrame& frame, Background& background, std::span<const Mover> movers, std::int64_t time_ns) {
    boxes_.clear();
    for (const Blob& blob : blobs_) boxes_.push_back(blob.box);
    for (const Mover& mover : movers)
        if (mover.stopped) boxes_.push_back(clipped(mover.box(), width_, height_));
    background.follow(frame, boxes_, time_ns);
}

}  // namespace fleifeisa::host
