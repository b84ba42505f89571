// Connected components: a flood fill over both lattices from cells that are certainly foreground into cells that are
// only likely so.
#include <algorithm>
#include <utility>

#include "vision/grid/gridcolordiff.h"
#include "vision/grid/gridprivate.h"

namespace {

bool Seeds(double conf, double der_conf) {
    return (der_conf >= 1.0) | (conf >= 1.0);
}

bool Joins(double conf, double der_conf) {
    return der_conf > 0.25 || conf > 0.1 || (der_conf > 0 && conf > 0);
}

constexpr int kDropped = -1;  // label of a dropped component's cells until the frame is labelled

}  // namespace

// The first cell from k on that may start a component; cnum where there is none. Most cells may not, so they are
// looked at in groups.
int GridColorDiff::NextSeed(int k) const {
    constexpr int kStep = 8;
    for (; k + kStep <= cnum; k += kStep) {
        bool any = false;
        for (int i = k; i < k + kStep; i++) any |= Seeds(conf[i], der_conf[i]);
        if (any) break;
    }
    while (k < cnum && !Seeds(conf[k], der_conf[k])) k++;
    return k;
}

void GridColorDiff::ConnectedComponents() {
    own->listed = false;
    numprevlabel = numlabel;
    std::swap(label, prevlabel);
    std::fill_n(label, cnum, 0);
    numlabel = 0;

    int* const stack = own->stack.data();  // each cell is pushed at most once, so cnum entries suffice
    int* const cells = own->cells.data();  // the current component, behind the cells dropped so far
    int dropped = 0;
    for (int seed = NextSeed(0); seed < cnum; seed = NextSeed(seed + 1)) {
        if (label[seed] != 0) continue;
        label[seed] = ++numlabel;
        double maxconf = conf[seed];
        int end = dropped, top = 0;
        cells[end++] = stack[top++] = seed;
        while (top > 0) {
            const Neighbors& around = n[stack[--top]];
            for (const int k : around.n) {
                if (k < 0 || label[k] != 0 || !Joins(conf[k], der_conf[k])) continue;
                label[k] = numlabel;
                cells[end++] = stack[top++] = k;
                maxconf = std::max(maxconf, conf[k]);
            }
        }
        if (maxconf < 1.0) {
            // Deliberate: the cells of a dropped component lose their confidence, so that later stages do not take
            // them for foreground; its number is used again. Another flood from one of them would stay among them and
            // be dropped likewise, so they are left out of the rest of the scan (Components.AgainstPlainLabelling).
            for (; dropped < end; dropped++) {
                label[cells[dropped]] = kDropped;
                conf[cells[dropped]] = 0.0;
            }
            numlabel--;
        } else {
            labelconf[numlabel] = maxconf;
        }
    }
    for (int i = 0; i < dropped; i++) label[cells[i]] = 0;
}

// The cells of a component in cell order. While the labels of a frame stand, they are listed once for all components.
std::span<const int> GridColorDiff::CellsOf(int lab) {
    Storage& s = *own;
    if (!s.listed || lab < 1 || lab > numlabel) {
        int count = 0;
        for (int k = 0; k < cnum; k++)
            if (label[k] == lab) s.cells[static_cast<std::size_t>(count++)] = k;
        return {s.cells.data(), static_cast<std::size_t>(count)};
    }
    const int* first = s.first.data() + lab;
    return {s.members.data() + first[0], static_cast<std::size_t>(first[1] - first[0])};
}

void GridColorDiff::ForgetComponents() {
    own->listed = false;
}

// Counting sort of the labelled cells.
void GridColorDiff::ListComponents() {
    int* const first = own->first.data();
    std::fill_n(first, numlabel + 2, 0);
    int* const found = own->cells.data();
    int count = 0;
    for (int k = 0; k < cnum; k++)
        if (label[k] > 0) {
            found[count++] = k;
            first[label[k]]++;
        }
    for (int l = 1, at = 0; l <= numlabel + 1; l++) at += std::exchange(first[l], at);
    for (int i = 0; i < count; i++) own->members[static_cast<std::size_t>(first[label[found[i]]]++)] = found[i];
    for (int l = numlabel + 1; l > 0; l--) first[l] = first[l - 1];
    first[0] = 0;
    own->listed = true;
}
