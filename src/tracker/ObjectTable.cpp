// The table of observed objects: handing out cells, ageing, releasing.
#include <algorithm>
#include <unordered_map>

#include "tracker/frameindex.h"
#include "tracker/kscolortracker.h"

// Frees the record at a position of usedob. The last entry moves into the position, so the caller examines it again.
void ColorDiffTracker::ReleaseRecord(int position) {
    Object& ob = Ob[usedob[position]];
    ob.id = 0;
    G->ReturnNodes(ob.fnode);  // a record whose cell stood twice in usedob may own none any more
    ob.fnode = nullptr;
    usedob[position] = usedob[--numobjects];
}

int ColorDiffTracker::NextFreeObjectCell(int framenum) {
    for (int i = 0; i < numobjects;) {
        if (Ob[usedob[i]].framenum + kMaxAge < framenum)
            ReleaseRecord(i);
        else
            i++;
    }
    int k = 0;
    while (k < kMaxObjects && Ob[k].id != 0) k++;
    return HandOut(k);
}

// The same within a detection frame, where CleanObjectList has just done the ageing.
int ColorDiffTracker::TakeObjectCell() {
    const int k = HandOut(index->FirstFree());
    if (k != kMaxObjects) index->Place(numobjects - 1);
    return k;
}

int ColorDiffTracker::HandOut(int k) {
    if (numobjects >= kMaxUsed || k == kMaxObjects) return kMaxObjects;
    // A record with id 0 left its cell free while still owning a contour.
    G->ReturnNodes(Ob[k].fnode);
    Ob[k].fnode = nullptr;
    usedob[numobjects++] = k;
    handed_out = std::max(handed_out, k + 1);
    return k;
}

void ColorDiffTracker::CleanObjectList(int framenum) {
    // The latest frame of every id in use.
    std::unordered_map<int, int> lastframe;
    for (int i = 0; i < numobjects; i++) {
        const Object& ob = Ob[usedob[i]];
        const auto [found, fresh] = lastframe.try_emplace(ob.id, ob.framenum);
        if (!fresh) found->second = std::max(found->second, ob.framenum);
    }
    // Deliberate: driven by the id's newest record but each record's own numframes, so a track survives a gap no
    // longer than it has been followed, and its older records go before its newer ones
    // (ObjectTable.CleanObjectList).
    for (int i = 0; i < numobjects;) {
        const Object& ob = Ob[usedob[i]];
        const auto found = lastframe.find(ob.id);
        const int last = found == lastframe.end() ? ob.framenum : found->second;
        if (last + ob.numframes < framenum || framenum > ob.framenum + kMaxAge)
            ReleaseRecord(i);
        else
            i++;
    }
}
