// The tracker's births and deaths, and what it tells.
#include <algorithm>
#include <cmath>

#include "tracks/constants.h"
#include "tracks/tracker.h"

namespace fleifeisa::host {

namespace {

/// Beside each other or far from each other: no legs and upper body.
bool apart(const Box& a, const Box& b) {
    const int across = std::min(a.right(), b.right()) - std::max(a.left, b.left);
    const int gap = std::max(a.top, b.top) - std::min(a.bottom(), b.bottom());
    return across < kApartOverlap * std::min(a.width, b.width) || gap > kApartGap * unionOf(a, b).height;
}

}  // namespace

void Tracker::bear(std::span<const Blob> blobs, std::int64_t time_ns, double seconds) {
    const std::size_t before = movers_.size();
    for (std::size_t b = 0; b < blobs.size(); ++b) {
        if (owner_[b] != kFree || movers_.size() >= static_cast<std::size_t>(kMostTracks)) continue;
        const Box& box = blobs[b].box;
        Mover young;
        young.x = box.left + box.width / 2.0;
        young.y = box.top + box.height / 2.0;
        young.width = box.width;
        young.height = box.height;
        young.area = young.track.area = blobs[b].pixels;
        young.track.start_ns = young.track.seen_ns = time_ns;
        young.track.frames = 1;
        young.blob = static_cast<int>(b);
        young.track.birth = box;
        young.rest_x = young.x;
        young.rest_y = young.y;
        young.rest_ns = time_ns;
        // What it came out of: the confirmed track in whose latest box most of it lies.
        std::int64_t most = areaOf(box) / 4;
        for (std::size_t m = 0; m < before; ++m) {
            const std::int64_t common = commonArea(movers_[m].track.box, box);
            if (!movers_[m].confirmed || common <= most) continue;
            most = common;
            young.track.split_from = movers_[m].track.number;
            young.arrived = movers_[m].arrived;
        }
        movers_.push_back(young);
    }
    for (Mover& mover : movers_) {
        if (mover.confirmed || mover.blob < 0 || mover.track.frames < kBirthSightings) continue;
        const double age = static_cast<double>(time_ns - mover.track.start_ns) / 1e9;
        // The last of the sightings counts whole: at 10 frames a second 0.3 s are three of them.
        if (age + seconds / 2 < kBirthSeconds || mover.area < least_pixels_) continue;
        confirm(mover);
    }
}

void Tracker::confirm(Mover& mover) {
    for (const Mover& other : movers_)
        if (other.confirmed && !other.dead && !apart(mover.box(), other.box()))
            mover.stacked_with.push_back(other.track.number);
    mover.confirmed = true;
    mover.track.number = next_++;
}

/// Who is seen beside a track that he has been above or below of so far, or far from it, is somebody else.
void Tracker::tellApart() {
    const auto alone = [](const Mover& mover) { return mover.blob >= 0 && !mover.grouped; };
    for (Mover& mover : movers_) {
        if (mover.stacked_with.empty()) continue;
        std::erase_if(mover.stacked_with, [&](std::int64_t number) {
            for (const Mover& other : movers_) {
                if (!other.confirmed || other.track.number != number) continue;
                if (!alone(mover) || !alone(other)) return false;
                return apart(mover.box(), other.box());
            }
            return true;
        });
    }
}

bool Tracker::atEdge(const Mover& mover) const {
    const Box box = mover.box();
    constexpr int kNear = 2;
    return (box.left <= kNear && mover.vx < 0) || (box.right() >= width_ - kNear && mover.vx > 0) ||
           (box.top <= kNear && mover.vy < 0) || (box.bottom() >= height_ - kNear && mover.vy > 0);
}

/// The older number goes on with the larger one's place; the younger ends here.
void Tracker::absorb(Mover& whole, Mover& part) {
    if (part.track.number < whole.track.number) {
        std::swap(part.track, whole.track);
        std::swap(part.stacked_with, whole.stacked_with);
    }
    whole.arrived = part.arrived || whole.arrived;
    part.dead = true;
    part.track.ended = TrackEnd::kLost;
}

/// A part that had been taken for a thing of its own: it lies in a larger track all the time, seen by turns with it.
void Tracker::mendPieces(double seconds) {
    const auto alone = [](const Mover& mover) { return mover.confirmed && !mover.dead && !mover.stopped; };
    for (Mover& part : movers_) {
        Mover* whole = nullptr;
        for (Mover& other : movers_) {
            if (whole || &other == &part || !alone(part) || !alone(other)) continue;
            if (part.track.merged_with != 0 && other.track.merged_with != 0) continue;
            const Box inner = part.box(), outer = other.box();
            if (static_cast<double>(areaOf(inner)) > kInsideArea * static_cast<double>(areaOf(outer))) continue;
            if (static_cast<double>(commonArea(inner, outer)) >= kInside * static_cast<double>(areaOf(inner)))
                whole = &other;
        }
        part.inside = whole ? part.inside + seconds : 0;
        if (!whole || part.inside <= kInsideSeconds) continue;
        absorb(*whole, part);
    }
}

void Tracker::letGo(double seconds) {
    for (Mover& mover : movers_) {
        if (mover.dead || mover.missed == 0) continue;
        if (!mover.confirmed) {
            // A sighting would have been due `seconds` ago at the earliest.
            mover.dead = mover.missed > std::max(kYoungMiss, seconds * 0.5);
            continue;
        }
        if (mover.stopped) continue;  // its place decides (stopped.h)
        const bool left = atEdge(mover);
        if (mover.missed <= (left ? kLeftAfter : kKept)) continue;
        mover.dead = true;
        mover.track.ended = left ? TrackEnd::kLeft : TrackEnd::kLost;
    }
}

void Tracker::tell(std::vector<Track>& out) {
    for (Mover& mover : movers_) {
        Track& track = mover.track;
        track.box = mover.box();
        const Point centre{mover.x, mover.y};
        if (track.frames > 1 && mover.blob >= 0) {
            const double dx = centre.x - track.centre.x, dy = centre.y - track.centre.y;
            track.path_px += std::sqrt(dx * dx + dy * dy);
        }
        track.centre = centre;
        track.velocity = {mover.vx, mover.vy};
        if (mover.dead)
            track.state = TrackState::kEnded;
        else if (!mover.confirmed)
            track.state = TrackState::kTentative;
        else if (mover.stopped)
            track.state = TrackState::kStopped;
        else
            track.state = mover.missed <= kShown ? TrackState::kConfirmed : TrackState::kCoasting;
    }
    const auto from = static_cast<std::ptrdiff_t>(out.size());
    for (const Mover& mover : movers_)
        if (mover.confirmed) out.push_back(mover.track);
    std::sort(out.begin() + from, out.end(), [](const Track& a, const Track& b) { return a.number < b.number; });
    for (const Mover& mover : movers_)
        if (!mover.confirmed && !mover.dead) out.push_back(mover.track);
    std::erase_if(movers_, [](const Mover& mover) { return mover.dead; });
}

void Tracker::endAll(TrackEnd why, std::vector<Track>& out) {
    std::erase_if(movers_, [](const Mover& mover) { return !mover.confirmed; });
    for (Mover& mover : movers_) {
        mover.dead = true;
        mover.track.ended = why;
        mover.track.area = 0;
        mover.track.objects.clear();
        mover.blob = -1;
    }
    tell(out);
}

}  // namespace fleifeisa::host
