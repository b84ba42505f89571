// Colours, box, area and centre sums of a connected component.
#include <algorithm>
#include <limits>

#include "gridcolordiff.h"
#include "kshistogram.h"
#include "pixelwalk.h"

void KsHistogram::KsBuildColorHistogram(KsColorImage& CI, GridColorDiff* G) {
    const int *div = G->auxdiv, *m16 = G->auxmult16, *m256 = G->auxmult256;
    ForEachPixel(*this, CI.NofR, CI.NofC, [&](int r, int c) {
        KsSetCval(div[CI.Red(r, c)] + m16[div[CI.Green(r, c)]] + m256[div[CI.Blue(r, c)]]);
    });
}

void KsHistogram::KsBuildColorHistogram(KsColorImage& CI, int* CInd) {
    ForEachPixel(*this, CI.NofR, CI.NofC, [&](int r, int c) {
        KsSetCval(CInd[static_cast<std::size_t>(r) * static_cast<std::size_t>(CI.NofC) + static_cast<std::size_t>(c)]);
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
    const auto count = [&](int minr, int maxr, int minc, int maxc) {
        hcomp.KsSetBoxBounds(minr, maxr, minc, maxc);
        ForEachPixel(hcomp, NofR, NofC, [&](int r, int c) {
            rc += r;
            cc += c;
        });
        hcomp.KsBuildColorHistogram(CI, this);
        area += h * h;  // Deliberate: a full quadrant, even where the frame's edge clips it
    };
    const auto in_component = [&](int k) { return k >= 0 && label[k] == lab; };
    for (const int i : CellsOf(lab)) {
        const CellBox cell = Box(i);
        labconf = labelconf[lab];
        r0 = std::min(r0, cell.minr);
        r1 = std::max(r1, cell.maxr);
        c0 = std::min(c0, cell.minc);
        c1 = std::max(c1, cell.maxc);
        const int upper = std::min(cell.maxr, cell.minr + h - 1), left = std::min(cell.maxc, cell.minc + h - 1);
        if (!in_component(n[i].n[5])) count(cell.minr, upper, cell.minc, left);
        if (!in_component(n[i].n[4])) count(cell.minr, upper, cell.minc + h, cell.maxc);
        count(cell.minr + h, cell.maxr, cell.minc, left);
        count(cell.minr + h, cell.maxr, cell.minc + h, cell.maxc);
    }
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
