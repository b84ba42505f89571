#include "tracks/stopped.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "tracks/constants.h"

namespace fleifeisa::host {
namespace {

/// Fills a patch; `level` answers (channel, x, y).
template <class Level>
Patch patchOf(const Box& box, int width, int height, int channels, const Level& level) {
    Patch patch;
    const Box wide = grown(box, box.width / 4 + 1, box.height / 4 + 1);
    for (int j = 0; j < Patch::kSide; ++j) {
        for (int i = 0; i < Patch::kSide; ++i) {
            const std::int64_t x = wide.left + std::int64_t{2 * i + 1} * wide.width / (2 * Patch::kSide);
            const std::int64_t y = wide.top + std::int64_t{2 * j + 1} * wide.height / (2 * Patch::kSide);
            if (x < 0 || y < 0 || x >= width || y >= height) continue;
            const auto place = static_cast<std::size_t>(j * Patch::kSide + i);
            patch.inside[place] = true;
            for (int c = 0; c < channels; ++c)
                patch.samples[place * kChannels + static_cast<std::size_t>(c)] =
                    static_cast<std::uint8_t>(level(c, static_cast<int>(x), static_cast<int>(y)));
        }
    }
    return patch;
}

Patch patchOf(const Box& box, SmoothFrame& frame) {
    const Box wide = grown(box, box.width / 4 + 1, box.height / 4 + 1);
    frame.needRows(wide.top, wide.bottom());
    return patchOf(box, frame.width(), frame.height(), frame.channels(),
                   [&](int c, int x, int y) { return static_cast<int>(frame.row(c, y)[x]); });
}

bool inRing(int i, int j) {
    constexpr int kLow = Patch::kRing, kHigh = Patch::kSide - Patch::kRing;
    return i < kLow || j < kLow || i >= kHigh || j >= kHigh;
}

/// What never left the place where it appeared may be a ghost or light. Who comes in over the edge appears as a head or
/// an arm, and may stand there when the rest of him is in the picture.
bool cameFromElsewhere(const Mover& mover, int width, int height) {
    const Box box = mover.box(), birth = mover.track.birth;
    const std::int64_t common = commonArea(box, birth);
    if (common == 0) return true;
    const bool at_edge =
        birth.left <= 1 || birth.top <= 1 || birth.right() >= width - 1 || birth.bottom() >= height - 1;
    return at_edge &&
           static_cast<double>(common) < kEdgeBirth * static_cast<double>(areaOf(box) + areaOf(birth) - common);
}

double distance(double ax, double ay, double bx, double by) {
    return std::sqrt((ax - bx) * (ax - bx) + (ay - by) * (ay - by));
}

}  // namespace

int differenceOf(const Patch& a, const Patch& b, int channels) {
    int total = 0, inner = 0;
    for (int c = 0; c < channels; ++c) {
        const auto difference = [&](int i, int j) {
            const auto at = static_cast<std::size_t>((j * Patch::kSide + i) * kChannels + c);
            return a.samples[at] - b.samples[at];
        };
        const auto each = [&](bool ring, auto&& take) {
            for (int j = 0; j < Patch::kSide; ++j)
                for (int i = 0; i < Patch::kSide; ++i)
                    if (inRing(i, j) == ring && a.inside[static_cast<std::size_t>(j * Patch::kSide + i)]) take(i, j);
        };
        int light = 0, ring = 0;
        each(true, [&](int i, int j) {
            light += difference(i, j);
            ++ring;
        });
        // Light changes by some levels; more is somebody beside the place.
        light = ring > 0 ? std::clamp(light / ring, -40, 40) : 0;
        each(false, [&](int i, int j) {
            total += std::abs(difference(i, j) - light);
            ++inner;
        });
    }
    return inner < 16 * channels ? 255 : total / inner;
}

void StoppedPlaces::update(std::vector<Mover>& movers, SmoothFrame& frame, Background& background, double seconds) {
    rest(movers, frame, background, seconds);
    for (Place& place : places_) {
        const auto found = std::find_if(movers.begin(), movers.end(), [&](const Mover& mover) {
            return mover.confirmed && mover.track.number == place.number;
        });
        Mover* mover = found == movers.end() || found->dead ? nullptr : &*found;
        if (mover && !mover->stopped) mover = nullptr;
        if (!mover) place.left = true;
        place.age += seconds;
        place.until_look -= seconds;
        if (place.until_look > 0) continue;
        place.until_look = kPlaceSeconds;
        look(place, mover, frame, background);
    }
    std::erase_if(places_, [](const Place& place) { return place.done; });
}

void StoppedPlaces::rest(std::vector<Mover>& movers, SmoothFrame& frame, Background& background, double seconds) {
    for (Mover& mover : movers) {
        if (!mover.confirmed || mover.dead || mover.blob < 0) continue;
        const double size = std::sqrt(mover.width * mover.height);
        const double moved = distance(mover.x, mover.y, mover.rest_x, mover.rest_y);
        if (cameFromElsewhere(mover, frame.width(), frame.height())) mover.arrived = true;
        if (mover.stopped) {
            if (moved <= kMovedDistance * size) continue;
            mover.stopped = false;
            mover.track.stopped_ns = 0;
        }
        mover.rest += seconds;
        if (moved > kRestDistance * size) {
            mover.rest = 0;
            mover.rest_x = mover.x;
            mover.rest_y = mover.y;
            mover.rest_ns = mover.track.seen_ns;
        }
        if (mover.rest < kRestSeconds || mover.grouped || !mover.arrived) continue;
        mover.stopped = true;
        mover.vx = mover.vy = 0;
        mover.track.stopped_ns = mover.rest_ns;
        // The oldest goes first: its track lives on as long as it is seen.
        if (places_.size() >= static_cast<std::size_t>(kMostPlaces)) {
            for (Mover& other : movers) {
                if (!other.confirmed || other.track.number != places_.front().number) continue;
                other.stopped = false;
                other.rest = -kLongestStop;  // not again before it moved
            }
            places_.erase(places_.begin());
        }
        Place place;
        place.number = mover.track.number;
        place.box = mover.box();
        place.with = patchOf(place.box, frame);
        place.before = patchOf(place.box, frame.width(), frame.height(), frame.channels(),
                               [&](int c, int x, int y) { return background.level(c, x, y); });
        place.until_look = kPlaceSeconds;
        place.contrast = differenceOf(place.with, place.before, frame.channels());
        places_.push_back(place);
    }
}

void StoppedPlaces::look(Place& place, Mover* mover, SmoothFrame& frame, Background& background) {
    const Patch now = patchOf(place.box, frame);
    const int with = differenceOf(now, place.with, frame.channels());
    const int before = differenceOf(now, place.before, frame.channels());
    const bool free = place.contrast >= kLeastContrast && before <= kPlaceLevels && 2 * before < with;
    place.free = free ? place.free + 1 : 0;
    if (place.free >= 2) {
        background.heal(frame, grown(place.box, place.box.width / 8, place.box.height / 8), 256);
        if (mover) {
            mover->dead = true;
            mover->track.ended = TrackEnd::kStopped;
            mover->track.removed = true;
        }
        place.done = true;
        return;
    }
    if (place.left) {  // for ten looks the background may still be put right
        place.done = ++place.unknown > 10;
        return;
    }
    // Where both patches look alike they say nothing, and the thing is lost like any other that is not seen.
    const bool there = mover->blob >= 0 || (place.contrast >= kLeastContrast && with < before);
    place.unknown = there ? 0 : place.unknown + kPlaceSeconds;
    const bool unknown = place.unknown > (place.contrast >= kLeastContrast ? kUnknownPlace : kKept);
    if (!unknown && place.age <= kLongestStop) return;
    mover->dead = true;
    mover->track.ended = unknown ? TrackEnd::kLost : TrackEnd::kStopped;
    place.done = true;
}

}  // namespace fleifeisa::host
