// Labels to contour to polygon on arbitrary masks of cells: contours are closed and stay with their component, polygons
// keep both ends, and every node is in exactly one list at any time.
//
// Input: cell size and frame size, then bits: which cells are foreground, in several rounds over one tracker.
#include <vector>

#include "fuzz/bytes.h"
#include "tracker/Invariants.h"

namespace {

struct Shape {
    int minr = 1 << 30, maxr = -1, minc = 1 << 30, maxc = -1;
    void include(int r0, int r1, int c0, int c1) {
        minr = r0 < minr ? r0 : minr;
        maxr = r1 > maxr ? r1 : maxr;
        minc = c0 < minc ? c0 : minc;
        maxc = c1 > maxc ? c1 : maxc;
    }
};

// A whole component's contour touches all four sides of its box and leaves it nowhere by more than the cut of a corner.
void checkContour(const GridColorDiff& g, const ContNode* first, int lab) {
    Shape box, walk;
    for (int k = 0; k < g.cnum; k++)
        if (g.label[k] == lab) box.include(g.cd[k].minr, g.cd[k].maxr, g.cd[k].minc, g.cd[k].maxc);
    const ContNode* last = first;
    int nodes = 0;
    for (const ContNode* node = first; node != nullptr; node = node->link) {
        walk.include(node->r, node->r, node->c, node->c);
        last = node;
        nodes++;
    }
    FUZZ_CHECK(nodes >= 5, "label %d: %d nodes", lab, nodes);
    FUZZ_CHECK(nodes < 64 * g.cnum + 64, "label %d: the walk did not come back by itself", lab);
    FUZZ_CHECK(first->r == last->r && first->c == last->c, "label %d: open contour", lab);
    FUZZ_CHECK(walk.minr == box.minr && walk.maxr == box.maxr && walk.minc == box.minc && walk.maxc == box.maxc,
               "label %d: contour (%d %d ; %d %d), component (%d %d ; %d %d)", lab, walk.minr, walk.maxr, walk.minc,
               walk.maxc, box.minr, box.maxr, box.minc, box.maxc);
}

void checkPolygon(const ContNode* first) {
    FUZZ_CHECK(first->keepnode, "the first node is not kept");
    const ContNode* last = first;
    while (last->link != nullptr) last = last->link;
    FUZZ_CHECK(last->keepnode, "the last node is not kept");
}

// Masks: single cells, or rows of one value, which make large components.
void drawMask(Bytes& in, GridColorDiff& g) {
    const bool wide = in.within(0, 1) == 1;
    for (int k = 0; k < g.cnum;) {
        const int byte = in.byte();
        const int run = wide ? byte % 16 + 1 : 8;
        for (int i = 0; i < run && k < g.cnum; i++, k++) {
            const int value = wide ? byte >> 6 : byte >> i & 1;
            g.conf[k] = value == 1 || value == 3 ? 1.0 : value == 2 ? 0.5 : 0.0;
            g.der_conf[k] = 0;
        }
    }
}

void traceComponents(Bytes& in, ColorDiffTracker& t, int frame) {
    GridColorDiff& g = *t.G;
    g.ConnectedComponents();
    for (int lab = 1; lab <= g.GetNumLabel(); lab++) {
        const int k = t.NextFreeObjectCell(frame);
        if (k == ColorDiffTracker::kMaxObjects) break;
        Object& ob = t.Ob[k];
        ob.framenum = frame;
        ob.id = lab;
        ob.label = lab;
        ob.numframes = in.within(0, 5);
        ob.fnode = g.BuildContourForObject(lab);
        checkContour(g, ob.fnode, lab);
        t.PolygonalApproximation(ob.fnode, in.empty() ? ColorDiffTracker::kPolygonTolerance : in.byte() / 16.0);
        checkPolygon(ob.fnode);
        g.FindPotentialParents(ob);
    }
}

// Labels that no flood fill would give: scattered pieces under one number. The walk goes around one of them, or gives
// up at its bound; it must end either way.
void traceScattered(Bytes& in, ColorDiffTracker& t) {
    GridColorDiff& g = *t.G;
    std::vector<int> sound;
    for (int k = 0; k < g.cnum; k++) sound.push_back(g.label[k]);
    for (int k = 0; k < g.cnum; k++) g.label[k] = in.byte() % 3;
    for (int lab = 1; lab <= 2; lab++) {
        ContNode* first = g.BuildContourForObject(lab);
        if (first != nullptr) {
            const ContNode* last = first;
            while (last->link != nullptr) last = last->link;
            FUZZ_CHECK(last != first && first->r == last->r && first->c == last->c, "label %d: open contour", lab);
            t.PolygonalApproximation(first, ColorDiffTracker::kPolygonTolerance);
            checkPolygon(first);
        }
        g.ReturnNodes(first);
    }
    for (int k = 0; k < g.cnum; k++) g.label[k] = sound[static_cast<std::size_t>(k)];
}

void checkAll(const ColorDiffTracker& t) {
    const std::string violation = FrameViolation(t);
    FUZZ_CHECK(violation.empty(), "%s", violation.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes in(data, size);
    const int cellsize = in.within(2, 8), rows = in.within(1, 72), cols = in.within(1, 72);
    std::vector<unsigned char> pixels(static_cast<std::size_t>(rows * cols * 3), 100);
    KsColorImage image;
    image.KsReadImageMemory(pixels.data(), rows, cols);
    const auto tracker = MakeTracker(COLOR, image, 20, MULTIPLE, cellsize);
    ColorDiffTracker& t = *tracker;
    for (int frame = 1; frame < 20 && !in.empty(); frame++) {
        t.t = frame;
        t.CleanObjectList(frame);
        drawMask(in, *t.G);
        traceComponents(in, t, frame);
        checkAll(t);
        if (in.within(0, 3) == 0) {
            traceScattered(in, t);
            checkAll(t);
        }
    }
    return 0;
}
