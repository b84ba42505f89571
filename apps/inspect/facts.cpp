#include "inspect/facts.h"

#include <algorithm>
#include <cmath>

namespace fleifeisa::inspect {

namespace {

ObjectFacts factsOf(const Object& ob) {
    ObjectFacts f{};
    f.id = ob.id;
    f.label = ob.label;
    f.x = ob.h.minc;
    f.y = ob.h.minr;
    f.width = ob.h.maxc - ob.h.minc + 1;
    f.height = ob.h.maxr - ob.h.minr + 1;
    f.area = ob.area;
    f.density = static_cast<int>(
        std::floor(static_cast<float>(static_cast<long double>(f.area) / (f.width * f.height) * 100.0L)));
    f.row = ob.rc;
    f.column = ob.cc;
    f.frames = ob.numframes;
    f.cells = ob.numcells;
    for (int i = 0; i < ob.numparents; i++)
        f.parents += (i > 0 ? ", " : "") + std::to_string(ob.parents[i]) + " (" +
                     std::to_string(static_cast<int>(ob.dist[i])) + ")";
    for (const ContNode* node = ob.fnode; node != nullptr; node = node->link)
        f.contour.push_back({node->c, node->r, node->keepnode});
    return f;
}

void gatherDetection(ColorDiffTracker& tracker, FrameFacts& f) {
    const GridColorDiff& g = *tracker.G;
    f.clt = tracker.clt;
    f.cht = tracker.cht;
    double total = 0;
    for (int k = 0; k < g.cnum; k++) {
        const double d = g.diff[k];
        total += d;
        f.greatest = std::max(f.greatest, d);
        if (g.label[k] != 0) f.foreground++;
    }
    f.mean = g.cnum > 0 ? total / g.cnum : 0;
    f.components = g.GetNumLabel();
    f.table = tracker.numobjects;
    for (int i = 0; i < tracker.numobjects; i++) {
        const Object& ob = tracker.Ob[tracker.usedob[i]];
        if (ob.framenum != tracker.t) continue;
        tracker.PolygonalApproximation(ob.fnode, ColorDiffTracker::kPolygonTolerance);
        f.objects.push_back(factsOf(ob));
    }
}

double meanClusters(const BackgroundModel& b) {
    double total = 0;
    for (int k = 0; k < b.cnum; k++) total += b.cd[k].nclusters;
    return b.cnum > 0 ? total / b.cnum : 0;
}

}  // namespace

int ObjectFacts::corners() const {
    const auto corners = std::count_if(contour.begin(), contour.end(), [](const Point& p) { return p.corner; });
    return static_cast<int>(std::max<std::ptrdiff_t>(corners - 1, 0));
}

FrameFacts gatherFacts(Session& session, Phase phase, const SourceFrame& frame) {
    FrameFacts f;
    f.number = session.number();
    f.phase = phase;
    f.name = frame.name;
    f.timestamp = frame.timestamp;
    f.sequence = frame.sequence;
    ColorDiffTracker* const tracker = session.tracker();
    if (phase == Phase::kNoPixels || tracker == nullptr) return f;
    f.width = tracker->G->NofC;
    f.height = tracker->G->NofR;
    f.cells = tracker->G->cnum;
    f.main_cells = tracker->G->cnum_2;
    f.cell_size = tracker->G->cellsize;
    f.clusters = meanClusters(*tracker->B);
    if (phase == Phase::kDetection) gatherDetection(*tracker, f);
    return f;
}

const char* phaseName(Phase phase) {
    switch (phase) {
        case Phase::kFirst:
            return "first frame";
        case Phase::kLearning:
            return "learning";
        case Phase::kDetection:
            return "detection";
        default:
            return "no pixels";
    }
}

}  // namespace fleifeisa::inspect
