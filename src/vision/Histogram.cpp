// Colours, box, area and centre sums of a connected component.
#include <algorithm>
#include <limits>
#include <new>
#include <utility>

#include "vision/grid/gridcolordiff.h"
#include "vision/grid/gridprivate.h"
#include "vision/kshistogram.h"
#include "vision/pixelwalk.h"

std::int16_t ColorBins::operator[](int bin) const {
    const Entry* const at =
        std::lower_bound(entries, entries + used, bin, [](const Entry& e, int b) { return e.bin < b; });
    return at != entries + used && at->bin == bin ? at->count : std::int16_t{0};
}

void ColorBins::AddTo(Counts& counts) const {
    for (int i = 0; i < used; i++)
        counts[entries[i].bin] = static_cast<std::int16_t>(counts[entries[i].bin] + entries[i].count);
}

void ColorBins::Take(Counts& counts) {
    Entry found[kBins];
    int n = 0;
    constexpr int kStep = 32;  // most of them are 0
    for (int from = 0; from < kBins; from += kStep) {
        int any = 0;
        for (int i = from; i < from + kStep; i++) any |= counts[i];
        if (any == 0) continue;
        for (int i = from; i < from + kStep; i++)
            if (counts[i] != 0) found[n++] = {static_cast<std::uint16_t>(i), std::exchange(counts[i], std::int16_t{0})};
    }
    Assign(found, n);
}

void ColorBins::Assign(const Entry* from, int n) {
    if (n > capacity) {
        void* const room = std::malloc(static_cast<std::size_t>(n) * sizeof(Entry));
        if (room == nullptr) throw std::bad_alloc();
        std::free(entries);
        entries = static_cast<Entry*>(room);
        capacity = n;
    }
    std::copy_n(from, n, entries);
    used = n;
}

namespace {

void CountOne(ColorBins::Counts& counts, int bin) {
    counts[bin] = static_cast<std::int16_t>(counts[bin] + 1);
}

// Has `count` add to the bins.
template <class F>
void AddToBins(ColorBins& bins, F count) {
    ColorBins::Counts counts{};
    bins.AddTo(counts);
    count(counts);
    bins.Take(counts);
}

// Counts the pixels of a box that lie inside the image, row by row; returns their number.
int CountColors(const KsColorImage& CI, int minr, int maxr, int minc, int maxc, ColorBins::Counts& counts) {
    // The grid's tables auxdiv, auxmult16 and auxmult256, as shifts.
    const auto bin = [](const unsigned char* p) { return p[0] >> 4 | (p[1] >> 4) << 4 | (p[2] >> 4) << 8; };
    const int first_r = std::max(minr, 0), rows = std::min(maxr, CI.NofR - 1) - first_r + 1;
    const int first_c = std::max(minc, 0), cols = std::min(maxc, CI.NofC - 1) - first_c + 1;
    if (rows <= 0 || cols <= 0) return 0;
    for (int r = first_r; r < first_r + rows; r++) {
        const unsigned char* p =
            CI.rawsrc +
            (static_cast<std::size_t>(r) * static_cast<std::size_t>(CI.NofC) + static_cast<std::size_t>(first_c)) * 3;
        for (int c = 0; c < cols; c++, p += 3) CountOne(counts, bin(p));
    }
    return rows * cols;
}

}  // namespace

void KsHistogram::KsSetCval(int v) {
    AddToBins(chist, [&](ColorBins::Counts& counts) { CountOne(counts, v); });
    csum++;
}

void KsHistogram::KsBuildColorHistogram(KsColorImage& CI, GridColorDiff*) {
    AddToBins(chist, [&](ColorBins::Counts& counts) { csum += CountColors(CI, minr, maxr, minc, maxc, counts); });
}

void KsHistogram::KsBuildColorHistogram(KsColorImage& CI, const int* CInd) {
    const auto width = static_cast<std::size_t>(CI.NofC);
    AddToBins(chist, [&](ColorBins::Counts& counts) {
        ForEachPixel(*this, CI.NofR, CI.NofC, [&](int r, int c) {
            CountOne(counts, CInd[static_cast<std::size_t>(r) * width + static_cast<std::size_t>(c)]);
            csum++;
        });
    });
}

// Diagonal neighbours of the other lattice share quadrants:
//
//     +----+----+          A cell always counts its two lower quadrants. It counts an upper quadrant only if the
//     | UL | UR |          neighbour that covers it as a lower quadrant of its own (slot 5 for UL, slot 4 for UR) is
//     +----+----+          not in the component. So every shared quadrant is counted once.
//     | LL | LR |
//     +----+----+
int GridColorDiff::BuildHistogramForComponent(KsColorImage& CI, KsHistogram& hcomp, int lab, double& labconf,
                                              long long& rc, long long& cc) {
    rc = cc = 0;
    int area = 0;
    int r0 = 100000, r1 = -1, c0 = 100000, c1 = -1;
    const int h = cellsize_2;
    const auto count = [&](int minr, int maxr, int minc, int maxc, int quadrants) {
        hcomp.csum += CountColors(CI, minr, maxr, minc, maxc, own->counts);
        const long long last_r = std::min(maxr, NofR - 1), last_c = std::min(maxc, NofC - 1);
        const long long nr = std::max(0LL, last_r - minr + 1), nc = std::max(0LL, last_c - minc + 1);
        rc += nc * (nr * (minr + last_r) / 2);
        cc += nr * (nc * (minc + last_c) / 2);
        area += quadrants * h * h;  // Deliberate: full quadrants, even where the frame's edge clips them
        // (Histogram.AgainstAUnionOfQuadrants)
    };
    hcomp.chist.AddTo(own->counts);
    const auto in_component = [&](int k) { return k >= 0 && label[k] == lab; };
    for (const int i : CellsOf(lab)) {
        const CellBox cell = Box(i);
        labconf = labelconf[lab];
        r0 = std::min(r0, cell.minr);
        r1 = std::max(r1, cell.maxr);
        c0 = std::min(c0, cell.minc);
        c1 = std::max(c1, cell.maxc);
        const int upper = std::min(cell.maxr, cell.minr + h - 1), left = std::min(cell.maxc, cell.minc + h - 1);
        const bool upper_left = !in_component(n[i].n[5]), upper_right = !in_component(n[i].n[4]);
        if (upper_left || upper_right)
            count(cell.minr, upper, upper_left ? cell.minc : cell.minc + h, upper_right ? cell.maxc : left,
                  upper_left + upper_right);
        count(cell.minr + h, cell.maxr, cell.minc, cell.maxc, 2);
    }
    hcomp.chist.Take(own->counts);
    hcomp.KsSetBoxBounds(r0, r1, c0, c1);
    return area;
}

int GridColorDiff::BuildHistogramForComponent(KsColorImage& CI, KsHistogram& hcomp, int lab, double& labconf, int& rc,
                                              int& cc) {
    long long rows = 0, cols = 0;
    const int area = BuildHistogramForComponent(CI, hcomp, lab, labconf, rows, cols);
    constexpr long long top = std::numeric_limits<int>::max();
    rc = static_cast<int>(std::min(rows, top));
    cc = static_cast<int>(std::min(cols, top));
    return area;
}
