// Identity from frame to frame: a component continues the track of the previous frame's component that it overlaps
// most.
#include <vector>

#include "gridprivate.h"
#include "kscolortracker.h"

void GridColorDiff::FindPotentialParents(Object& COb) {
    struct Candidate {
        int label, cells;
    };
    std::vector<Candidate> candidates;
    own->candidate.resize(static_cast<std::size_t>(numprevlabel) + 1);  // place of a label among them, from 1
    COb.numcells = 0;
    for (const int k : CellsOf(COb.label)) {
        COb.numcells++;
        const int q = prevlabel[k];
        if (q == 0) continue;
        if (static_cast<std::size_t>(q) >= own->candidate.size())
            own->candidate.resize(static_cast<std::size_t>(q) + 1);
        int& place = own->candidate[static_cast<std::size_t>(q)];
        if (place == 0) {
            candidates.push_back({q, 0});
            place = static_cast<int>(candidates.size());
        }
        candidates[static_cast<std::size_t>(place) - 1].cells++;
    }
    for (const Candidate& c : candidates) own->candidate[static_cast<std::size_t>(c.label)] = 0;
    COb.numparents = 0;
    while (!candidates.empty() && COb.numparents < Object::kMaxParents) {
        std::size_t best = 0;
        for (std::size_t i = 1; i < candidates.size(); i++)
            if (candidates[i].cells > candidates[best].cells) best = i;
        COb.parents[COb.numparents] = candidates[best].label;
        COb.dist[COb.numparents] = candidates[best].cells;
        COb.numparents++;
        // Deliberate: the last candidate takes the place, and later ties are broken by the new order.
        candidates[best] = candidates.back();
        candidates.pop_back();
    }
}

void ColorDiffTracker::Associate(int k, int frame) {
    Object& ob = Ob[k];
    if (ob.numparents < 1) {
        ob.id = NextTmpObId++;
        ob.numframes = 1;
        return;
    }
    const int n = numobjects - 1;  // entries before the new one
    const auto find = [&](auto matches) {
        int i = 0;
        while (i < n && !matches(Ob[usedob[i]])) i++;
        return i < n ? &Ob[usedob[i]] : nullptr;
    };
    const Object* parent = find([&](const Object& o) { return o.framenum == frame - 1 && o.label == ob.parents[0]; });
    // Deliberate: where the overlapped label has no record (too weak, or frames are not consecutive), the record is
    // its own parent and takes id 0, as long as no other record of this frame did so before.
    if (parent == nullptr) parent = &ob;
    const int pid = parent->id;
    const int numframes = parent->numframes + 1;
    Object* rival = find([&](const Object& o) { return o.framenum == frame && o.id == pid; });
    if (rival == nullptr) {
        ob.id = pid;
    } else if (ob.area > rival->area) {  // the track splits: the larger part keeps the id
        rival->id = NextTmpObId++;
        ob.id = pid;
    } else {
        ob.id = NextTmpObId++;
    }
    ob.numframes = numframes;
}
