// The pool of contour nodes and the walk around a component.
//
// The walk keeps the component on its left: down the left side, right along the bottom, up the right side, left along
// the top. Holes are not traced. At every cell it looks for a diagonal neighbour on the outer side, then for the cell
// straight ahead, and otherwise turns at the cell's outer corner. Outer corners are emitted exactly; where the walk
// turns outwards, at a diagonal neighbour or around an inner corner, the corner pixel is cut by two points:
//
//      A: down                    +-----+                         |  current  |
//      |                          |     |     straight ahead:     +-----------+
//      v    +-----+               | cur |     s, or the cell    +-----+-----+ |
//        +--| cur |  diagonal d   +-----+     behind the inner  | left|  s  |     emits (s.minr - 1, Ct),
//        | d|     |  (slot 6)     |  s  |     corner            +-----+-----+           (s.minr, Ct - 1)
//        +--+-----+               +-----+
#include "tracker/contours.h"

#include "vision/grid/gridcolordiff.h"
#include "vision/grid/gridprivate.h"

ContNode* GridColorDiff::NewPoolBlock() {
    auto block = std::make_unique<ContNode[]>(kPoolBlock);
    for (int i = 0; i + 1 < kPoolBlock; i++)
        block[static_cast<std::size_t>(i)].link = &block[static_cast<std::size_t>(i) + 1];
    own->blocks.push_back(std::move(block));
    return own->blocks.back().get();
}

void GridColorDiff::AddMoreContourNodes() {
    FreeNodes = NewPoolBlock();
}

ContNode* GridColorDiff::GetNewNode() {
    if (FreeNodes == nullptr) AddMoreContourNodes();
    ContNode* node = FreeNodes;
    FreeNodes = node->link;
    return node;
}

void GridColorDiff::ReturnNodes(ContNode* first) {
    if (first == nullptr) return;
    ContNode* last = first;
    while (last->link != nullptr) last = last->link;
    last->link = FreeNodes;
    FreeNodes = first;
}

namespace {

// What differs between the four directions of travel.
struct Direction {
    int diagonal;  // slot of the diagonal cell on the outer side
    int straight;  // slot of the cell ahead
    int outer;     // slot, seen from the cell ahead, of the cell behind an inner corner
    Moves turned;  // state after a turn outwards
    Moves corner;  // state after an outer corner
};

constexpr Direction kDown{6, 3, 2, AA, D}, kRight{7, 0, 3, DD, C}, kUp{4, 1, 0, CC, B}, kLeft{5, 2, 1, BB, A};

constexpr const Direction& DirectionOf(Moves state) {
    switch (state) {
        case A:
        case DD:
            return kDown;
        case D:
        case CC:
            return kRight;
        case C:
        case BB:
            return kUp;
        default:
            return kLeft;
    }
}

struct Point {
    int r, c;
};

// The two points that cut the corner in front of cell q, travelling in direction d at row Rt or column Ct.
struct Cut {
    Point first, second;
};
Cut CutCorner(const Direction& d, const CellBox& q, int Rt, int Ct) {
    if (&d == &kDown) return {{q.minr - 1, Ct}, {q.minr, Ct - 1}};
    if (&d == &kRight) return {{Rt, q.minc - 1}, {Rt + 1, q.minc}};
    if (&d == &kUp) return {{q.maxr + 1, Ct}, {q.maxr, Ct + 1}};
    return {{Rt, q.maxc + 1}, {Rt - 1, q.maxc}};
}

Point OuterCorner(const Direction& d, const CellBox& cell, int Rt, int Ct) {
    if (&d == &kDown) return {cell.maxr, Ct};
    if (&d == &kRight) return {Rt, cell.maxc};
    if (&d == &kUp) return {cell.minr, Ct};
    return {Rt, cell.minc};
}

}  // namespace

ContNode* GridColorDiff::BuildContourForObject(int lab) {
    int start = -1;  // the uppermost, then leftmost cell; the first in cell order on a tie
    CellBox top{};
    for (const int k : CellsOf(lab)) {
        const CellBox box = Box(k);
        if (start >= 0 && (box.minr > top.minr || (box.minr == top.minr && box.minc >= top.minc))) continue;
        start = k;
        top = box;
    }
    if (start < 0) return nullptr;
    return TraceContour(start, lab);
}

ContNode* GridColorDiff::TraceContour(int start, int lab) {
    ContNode* const first = GetNewNode();
    ContNode* last = first;
    first->r = Box(start).minr;
    first->c = Box(start).minc;
    const auto emit = [&](Point p) {
        ContNode* node = GetNewNode();
        node->r = p.r;
        node->c = p.c;
        last->link = node;
        last = node;
    };
    const auto member = [&](int k) { return k >= 0 && label[k] == lab; };

    int cell = start;
    Moves state = A;
    // A valid component closes long before; the bound keeps a damaged one from walking for ever.
    const long long steps = 64LL * cnum + 64;
    for (long long step = 0; step < steps; step++) {
        const Direction& d = DirectionOf(state);
        const int Rt = last->r, Ct = last->c;
        const int diagonal = n[cell].n[d.diagonal], ahead = n[cell].n[d.straight];
        int turn = -1;  // cell around whose corner the walk turns outwards, and the cell that the points refer to
        int reference = -1;
        if (member(diagonal)) {
            turn = reference = diagonal;
        } else if (member(ahead)) {
            const int behind = n[ahead].n[d.outer];
            if (!member(behind)) {
                cell = ahead;
                continue;
            }
            turn = behind;
            reference = ahead;
        }
        if (turn >= 0) {
            const Cut cut = CutCorner(d, Box(reference), Rt, Ct);
            emit(cut.first);
            emit(cut.second);
            cell = turn;
            state = d.turned;
            continue;
        }
        emit(OuterCorner(d, Box(cell), Rt, Ct));
        state = d.corner;
        if (state == A && last->r == first->r && last->c == first->c) {
            last->link = nullptr;
            return first;
        }
    }
    emit({first->r, first->c});
    last->link = nullptr;
    return first;
}
