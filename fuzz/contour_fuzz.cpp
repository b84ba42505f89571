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
    void Include(int r0, int r1, int c0, int c1) {
        minr = r0 < minr ? r0 : minr;
        maxr = r1 > maxr ? r1 : maxr;
        minc = c0 < minc ? c0 : minc;
        maxc = c1 > maxc ? c1 : maxc;
    }
};

// A whole component's contour touches all four sides of its box and leaves it nowhere by more than the cut of a corner.
void CheckContour(const GridColorDiff& G, const ContNode* first, int lab) {
    Shape box, walk;
    for (int k = 0; k < G.cnum; k++)
        if (G.label[k] == lab) box.Include(G.cd[k].minr, G.cd[k].maxr, G.cd[k].minc, G.cd[k].maxc);
    const ContNode* last = first;
    int nodes = 0;
    for (const ContNode* node = first; node != nullptr; node = node->link) {
        walk.Include(node->r, node->r, node->c, node->c);
        last = node;
        nodes++;
    }
    FUZZ_CHECK(nodes >= 5, "label %d: %d nodes", lab, nodes);
    FUZZ_CHECK(nodes < 64 * G.cnum + 64, "label %d: the walk did not come back by itself", lab);
    FUZZ_CHECK(first->r == last->r && first->c == last->c, "label %d: open contour", lab);
    FUZZ_CHECK(walk.minr == box.minr && walk.maxr == box.maxr && walk.minc == box.minc && walk.maxc == box.maxc,
               "label %d: contour (%d %d ; %d %d), component (%d %d ; %d %d)", lab, walk.minr, walk.maxr, walk.minc,
               walk.maxc, box.minr, box.maxr, box.minc, box.maxc);
}

void CheckPolygon(const ContNode* first) {
    FUZZ_CHECK(first->keepnode, "the first node is not kept");
    const ContNode* last = first;
    while (last->link != nullptr) last = last->link;
    FUZZ_CHECK(last->keepnode, "the last node is not kept");
}

// Masks: single cells, or rows of one value, which make large components.
void DrawMask(Bytes& in, GridColorDiff& G) {
    const bool wide = in.Within(0, 1) == 1;
    for (int k = 0; k < G.cnum;) {
        const int byte = in.Byte();
        const int run = wide ? byte % 16 + 1 : 8;
        for (int i = 0; i < run && k < G.cnum; i++, k++) {
            const int value = wide ? byte >> 6 : byte >> i & 1;
            G.conf[k] = value == 1 || value == 3 ? 1.0 : value == 2 ? 0.5 : 0.0;
            G.der_conf[k] = 0;
        }
    }
}

void TraceComponents(Bytes& in, ColorDiffTracker& T, int frame) {
    GridColorDiff& G = *T.G;
    G.ConnectedComponents();
    for (int lab = 1; lab <= G.GetNumLabel(); lab++) {
        const int k = T.NextFreeObjectCell(frame);
        if (k == ColorDiffTracker::kMaxObjects) break;
        Object& ob = T.Ob[k];
        ob.framenum = frame;
        ob.id = lab;
        ob.label = lab;
        ob.numframes = in.Within(0, 5);
        ob.fnode = G.BuildContourForObject(lab);
        CheckContour(G, ob.fnode, lab);
        T.PolygonalApproximation(ob.fnode, in.Empty() ? ColorDiffTracker::kPolygonTolerance : in.Byte() / 16.0);
        CheckPolygon(ob.fnode);
        G.FindPotentialParents(ob);
    }
}

// Labels that no flood fill would give: scattered pieces under one number. The walk goes around one of them, or gives
// up at its bound; it must end either way.
void TraceScattered(Bytes& in, ColorDiffTracker& T) {
    GridColorDiff& G = *T.G;
    std::vector<int> sound;
    for (int k = 0; k < G.cnum; k++) sound.push_back(G.label[k]);
    for (int k = 0; k < G.cnum; k++) G.label[k] = in.Byte() % 3;
    for (int lab = 1; lab <= 2; lab++) {
        ContNode* first = G.BuildContourForObject(lab);
        if (first != nullptr) {
            const ContNode* last = first;
            while (last->link != nullptr) last = last->link;
            FUZZ_CHECK(last != first && first->r == last->r && first->c == last->c, "label %d: open contour", lab);
            T.PolygonalApproximation(first, ColorDiffTracker::kPolygonTolerance);
            CheckPolygon(first);
        }
        G.ReturnNodes(first);
    }
    for (int k = 0; k < G.cnum; k++) G.label[k] = sound[static_cast<std::size_t>(k)];
}

void CheckAll(const ColorDiffTracker& T) {
    const std::string violation = FrameViolation(T);
    FUZZ_CHECK(violation.empty(), "%s", violation.c_str());
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    Bytes in(data, size);
    const int cellsize = in.Within(2, 8), rows = in.Within(1, 72), cols = in.Within(1, 72);
    std::vector<unsigned char> pixels(static_cast<std::size_t>(rows * cols * 3), 100);
    KsColorImage image;
    image.KsReadImageMemory(pixels.data(), rows, cols);
    const auto tracker = MakeTracker(COLOR, image, 20, MULTIPLE, cellsize);
    ColorDiffTracker& T = *tracker;
    for (int frame = 1; frame < 20 && !in.Empty(); frame++) {
        T.t = frame;
        T.CleanObjectList(frame);
        DrawMask(in, *T.G);
        TraceComponents(in, T, frame);
        CheckAll(T);
        if (in.Within(0, 3) == 0) {
            TraceScattered(in, T);
            CheckAll(T);
        }
    }
    return 0;
}
