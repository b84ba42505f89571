// The plain kernels: the reference that every other version equals.
#include <climits>

#include "backgroundmodel.h"
#include "kernels.h"
#include "row_loops.h"

namespace kernels {

void ListCandidates(const KsBackgroundCell& cell, bool gray, CandidateList& list) {
    int n = 0;
    for (int j = 0; j < cell.nclusters; j++) {
        const int r = cell.clusters[j].R, g = gray ? 0 : cell.clusters[j].G, b = gray ? 0 : cell.clusters[j].B;
        for (const int v : {r, g, b})
            if (v < kLowest || v > kHighest || cell.support[j] < 1) {
                list.n = -1;
                return;
            }
        if (cell.support[j] <= KsBackgroundCell::kMinSupport) continue;
        const std::uint32_t rb =
            (static_cast<std::uint32_t>(2 * r) & 0xffff) | (static_cast<std::uint32_t>(2 * b) << 16);
        list.c[n++] = {-(r * r + g * g + b * b), static_cast<std::int32_t>(rb), (2 * g) & 0xffff};
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

void LoadPixels(const unsigned char* rgb, std::size_t stride, PixelBlock& px) {
    for (int r = 0; r < 4; r++, rgb += stride)
        for (int c = 0; c < 4; c++)
            px.p[4 * r + c] = rgb[3 * c] | static_cast<std::uint32_t>(rgb[3 * c + 1]) << 8 |
                              static_cast<std::uint32_t>(rgb[3 * c + 2]) << 16;
}

void Nearest(const PixelBlock& px, const CandidateList* const* lists, int nlists, DifferenceBlock& d, QuadrantSums& q) {
    q = {};
    for (int i = 0; i < kPixels; i++) {
        const int r = px.p[i] & 255, g = px.p[i] >> 8 & 255, b = px.p[i] >> 16 & 255;
        int best = INT_MIN, dr = 0, dg = 0, db = 0;
        for (int l = 0; l < nlists; l++)
            for (int j = 0; j < lists[l]->n; j++) {
                const CandidateList::Candidate& c = lists[l]->c[j];
                const int wr = LowHalf(c.rb), wb = c.rb >> 16, wg = LowHalf(c.g);
                const int score = wr * r + wb * b + wg * g + c.constant;
                if (score <= best) continue;
                best = score;
                dr = wr / 2 - r;
                dg = wg / 2 - g;
                db = wb / 2 - b;
            }
        d.r[i] = static_cast<std::int16_t>(dr);
        d.g[i] = static_cast<std::int16_t>(dg);
        d.b[i] = static_cast<std::int16_t>(db);
        q.Add(Quadrant(i), dr, dg, db);
    }
}

void Sums(const PixelBlock& px, QuadrantSums& q) {
    q = {};
    for (int i = 0; i < kPixels; i++) q.Add(Quadrant(i), px.p[i] & 255, px.p[i] >> 8 & 255, px.p[i] >> 16 & 255);
}

void Maintain(KsBackgroundCell& cell, int maxdist, bool gray) {
    if (gray)
        cell.UpdateCellClustersGray(maxdist);
    else
        cell.UpdateCellClusters(maxdist);
}

}  // namespace

const Table scalar{"scalar", LoadPixels, Nearest, Maintain, Sums, Measure, Derive};

}  // namespace kernels
