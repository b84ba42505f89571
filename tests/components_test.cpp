// Connected components against a plain second labelling, and the histogram, area and box of a component.
#include <gtest/gtest.h>

#include <deque>
#include <set>

#include "support/images.h"

namespace {

struct Labelling {
    std::vector<int> label;
    std::vector<double> conf;
    std::vector<double> confidence{0.0};  // by label
};

// Breadth first instead of depth first: the result does not depend on the order.
Labelling labelPlainly(const GridColorDiff& g) {
    Labelling out;
    out.label.assign(static_cast<std::size_t>(g.cnum), 0);
    out.conf.assign(g.conf, g.conf + g.cnum);
    for (int seed = 0; seed < g.cnum; seed++) {
        const auto s = static_cast<std::size_t>(seed);
        if (out.label[s] != 0 || !(g.der_conf[seed] >= 1.0 || out.conf[s] >= 1.0)) continue;
        const int lab = static_cast<int>(out.confidence.size());
        std::vector<int> members;
        std::deque<int> pending{seed};
        out.label[s] = lab;
        double best = out.conf[s];
        while (!pending.empty()) {
            const int k = pending.front();
            pending.pop_front();
            members.push_back(k);
            best = std::max(best, out.conf[static_cast<std::size_t>(k)]);
            for (const int m : g.n[k].n) {
                if (m < 0 || out.label[static_cast<std::size_t>(m)] != 0) continue;
                const double c = out.conf[static_cast<std::size_t>(m)], d = g.der_conf[m];
                if (!(d > 0.25 || c > 0.1 || (d > 0 && c > 0))) continue;
                out.label[static_cast<std::size_t>(m)] = lab;
                pending.push_back(m);
            }
        }
        if (best >= 1.0) {
            out.confidence.push_back(best);
            continue;
        }
        for (const int k : members) {
            out.label[static_cast<std::size_t>(k)] = 0;
            out.conf[static_cast<std::size_t>(k)] = 0.0;
        }
    }
    return out;
}

TEST(Components, AgainstPlainLabelling) {
    int components = 0, dropped = 0;
    for (unsigned seed = 1; seed <= 600; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        TestRandom random(seed);
        TestImage image(random.range(1, 60), random.range(1, 60), flat(0));
        GridColorDiff g(image, 4, COLOR);
        const int share = random.range(2, 12);
        const double levels[] = {0.05, 0.1, 0.100001, 0.25, 0.250001, 0.7, 1.0};
        for (int frame = 0; frame < 3; frame++) {
            const std::vector<int> before(g.label, g.label + g.cnum);
            const int count_before = g.numlabel;
            for (int k = 0; k < g.cnum; k++) {
                g.conf[k] = random.below(share) == 0 ? levels[random.below(random.below(3) == 0 ? 7 : 6)] : 0.0;
                g.der_conf[k] = random.below(share) == 0 ? levels[random.below(7)] : 0.0;
            }
            const std::vector<double> conf(g.conf, g.conf + g.cnum);
            const Labelling expected = labelPlainly(g);
            g.ConnectedComponents();
            ASSERT_EQ(g.GetNumLabel(), static_cast<int>(expected.confidence.size()) - 1);
            ASSERT_EQ(std::vector<int>(g.label, g.label + g.cnum), expected.label);
            ASSERT_EQ(std::vector<double>(g.conf, g.conf + g.cnum), expected.conf);
            ASSERT_EQ(std::vector<int>(g.prevlabel, g.prevlabel + g.cnum), before);
            ASSERT_EQ(g.numprevlabel, count_before);
            for (int lab = 1; lab <= g.numlabel; lab++)
                ASSERT_EQ(g.GetConfCC(lab), expected.confidence[static_cast<std::size_t>(lab)]);
            components += g.numlabel;
            dropped += conf != expected.conf;
        }
    }
    EXPECT_GT(components, 1000);
    EXPECT_GT(dropped, 100);
}

// One component over a frame far larger than any fixed stack would hold.
TEST(Components, WholeFrame) {
    TestImage image(720, 1280, flat(0));
    GridColorDiff g(image, 4, COLOR);
    std::fill(g.conf, g.conf + g.cnum, 1.0);
    std::fill(g.der_conf, g.der_conf + g.cnum, 0.0);
    g.ConnectedComponents();
    EXPECT_EQ(g.GetNumLabel(), 1);
    EXPECT_EQ(std::count(g.label, g.label + g.cnum, 1), g.cnum);
}

// Every main cell its own component, as many as there can be.
TEST(Components, AsManyLabelsAsCells) {
    TestImage image(4, 400, flat(0));  // one row: no shifted cells
    GridColorDiff g(image, 4, COLOR);
    for (int k = 0; k < g.cnum; k++) g.conf[k] = k % 2 == 0, g.der_conf[k] = 0;
    g.ConnectedComponents();
    ASSERT_EQ(g.GetNumLabel(), 50);
    for (int k = 0; k < g.cnum; k++) ASSERT_EQ(g.label[k], k % 2 == 0 ? k / 2 + 1 : 0);
}

// The pixels of a component are the union of its cells; shared quadrants count once.
TEST(Histogram, AgainstAUnionOfQuadrants) {
    for (unsigned seed = 1; seed <= 60; seed++) {
        TestRandom random(seed);
        const int cell = seed % 3 == 0 ? 8 : 4, h = cell / 2;
        const int rows = random.range(1, 50), cols = random.range(1, 50);
        TestImage image(rows, cols, [&](int, int) {
            return ColorValue{random.below(256), random.below(256), random.below(64)};
        });
        GridColorDiff g(image, cell, COLOR);
        std::set<std::pair<int, int>> quadrants;
        int box[4] = {100000, -1, 100000, -1};
        for (int k = 0; k < g.cnum; k++) {
            g.label[k] = random.below(3);
            if (g.label[k] != 1) continue;
            const RasterPlace at = placeOf(g, k);
            for (const int i : {0, 1})
                for (const int j : {0, 1}) quadrants.insert({at.row + i, at.col + j});
            box[0] = std::min(box[0], g.cd[k].minr);
            box[1] = std::max(box[1], g.cd[k].maxr);
            box[2] = std::min(box[2], g.cd[k].minc);
            box[3] = std::max(box[3], g.cd[k].maxc);
        }
        std::vector<int> bins(4096, 0);
        int pixels = 0, row_sum = 0, col_sum = 0;
        for (int r = 0; r < rows; r++) {
            for (int c = 0; c < cols; c++) {
                if (!quadrants.contains({r / h, c / h})) continue;
                bins[static_cast<std::size_t>(image.image.Red(r, c) / 16 + image.image.Green(r, c) / 16 * 16 +
                                              image.image.Blue(r, c) / 16 * 256)]++;
                pixels++;
                row_sum += r;
                col_sum += c;
            }
        }
        g.labelconf[1] = 0.75;
        KsHistogram histogram;
        double conf = -1;
        int rc = 9, cc = 9;
        const int area = g.BuildHistogramForComponent(image, histogram, 1, conf, rc, cc);
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        EXPECT_EQ(area, static_cast<int>(quadrants.size()) * h * h) << "unclipped";
        EXPECT_EQ(histogram.csum, pixels);
        EXPECT_EQ(rc, row_sum);
        EXPECT_EQ(cc, col_sum);
        EXPECT_EQ(conf, quadrants.empty() ? -1 : 0.75);
        for (int bin = 0; bin < KsHistogram::kBins; bin++)
            ASSERT_EQ(histogram.chist[bin], bins[static_cast<std::size_t>(bin)]) << bin;
        EXPECT_EQ((std::vector<int>{histogram.minr, histogram.maxr, histogram.minc, histogram.maxc}),
                  std::vector<int>(box, box + 4));
    }
}

TEST(Histogram, BinsWrapAt16Bits) {
    TestImage image(200, 200, [](int, int) { return ColorValue{16, 32, 48}; });
    KsHistogram h;
    h.KsSetCval(0);
    h.KsSetBoxBounds(0, 199, 0, 199);
    h.KsBuildColorHistogram(image, static_cast<GridColorDiff*>(nullptr));
    EXPECT_EQ(h.chist[801], static_cast<std::int16_t>(40000));
    EXPECT_EQ(h.csum, 40001);
    for (int i = 0; i < 25536; i++) h.KsSetCval(801);
    EXPECT_EQ(h.chist[801], 0);
    EXPECT_EQ(h.chist[0], 1);
    const KsHistogram copy = h;
    h.KsInitColorHistogram();
    EXPECT_EQ(h.chist[0], 0);
    EXPECT_EQ(copy.chist[0], 1);
}

}  // namespace
