// The stages over compact arrays, as detection runs them, against the same stages over pixel queries and records that
// somebody holds: what they leave in the grid must be equal bit for bit.
#include <gtest/gtest.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <vector>

#include "support/images.h"
#include "tracker/kscolortracker.h"

namespace {

struct StageCase {
    int rows, cols;
    ImageType type;
};

const StageCase kCases[] = {{48, 64, COLOR}, {48, 64, IR}, {45, 61, COLOR}, {45, 61, IR}, {50, 13, COLOR},
                            {7, 5, COLOR},   {7, 5, IR},   {8, 4, COLOR},   {4, 64, IR},  {41, 130, COLOR}};

// Equal bits, so that a NaN equals itself and 0 differs from -0.
std::vector<std::uint64_t> bitsOf(const double* v, int n) {
    std::vector<std::uint64_t> bits;
    for (int i = 0; i < n; i++) bits.push_back(std::bit_cast<std::uint64_t>(v[i]));
    return bits;
}

TEST(Stages, DetectionAgainstStagesOneByOne) {
    int objects = 0;
    for (const StageCase& s : kCases) {
        SCOPED_TRACE(testing::Message() << s.cols << "x" << s.rows << " type " << s.type);
        TestRandom random(static_cast<unsigned>(s.rows * 7 + s.type));
        int box[4] = {0, 0, 0, 0}, light = 0;
        const auto pixel = [&](int r, int c) {
            if (r >= box[0] && r < box[1] && c >= box[2] && c < box[3]) return ColorValue{20 + r % 5, 230, 40 + c % 9};
            // Two looks in some places, so that cells keep several clusters.
            const int level = 90 + (r * 3 + c * 5) % 40 + light + ((c / 6 + r / 6) % 3 == 0 ? random.below(2) * 30 : 0);
            return ColorValue{level + random.below(5), level + random.below(3), level / 2 + random.below(4)};
        };
        TestImage image(s.rows, s.cols, pixel);
        const auto owned = MakeTracker(s.type, image, 20);
        ColorDiffTracker& tracker = *owned;
        GridColorDiff stages(image, 4, s.type);
        for (int k = 0; k < stages.cnum; k++) stages.cd[k];  // held, so that the stages go by the records
        const GridColorDiff& g = *tracker.G;
        for (int frame = 2; frame < 70; frame++) {
            SCOPED_TRACE(frame);
            light = frame > 40 ? frame % 7 * 6 : 0;
            if (frame > 20 && frame % 4 != 0) {
                box[0] = random.below(s.rows);
                box[1] = box[0] + random.range(2, s.rows / 2 + 2);
                box[2] = random.below(s.cols);
                box[3] = box[2] + random.range(2, s.cols / 2 + 2);
            } else {
                box[1] = 0;
            }
            image.fill(pixel);
            if (frame <= 20 || frame / 5 == 10) {
                tracker.UpdateBackground(image, true);
                continue;
            }
            double clt = tracker.clt, cht = tracker.cht;
            for (int i = 0; i < s.rows * s.cols; i++) {
                const int r = i / s.cols, c = i % s.cols;
                int red = stages.RedD[i], green = stages.GreenD[i], blue = stages.BlueD[i];
                const KsColorImage& px = image.image;
                if (s.type == COLOR)
                    tracker.B->GetDifference(r, c, px.Red(r, c), px.Green(r, c), px.Blue(r, c), red, green, blue);
                else
                    tracker.B->GetDifferenceGray(r, c, px.Red(r, c), red);
                put(stages.RedD[i], red);
                put(stages.GreenD[i], green);
                put(stages.BlueD[i], blue);
            }
            stages.AddDifferences();
            stages.CellDerivatives();
            stages.Confidences(clt, cht, tracker.lt, tracker.ht, tracker.dlt, tracker.dht, 0.25f, 0.5f, 1.0f, 2.0f);
            stages.ConnectedComponents();

            tracker.DetectForeground(image, frame, 0.25f, 0.5f, 1.0f, 2.0f);
            const auto equal_planes = [&](const auto* a, const auto* b) {
                return std::equal(a, a + s.rows * s.cols, b);
            };
            ASSERT_TRUE(equal_planes(g.RedD, stages.RedD));
            ASSERT_TRUE(equal_planes(g.GreenD, stages.GreenD));
            ASSERT_TRUE(equal_planes(g.BlueD, stages.BlueD));
            ASSERT_EQ(bitsOf(&tracker.clt, 1), bitsOf(&clt, 1));
            ASSERT_EQ(bitsOf(&tracker.cht, 1), bitsOf(&cht, 1));
            ASSERT_EQ(bitsOf(g.diff, g.cnum), bitsOf(stages.diff, g.cnum));
            ASSERT_EQ(bitsOf(g.der_conf, g.cnum), bitsOf(stages.der_conf, g.cnum));
            ASSERT_EQ(bitsOf(g.conf, g.cnum), bitsOf(stages.conf, g.cnum));
            ASSERT_EQ(std::vector<int>(g.label, g.label + g.cnum),
                      std::vector<int>(stages.label, stages.label + g.cnum));
            ASSERT_EQ(std::vector<int>(g.prevlabel, g.prevlabel + g.cnum),
                      std::vector<int>(stages.prevlabel, stages.prevlabel + g.cnum));
            ASSERT_EQ(g.numlabel, stages.numlabel);
            for (int lab = 1; lab <= g.numlabel; lab++) {
                ASSERT_EQ(tracker.G->GetConfCC(lab), stages.GetConfCC(lab));
                const std::vector<int> ids(tracker.usedob, tracker.usedob + tracker.numobjects);
                Object expected;
                expected.label = lab;
                double conf = 0;
                int rc = 0, cc = 0;
                const int area = stages.BuildHistogramForComponent(image, expected.h, lab, conf, rc, cc);
                const Object* found = nullptr;
                for (const int k : ids)
                    if (tracker.Ob[k].framenum == frame && tracker.Ob[k].label == lab) found = &tracker.Ob[k];
                if (found == nullptr) continue;  // its cell went to another component (id 0)
                objects++;
                stages.FindPotentialParents(expected);
                ASSERT_EQ(found->area, area);
                ASSERT_EQ(found->rc, (rc + area / 2) / area);
                ASSERT_EQ(found->cc, (cc + area / 2) / area);
                ASSERT_EQ(found->h.minr, expected.h.minr);
                ASSERT_EQ(found->h.maxc, expected.h.maxc);
                ASSERT_EQ(found->h.csum, expected.h.csum);
                for (int bin = 0; bin < KsHistogram::kBins; bin++)
                    ASSERT_EQ(found->h.chist[bin], expected.h.chist[bin]);
                ASSERT_EQ(found->numcells, expected.numcells);
                ASSERT_EQ(std::vector<int>(found->parents, found->parents + found->numparents),
                          std::vector<int>(expected.parents, expected.parents + expected.numparents));
            }
            tracker.UpdateBackground(image, false);
        }
        for (int k = 0; k < g.cnum; k++) {  // records that are made now are as if held all along
            const KsCellDiff &now = tracker.G->cd[k], &held = stages.cd[k];
            ASSERT_EQ(now.RedDiff, held.RedDiff) << k;
            ASSERT_EQ(now.BlueDiff, held.BlueDiff) << k;
            ASSERT_EQ(now.Rx, held.Rx) << k;
            ASSERT_EQ(now.By, held.By) << k;
        }
    }
    EXPECT_GT(objects, 200);
}

}  // namespace
