// Clustering and maintenance of one background cell over an arbitrary sequence of samples and operations, against the
// naive second implementation.
//
// Input: one byte of kind (bit 0 gray, bits 1.. the palette), one of the cluster distance, then operations.
#include <vector>

#include "fuzz/bytes.h"
#include "support/cells.h"

namespace {

// Samples: freely chosen colours, or steps of a few levels, which make ties and empty clusters frequent.
std::array<int, 3> takeSample(Bytes& in, bool gray, int step) {
    std::array<int, 3> s{};
    for (std::size_t c = 0; c < (gray ? 1u : 3u); c++) s[c] = step == 0 ? in.byte() : in.byte() % 4 * step;
    return s;
}

void gather(Bytes& in, KsBackgroundCell& cell, NaiveCell& naive, int step) {
    const int wanted = in.within(1, KsBackgroundCell::kMaxSamples);
    const int repeat = in.within(0, 3) == 0 ? 16 : 1;
    for (int i = 0; i < wanted;) {
        const std::array<int, 3> s = takeSample(in, naive.gray, step);
        for (int r = 0; r < repeat && i < wanted; r++, i++) {
            if (cell.nsamples == KsBackgroundCell::kMaxSamples) return;
            ColorSample& to = cell.cv[cell.nsamples++];
            to.R = static_cast<std::uint8_t>(s[0]);
            to.G = static_cast<std::uint8_t>(s[1]);
            to.B = static_cast<std::uint8_t>(s[2]);
            naive.samples.push_back(s);
        }
    }
}

void compare(const KsBackgroundCell& cell, const NaiveCell& naive, int operation) {
    const std::string difference = cellDifference(cell, naive);
    FUZZ_CHECK(difference.empty(), "operation %d: %s", operation, difference.c_str());
}

void operate(KsBackgroundCell& cell, NaiveCell& naive, int operation, int maxdist) {
    switch (operation) {
        case 0:
            naive.gray ? cell.ClusterCellGray(maxdist) : cell.ClusterCell(maxdist);
            break;
        case 1:
            naive.gray ? cell.UpdateCellClustersGray(maxdist) : cell.UpdateCellClusters(maxdist);
            break;
        case 2:
            naive.gray ? cell.MergeClustersGray(maxdist) : cell.MergeClusters(maxdist);
            break;
        default:
            naive.gray ? cell.ForgetUnsupportedClustersGray() : cell.ForgetUnsupportedClusters();
    }
}

void operateNaive(NaiveCell& naive, int operation, int maxdist) {
    switch (operation) {
        case 0:
            naive.cluster(maxdist);
            break;
        case 1:
            naive.update(maxdist);
            break;
        case 2:
            naive.merge(maxdist);
            break;
        default:
            naive.forget();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes in(data, size);
    const int kind = in.byte();
    const bool gray = (kind & 1) != 0;
    const int step = (kind >> 1) % 3 * 5 * ((kind >> 4) % 4 + 1);
    const int radius = in.within(0, 40), maxdist = gray ? radius : radius * radius;
    KsBackgroundCell cell{};
    NaiveCell naive(gray);
    for (unsigned n = 0; n < 200 && !in.empty(); n++) {
        if (cell.nsamples == 0) gather(in, cell, naive, step);
        const int operation = in.byte() % 8;  // maintenance is the most frequent one
        const int todo = operation > 3 ? 1 : operation;
        const int reach = todo == 2 ? in.byte() * (gray ? 1 : 64) : maxdist;
        if (todo == 0 && cell.nsamples == 0) continue;
        srandom(n);
        operate(cell, naive, todo, reach);
        const long drawn = random();
        srandom(n);
        operateNaive(naive, todo, reach);
        FUZZ_CHECK(drawn == random(), "operation %d drew another number of random values", todo);
        compare(cell, naive, todo);
        if (operation == 7) {  // as in an update of the model
            operate(cell, naive, 3, 0);
            operateNaive(naive, 3, 0);
            compare(cell, naive, 3);
        }
    }
    return 0;
}
