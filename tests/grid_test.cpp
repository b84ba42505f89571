// Geometry of the two lattices, neighbour laws, sums, tables, and the contour pool at its start.
#include <gtest/gtest.h>

#include "support/images.h"

namespace {

ColorValue texture(int r, int c) {
    return {(r * 37 + c * 11) % 256, (r * 5 + c * 91) % 256, (r * c + 7) % 256};
}

struct Size {
    int rows, cols, cell, inum, jnum;
};

// Cell rows and columns are rounded up; several sizes are no multiples of the cell size.
const Size kSizes[] = {{4, 4, 4, 1, 1},       {5, 7, 4, 2, 2},    {4, 64, 4, 1, 16}, {20, 12, 4, 5, 3},
                       {240, 320, 8, 30, 40}, {20, 30, 8, 3, 4},  {15, 22, 7, 3, 4}, {1, 1, 8, 1, 1},
                       {3, 3, 1, 3, 3},       {45, 61, 4, 12, 16}};

TEST(Grid, BoxesNeighboursAndSums) {
    for (const Size& s : kSizes) {
        for (const ImageType type : {COLOR, IR}) {
            SCOPED_TRACE(testing::Message() << s.cols << "x" << s.rows << " cell " << s.cell);
            TestImage image(s.rows, s.cols, texture);
            GridColorDiff g(image, s.cell, type);
            ASSERT_EQ(g.cnum_2, s.inum * s.jnum);
            ASSERT_EQ(g.cnum, g.cnum_2 + (s.inum - 1) * (s.jnum - 1));
            ASSERT_EQ(g.cellsize_2, s.cell / 2);
            const auto index = [&](bool shifted, int i, int j) {
                const int rows = s.inum - shifted, cols = s.jnum - shifted;
                if (i < 0 || i >= rows || j < 0 || j >= cols) return -1;
                return (shifted ? g.cnum_2 : 0) + i * cols + j;
            };
            for (int k = 0; k < g.cnum; k++) {
                const bool shifted = k >= g.cnum_2;
                const int cols = s.jnum - shifted, at = shifted ? k - g.cnum_2 : k, i = at / cols, j = at % cols;
                const KsCellDiff& cell = g.cd[k];
                const int r0 = i * s.cell + (shifted ? s.cell / 2 : 0), c0 = j * s.cell + (shifted ? s.cell / 2 : 0);
                ASSERT_EQ(cell.GetMinR(), r0);
                ASSERT_EQ(cell.GetMaxR(), r0 + s.cell - 1) << "boxes are not clipped";
                ASSERT_EQ(cell.GetMinC(), c0);
                ASSERT_EQ(cell.GetMaxC(), c0 + s.cell - 1);
                // The diagonal cells of main (i, j) are shifted (i - 1, j) and so on; those of shifted (i, j) main
                // (i, j + 1) and so on: the same table with the shifted cell one further down and right.
                const int d = shifted ? 1 : 0;
                const int expected[8] = {index(shifted, i, j + 1),          index(shifted, i - 1, j),
                                         index(shifted, i, j - 1),          index(shifted, i + 1, j),
                                         index(!shifted, i - 1 + d, j + d), index(!shifted, i - 1 + d, j - 1 + d),
                                         index(!shifted, i + d, j - 1 + d), index(!shifted, i + d, j + d)};
                for (int slot = 0; slot < 8; slot++) {
                    ASSERT_EQ(g.n[k].GetNeighbor(slot), expected[slot]) << "cell " << k << " slot " << slot;
                    static constexpr int kOpposite[8] = {2, 3, 0, 1, 6, 7, 4, 5};
                    ASSERT_TRUE(expected[slot] < 0 || g.n[expected[slot]].n[kOpposite[slot]] == k);
                    ASSERT_TRUE(!shifted || slot < 4 || expected[slot] >= 0) << "shifted cells have all diagonal ones";
                }
                ColorValue sum{};
                for (int r = r0; r < std::min(r0 + s.cell, s.rows); r++) {
                    for (int c = c0; c < std::min(c0 + s.cell, s.cols); c++) {
                        sum.R += texture(r, c).R;
                        sum.G += texture(r, c).G;
                        sum.B += texture(r, c).B;
                    }
                }
                if (shifted) sum = {};  // the constructor sums main cells only
                ASSERT_EQ(cell.sum.R, sum.R);
                ASSERT_EQ(cell.sum.G, type == COLOR ? sum.G : 0);
                ASSERT_EQ(cell.sum.B, type == COLOR ? sum.B : 0);
            }
        }
    }
}

TEST(Grid, SumOfOneChannelLeavesTheOthers) {
    TestImage image(6, 6, texture);
    KsCellDiff cell{};
    cell.KsSetBoxBounds(4, 7, 4, 7);
    cell.sum = {1, 2, 3};
    cell.AddAllGray(image);
    EXPECT_EQ(cell.sum.R, texture(4, 4).R + texture(4, 5).R + texture(5, 4).R + texture(5, 5).R);
    EXPECT_EQ(cell.sum.G, 2);
    EXPECT_EQ(cell.sum.B, 3);
    cell.AddAll(image);
    EXPECT_EQ(cell.sum.B, texture(4, 4).B + texture(4, 5).B + texture(5, 4).B + texture(5, 5).B);
}

TEST(Grid, TablesHistogramAndPool) {
    for (const ImageType type : {COLOR, IR}) {
        TestImage image(13, 10, texture);
        GridColorDiff g(image, 4, type);
        int bins[256] = {};
        for (int r = 0; r < 13; r++) {
            for (int c = 0; c < 10; c++) {
                const ColorValue v = texture(r, c);
                bins[type == COLOR ? (v.R + v.G + v.B + 1) / 3 : v.R]++;
            }
        }
        for (int i = 0; i < 256; i++) {
            ASSERT_EQ(g.bhist[i], bins[i]) << i;
            ASSERT_EQ(g.auxdiv[i], i >> 4);
        }
        for (int i = 0; i < 16; i++) {
            ASSERT_EQ(g.auxmult16[i], 16 * i);
            ASSERT_EQ(g.auxmult256[i], 256 * i);
        }
        g.chist[100] = 3333;
        g.ImageBrightnessHistogram(image);
        g.HistogramEqualisation(image);  // without effect
        for (int i = 0; i < 256; i++) ASSERT_EQ(g.chist[i], bins[i]) << i;
        int nodes = 0;
        for (const ContNode* q = g.FreeNodes; q != nullptr; q = q->link) nodes++;
        EXPECT_EQ(nodes, 100000);
        EXPECT_EQ(g.tmpstorage, g.FreeNodes);
        g.ScoreHistDifference();
        EXPECT_TRUE(g.Equalise) << "a frame agrees with itself";
    }
}

TEST(Grid, FrameWithoutPixelsHasNoCells) {
    KsColorImage empty;
    GridColorDiff g(empty, 4, COLOR);
    EXPECT_EQ(g.cnum, 0);
    EXPECT_EQ(g.cnum_2, 0);
    g.AddDifferences();
    g.CellDerivatives();
    g.ConnectedComponents();
    EXPECT_EQ(g.GetNumLabel(), 0);
}

}  // namespace
