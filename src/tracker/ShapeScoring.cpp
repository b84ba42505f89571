// Groundwork for scoring object shapes against the image: it marks polygons and walks them, and scores nothing yet.
#include <cmath>
#include <iostream>

#include "tracker/kscolortracker.h"

void ColorDiffTracker::ScoreImage(KsColorImage&) {
    for (int i = 0; i < numobjects; i++)
        if (Ob[usedob[i]].framenum == t) PolygonalApproximation(Ob[usedob[i]].fnode, kPolygonTolerance);
}

void ColorDiffTracker::ScoreImageEdges(KsColorImage&) {
    for (int i = 0; i < numobjects; i++) {
        if (Ob[usedob[i]].framenum != t) continue;
        std::cout << "pob = " << i << "         " << usedob[i] << std::endl;
        PolygonalApproximation(Ob[usedob[i]].fnode, kPolygonTolerance);
    }
}
