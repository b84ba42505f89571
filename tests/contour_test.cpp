// Contours of drawn components, contours of random components against a tracer that turns one rule around, the node
// pool, and the polygons.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "support/images.h"
#include "tracker/kscolortracker.h"

namespace {

using Points = std::vector<std::pair<int, int>>;

Points pointsOf(const ContNode* q) {
    Points all;
    for (; q != nullptr; q = q->link) all.push_back({q->r, q->c});
    return all;
}

int freeCount(const GridColorDiff& g) {
    int n = 0;
    for (const ContNode* q = g.FreeNodes; q != nullptr; q = q->link) n++;
    return n;
}

struct ContourCase {
    const char* what;
    std::vector<std::string> drawing;  // on the half-cell raster; cells of 4 pixels
    Points points;
};

const ContourCase kContours[] = {
    {"one main cell", {"", "", "", "", "  1"}, {{8, 4}, {11, 4}, {11, 7}, {8, 7}, {8, 4}}},
    {"one shifted cell", {"", "   1"}, {{2, 6}, {5, 6}, {5, 9}, {2, 9}, {2, 6}}},
    {"two side by side", {"", "", "", "", "  1 1"}, {{8, 4}, {11, 4}, {11, 11}, {8, 11}, {8, 4}}},
    {"one upon the other", {"", "", "1", "", "1"}, {{4, 0}, {11, 0}, {11, 3}, {4, 3}, {4, 0}}},
    {"diagonal step and back",
     {"", "", "", "", "  1", "   1"},
     {{8, 4}, {11, 4}, {11, 5}, {12, 6}, {13, 6}, {13, 9}, {10, 9}, {10, 8}, {9, 7}, {8, 7}, {8, 4}}},
    {"inner corner below",
     {"", "", "  1 1", "", "    1"},
     {{4, 4}, {7, 4}, {7, 7}, {8, 8}, {11, 8}, {11, 11}, {4, 11}, {4, 4}}},
    {"inner corner on the left, the start is the topmost cell",
     {"", "", "    1", "", "  1 1"},
     {{4, 8}, {7, 8}, {8, 7}, {8, 4}, {11, 4}, {11, 11}, {4, 11}, {4, 8}}},
    {"inner corner on the right",
     {"", "", "  1", "", "  1 1"},
     {{4, 4}, {11, 4}, {11, 11}, {8, 11}, {8, 8}, {7, 7}, {4, 7}, {4, 4}}},
    {"holes are not traced", {"1 1 1", "", "1   1", "", "1 1 1"}, {{0, 0}, {11, 0}, {11, 11}, {0, 11}, {0, 0}}},
    {"other labels do not count", {"2 2 2", " 2 2", "2 1 2"}, {{4, 4}, {7, 4}, {7, 7}, {4, 7}, {4, 4}}},
};

TEST(Contour, Drawings) {
    TestImage image(24, 24, flat(0));
    for (const ContourCase& c : kContours) {
        SCOPED_TRACE(c.what);
        GridColorDiff g(image, 4, COLOR);
        drawLabels(g, c.drawing, g.label);
        const int before = freeCount(g);
        EXPECT_EQ(pointsOf(g.BuildContourForObject(1)), c.points);
        EXPECT_EQ(freeCount(g), before - static_cast<int>(c.points.size()));
    }
}

// One rule for all four directions: turned by a quarter, travelling down becomes right, up, left.
Points tracePlainly(const GridColorDiff& g, int lab) {
    const auto in = [&](int k) { return k >= 0 && g.label[k] == lab; };
    int at = -1;
    for (int k = 0; k < g.cnum; k++) {
        if (!in(k)) continue;
        if (at < 0 || std::pair(g.cd[k].minr, g.cd[k].minc) < std::pair(g.cd[at].minr, g.cd[at].minc)) at = k;
    }
    Points points{{g.cd[at].minr, g.cd[at].minc}};
    static constexpr int kDiagonal[] = {6, 7, 4, 5}, kAhead[] = {3, 0, 1, 2}, kOutside[] = {2, 3, 0, 1};
    for (int way = 0;;) {  // 0 down, 1 right, 2 up, 3 left; the component lies to the left of the way
        const int diagonal = g.n[at].n[kDiagonal[way]], ahead = g.n[at].n[kAhead[way]];
        const int beyond = in(ahead) ? g.n[ahead].n[kOutside[way]] : -1;
        const bool vertical = way % 2 == 0, increasing = way < 2;
        const int outward = way == 1 || way == 2 ? 1 : -1;  // sideways, away from the component
        const auto [r, c] = points.back();
        if (in(diagonal) || in(beyond)) {
            // The cut corner lies where the cell that is met begins, seen along the way.
            const int met = in(diagonal) ? diagonal : ahead;
            const KsCellDiff& m = g.cd[met];
            const int edge = vertical ? (increasing ? m.minr : m.maxr) : (increasing ? m.minc : m.maxc);
            const int before = increasing ? edge - 1 : edge + 1;
            points.push_back(vertical ? std::pair(before, c) : std::pair(r, before));
            points.push_back(vertical ? std::pair(edge, c + outward) : std::pair(r + outward, edge));
            at = in(diagonal) ? diagonal : beyond;
            way = (way + 3) % 4;
        } else if (in(ahead)) {
            at = ahead;
        } else {
            const KsCellDiff& m = g.cd[at];
            points.push_back(vertical ? std::pair(increasing ? m.maxr : m.minr, c)
                                      : std::pair(r, increasing ? m.maxc : m.minc));
            way = (way + 1) % 4;
            if (way == 0 && points.back() == points.front()) return points;
        }
    }
}

// Random components, their contours against the plain tracer, and the polygon over each.
TEST(Contour, RandomComponentsAndTheirPolygons) {
    int traced = 0, dropped = 0;
    TestImage first(4, 4, flat(0));
    const auto owned = MakeTracker(COLOR, first, 10);
    ColorDiffTracker& tracker = *owned;
    for (unsigned seed = 1; seed <= 250; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        TestRandom random(seed);
        TestImage image(random.range(4, 70), random.range(4, 70), flat(0));
        GridColorDiff g(image, 4, COLOR);
        const int share = random.range(20, 75);
        for (int k = 0; k < g.cnum; k++) {
            g.conf[k] = random.below(100) < share ? 1.0 : 0.0;
            g.der_conf[k] = 0;
        }
        g.ConnectedComponents();
        for (int lab = 1; lab <= g.numlabel; lab++) {
            ContNode* contour = g.BuildContourForObject(lab);
            const Points points = pointsOf(contour);
            ASSERT_EQ(points, tracePlainly(g, lab)) << "label " << lab;
            for (std::size_t i = 1; i < points.size(); i++) {
                const int dr = std::abs(points[i].first - points[i - 1].first);
                const int dc = std::abs(points[i].second - points[i - 1].second);
                ASSERT_TRUE(dr == 0 || dc == 0 || (dr == 1 && dc == 1)) << i;
            }
            tracker.PolygonalApproximation(contour, 1.41);
            ASSERT_TRUE(contour->keepnode);
            const ContNode* last = contour;
            for (; last->link != nullptr; last = last->link) dropped += !last->keepnode;
            ASSERT_TRUE(last->keepnode);
            traced++;
            g.ReturnNodes(contour);
        }
        ASSERT_EQ(freeCount(g), 100000);
    }
    EXPECT_GT(traced, 1000);
    EXPECT_GT(dropped, 1000);
}

// Masks with borders as long as they get; row and column on the half-cell raster, which ends at `rows` and `cols`.
struct Mask {
    const char* what;
    bool (*holds)(int row, int col, int rows, int cols);
};

const Mask kMasks[] = {
    {"full", [](int, int, int, int) { return true; }},
    {"single", [](int r, int c, int rows, int cols) { return r == rows / 4 * 2 && c == cols / 4 * 2; }},
    {"checkerboard, its corners bridged by the shifted lattice",
     [](int r, int c, int, int) { return (r / 2 + c / 2) % 2 == 0; }},
    {"checkerboard of the main lattice alone",
     [](int r, int c, int, int) { return r % 2 == 0 && (r / 2 + c / 2) % 2 == 0; }},
    {"comb", [](int r, int c, int, int) { return r == 0 || (c % 4 == 0 && r % 2 == 0); }},
    {"comb on both sides", [](int r, int c, int, int) { return r % 2 == 0 && (c == 8 || r % 4 == 0); }},
    {"spiral of the main lattice",
     [](int r, int c, int rows, int cols) {
         const int i = r / 2, j = c / 2;
         const int ring = std::min({i, j, (rows - 1) / 2 - i, (cols - 1) / 2 - j});
         // The left side of each ring belongs to the next one below its upper end: a gap, and a bridge inwards.
         return r % 2 == 0 && (ring + (i == j + 1 && i <= rows / 4 ? 1 : 0)) % 2 == 0;
     }},
};

// However the border winds, the walk around it ends by itself and the pool loses nothing.
TEST(Contour, LongBordersStayWithinTheBoundOfTheWalk) {
    for (const auto& [rows, cols] : {std::pair{4, 4}, {8, 8}, {10, 31}, {44, 44}, {96, 128}}) {
        TestImage image(rows, cols, flat(0));
        GridColorDiff g(image, 4, COLOR);
        for (const Mask& mask : kMasks) {
            SCOPED_TRACE(testing::Message() << mask.what << " on " << rows << " x " << cols);
            for (int k = 0; k < g.cnum; k++) {
                const RasterPlace at = placeOf(g, k);
                g.conf[k] = mask.holds(at.row, at.col, (rows + 3) / 4 * 2 - 1, (cols + 3) / 4 * 2 - 1) ? 1.0 : 0.0;
                g.der_conf[k] = 0;
            }
            g.ConnectedComponents();
            ASSERT_GE(g.numlabel, 1);
            const int before = freeCount(g);
            std::vector<ContNode*> contours;
            int nodes = 0;
            for (int lab = 1; lab <= g.numlabel; lab++) {
                contours.push_back(g.BuildContourForObject(lab));
                const Points points = pointsOf(contours.back());
                ASSERT_LE(points.size(), static_cast<std::size_t>(64 * g.cnum + 64)) << "label " << lab;
                ASSERT_EQ(points, tracePlainly(g, lab)) << "label " << lab;
                nodes += static_cast<int>(points.size());
            }
            EXPECT_EQ(freeCount(g), before - nodes);
            for (ContNode* contour : contours) g.ReturnNodes(contour);
            EXPECT_EQ(freeCount(g), before);
        }
    }
}

TEST(Pool, GrowsInTheMiddleOfATrace) {
    TestImage image(24, 24, flat(0));
    GridColorDiff g(image, 4, COLOR);
    ContNode* const first = g.FreeNodes;
    std::set<const ContNode*> taken;
    while (taken.size() < 99998) taken.insert(g.GetNewNode());
    drawLabels(g, {"", "", "", "", "  1"}, g.label);
    ContNode* contour = g.BuildContourForObject(1);
    EXPECT_EQ(pointsOf(contour), kContours[0].points);
    for (const ContNode* q = contour; q != nullptr; q = q->link) EXPECT_TRUE(taken.insert(q).second);
    EXPECT_EQ(freeCount(g), 100000 - 3);
    EXPECT_EQ(g.tmpstorage, first) << "the first block";
    g.ReturnNodes(contour);
    EXPECT_EQ(g.FreeNodes, contour) << "returned nodes stand in front";
    EXPECT_EQ(freeCount(g), 100000 + 2);
    g.ReturnNodes(nullptr);
    EXPECT_EQ(freeCount(g), 100000 + 2);
}

struct PolygonCase {
    const char* what;
    double eps;
    Points points;
    const char* kept;  // one mark a point: K kept, . dropped
};

const PolygonCase kPolygons[] = {
    {"two points", 1.41, {{0, 0}, {0, 5}}, "KK"},
    {"collinear", 1.41, {{0, 0}, {0, 1}, {0, 2}, {0, 3}}, "K..K"},
    {"square", 1.41, {{8, 4}, {11, 4}, {11, 7}, {8, 7}, {8, 4}}, "KKKKK"},
    {"a nearer point ends the segment", 1.41, {{0, 0}, {0, 10}, {0, 9}}, "KKK"},
    {"a point as far as the one before does not", 20, {{0, 0}, {6, 8}, {8, 6}}, "K.K"},
    {"just inside the sector (8.1 degrees)", 1.41, {{0, 0}, {0, 10}, {2, 20}}, "K.K"},
    {"just outside", 1.41, {{0, 0}, {0, 10}, {3, 20}}, "KKK"},
    {"the sector narrows on one side", 1.41, {{0, 0}, {0, 10}, {1, 20}, {-1, 30}}, "K.KK"},
    {"and stays on the other", 1.41, {{0, 0}, {0, 10}, {1, 20}, {0, 30}, {1, 40}}, "K...K"},
    {"a far point within reach of both borders sets both", 1.41, {{0, 0}, {0, 10}, {0, 40}, {2, 50}}, "K.KK"},
    {"close points open half a plane", 1.41, {{0, 0}, {0, 1}, {1, 1}, {9, 9}}, "K..K"},
    {"half a plane has borders", 2, {{0, 0}, {0, 1}, {5, -2}}, "KKK"},
    {"segments follow each other", 1.41, {{0, 0}, {0, 9}, {0, 18}, {9, 18}, {18, 18}, {18, 30}}, "K.K.KK"},
};

std::string keptOf(ColorDiffTracker& tracker, const Points& points, double eps) {
    std::vector<ContNode> nodes;
    for (const auto& [r, c] : points) nodes.push_back({true, r, c, nullptr});
    for (std::size_t i = 0; i + 1 < nodes.size(); i++) nodes[i].link = &nodes[i + 1];
    nodes.front().keepnode = nodes.back().keepnode = false;
    tracker.PolygonalApproximation(nodes.data(), eps);
    std::string kept;
    for (const ContNode& q : nodes) kept += q.keepnode ? 'K' : '.';
    return kept;
}

// In every direction, so that the angles wrap at every place.
TEST(Polygon, TableTurnedAndMirrored) {
    TestImage image(4, 4, flat(0));
    const auto owned = MakeTracker(COLOR, image, 10);
    ColorDiffTracker& tracker = *owned;
    for (const PolygonCase& c : kPolygons) {
        for (int turn = 0; turn < 8; turn++) {
            SCOPED_TRACE(testing::Message() << c.what << ", turn " << turn);
            Points points = c.points;
            for (auto& [r, col] : points) {
                if (turn & 4) std::swap(r, col);
                if (turn & 1) r = -r;
                if (turn & 2) col = -col;
            }
            EXPECT_EQ(keptOf(tracker, points, c.eps), c.kept);
        }
    }
    // Deliberate: the narrowing wraps an angle difference once only. Straight down, where the angle passes through 0,
    // the sector can therefore widen, and the same figure keeps one vertex less than in any other direction.
    EXPECT_EQ(keptOf(tracker, {{0, 0}, {11, 1}, {24, 0}, {25, -1}}, 1.41), "K..K");
    EXPECT_EQ(keptOf(tracker, {{0, 0}, {0, -1}, {2, -1}, {20, 1}}, 1.41), "K..K");
    EXPECT_EQ(keptOf(tracker, {{0, 0}, {-11, 1}, {-24, 0}, {-25, -1}}, 1.41), "K.KK");
    EXPECT_EQ(keptOf(tracker, {{0, 0}, {0, -1}, {-2, -1}, {-20, 1}}, 1.41), "K.KK");
    EXPECT_EQ(keptOf(tracker, {{0, 0}, {1, 11}, {0, 24}, {-1, 25}}, 1.41), "K.KK");
}

}  // namespace
