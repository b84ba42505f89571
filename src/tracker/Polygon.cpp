// Polygonal approximation of a contour by intersecting sectors (cones).
//
// From an anchor the line is extended node by node. Every node seen so far opens a sector around its direction from the
// anchor, as wide as the tolerance appears from there; a further node must lie within the intersection of the sectors
// and may not come closer to the anchor. Where one does not, the last accepted node becomes the next anchor.
#include <cmath>

#include "tracker/kscolortracker.h"

namespace {

constexpr double kPi = 3.141592653589793, kHalfPi = 1.5707963267948966, kTwoPi = 6.283185307179586;

// A node seen from the anchor.
struct View {
    double distance;
    double direction;  // of the vector (row, column), atan2(column, row), 0 .. 2 pi
    double halfwidth;  // of its sector
};

View Look(const ContNode* anchor, const ContNode* node, double eps) {
    const double dr = node->r - anchor->r, dc = node->c - anchor->c;
    View v;
    v.distance = std::hypot(dr, dc);
    v.direction = std::atan2(dc, dr);
    if (v.direction < 0) v.direction += kTwoPi;
    v.halfwidth = eps / v.distance < 1 ? std::asin(eps / v.distance) : kHalfPi;
    return v;
}

double WrapUp(double angle) {
    return angle < 0 ? angle + kTwoPi : angle;
}
double WrapDown(double angle) {
    return angle >= kTwoPi ? angle - kTwoPi : angle;
}

struct Sector {
    double tcone, bcone;  // upper and lower bound

    explicit Sector(const View& v)
        : tcone(WrapDown(v.direction + v.halfwidth)), bcone(WrapUp(v.direction - v.halfwidth)) {}

    // Both comparisons are strict: a difference of exactly pi passes.
    bool Contains(const View& v) const {
        return !(WrapUp(v.direction - bcone) > kPi) && !(WrapUp(tcone - v.direction) > kPi);
    }
    void Narrow(const View& v) {
        const double u = WrapUp((tcone - v.direction) - v.halfwidth);
        const double w = WrapUp((v.direction - v.halfwidth) - bcone);
        if (u < kPi) tcone = WrapDown(v.direction + v.halfwidth);
        if (w < kPi) bcone = WrapUp(v.direction - v.halfwidth);
    }
};

// Last node of the segment that begins at the anchor.
ContNode* Extend(ContNode* anchor, double eps) {
    ContNode* last = anchor->link;  // always accepted
    View v = Look(anchor, last, eps);
    double dmax = v.distance;
    Sector sector(v);
    for (ContNode* node = last->link; node != nullptr; node = node->link) {
        v = Look(anchor, node, eps);
        if (v.distance < dmax) break;
        dmax = v.distance;
        if (!sector.Contains(v)) break;
        sector.Narrow(v);
        last = node;
    }
    return last;
}

}  // namespace

void ColorDiffTracker::PolygonalApproximation(ContNode* fnode, double eps) {
    if (fnode == nullptr) return;
    ContNode* anchor = fnode;
    while (anchor->link != nullptr) {
        ContNode* const last = Extend(anchor, eps);
        anchor->keepnode = true;
        for (ContNode* node = anchor->link; node != last; node = node->link) node->keepnode = false;
        anchor = last;
    }
    anchor->keepnode = true;
}
