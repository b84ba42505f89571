// Connected components: a flood fill over both lattices from cells that are certainly foreground into cells that are
// only likely so.
#include <algorithm>

#include "gridcolordiff.h"
#include "gridprivate.h"

namespace {

bool Seeds(double conf, double der_conf) {
    return der_conf >= 1.0 || conf >= 1.0;
}

bool Joins(double conf, double der_conf) {
    return der_conf > 0.25 || conf > 0.1 || (der_conf > 0 && conf > 0);
}

}  // namespace

void GridColorDiff::ConnectedComponents() {
    numprevlabel = numlabel;
    std::copy_n(label, cnum, prevlabel);
    std::fill_n(label, cnum, 0);
    numlabel = 0;

    int* const stack = own->stack.data();  // each cell is pushed at most once, so cnum entries suffice
    int* const cells = own->cells.data();
    for (int seed = 0; seed < cnum; seed++) {
        if (label[seed] != 0 || !Seeds(conf[seed], der_conf[seed])) continue;
        label[seed] = ++numlabel;
        double maxconf = conf[seed];
        int numcells = 0, top = 0;
        cells[numcells++] = stack[top++] = seed;
        while (top > 0) {
            const Neighbors& around = n[stack[--top]];
            for (const int k : around.n) {
                if (k < 0 || label[k] != 0 || !Joins(conf[k], der_conf[k])) continue;
                label[k] = numlabel;
                cells[numcells++] = stack[top++] = k;
                maxconf = std::max(maxconf, conf[k]);
            }
        }
        if (maxconf < 1.0) {
            // Deliberate: the cells of a dropped component lose their confidence, so that later stages do not take
            // them for foreground; its number is used again.
            for (int i = 0; i < numcells; i++) {
                label[cells[i]] = 0;
                conf[cells[i]] = 0.0;
            }
            numlabel--;
        } else {
            labelconf[numlabel] = maxconf;
        }
    }
}
