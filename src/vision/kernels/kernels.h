// The hot loops of a frame, in one version per instruction set. Every version gives the same bits as the plain code in
// BackgroundQueries.cpp, CellClustering.cpp and ClusterMaintenance.cpp (kernels_test drives each against it).
//
// How the nearest of several clusters is found. For a pixel p, the cluster c that is nearest by squared distance
// |p - c|^2 = |p|^2 - (2 p.c - |c|^2) is the one with the largest score 2 p.c - |c|^2: two 16-bit multiply-adds per
// cluster. Scaled by 32, a score leaves room below it for the cluster's place in the order of the query, so that a
// plain maximum also settles ties. Channels of a cluster must lie in kLowest .. kHighest for this to be exact; where
// one does not, the plain code takes over.
#pragma once

#include <cstddef>
#include <cstdint>

namespace kernels {

// Means stray from 0..255 by at most half a channel's range in practice (forgetting subtracts rounded means). Within
// these bounds weights fit 16 bits, and no distance reaches the limit of a million at which a query ignores a cluster.
constexpr int kLowest = -256, kHighest = 511;

// Largest cluster radius that they take: squared, and plain for gray.
constexpr int kMostColor = 32767, kMostGray = 181;

constexpr int kPixels = 16;   // of a whole 4 x 4 cell, row by row
constexpr int kFrames = 4;    // of a cell's pixels make its 64 samples
constexpr int kClusters = 6;  // most clusters of a cell

constexpr int kMaxSupport = 512;  // of a cluster, in samples
constexpr int kMinSupport = 128;  // clusters with more support than this qualify for queries

// Difference between two pairs of values, second minus first: the derivative of a cell by its diagonal neighbours.
// constexpr and only on integers, so that it is inlined wherever vector code uses it.
__attribute__((always_inline)) constexpr int Slope(int first, int first2, int second, int second2) {
    return (second + second2) - (first + first2);
}

// 16 pixels: bytes R, G, B and one that is ignored.
struct alignas(64) PixelBlock {
    std::uint32_t p[kPixels];
};

// The clusters of a cell, channel by channel (red, green, blue). The values are those of KsBackgroundCell; slots from n
// on are stale. Infrared sets leave green and blue alone. Two cache lines: vector kernels read eight slots of a member
// and with them the first bytes of the next one, so the order of the members counts.
struct alignas(64) ClusterSet {
    std::int32_t sum[3][kClusters];
    std::int16_t mean[3][kClusters];
    std::int16_t support[kClusters];
    std::uint8_t added[kClusters];
    std::int16_t n;
};
static_assert(sizeof(ClusterSet) == 128);

// The clusters of one cell that qualify for queries (support above 128), in order. A cell fits the kernels if all its
// clusters in use, not only these, have means within the bounds and support. One cache line; the order counts here too.
struct alignas(64) CandidateList {
    std::int32_t constant[kClusters];  // 31 - place - 32 |c|^2
    std::int32_t rb[kClusters];        // 64 R in the low, 64 B in the high 16 bits
    std::int16_t g[kClusters];         // 64 G
    std::int32_t n;                    // -1: the cell does not fit, use the plain code
};
static_assert(sizeof(CandidateList) == 64);

// Cells with their 64 samples each, to be clustered or maintained. Their lists are brought up to date with them.
struct CellRun {
    int n;
    const int* cells;  // the j-th cell's clusters are sets[cells[j]], its list is lists[cells[j]]
    ClusterSet* sets;
    CandidateList* lists;
    const PixelBlock* samples;  // samples[i * stride + j]: of the j-th cell, from the i-th of four frames
    std::size_t stride;
};

// Sums over the four quadrants (upper left, upper right, lower left, lower right), channels red, blue, green, 0.
struct alignas(32) QuadrantSums {
    std::int16_t q[4][4];

