// The trace of a detection frame on standard output, written while DEBUG is set.
#include <iostream>

#include "tracker/kscolortracker.h"

void ColorDiffTracker::TraceRecord(const Object& ob) const {
    std::cout << "BB: (" << ob.h.minr << " " << ob.h.maxr << " ; " << ob.h.minc << " " << ob.h.maxc << "),   "
              << " area = " << ob.area << ",    (rc,cc) = (" << ob.rc << " ; " << ob.cc << ")" << std::endl;
    // Deliberate: written before the parents are found, so these are those of the cell's previous occupant
    // (SingleBackground.TrackerDetectsAgainstTheFirstFrameAndTracesIt).
    std::cout << " Potential parent labels (" << ob.numparents << ") :";
    for (int i = 0; i < ob.numparents; i++) std::cout << "(" << ob.parents[i] << " ; " << ob.dist[i] << ")  ";
    std::cout << std::endl;
}

void ColorDiffTracker::TraceId(const Object& ob) const {
    std::cout << "  --------- Object ID = " << ob.id << std::endl;
}

void ColorDiffTracker::TraceSummary() const {
    if (numobjects == 0) {
        std::cout << "Tracked object list empty!   " << std::endl;
        return;
    }
    std::cout << " BestFive: ";
    for (int i = 0; i < numobjects; i++) {
        const Object& ob = Ob[usedob[i]];
        if (ob.framenum == t && ob.reportit) std::cout << ob.id << " ";
    }
    std::cout << std::endl;
}
