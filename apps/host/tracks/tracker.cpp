#include "tracks/tracker.h"

#include <algorithm>
#include <cmath>

#include "tracks/constants.h"

namespace fleifeisa::host {
namespace {

/// To the nearest whole number, halves up, without the library's rounding modes.
int rounded(double value) {
    const double limited = std::clamp(value, -1e8, 1e8) + 0.5;
    const int whole = static_cast<int>(limited);
    return whole > limited ? whole - 1 : whole;
}

double overlapOf(const Box& a, const Box& b) {
    const std::int64_t common = commonArea(a, b);
    if (common == 0) return 0;
    return static_cast<double>(common) / static_cast<double>(areaOf(a) + areaOf(b) - common);
}

/// Of a track that was a part of what is seen now, a head that was all that could be seen: how much of it lies in the
/// whole. 0 where it is none.
double shareInWhole(const Box& place, const Box& seen) {
    if (static_cast<double>(areaOf(seen)) > kWholeArea * static_cast<double>(areaOf(place))) return 0;
    const double share = static_cast<double>(commonArea(place, seen)) / static_cast<double>(areaOf(place));
    return share >= kWholeInside && overlapOf(place, seen) < kOverlapConfirmed ? share : 0;
}

/// Things that stand melt into the background piece by piece: what is left to be seen tells nothing of their place.
bool meltsIn(const Mover& mover, const Box& seen) {
    if (!mover.stopped || static_cast<double>(mover.track.seen_ns - mover.track.stopped_ns) < kMeltsAfter * 1e9)
        return false;
    const Box place = mover.box();
    const auto inside = static_cast<double>(commonArea(place, seen)), area = static_cast<double>(areaOf(seen));
    return inside >= kMeltsInside * area && area < kMeltsArea * static_cast<double>(areaOf(place));
}

}  // namespace

Box Mover::boxAt(double cx, double cy) const {
    const int left = rounded(cx - width / 2), top = rounded(cy - height / 2);
    return {left, top, std::max(1, rounded(width)), std::max(1, rounded(height))};
}

Box Mover::box() const {
    return boxAt(x, y);
}

bool mayBeOne(const Mover& a, const Mover& b) {
    const Mover& younger = a.track.number > b.track.number ? a : b;
    const Mover& older = a.track.number > b.track.number ? b : a;
    return std::find(younger.stacked_with.begin(), younger.stacked_with.end(), older.track.number) !=
           younger.stacked_with.end();
}

void Tracker::reset(int width, int height, double least_area, std::int64_t first_number) {
    width_ = width;
    height_ = height;
    least_pixels_ = least_area * width * height;
    next_ = first_number;
    movers_.clear();
}

void Tracker::predict(double seconds) {
    for (Mover& mover : movers_) {
        mover.blob = -1;
        mover.track.merged_with = 0;
        if (mover.stopped && mover.missed > 0) continue;
        mover.x += mover.vx * seconds;
        mover.y += mover.vy * seconds;
    }
}

/// Greedy: the best pair first; earlier movers and blobs win ties. Measured to be as good as an optimal assignment.
template <class Value>
void Tracker::assign(std::span<const Blob> blobs, bool confirmed, Value&& value) {
    pairs_.clear();
    for (std::size_t m = 0; m < movers_.size(); ++m) {
        if (movers_[m].confirmed != confirmed || movers_[m].blob >= 0) continue;
        for (std::size_t b = 0; b < blobs.size(); ++b) {
            if (owner_[b] != kFree) continue;
            const double v = value(movers_[m], blobs[b].box);
            if (v > 0) pairs_.push_back({v, static_cast<int>(m), static_cast<int>(b)});
        }
    }
    std::sort(pairs_.begin(), pairs_.end(), [](const Pair& a, const Pair& b) {
        if (a.value != b.value) return a.value > b.value;
        return a.mover != b.mover ? a.mover < b.mover : a.blob < b.blob;
    });
    for (const Pair& pair : pairs_) {
        Mover& mover = movers_[static_cast<std::size_t>(pair.mover)];
        int& owner = owner_[static_cast<std::size_t>(pair.blob)];
        if (mover.blob >= 0 || owner != kFree) continue;
        mover.blob = pair.blob;
        owner = pair.mover;
    }
}

void Tracker::update(std::span<const Blob> blobs, std::int64_t time_ns, double seconds) {
    owner_.assign(blobs.size(), kFree);
    seen_.clear();
    for (const Blob& blob : blobs) seen_.push_back(blob.box);
    assign(blobs, true, [](const Mover& mover, const Box& box) {
        const double overlap = overlapOf(mover.box(), box);
        return overlap >= kOverlapConfirmed ? overlap : 0;
    });
    joinGroups(blobs, seconds);
    addPieces(blobs);
    const auto near = [](const Mover& mover, const Box& box, double reach) {
        const double size = mover.width * mover.height, other = static_cast<double>(areaOf(box));
        if (size > kSizeRatio * other || other > kSizeRatio * size) return 0.0;
        const double dx = box.left + box.width / 2.0 - mover.x, dy = box.top + box.height / 2.0 - mover.y;
        const double distance = std::sqrt(dx * dx + dy * dy) / (reach * std::sqrt(size));
        return distance < 1 ? 1 - distance : 0.0;
    };
    assign(blobs, true,
           [&](const Mover& mover, const Box& box) { return near(mover, box, kReach + kReachGrowth * mover.missed); });
    assign(blobs, true, [](const Mover& mover, const Box& box) { return shareInWhole(mover.box(), box); });
    assign(blobs, false, [](const Mover& mover, const Box& box) {
        const double overlap = overlapOf(mover.box(), box);
        return overlap >= kOverlapTentative ? overlap : 0;
    });
    assign(blobs, false, [&](const Mover& mover, const Box& box) { return near(mover, box, kReachTentative); });
    for (std::size_t b = 0; b < blobs.size(); ++b) {
        if (owner_[b] < 0) continue;
        const std::vector<int>& members = members_[b];
        Mover& owner = movers_[static_cast<std::size_t>(owner_[b])];
        if (members.size() > 1)
            moveGroup(seen_[b], members, seconds);
        else if (!meltsIn(owner, seen_[b]))
            see(owner, seen_[b], seconds);
    }
    for (Mover& mover : movers_) {
        if (mover.blob < 0) {
            mover.missed += seconds;
            mover.track.area = 0;
            continue;
        }
        const Blob& blob = blobs[static_cast<std::size_t>(mover.blob)];
        mover.missed = 0;
        mover.track.seen_ns = time_ns;
        mover.track.frames += 1;
        mover.track.area = blob.pixels;
        mover.area = std::max(mover.area, blob.pixels);
    }
    tellApart();
    bear(blobs, time_ns, seconds);
    mendPieces(seconds);
    letGo(seconds);
}

/// Missed tracks whose place lies in a blob that another one owns go on in its group.
void Tracker::joinGroups(std::span<const Blob> blobs, double seconds) {
    members_.assign(blobs.size(), {});
    for (std::size_t b = 0; b < blobs.size(); ++b)
        if (owner_[b] >= 0) members_[b].push_back(owner_[b]);
    for (std::size_t m = 0; m < movers_.size(); ++m) {
        Mover& mover = movers_[m];
        if (!mover.confirmed || mover.blob >= 0) continue;
        const Box place = mover.box();
        std::int64_t most = 0;
        std::size_t best = 0;
        for (std::size_t b = 0; b < blobs.size(); ++b) {
            const std::int64_t common = commonArea(place, blobs[b].box);
            if (owner_[b] < 0 || common <= most) continue;
            most = common;
            best = b;
        }
        if (most == 0 || static_cast<double>(most) < kGroupInside * static_cast<double>(areaOf(place))) continue;
        Mover& owner = movers_[static_cast<std::size_t>(owner_[best])];
        const double owned = owner.width * owner.height;
        if (static_cast<double>(areaOf(blobs[best].box)) >= kGroupLarger * owned) {
            mover.hidden = 0;
        } else if (!mover.grouped || !owner.grouped || mover.hidden > kHiddenSeconds) {
            continue;
        } else {
            mover.hidden += seconds;
        }
        if (isPieceOf(mover, owner, blobs[best].box)) {
            absorb(owner, mover);
            continue;
        }
        mover.blob = static_cast<int>(best);
        members_[best].push_back(static_cast<int>(m));
    }
    for (Mover& mover : movers_)
        if (mover.blob >= 0) mover.grouped = members_[static_cast<std::size_t>(mover.blob)].size() > 1;
}

/// Legs and upper body that were born apart: one above the other, of one width, and together they are the blob.
bool Tracker::isPieceOf(const Mover& piece, const Mover& owner, const Box& blob) const {
    if (!mayBeOne(piece, owner)) return false;
    const Box a = piece.box(), b = owner.box();
    const int across = std::min(a.right(), b.right()) - std::max(a.left, b.left);
    const int along = std::min(a.bottom(), b.bottom()) - std::max(a.top, b.top);
    if (across < kJoinOverlap * std::min(a.width, b.width)) return false;
    if (along > kStackedOverlapY * std::min(a.height, b.height)) return false;
    return blob.width < kPieceWidth * std::max(a.width, b.width) && blob.height > blob.width;
}

/// Parts of a broken thing: an unowned blob inside of a track's prediction is seen with the track's own.
void Tracker::addPieces(std::span<const Blob> blobs) {
    for (std::size_t b = 0; b < blobs.size(); ++b) {
        if (owner_[b] != kFree) continue;
        for (std::size_t m = 0; m < movers_.size(); ++m) {
            const Mover& mover = movers_[m];
            if (!mover.confirmed || mover.blob < 0 || members_[static_cast<std::size_t>(mover.blob)].size() > 1)
                continue;
            const Box place = mover.box();
            if (static_cast<double>(commonArea(place, blobs[b].box)) <
                kPieceInside * static_cast<double>(areaOf(blobs[b].box)))
                continue;
            Box& seen = seen_[static_cast<std::size_t>(mover.blob)];
            const Box whole = unionOf(seen, blobs[b].box);
            if (static_cast<double>(areaOf(whole)) > kPieceArea * mover.width * mover.height) continue;
            seen = whole;
            owner_[b] = kTaken;
            break;
        }
    }
}

namespace {

/// One axis of a sighting: `size` follows, and the centre that belongs to it is returned. A sighting of another size
/// than usual is a part of the thing or has something beside it; then the edge that is nearer to where it was expected
/// tells the place.
double sightAlong(double centre, double& size, double& odd, double low, double length, double seconds) {
    odd = std::abs(length - size) <= kUsualSize * size ? 0 : odd + seconds;
    const bool usual = odd == 0 || odd > kOddSeconds;
    const double tau = usual ? kSizeSeconds : kOddSizeSeconds, keep = tau / (tau + seconds);
    const double from_low = low - (centre - size / 2), from_high = low + length - (centre + size / 2);
    size = size * keep + length * (1 - keep);
    if (usual) return low + length / 2;
    return std::abs(from_low) < std::abs(from_high) ? low + size / 2 : low + length - size / 2;
}

}  // namespace

void Tracker::see(Mover& mover, const Box& box, double seconds) {
    if (mover.track.frames <= 1) {
        mover.width = box.width;
        mover.height = box.height;
    }
    const double age = static_cast<double>(mover.track.seen_ns - mover.track.start_ns) / 1e9;
    if (age < kGrownUp || shareInWhole(mover.box(), box) > 0) mover.odd_width = mover.odd_height = kOddSeconds;
    const double x = sightAlong(mover.x, mover.width, mover.odd_width, box.left, box.width, seconds);
    const double y = sightAlong(mover.y, mover.height, mover.odd_height, box.top, box.height, seconds);
    moveTo(mover, x, y, seconds);
}

/// Alpha-beta filter; its gains follow from the time between frames.
void Tracker::moveTo(Mover& mover, double x, double y, double seconds) {
    const double alpha = seconds / (kPositionSeconds + seconds), beta = alpha * alpha / (2 - alpha);
    const double dx = x - mover.x, dy = y - mover.y, gap = seconds + mover.missed;
    if (mover.track.frames <= 1) {  // the second sighting gives the speed
        mover.vx = dx / gap;
        mover.vy = dy / gap;
        mover.x = x;
        mover.y = y;
        return;
    }
    mover.x += alpha * dx;
    mover.y += alpha * dy;
    mover.vx += beta * dx / gap;
    mover.vy += beta * dy / gap;
}

/// Members keep their sizes. The outermost take the blob's edges, the others move on inside of it.
void Tracker::moveGroup(const Box& blob, std::span<const int> members, double seconds) {
    const auto at = [&](int index) -> Mover& { return movers_[static_cast<std::size_t>(index)]; };
    int leftmost = members[0], rightmost = members[0], top = members[0], bottom = members[0];
    for (const int index : members) {
        const Mover& one = at(index);
        if (one.x - one.width / 2 < at(leftmost).x - at(leftmost).width / 2) leftmost = index;
        if (one.x + one.width / 2 > at(rightmost).x + at(rightmost).width / 2) rightmost = index;
        if (one.y - one.height / 2 < at(top).y - at(top).height / 2) top = index;
        if (one.y + one.height / 2 > at(bottom).y + at(bottom).height / 2) bottom = index;
    }
    const auto place = [](double centre, double size, double from, double to, bool low, bool high) {
        const double least = from + size / 2, most = to - size / 2;
        if (low && !high) return least;
        if (high && !low) return most;
        if (least > most) return (from + to) / 2;
        return std::clamp(centre, least, most);
    };
    const double keep = kSizeSeconds / (kSizeSeconds + seconds);
    for (const int index : members) {
        Mover& one = at(index);
        // Nobody is larger than the blob that holds him: it leaves the picture, or his size was wrong.
        one.width = std::min(one.width, one.width * keep + blob.width * (1 - keep));
        one.height = std::min(one.height, one.height * keep + blob.height * (1 - keep));
        const double x = place(one.x, one.width, blob.left, blob.right(), index == leftmost, index == rightmost);
        const double y = place(one.y, one.height, blob.top, blob.bottom(), index == top, index == bottom);
        moveTo(one, x, y, seconds);
        one.track.merged_with = at(members[0]).track.number;
    }
}

}  // namespace fleifeisa::host
