// The checks of Invariants.h. They read the grid and the model by value only and know nothing of how these are stored.
#include "tracker/Invariants.h"

#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "vision/grid/gridprivate.h"

namespace {

std::string At(const char* what, int index) {
    return std::string(what) + " " + std::to_string(index);
}
std::string Value(const char* what, long long v) {
    return std::string(what) + " = " + std::to_string(v);
}

bool Within(long long v, long long lo, long long hi) {
    return v >= lo && v <= hi;
}

// Every label 1 .. count is carried by some cell, and no other.
std::string LabelViolation(const char* name, const int* labels, int cnum, int count) {
    if (!Within(count, 0, cnum)) return Value(name, count) + " labels";
    std::vector<bool> seen(static_cast<std::size_t>(count) + 1);
    for (int k = 0; k < cnum; k++) {
        const int label = labels[k];
        if (!Within(label, 0, count)) return At("cell", k) + ": " + Value(name, label) + " out of range";
        seen[static_cast<std::size_t>(label)] = true;
    }
    for (int label = 1; label <= count; label++)
        if (!seen[static_cast<std::size_t>(label)]) return Value(name, label) + " is carried by no cell";
    return "";
}

// Confidences are 0..1. They are not numbers only where a threshold is not: thresholds become so on a grid of one cell
// or through a parameter that is no finite number, and stay so.
std::string ConfidenceViolation(const ColorDiffTracker& T) {
    const bool numbers = !std::isnan(T.clt) && !std::isnan(T.cht);
    for (int k = 0; k < T.G->cnum; k++) {
        const double conf = T.G->conf[k], der_conf = T.G->der_conf[k];
        if (!(conf >= 0 && conf <= 1) && (numbers || !std::isnan(conf)))
            return At("cell", k) + ": conf = " + std::to_string(conf);
        if (!(der_conf >= 0 && der_conf <= 1)) return At("cell", k) + ": der_conf = " + std::to_string(der_conf);
    }
    return "";
}

// A mean is the rounded mean of its sum, taken when the cluster was last settled. Forgetting then takes k = 1 or 2 off
// the support and k times the mean off the sum, once at most before the next settling, and leaves the mean: so the
// relation holds for the values from before, sum + k * mean over support + k. (Merging at the ceiling changes the sum
// in the same way, but is always followed by a settling.)
bool MeanFits(long long sum, int mean, int support) {
    for (int k = 0; k <= 2 && support + k <= KsBackgroundCell::kMaxSupport; k++) {
        const long long s = sum + static_cast<long long>(k) * mean, n = support + k;
        if ((s + n / 2) / n == mean) return true;
    }
    return false;
}

std::string ClusterViolation(const KsBackgroundCell& cell, ImageType type, int k, int j) {
    const int support = cell.support[j], added = cell.added[j];
    const auto where = [&] { return At("background cell", k) + ", " + At("cluster", j) + ": "; };
    // Clustering leaves no empty cluster, and maintenance and forgetting remove those that become so.
    if (!Within(support, 1, KsBackgroundCell::kMaxSupport)) return where() + Value("support", support);
    if (!Within(added, 0, KsBackgroundCell::kMaxSamples)) return where() + Value("added", added);
    const struct {
        long long sum;
        int mean;
    } channels[] = {{cell.clustersum[j].R, cell.clusters[j].R},
                    {cell.clustersum[j].G, cell.clusters[j].G},
                    {cell.clustersum[j].B, cell.clusters[j].B}};
    for (int c = 0; c < (type == COLOR ? 3 : 1); c++)
        if (!MeanFits(channels[c].sum, channels[c].mean, support))
            return where() + At("channel", c) + ": " + Value("sum", channels[c].sum) + ", " +
                   Value("support", support) + " do not give " + Value("mean", channels[c].mean);
    return "";
}

std::string ModelViolation(const BackgroundModel& B) {
    // A store that has no room for the next frame's samples has been clustered and emptied.
    const int most = KsBackgroundCell::kMaxSamples - B.cellsize * B.cellsize;
    for (int k = 0; k < B.cnum; k++) {
        const KsBackgroundCell cell = B.cd[k];
        const int nsamples = cell.nsamples, nclusters = cell.nclusters;
        if (!Within(nsamples, 0, most)) return At("background cell", k) + ": " + Value("nsamples", nsamples);
        if (!Within(nclusters, 0, KsBackgroundCell::kMaxClusters))
            return At("background cell", k) + ": " + Value("nclusters", nclusters);
        for (int j = 0; j < nclusters; j++)
            if (const std::string v = ClusterViolation(cell, B.CIr, k, j); !v.empty()) return v;
    }
    return "";
}

std::string TableViolation(const ColorDiffTracker& T) {
    if (!Within(T.numobjects, 0, ColorDiffTracker::kMaxUsed)) return Value("numobjects", T.numobjects);
    if (!Within(T.NextTmpObId, 1, ColorDiffTracker::kMaxId)) return Value("NextTmpObId", T.NextTmpObId);
    for (int i = 0; i < T.numobjects; i++) {
        if (!Within(T.usedob[i], 0, ColorDiffTracker::kMaxObjects - 1))
            return At("usedob entry", i) + ": " + Value("cell", T.usedob[i]);
        const Object& ob = T.Ob[T.usedob[i]];
        const std::string where = At("record", T.usedob[i]) + ": ";
        if (!Within(ob.id, 0, ColorDiffTracker::kMaxId)) return where + Value("id", ob.id);
        if (!Within(ob.numparents, 0, Object::kMaxParents)) return where + Value("numparents", ob.numparents);
    }
    return "";
}

}  // namespace

