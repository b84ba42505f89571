// Differences per cell, their derivatives, and the confidences with their adaptive thresholds.
#include <gtest/gtest.h>

#include <cmath>
#include <memory>

#include "support/images.h"

namespace {

TEST(Differences, SumsOverTheCellsPixels) {
    for (const ImageType type : {COLOR, IR}) {
        TestImage image(11, 14, flat(0));
        GridColorDiff g(image, 4, type);
        TestRandom random(3);
        for (int i = 0; i < 11 * 14; i++) {
            put(g.RedD[i], random.range(-255, 255));
            put(g.GreenD[i], random.range(-255, 255));
            put(g.BlueD[i], random.range(-255, 255));
        }
        for (int k = 0; k < g.cnum; k++) g.cd[k].GreenDiff = g.cd[k].BlueDiff = 7;
        g.AddDifferences();
        for (int k = 0; k < g.cnum; k++) {
            int red = 0, green = type == COLOR ? 0 : 7, blue = green;
            for (int r = g.cd[k].minr; r <= g.cd[k].maxr && r < 11; r++) {
                for (int c = g.cd[k].minc; c <= g.cd[k].maxc && c < 14; c++) {
                    red += g.RedD[r * 14 + c];
                    if (type == COLOR) green += g.GreenD[r * 14 + c];
                    if (type == COLOR) blue += g.BlueD[r * 14 + c];
                }
            }
            ASSERT_EQ(g.cd[k].RedDiff, red) << k;
            ASSERT_EQ(g.cd[k].GreenDiff, green) << k;
            ASSERT_EQ(g.cd[k].BlueDiff, blue) << k;
        }
    }
}

TEST(Differences, UnmatchedPixelsKeepTheirValue) {
    TestImage image(8, 8, flat(50));
    GridColorDiff g(image, 4, COLOR);
    BackgroundModel model(image, 0.95, COLOR, &g, MULTIPLE, 7);
    g.ComputeDifferences(image, &model);
    EXPECT_EQ(g.RedD[9], 0) << "starts as zero";
    for (int i = 0; i < 64; i++) g.RedD[i] = 77;
    g.ComputeDifferences(image, &model);
    EXPECT_EQ(g.RedD[9], 77);
    g.AddDifferences();
    EXPECT_EQ(g.cd[0].RedDiff, 16 * 77);
    g.RedD[9] = 80;
    g.AddDifferences();
    EXPECT_EQ(g.cd[0].RedDiff, 16 * 77 + 3) << "from the pixels as they stand";
}

TEST(Derivatives, OfTheDiagonalNeighbours) {
    for (const ImageType type : {COLOR, IR}) {
        TestImage image(20, 24, flat(0));
        GridColorDiff g(image, 4, type);
        TestRandom random(4);
        for (int k = 0; k < g.cnum; k++) {
            KsCellDiff& c = g.cd[k];
            c.RedDiff = random.range(-4000, 4000);
            c.GreenDiff = random.range(-4000, 4000);
            c.BlueDiff = random.range(-4000, 4000);
            c.sum = {random.below(4000), random.below(4000), random.below(4000)};
            c.Rx = c.Ry = c.Gx = c.Gy = c.Bx = c.By = 5;
            c.der = {5, 5, 5, 5, 5, 5};
        }
        g.CellDerivatives();
        g.CellPartialDerivatives();
        int borders = 0;
        for (int k = 0; k < g.cnum; k++) {
            const KsCellDiff& c = g.cd[k];
            const int* n = g.n[k].n;
            const bool border = n[4] < 0 || n[5] < 0 || n[6] < 0 || n[7] < 0;
            borders += border;
            // x: lower pair minus upper pair; y: right pair minus left pair.
            const auto x = [&](auto of) { return border ? 0 : of(n[6]) + of(n[7]) - of(n[4]) - of(n[5]); };
            const auto y = [&](auto of) { return border ? 0 : of(n[4]) + of(n[7]) - of(n[5]) - of(n[6]); };
            const auto red = [&](int i) { return g.cd[i].RedDiff; };
            const auto blue = [&](int i) { return g.cd[i].BlueDiff; };
            const auto red_sum = [&](int i) { return g.cd[i].sum.R; };
            const auto green_sum = [&](int i) { return g.cd[i].sum.G; };
            const auto blue_sum = [&](int i) { return g.cd[i].sum.B; };
            ASSERT_EQ(c.Rx, x(red)) << k;
            ASSERT_EQ(c.Ry, y(red)) << k;
            ASSERT_EQ(c.Bx, type == COLOR ? x(blue) : 5) << k;
            ASSERT_EQ(c.By, type == COLOR ? y(blue) : 5) << k;
            ASSERT_EQ(c.der.Rx, x(red_sum)) << k;
            ASSERT_EQ(c.der.Ry, y(red_sum)) << k;
            ASSERT_EQ(c.der.Bx, type == COLOR ? x(blue_sum) : 5) << k;
            ASSERT_EQ(c.der.By, type == COLOR ? y(blue_sum) : 5) << k;
            ASSERT_EQ(c.der.Gx, type == COLOR ? x(green_sum) : 5) << k;
            ASSERT_EQ(c.der.Gy, type == COLOR ? y(green_sum) : 5) << k;
        }
        EXPECT_EQ(borders, 2 * 6 + 2 * 3) << "the rim of the main lattice";
    }
}

class Confidence : public testing::Test {
 protected:
    // Red differences of the 5 cells; everything else zero. Thresholds -50 and -40, derivatives 10 and 20.
    void Run(ImageType type, const std::vector<int>& red) {
        grid = std::make_unique<GridColorDiff>(image, 4, type);
        ASSERT_EQ(grid->cnum, 5);
        for (int k = 0; k < 5; k++) grid->cd[k].RedDiff = red[static_cast<std::size_t>(k)];
        again();
    }
    void again() { grid->Confidences(clt, cht, low_floor, high_floor, 10, 20, 0.25f, 0.5f, 1.0f, 2.0f); }

