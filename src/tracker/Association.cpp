// Identity from frame to frame: a component continues the track of the previous frame's component that it overlaps
// most.
#include <vector>

#include "tracker/frameindex.h"
#include "tracker/kscolortracker.h"
#include "vision/grid/gridprivate.h"

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
        // Deliberate: the last candidate takes the place, and later ties are broken by the new order
        // (ObjectTable.ParentsByOverlap).
        candidates[best] = candidates.back();
        candidates.pop_back();
    }
}

void ColorDiffTracker::Associate(int k) {
    Object& ob = Ob[k];
    if (ob.numparents < 1) {
        ob.id = NextTmpObId++;
        ob.numframes = 1;
        return;
    }
    const int n = numobjects - 1;  // entries before the new one
    // Deliberate: where the overlapped label has no record (too weak, or frames are not consecutive), the record is
    // its own parent and takes id 0, as long as no other record of this frame did so before
    // (ObjectTable.Association).
    const int parent_at = index->Parent(ob.parents[0], n);
    const Object* parent = parent_at >= 0 ? &Ob[usedob[parent_at]] : &ob;
    const int pid = parent->id;
    const int numframes = parent->numframes + 1;
    const int rival_at = index->Holder(pid, n);
    if (rival_at < 0) {
        ob.id = pid;
    } else if (Object& rival = Ob[usedob[rival_at]]; ob.area > rival.area) {  // a split: the larger part keeps the id
        rival.id = NextTmpObId++;
        ob.id = pid;
        index->Note(rival_at);
    } else {
        ob.id = NextTmpObId++;
    }
    ob.numframes = numframes;
}
