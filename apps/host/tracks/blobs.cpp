#include "tracks/blobs.h"

#include <algorithm>

#include "tracks/constants.h"

namespace fleifeisa::host {

std::int64_t commonArea(const Box& a, const Box& b) {
    const std::int64_t width = std::int64_t{std::min(a.right(), b.right())} - std::max(a.left, b.left);
    const std::int64_t height = std::int64_t{std::min(a.bottom(), b.bottom())} - std::max(a.top, b.top);
    return width <= 0 || height <= 0 ? 0 : width * height;
}

Box unionOf(const Box& a, const Box& b) {
    const int left = std::min(a.left, b.left), top = std::min(a.top, b.top);
    return {left, top, std::max(a.right(), b.right()) - left, std::max(a.bottom(), b.bottom()) - top};
}

bool areStacked(const Box& a, const Box& b) {
    const int across = std::min(a.right(), b.right()) - std::max(a.left, b.left);
    if (across < kJoinOverlap * std::min(a.width, b.width)) return false;
    const int gap = std::max(a.top, b.top) - std::min(a.bottom(), b.bottom());
    const Box whole = unionOf(a, b);
    if (gap > kJoinGap * whole.height) return false;
    // Two cars behind each other are no person: both lie wide, and together they would stand.
    const auto lies = [](const Box& box) { return box.width > kLyingAspect * box.height; };
    return !(gap > -kJoinGap * whole.height && lies(a) && lies(b) && whole.height > whole.width);
}

namespace {

/// Bounding box and pixels of the part of a component from column `from` to column `to`, without it.
Blob partOf(const Component& one, int from, int to) {
    Blob part;
    int left = to, right = from, top = one.box.bottom(), bottom = one.box.top;
    for (const Run& run : one.runs) {
        const int begin = std::max(run.begin, from), end = std::min(run.end, to);
        if (begin >= end) continue;
        left = std::min(left, begin);
        right = std::max(right, end);
        top = std::min(top, run.y);
        bottom = std::max(bottom, run.y + 1);
        part.pixels += end - begin;
    }
    part.box = {left, top, std::max(0, right - left), std::max(0, bottom - top)};
    return part;
}

}  // namespace

void splitPeople(const Component& one, std::vector<Blob>& blobs) {
    const int width = one.box.width;
    const Blob whole{one.box, one.pixels};
    if (width < 8 || one.box.height < kSplitAspect * 4) {
        blobs.push_back(whole);
        return;
    }
    // Pixels in each column, smoothed over an eighth of the width on both sides.
    std::vector<int> counts(static_cast<std::size_t>(width) + 1), smooth(static_cast<std::size_t>(width));
    for (const Run& run : one.runs) {
        ++counts[static_cast<std::size_t>(run.begin - one.box.left)];
        --counts[static_cast<std::size_t>(run.end - one.box.left)];
    }
    for (std::size_t x = 1; x < counts.size(); ++x) counts[x] += counts[x - 1];
    const int reach = std::max(1, width / 16);
    for (int x = 0; x < width; ++x) {
        int sum = 0, n = 0;
        for (int i = std::max(0, x - reach); i <= std::min(width - 1, x + reach); ++i, ++n)
            sum += counts[static_cast<std::size_t>(i)];
        smooth[static_cast<std::size_t>(x)] = sum * 16 / n;
    }
    // The deepest valley: lowest against the lower of the highest columns on both sides.
    std::vector<int> after(smooth);  // highest from here to the right
    for (std::size_t x = after.size() - 1; x-- > 0;) after[x] = std::max(after[x], after[x + 1]);
    int before = 0, best = -1;
    double depth = kSplitValley;
    for (std::size_t x = 0; x < smooth.size(); ++x) {
        before = std::max(before, smooth[x]);
        const int summit = std::min(before, after[x]);
        if (summit == 0 || static_cast<double>(smooth[x]) >= depth * summit) continue;
        depth = static_cast<double>(smooth[x]) / summit;
        best = static_cast<int>(x);
    }
    if (best > 0) {
        const int cut = one.box.left + best;
        const Blob a = partOf(one, one.box.left, cut), b = partOf(one, cut, one.box.right());
        const auto upright = [](const Blob& part) {
            return part.box.width > 0 && part.box.height >= kSplitAspect * part.box.width;
        };
        if (upright(a) && upright(b)) {
            blobs.push_back(a);
            blobs.push_back(b);
            return;
        }
    }
    blobs.push_back(whole);
}

}  // namespace fleifeisa::host