    void Add(int quadrant, int r, int g, int b) {
        std::int16_t* s = q[quadrant];
        s[0] = static_cast<std::int16_t>(s[0] + r);
        s[1] = static_cast<std::int16_t>(s[1] + b);
        s[2] = static_cast<std::int16_t>(s[2] + g);
    }
};

// What becomes of a main cell in a comparison.
enum Outcome : std::uint8_t {
    kCompared,
    kWithout,  // no cluster around qualifies: nothing was written
    kUnfit     // a list around is out of bounds: nothing was written
};

// A row of whole main cells, to be compared with the clusters around them.
struct ComparisonRow {
    int n;                       // cells
    const PixelBlock* px;        // their pixels
    const CandidateList* own;    // their lists
    const CandidateList* above;  // lists of the shifted cells above: those of cell j are above[j] (left), above[j + 1]
    const CandidateList* below;  // the same below
    std::int16_t* planes[3];     // red, green, blue: difference of the row's first pixel; green and blue null for gray
    std::size_t width;           // of the planes
    std::int16_t* sums[3];       // the same: quadrant sums of the differences, two a row and two rows a cell
    std::size_t sums_width;
    Outcome* outcome;
};

struct Table {
    const char* name;
    // The pixels of n whole 4 x 4 cells side by side from an RGB frame: `rgb` is the upper left pixel of the first,
    // `stride` the bytes of a row. Nothing behind the last cell's pixels is read.
    void (*load)(const unsigned char* rgb, std::size_t stride, int n, PixelBlock* px);
    // Per pixel, cluster minus pixel of the nearest candidate among five lists: own, up-right, up-left, down-left,
    // down-right, the earlier one on a tie.
    void (*compare)(const ComparisonRow& row);
    // ClusterCell. `draw` is the model's generator, called for every starting centre and redraw, cell by cell. `gray`
    // takes the red channel alone. maxdist is 0 .. kMostColor or kMostGray.
    void (*cluster)(const CellRun& run, int maxdist, bool gray, long (*draw)());
    // UpdateCellClusters and, with `forget`, ForgetUnsupportedClusters. Returns how many cells it maintained: the
    // vector versions stop before the first one that does not fit or has no clusters.
    int (*maintain)(const CellRun& run, int maxdist, bool gray, bool forget);
    // Quadrant sums of the pixels themselves.
    void (*sums)(const PixelBlock& px, QuadrantSums& q);
    // Sums of n cells of a row, of one channel, from two rows of quadrant sums: those of cell j are 2 j and 2 j + 1.
    void (*add)(const std::int16_t* upper, const std::int16_t* lower, int n, int* sums);
    // Difference measure of n cells from their channel sums: the length of the vector, truncated. Adds the measures to
    // `total` and their squares to `squares`.
    void (*measure)(const int* r, const int* g, const int* b, int n, double* diff, double& total, double& squares);
    // Squared derivatives, over all channels (red, green, blue), of n cells of a row. Cell j lies between cells j and
    // j + 1 of the rows above and below it in the other lattice.
    void (*derive)(const int* const* up, const int* const* down, int n, double* squares);
};

// The best version for this processor, or the one that $FLEIFEISA_KERNELS names (scalar, sse2, avx2, avxvnni, avx512,
// neon).
// A name that is unknown, or that the processor cannot run, is reported once on standard error and ignored.
const Table& Active();

// Every version that this processor can run, the plain one first, ending with null.
const Table* const* Available();

extern const Table scalar;

// `cluster` and `maintain` of the plain version, cell by cell: the reference. They are the background model's own code
// and stand with it (ClusterSets.cpp).
void ClusterPlainly(const CellRun& run, int maxdist, bool gray, long (*draw)());
int MaintainPlainly(const CellRun& run, int maxdist, bool gray, bool forget);

// Builds the candidate list of a cell.
void ListCandidates(const ClusterSet& set, bool gray, CandidateList& list);

}  // namespace kernels