// Accounts for every node of the pool: on the free list or in the contour of one record.
class PoolCensus {
 public:
    explicit PoolCensus(const GridColorDiff& grid) : blocks(grid.own->blocks), seen(blocks.size() * kBlock) {}

    // Counts the nodes of a list. False where one is no node of the pool or stands in a list already; the list is not
    // followed further.
    bool Count(const ContNode* first) {
        for (const ContNode* node = first; node != nullptr; node = node->link) {
            const std::size_t i = IndexOf(node);
            if (i == seen.size() || seen[i] != 0) return false;
            seen[i] = 1;
            counted++;
        }
        return true;
    }
    std::size_t Missing() const { return seen.size() - counted; }

 private:
    static constexpr std::size_t kBlock = GridColorDiff::kPoolBlock;

    // Place among the nodes of all blocks, or their number for a foreign address.
    std::size_t IndexOf(const ContNode* node) {
        const auto address = reinterpret_cast<std::uintptr_t>(node);
        for (std::size_t tried = 0; tried < blocks.size(); tried++, latest = (latest + 1) % blocks.size()) {
            const auto begin = reinterpret_cast<std::uintptr_t>(blocks[latest].get());
            if (address >= begin && address < begin + kBlock * sizeof(ContNode))
                return latest * kBlock + (address - begin) / sizeof(ContNode);
        }
        return seen.size();
    }

    const std::vector<std::unique_ptr<ContNode[]>>& blocks;
    std::vector<std::uint8_t> seen;
    std::size_t counted = 0, latest = 0;
};

namespace {

// Contours are closed, and every node is in exactly one list. The records that own contours all stand in usedob; one
// may stand there twice.
std::string PoolViolation(const ColorDiffTracker& T) {
    PoolCensus census(*T.G);
    if (!census.Count(T.G->FreeNodes)) return "the free list holds a foreign node or one twice";
    std::vector<bool> done(ColorDiffTracker::kMaxObjects);
    for (int i = 0; i < T.numobjects; i++) {
        const int k = T.usedob[i];
        if (done[static_cast<std::size_t>(k)]) continue;
        done[static_cast<std::size_t>(k)] = true;
        const ContNode* first = T.Ob[k].fnode;
        if (first == nullptr) continue;
        if (!census.Count(first)) return At("record", k) + ": its contour holds a foreign node or one of another list";
        const ContNode* last = first;
        while (last->link != nullptr) last = last->link;
        if (last == first || last->r != first->r || last->c != first->c)
            return At("record", k) + ": its contour is not closed";
    }
    if (census.Missing() > 0) return std::to_string(census.Missing()) + " contour nodes are in no list";
    return "";
}

}  // namespace

std::string GeometryViolation(const ColorDiffTracker& T) {
    constexpr int kOpposite[8] = {2, 3, 0, 1, 6, 7, 4, 5};
    const GridColorDiff& G = *T.G;
    for (int k = 0; k < G.cnum; k++)
        for (int slot = 0; slot < 8; slot++) {
            const int m = G.n[k].n[slot];
            if (!Within(m, -1, G.cnum - 1))
                return At("cell", k) + ", " + At("slot", slot) + ": " + Value("neighbour", m);
            if (m < 0) continue;
            if ((m < G.cnum_2) != ((k < G.cnum_2) == (slot < 4)))
                return At("cell", k) + ", " + At("slot", slot) + ": neighbour in the wrong lattice";
            const int back = G.n[m].n[kOpposite[slot]];
            if (back != k) return At("cell", k) + ", " + At("slot", slot) + ": the neighbour leads back elsewhere";
        }
    return "";
}

std::string FrameViolation(const ColorDiffTracker& T) {
    const GridColorDiff& G = *T.G;
    std::string v = LabelViolation("label", G.label, G.cnum, G.numlabel);
    if (v.empty()) v = LabelViolation("prevlabel", G.prevlabel, G.cnum, G.numprevlabel);
    if (v.empty()) v = ConfidenceViolation(T);
    if (v.empty() && T.BT == MULTIPLE) v = ModelViolation(*T.B);
    if (v.empty()) v = TableViolation(T);
    if (v.empty()) v = PoolViolation(T);
    return v;
}

void ReportViolation(const std::string& text, const char* after, int frame) {
    std::fprintf(stderr, "Invariant violated after %s of frame %d: %s\n", after, frame, text.c_str());
    std::abort();
}
