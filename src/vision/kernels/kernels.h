// The hot loops over single cells, in one version per instruction set. Every version gives the same bits as the plain
// code in BackgroundQueries.cpp and ClusterMaintenance.cpp (kernels_test drives each against it).
//
// How the nearest of several clusters is found. For a pixel p, the cluster c that is nearest by squared distance
// |p - c|^2 = |p|^2 - (2 p.c - |c|^2) is the one with the largest score 2 p.c - |c|^2: two 16-bit multiply-adds and an
// add per cluster. A list of clusters is therefore kept as weights and a constant. Channels of a cluster must lie in
// kLowest .. kHighest for this to be exact; where one does not, the plain code takes over.
#pragma once

#include <cstddef>
#include <cstdint>

class KsBackgroundCell;

namespace kernels {

// Means stray from 0..255 by at most half a channel's range in practice (forgetting subtracts rounded means). Within
// these bounds weights fit 16 bits, and no distance reaches the limit of a million at which a query ignores a cluster.
constexpr int kLowest = -256, kHighest = 511;

constexpr int kPixels = 16;  // of a whole 4 x 4 cell, row by row

// 16 pixels as they stand in a cell's sample store: bytes R, G, B and one that is ignored.
struct alignas(64) PixelBlock {
    std::uint32_t p[kPixels];
};

// The clusters of one cell that qualify for queries, in order. A cell fits the kernels if all its clusters in use, not
// only these, have means within the bounds and support.
struct CandidateList {
    struct Candidate {
        std::int32_t constant;  // -|c|^2
        std::int32_t rb;        // 2 R in the low, 2 B in the high 16 bits
        std::int32_t g;         // 2 G in the low 16 bits
    };
    std::int32_t n;  // -1: the cell does not fit, use the plain code
    Candidate c[6];
};

// Differences (cluster minus pixel) of the 16 pixels of a main cell.
struct alignas(32) DifferenceBlock {
    std::int16_t r[kPixels], g[kPixels], b[kPixels];
};

// Sums over the four quadrants (upper left, upper right, lower left, lower right), channels red, blue, green, 0.
struct QuadrantSums {
    std::int16_t q[4][4];

    void Add(int quadrant, int r, int g, int b) {
        std::int16_t* s = q[quadrant];
        s[0] = static_cast<std::int16_t>(s[0] + r);
        s[1] = static_cast<std::int16_t>(s[1] + b);
        s[2] = static_cast<std::int16_t>(s[2] + g);
    }
};

struct Table {
    const char* name;
    // The pixels of a whole 4 x 4 cell from an RGB frame: `rgb` is its upper left pixel, `stride` the bytes of a row.
    void (*load)(const unsigned char* rgb, std::size_t stride, PixelBlock& px);
    // Differences of 16 pixels to the nearest candidate of `nlists` lists, the earlier one on a tie, and their quadrant
    // sums. There is at least one candidate and no list is out of bounds.
    void (*nearest)(const PixelBlock& px, const CandidateList* const* lists, int nlists, DifferenceBlock& d,
                    QuadrantSums& q);
    // UpdateCellClusters of a cell that Fits and holds 64 samples; `gray` takes the red channel alone. maxdist is below
    // 32768 (below 182 for gray).
    void (*maintain)(KsBackgroundCell& cell, int maxdist, bool gray);
    // Quadrant sums of the pixels themselves.
    void (*sums)(const PixelBlock& px, QuadrantSums& q);
    // Difference measure of n cells from their channel sums: the length of the vector, truncated. Adds the measures to
    // `total` and their squares to `squares`.
    void (*measure)(const int* r, const int* g, const int* b, int n, double* diff, double& total, double& squares);
    // Squared derivatives, over all channels (red, green, blue), of n cells of a row. Cell j lies between cells j and
    // j + 1 of the rows above and below it in the other lattice.
    void (*derive)(const int* const* up, const int* const* down, int n, double* squares);
};

// The best version for this processor, or the one that $FLEIFEISA_KERNELS names (scalar, sse2, avx2, avx512, neon).
// A name that is unknown, or that the processor cannot run, is reported once on standard error and ignored.
const Table& Active();

// Every version that this processor can run, the plain one first, ending with null.
const Table* const* Available();

extern const Table scalar;

// Builds the candidate list of a cell: clusters with support above 128.
void ListCandidates(const KsBackgroundCell& cell, bool gray, CandidateList& list);

}  // namespace kernels
