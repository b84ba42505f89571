// The plain kernels: the reference that every other version equals.
#include <climits>
#include <initializer_list>

#include "vision/kernels/kernels.h"
#include "vision/kernels/row_loops.h"

namespace kernels {

void ListCandidates(const ClusterSet& set, bool gray, CandidateList& list) {
    int n = 0;
    for (int j = 0; j < set.n; j++) {
        const int r = set.mean[0][j], g = gray ? 0 : set.mean[1][j], b = gray ? 0 : set.mean[2][j];
        for (const int v : {r, g, b})
            if (v < kLowest || v > kHighest || set.support[j] < 1) {
                list.n = -1;
                return;
            }
        if (set.support[j] <= kMinSupport) continue;
        list.constant[n] = 31 - n - 32 * (r * r + g * g + b * b);
        list.rb[n] = static_cast<std::int32_t>((static_cast<std::uint32_t>(64 * r) & 0xffff) |
                                               (static_cast<std::uint32_t>(64 * b) << 16));
        list.g[n] = static_cast<std::int16_t>(64 * g);
        n++;
    }
    list.n = n;
}

namespace {

int LowHalf(std::int32_t v) {
    return static_cast<std::int16_t>(v & 0xffff);
}

// Quadrant of pixel i of a cell, row by row.
int Quadrant(int i) {
    return (i >> 3) * 2 + ((i >> 1) & 1);
}

void LoadPixels(const unsigned char* rgb, std::size_t stride, int n, PixelBlock* px) {
    for (int j = 0; j < n; j++, rgb += 12)
        for (std::size_t r = 0; r < 4; r++)
            for (std::size_t c = 0; c < 4; c++) {
                const unsigned char* p = rgb + r * stride + 3 * c;
                px[j].p[4 * r + c] = p[0] | std::uint32_t{p[1]} << 8 | std::uint32_t{p[2]} << 16;
            }
}

Outcome CompareCell(const PixelBlock& px, const CandidateList* const (&lists)[5], const ComparisonRow& row, int j) {
    int total = 0;
    for (const CandidateList* list : lists) {
        if (list->n < 0) return kUnfit;
        total += list->n;
    }
    if (total == 0) return kWithout;
    QuadrantSums q{};
    for (int i = 0; i < kPixels; i++) {
        const int r = px.p[i] & 255, g = px.p[i] >> 8 & 255, b = px.p[i] >> 16 & 255;
        int best = INT_MIN, before = 0, dr = 0, dg = 0, db = 0;
        for (const CandidateList* list : lists) {
            for (int c = 0; c < list->n; c++) {
                const int wr = LowHalf(list->rb[c]), wb = list->rb[c] >> 16, wg = list->g[c];
                const int score = wr * r + wb * b + wg * g + list->constant[c] - before;
                if (score <= best) continue;
                best = score;
                dr = wr / 64 - r;
                dg = wg / 64 - g;
                db = wb / 64 - b;
            }
            before += list->n;
        }
        const std::size_t to = static_cast<std::size_t>(i >> 2) * row.width + static_cast<std::size_t>(4 * j + (i & 3));
        row.planes[0][to] = static_cast<std::int16_t>(dr);
        if (row.planes[1] != nullptr) row.planes[1][to] = static_cast<std::int16_t>(dg);
        if (row.planes[2] != nullptr) row.planes[2][to] = static_cast<std::int16_t>(db);
        q.Add(Quadrant(i), dr, dg, db);
    }
    StoreQuadrants(row, j, q);
    return kCompared;
}

void Compare(const ComparisonRow& row) {
    for (int j = 0; j < row.n; j++) {
        const CandidateList* const lists[5] = {row.own + j, row.above + j + 1, row.above + j, row.below + j,
                                               row.below + j + 1};
        row.outcome[j] = CompareCell(row.px[j], lists, row, j);
    }
}

void Sums(const PixelBlock& px, QuadrantSums& q) {
    q = {};
    for (int i = 0; i < kPixels; i++) q.Add(Quadrant(i), px.p[i] & 255, px.p[i] >> 8 & 255, px.p[i] >> 16 & 255);
}

}  // namespace

const Table scalar{"scalar", LoadPixels, Compare, ClusterPlainly, MaintainPlainly, Sums, Add, Measure, Derive};

}  // namespace kernels
