#include "tracks/foreground.h"

#include <algorithm>
#include <cstring>

#include "tracks/constants.h"

namespace fleifeisa::host {

void Foreground::reset(int width, int height) {
    width_ = width;
    height_ = height;
    stride_ = static_cast<std::size_t>(width) + 4;
    mask_.assign(stride_ * (static_cast<std::size_t>(height) + 4), 0);
    other_ = mask_;
    first_ = last_ = 0;
}

std::span<const Component> Foreground::find(SmoothFrame& frame, const Background& background, const TileMap& where,
                                            const TileMap& support, bool shadow_test, int least_pixels) {
    threshold(frame, background, where, shadow_test);
    clean();
    label();
    collect(support, least_pixels);
    return components_;
}

namespace {

/// A shadow keeps the hue and half to all of the brightness: with a = G.B / (B.B + 1), 0.5 < a < 1 and |G - aB| < 10 a.
/// In integers, with p = G.B, q = B.B + 1: |G - aB|^2 = G.G - p^2 / q but for a trifle.
bool isShadow(const SmoothFrame& frame, const Background& background, int x, int y) {
    std::int64_t p = 0, q = 1, g = 0;
    for (int c = 0; c < kChannels; ++c) {
        const std::int64_t now = frame.row(c, y)[x], usual = background.level(c, x, y);
        p += now * usual;
        q += usual * usual;
        g += now * now;
    }
    return q < 2 * p && p < q && g * q * q - p * p * q < 100 * p * p;
}

}  // namespace

void Foreground::threshold(SmoothFrame& frame, const Background& background, const TileMap& where, bool shadow_test) {
    std::fill(mask_.begin() + static_cast<std::ptrdiff_t>(index(-2, first_)),
              mask_.begin() + static_cast<std::ptrdiff_t>(index(-2, last_)), std::uint8_t{0});
    first_ = height_;
    last_ = 0;
    for (int tile_y = 0; tile_y < where.rows(); ++tile_y) {
        const std::uint8_t* tiles = where.row(tile_y);
        const int top = tile_y << kTileBits, bottom = std::min(height_, (tile_y + 1) << kTileBits);
        for (int tile = 0; tile < where.columns(); ++tile) {
            if (!tiles[tile]) continue;
            int end = tile;
            while (end < where.columns() && tiles[end]) ++end;
            const int from = tile << kTileBits, to = std::min(width_, end << kTileBits);
            for (int y = top; y < bottom; ++y) {
                frame.need(y);
                std::uint8_t* row = mask_.data() + index(0, y);
                background.compare(frame, y, from, to, row);
                if (!shadow_test) continue;
                for (int x = from; x < to; ++x) {
                    const void* next = std::memchr(row + x, 1, static_cast<std::size_t>(to - x));
                    if (!next) break;
                    x = static_cast<int>(static_cast<const std::uint8_t*>(next) - row);
                    row[x] = !isShadow(frame, background, x, y);
                }
            }
            first_ = std::min(first_, top);
            last_ = std::max(last_, bottom);
            tile = end;
        }
    }
    if (last_ == 0) first_ = 0;
}

namespace {

/// out[x] from three rows of another plane. Never overlapping, which the compiler must be told to take whole vectors.
template <class Value>
void overRow(const std::uint8_t* __restrict above, const std::uint8_t* __restrict here,
             const std::uint8_t* __restrict below, std::uint8_t* __restrict out, int width, Value&& value) {
    for (int x = 0; x < width; ++x) out[x] = static_cast<std::uint8_t>(value(above, here, below, x));
}

}  // namespace

void Foreground::clean() {
    if (first_ == last_) return;
    const int from = std::max(0, first_ - 2), to = std::min(height_, last_ + 2);
    const std::size_t s = stride_;
    const auto each = [&](const std::vector<std::uint8_t>& source, std::vector<std::uint8_t>& target, auto&& value) {
        for (int y = from; y < to; ++y) {
            const std::uint8_t* in = source.data() + index(0, y);
            overRow(in - s, in, in + s, target.data() + index(0, y), width_, value);
        }
    };
    using Row = const std::uint8_t*;
    // Opened with a cross, closed with a square.
    each(mask_, other_, [](Row a, Row p, Row b, int x) { return p[x] & p[x - 1] & p[x + 1] & a[x] & b[x]; });
    each(other_, mask_, [](Row a, Row p, Row b, int x) { return p[x] | p[x - 1] | p[x + 1] | a[x] | b[x]; });
    each(mask_, other_, [](Row, Row p, Row, int x) { return p[x] | p[x - 1] | p[x + 1]; });
    each(other_, mask_, [](Row a, Row p, Row b, int x) { return p[x] | a[x] | b[x]; });
    // Outside of the frame nothing is known: what touches the edge keeps touching it.
    const auto edges = [&](std::vector<std::uint8_t>& plane, bool copy) {
        for (int y = from; y < to; ++y) {
            std::uint8_t* row = plane.data() + index(0, y);
            row[-1] = copy ? row[0] : 0;
            row[width_] = copy ? row[width_ - 1] : 0;
        }
    };
    edges(mask_, true);
    each(mask_, other_, [](Row, Row p, Row, int x) { return p[x] & p[x - 1] & p[x + 1]; });
    edges(mask_, false);
    for (int y = from; y < to; ++y) {
        const std::uint8_t* in = other_.data() + index(0, y);
        const std::uint8_t* above = y > 0 ? in - s : in;
        const std::uint8_t* below = y + 1 < height_ ? in + s : in;
        overRow(above, in, below, mask_.data() + index(0, y), width_,
                [](Row a, Row p, Row b, int x) { return p[x] & a[x] & b[x]; });
    }
    std::fill(other_.begin() + static_cast<std::ptrdiff_t>(index(-2, from)),
              other_.begin() + static_cast<std::ptrdiff_t>(index(-2, to)), std::uint8_t{0});
    first_ = from;
    last_ = to;
}

int Foreground::root(int run) {
    while (parents_[static_cast<std::size_t>(run)] != run) {
        int& parent = parents_[static_cast<std::size_t>(run)];
        parent = parents_[static_cast<std::size_t>(parent)];
        run = parent;
    }
    return run;
}

void Foreground::label() {
    runs_.clear();
    parents_.clear();
    std::size_t above = 0, above_end = 0;  // runs of the row before
    for (int y = first_; y < last_; ++y) {
        const std::uint8_t* row = mask_.data() + index(0, y);
        const std::size_t here = runs_.size();
        for (int x = 0; x < width_;) {
            const void* begin = std::memchr(row + x, 1, static_cast<std::size_t>(width_ - x));
            if (!begin) break;
            const int from = static_cast<int>(static_cast<const std::uint8_t*>(begin) - row);
            const void* end = std::memchr(row + from, 0, static_cast<std::size_t>(width_ - from));
            const int to = end ? static_cast<int>(static_cast<const std::uint8_t*>(end) - row) : width_;
            const int id = static_cast<int>(runs_.size());
            runs_.push_back({y, from, to});
            parents_.push_back(id);
            while (above < above_end && runs_[above].end < from) ++above;
            for (std::size_t k = above; k < above_end && runs_[k].begin <= to; ++k) {
                const int a = root(static_cast<int>(k)), b = root(id);
                parents_[static_cast<std::size_t>(std::max(a, b))] = std::min(a, b);
            }
            x = to;
        }
        above = here;
        above_end = runs_.size();
    }
}

void Foreground::collect(const TileMap& support, int least_pixels) {
    // Components in the order of their first runs; the runs of each stay in reading order.
    components_.clear();
    members_.assign(runs_.size(), 0);
    for (std::size_t i = 0; i < runs_.size(); ++i) {
        const auto first = static_cast<std::size_t>(root(static_cast<int>(i)));
        parents_[i] = static_cast<int>(first);
        members_[first] += 1;
    }
    int place = 0;
    for (int& count : members_) {
        const int size = count;
        count = place;
        place += size;
    }
    ordered_.resize(runs_.size());
    for (std::size_t i = 0; i < runs_.size(); ++i)
        ordered_[static_cast<std::size_t>(members_[static_cast<std::size_t>(parents_[i])]++)] = runs_[i];
    // Now members_[first run] is the end of its component's runs in ordered_.
    std::size_t begin = 0;
    for (std::size_t i = 0; i < runs_.size(); ++i) {
        if (parents_[i] != static_cast<int>(i)) continue;
        const auto end = static_cast<std::size_t>(members_[i]);
        Component one;
        one.runs = std::span(ordered_).subspan(begin, end - begin);
        begin = end;
        int left = width_, right = 0;
        for (const Run& run : one.runs) {
            left = std::min(left, run.begin);
            right = std::max(right, run.end);
            one.pixels += run.end - run.begin;
        }
        if (one.pixels < least_pixels) continue;
        one.box = {left, one.runs.front().y, right - left, one.runs.back().y + 1 - one.runs.front().y};
        for (const Run& run : one.runs) {
            const std::uint8_t* tiles = support.row(run.y >> kTileBits);
            for (int x = run.begin; x < run.end;) {
                const int next = std::min(run.end, ((x >> kTileBits) + 1) << kTileBits);
                if (tiles[x >> kTileBits]) one.supported += next - x;
                x = next;
            }
        }
        components_.push_back(one);
    }
}

}  // namespace fleifeisa::host