    TestImage image{8, 8, flat(0)};
    std::unique_ptr<GridColorDiff> grid;
    double clt = -50, cht = -40, low_floor = -1000, high_floor = -1000;
};

// Mean over cnum, squares over cnum - 1: equal differences still have a spread.
TEST_F(Confidence, MixedDivisors) {
    Run(IR, {-8, 8, 8, -8, 8});
    const double s = std::sqrt(5 * 64.0 / 4 - 64.0);
    EXPECT_EQ(s, 4.0);
    EXPECT_EQ(clt, 8 + 4 * 1.0);
    EXPECT_EQ(cht, 12 + 4 * 2.0) << "the high threshold stands on the low one";
    EXPECT_EQ(grid->diff[0], 8.0) << "absolute value";
    clt = cht = -50;
    Run(COLOR, {8, 8, 8, 8, 8});
    EXPECT_EQ(clt, 9.0);
    EXPECT_EQ(cht, 11.0);
}

TEST_F(Confidence, ThresholdsRiseAtOnceAndFallSlowly) {
    Run(IR, {8, 8, 8, 8, 8});
    clt = 20;
    cht = 16;
    again();
    EXPECT_EQ(clt, (12 + 3 * 20.0) * 0.25);
    EXPECT_EQ(cht, 20.0);
    low_floor = 18;
    high_floor = 19;
    cht = 0;
    again();
    EXPECT_EQ(clt, 18.0) << "(12 + 54) / 4 is below the floor";
    EXPECT_EQ(cht, 20.0) << "above its floor";
}

TEST_F(Confidence, RampsAreInclusiveAtBothEnds) {
    Run(IR, {0, 0, 0, 0, 0});
    const int diffs[] = {99, 100, 150, 200, 201};
    for (int k = 0; k < 5; k++) grid->cd[k].RedDiff = diffs[k];
    for (int k = 0; k < 5; k++) grid->cd[k].Rx = 3 * (k + 2), grid->cd[k].Ry = 4 * (k + 2);
    // A multiplier that pulls the new thresholds far below their floors.
    grid->Confidences(clt = 0, cht = 0, 100, 200, 10, 20, 0, 0, -100.0f, 0);
    EXPECT_EQ(clt, 100.0);
    EXPECT_EQ(cht, 200.0);
    const double conf[] = {0, 0, 0.5, 1, 1}, der[] = {0, 0.5, 1, 1, 1};
    for (int k = 0; k < 5; k++) {
        EXPECT_EQ(grid->conf[k], conf[k]) << k;
        EXPECT_EQ(grid->der_conf[k], der[k]) << k;
    }
    // Both thresholds in one place: the low end wins.
    grid->Confidences(clt = 0, cht = 0, 150, 150, 10, 10, 0, 0, -100.0f, 0);
    EXPECT_EQ(grid->conf[2], 0.0);
    EXPECT_EQ(grid->der_conf[0], 0.0);
    EXPECT_EQ(grid->conf[3], 1.0);
}

TEST_F(Confidence, ColourMeasureIsATruncatedNorm) {
    grid = std::make_unique<GridColorDiff>(image, 4, COLOR);
    const int rgb[5][4] = {{3, -4, 0, 5}, {1, 1, 1, 1}, {5, 5, 5, 8}, {0, 0, 0, 0}, {30000, 40000, 0, 50000}};
    for (int k = 0; k < 5; k++) {
        grid->cd[k].RedDiff = rgb[k][0];
        grid->cd[k].GreenDiff = rgb[k][1];
        grid->cd[k].BlueDiff = rgb[k][2];
        grid->cd[k].Gx = k * 2;
        grid->cd[k].By = k * 2;
        grid->cd[k].Ry = k;
    }
    again();
    for (int k = 0; k < 5; k++) {
        EXPECT_EQ(grid->diff[k], rgb[k][3]) << "squares beyond 32 bits included";
        const double dm = 3.0 * k;
        EXPECT_EQ(grid->der_conf[k], dm <= 10 ? 0 : dm >= 20 ? 1 : (dm - 10) / 10);
    }
}

// No thresholds make it fail; the results follow the formulas as far as they go.
TEST_F(Confidence, StrangeThresholds) {
    Run(IR, {8, 1, 2, 3, 4});
    for (const double strange : {std::nan(""), 1e300, -1e300, HUGE_VAL, -HUGE_VAL}) {
        clt = cht = strange;
        grid->Confidences(clt, cht, -1e9, -1e9, strange, strange, 0, 0, static_cast<float>(strange), 0);
        for (int k = 0; k < 5; k++) EXPECT_FALSE(grid->conf[k] < 0 || grid->conf[k] > 1) << strange;
    }
    TestImage small(4, 4, flat(0));
    GridColorDiff one(small, 4, COLOR);
    clt = cht = 5;
    one.Confidences(clt, cht, 1, 2, 10, 20, 0.25f, 0.5f, 1, 2);
    EXPECT_TRUE(std::isnan(clt)) << "a single cell has no spread";
    one.ConnectedComponents();
    EXPECT_EQ(one.GetNumLabel(), 0);
}

}  // namespace
