// Operations beside the main flow: single-image background, trace, documents and dumps, shape scoring, brightness
// comparison, distances of derivatives, motion scores. Expected values come from a second model or from paper.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include "support/captured.h"
#include "support/images.h"
#include "support/process.h"
#include "tracker/kscolortracker.h"

namespace {

std::string slurp(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

// A histogram as text, "level:count" for every level that has pixels.
std::string counts(const int* hist) {
    std::string text;
    for (int k = 0; k < 256; k++)
        if (hist[k] != 0) text += (text.empty() ? "" : " ") + std::to_string(k) + ":" + std::to_string(hist[k]);
    return text;
}
void setCounts(int* hist, const char* text) {
    std::fill_n(hist, 256, 0);
    std::istringstream in(text);
    char colon;
    for (int level, count; in >> level >> colon >> count;) hist[level] = count;
}

// --- a scene for the single-image background: 48 x 48, one or two boxes before a slightly uneven ground ---

struct Patch {
    int r0, r1, c0, c1;
    ColorValue colour;
};
constexpr Patch kA{8, 15, 12, 19, {200, 180, 160}}, kMovedA{8, 15, 14, 21, {200, 180, 160}},
    kB{28, 39, 28, 35, {10, 120, 250}};

auto ground(std::vector<Patch> patches) {
    return [patches](int r, int c) {
        ColorValue v{20 + r % 3, 30, 40 + c % 2};
        for (const Patch& p : patches)
            if (r >= p.r0 && r <= p.r1 && c >= p.c0 && c <= p.c1) v = p.colour;
        return v;
    };
}

std::unique_ptr<ColorDiffTracker> singleTracker(KsColorImage& first, bool debug = false) {
    return MakeTracker(COLOR, first, 2, SINGLE, 4, debug);
}

void detect(ColorDiffTracker& t, KsColorImage& frame, int number) {
    t.DetectForeground(frame, number, 0.25f, 0.5f, 1.0f, 2.0f);
    t.UpdateBackground(frame, false);
}

struct SceneFrame {
    std::vector<Patch> patches;
    double clt, cht;
    std::string trace;
};
// Frame 2 and on. Both records of the first track have aged out by frame 6; in frame 7 the second box gets the cell
// of a record that had a parent, and its trace shows that one.
const std::vector<SceneFrame>& sceneFrames() {
    static const std::vector<SceneFrame> frames{
        {{kA},
         284.98758823415704,
         601.58163262699941,
         "BB: (4 19 ; 8 23),    area = 256,    (rc,cc) = (12 ; 16)\n Potential parent labels (0) :\n"
         "  --------- Object ID = 1\n BestFive: 1 \n"},
        {{kMovedA},
         284.15688742804525,
         599.08764341621122,
         "BB: (4 19 ; 10 25),    area = 240,    (rc,cc) = (12 ; 18)\n Potential parent labels (0) :\n"
         "  --------- Object ID = 1\n BestFive: 1 \n"},
        {{}, 240, 480, " BestFive: \n"},
        {{}, 240, 480, " BestFive: \n"},
        {{}, 240, 480, "Tracked object list empty!   \n"},
        {{kA, kB},
         519.03326875416019,
         972.97150437568814,
         "BB: (4 19 ; 8 23),    area = 256,    (rc,cc) = (12 ; 16)\n Potential parent labels (0) :\n"
         "  --------- Object ID = 2\n"
         "BB: (24 43 ; 24 39),    area = 320,    (rc,cc) = (34 ; 32)\n Potential parent labels (1) :(1 ; 21)  \n"
         "  --------- Object ID = 3\n BestFive: 2 3 \n"},
        {{kMovedA, kB},
         518.45731023392818,
         971.24174202253914,
         "BB: (4 19 ; 10 25),    area = 240,    (rc,cc) = (12 ; 18)\n Potential parent labels (0) :\n"
         "  --------- Object ID = 2\n"
         "BB: (24 43 ; 24 39),    area = 320,    (rc,cc) = (34 ; 32)\n Potential parent labels (0) :\n"
         "  --------- Object ID = 3\n BestFive: 2 3 \n"}};
    return frames;
}

TEST(SingleBackground, TrackerDetectsAgainstTheFirstFrameAndTracesIt) {
    TestImage first(48, 48, ground({}));
    CapturedOutput output;
    const auto owned = singleTracker(first, true);
    ColorDiffTracker& tracker = *owned;
    int number = 2;
    for (const SceneFrame& f : sceneFrames()) {
        TestImage frame(48, 48, ground(f.patches));
        detect(tracker, frame, number);
        EXPECT_EQ(output.take(), f.trace) << "frame " << number;
        EXPECT_DOUBLE_EQ(tracker.clt, f.clt) << "frame " << number;
        EXPECT_DOUBLE_EQ(tracker.cht, f.cht) << "frame " << number;
        number++;
    }
    tracker.DEBUG = false;
    detect(tracker, first, number);
    EXPECT_EQ(output.take(), "");
}

// Frame minus background, of the shared buffer as it is now: neither copied at the start nor changed by updates.
TEST(SingleBackground, SharesTheFirstFramesBuffer) {
    TestImage first(48, 48, ground({}));
    std::unique_ptr<ColorDiffTracker> tracker = singleTracker(first.image);
    EXPECT_EQ(tracker->B->IBkg.rawsrc, first.image.rawsrc);
    EXPECT_EQ(tracker->B->cd, nullptr);
    TestImage frame(48, 48, ground({kA}));
    for (int number = 2; number < 40; number++) detect(*tracker, frame, number);
    const int inside = 10 * 48 + 14;
    EXPECT_EQ(tracker->G->RedD[inside], 200 - 21);
    EXPECT_EQ(tracker->G->GreenD[inside], 180 - 30);
    EXPECT_EQ(tracker->G->BlueD[inside], 160 - 40);
    EXPECT_EQ(tracker->G->RedD[0], 0);
    first.image.SetBlue(10, 14, 255);
    tracker->G->ComputeDifferences(frame, tracker->B);
    EXPECT_EQ(tracker->G->BlueD[inside], 160 - 255);
    tracker.reset();  // leaves the buffer to its owner
    EXPECT_EQ(first.image.Blue(10, 14), 255);
}

TEST(SingleBackground, InfraredUsesTheFirstByteAlone) {
    TestImage first(24, 28, [](int, int) { return ColorValue{50, 99, 1}; });
    const auto owned = MakeTracker(IR, first, 2, SINGLE);
    ColorDiffTracker& tracker = *owned;
    tracker.G->GreenD[4 * 28 + 8] = 5;
    TestImage frame(24, 28, [](int r, int c) {
        return r >= 4 && r <= 11 && c >= 8 && c <= 15 ? ColorValue{90, 0, 0} : ColorValue{50, 0, 0};
    });
    detect(tracker, frame, 2);
    EXPECT_EQ(tracker.G->RedD[4 * 28 + 8], 40);
    EXPECT_EQ(tracker.G->GreenD[4 * 28 + 8], 5);
    EXPECT_DOUBLE_EQ(tracker.clt, 247.17799585867579);
    EXPECT_DOUBLE_EQ(tracker.cht, 599.31176535380519);
    ASSERT_EQ(tracker.numobjects, 1);
    EXPECT_EQ(tracker.Ob[0].area, 192);
    EXPECT_EQ(tracker.Ob[0].h.minr, 2);
    EXPECT_EQ(tracker.Ob[0].h.maxc, 19);
    EXPECT_EQ(tracker.G->bhist[50], 24 * 28);
}

// One number for each main cell with a confidence, none while everything is updated.
TEST(SingleBackground, UpdateDrawsForForegroundCells) {
    TestImage first(48, 48, ground({})), frame(48, 48, ground({kA, kB}));
    for (const bool all : {false, true}) {
        const auto owned = singleTracker(first);
        ColorDiffTracker& tracker = *owned;
        tracker.DetectForeground(frame, 2, 0.25f, 0.5f, 1.0f, 2.0f);
        tracker.G->bhist[3] = 99;
        tracker.UpdateBackground(frame, all);
        const int next = std::rand();
        ::srandom(0);
        for (int i = 0; i < (all ? 0 : 10); i++) std::rand();
        EXPECT_EQ(next, std::rand()) << "updateall " << all;
        // Brightness of the background, not of the frame: (20 + r % 3 + 30 + 40 + c % 2 + 1) / 3.
        EXPECT_EQ(counts(tracker.G->bhist), "30:1152 31:1152");  // three rows in six each
    }
}

// --- documents and dumps ---

TEST(Dumps, DetectionsDocument) {
    TestImage first(16, 16, flat(0));
    const auto owned = singleTracker(first);
    ColorDiffTracker& tracker = *owned;
    tracker.t = 7;
    const std::string head = "<DETECTIONS>\n         <FRAME SEQ=\"7\">\n";
    const std::string foot = "         </FRAME>\n</DETECTIONS>\n";
    std::ostringstream none;
    tracker.OutputXML(none);
    EXPECT_EQ(none.str(), head + foot);

    struct Row {
        int cell, framenum, id, area, minr, maxr, minc, maxc;
        bool report;
    };
    for (const Row& r : {Row{4, 7, 12, 31, 10, 13, 20, 27, true}, Row{2, 6, 5, 1, 0, 0, 0, 0, true},
                         Row{0, 7, 6, 1, 0, 0, 0, 0, false}, Row{9, 7, 99999, 9, 3, 3, 5, 7, true}}) {
        tracker.usedob[tracker.numobjects++] = r.cell;
        Object& ob = tracker.Ob[r.cell];
        ob.framenum = r.framenum;
        ob.id = r.id;
        ob.area = r.area;
        ob.reportit = r.report;
        ob.h.KsSetBoxBounds(r.minr, r.maxr, r.minc, r.maxc);
    }
    std::ostringstream two, again;
    tracker.OutputXML(two);
    EXPECT_EQ(two.str(), head +
                             "               <OBJECT ID=\"12\">\n"
                             "                      <POSITION X=\"24\"  Y=\"12\"/>\n"
                             "                      <SIZE W=\"8\"  H=\"4\"  A=\"31\"/>\n"
                             "               </OBJECT>\n"
                             "               <OBJECT ID=\"99999\">\n"
                             "                      <POSITION X=\"6\"  Y=\"3\"/>\n"
                             "                      <SIZE W=\"3\"  H=\"1\"  A=\"9\"/>\n"
                             "               </OBJECT>\n" +
                             foot);
    tracker.OutputXML(again);
    EXPECT_EQ(again.str(), head + foot);
    EXPECT_TRUE(tracker.Ob[2].reportit);  // of an earlier frame
}

TEST(Dumps, TablesOfCells) {
    TempDir dir;
    TestImage first(12, 12, flat(0));
    for (const int size : {4, 6}) {  // the offset is 2 for both
        const auto owned = MakeTracker(COLOR, first, 2, MULTIPLE, size);
        ColorDiffTracker& tracker = *owned;
        GridColorDiff& g = *tracker.G;
        const int k = g.cnum - 1;
        g.cd[k].Rx = -3, g.cd[k].Gx = 4, g.cd[k].Bx = -5, g.cd[k].Ry = 100, g.cd[k].Gy = -20, g.cd[k].By = 1;
        g.cd[k].der = {1, -2, 3, -4, 5, -66};
        tracker.WriteImageEdges((dir.path + "/edges").c_str());
        tracker.WriteImageDerivatives((dir.path + "/derivatives").c_str());
        const std::string edges = slurp(dir.path + "/edges.txt");
        const std::string derivatives = slurp(dir.path + "/derivatives.txt");
        EXPECT_EQ(std::count(edges.begin(), edges.end(), '\n'), g.cnum);
        EXPECT_EQ(std::count(derivatives.begin(), derivatives.end(), '\n'), g.cnum);
        const std::string second = size == 4 ? "2  6" : "2  8", last = size == 4 ? "8  8" : "5  5";
        EXPECT_TRUE(edges.starts_with("2  2  0  0\n" + second + "  0  0\n")) << edges;
        EXPECT_TRUE(edges.ends_with("\n" + last + "  12  121\n")) << edges;
        EXPECT_TRUE(derivatives.starts_with("2  2  0  0  0  0  0  0\n")) << derivatives;
        EXPECT_TRUE(derivatives.ends_with("\n" + last + "  1  -2  3  -4  5  -66\n")) << derivatives;
        tracker.WriteImageEdges((dir.path + "/missing/edges").c_str());  // nothing to write to: no effect
    }
}

TEST(Dumps, BackgroundAndImageAsGreyMap) {
    TempDir dir;
    const std::string path = dir.path + "/map.pgm";
    TestImage image(2, 3, [](int r, int c) { return ColorValue{r * 100 + c * 11, 7, 8}; });
    for (const BackgroundType type : {MULTIPLE, SINGLE}) {
        MakeTracker(COLOR, image, 2, type)->OutputBackgroundImage(path.c_str());
        EXPECT_EQ(slurp(path), type == SINGLE ? "P2\n3 2\n255\n0 11 22 \n100 111 122 \n" : "");
        EXPECT_EQ(std::filesystem::exists(path), type == SINGLE);
    }
    KsColorImage rowless = image.image;
    rowless.NofR = 0;
    rowless.KsWriteImage(path.c_str());
    EXPECT_EQ(slurp(path), "P2\n3 0\n255\n");
}

// --- shape scoring ---

std::string kept(const ContNode* node) {
    std::string flags;
    for (; node != nullptr; node = node->link) flags += node->keepnode ? '1' : '0';
    return flags;
}

TEST(ShapeScoring, MarksThePolygonsOfTheFrame) {
    TestImage first(48, 48, ground({}));
    CapturedOutput output;
    const auto owned = singleTracker(first);
    ColorDiffTracker& tracker = *owned;
    const auto clear = [&] {
        for (int i = 0; i < tracker.numobjects; i++)
            for (ContNode* n = tracker.Ob[tracker.usedob[i]].fnode; n != nullptr; n = n->link) n->keepnode = false;
    };
    tracker.ScoreImage(first);
    tracker.ScoreImageEdges(first);
    for (int number = 7; number <= 8; number++) {
        TestImage frame(48, 48, ground({number == 7 ? kA : kMovedA, kB}));
        detect(tracker, frame, number);
    }
    EXPECT_EQ(output.take(), "");
    ASSERT_EQ(tracker.numobjects, 4);

    std::map<int, std::string> expected;  // by cell
    clear();
    for (int i = 0; i < 4; i++) {
        const int k = tracker.usedob[i];
        if (tracker.Ob[k].framenum == 8) tracker.PolygonalApproximation(tracker.Ob[k].fnode, 1.41);
        expected[k] = kept(tracker.Ob[k].fnode);
    }
    EXPECT_EQ(expected[0].find('1'), std::string::npos);  // of frame 7
    EXPECT_NE(expected[2].find("01"), std::string::npos);
    const auto marked = [&] {
        std::map<int, std::string> flags;
        for (int i = 0; i < 4; i++) flags[tracker.usedob[i]] = kept(tracker.Ob[tracker.usedob[i]].fnode);
        return flags;
    };
    clear();
    tracker.ScoreImage(first);
    EXPECT_EQ(marked(), expected);
    EXPECT_EQ(output.take(), "");
    clear();
    tracker.ScoreImageEdges(first);
    EXPECT_EQ(marked(), expected);
    EXPECT_EQ(output.take(), "pob = 2         2\npob = 3         3\n");
}

// --- brightness ---

// A level map as text: "a-b=c+" maps a to c, a + 1 to c + 1 and so on, "a-b=c" all to c, "a=c" one level.
std::string runs(const int* lut) {
    std::string text;
    for (int k = 0; k < 256;) {
        const int step = k < 255 ? lut[k + 1] - lut[k] : 0;
        int end = k;
        if (step == 0 || step == 1)
            while (end < 255 && lut[end + 1] == lut[end] + step) end++;
        text += (k > 0 ? " " : "") + std::to_string(k) + (end > k ? "-" + std::to_string(end) : "") + "=" +
                std::to_string(lut[k]) + (end > k && step == 1 ? "+" : "");
        k = end + 1;
    }
    return text;
}

struct Comparison {
    const char *background, *frame;  // 64 pixels each
    const char* lut;                 // entries that are not reached keep their 7
    const char* remapped;
    bool agree;
};
const Comparison kComparisons[] = {
    {"10:20 50:24 200:20", "10:20 50:24 200:20", "0-255=0+", "10:20 50:24 200:20", true},
    {"100:16 101:16 102:16 103:16", "110:16 111:16 112:16 113:16", "0-100=0+ 101-110=100 111-255=101+",
     "100:16 101:16 102:16 103:16", true},
    {"40:8 80:16 120:16 160:16 200:8", "128:64", "0-39=0+ 40-127=79 128-255=80", "80:64", false},
    {"128:64", "40:8 80:16 120:16 160:16 200:8", "0-40=0+ 41-79=40 80-255=7", "7:56 40:8", false},
    {"60:32 180:32", "20:32 180:32", "0-20=0+ 21-179=20 180-255=180+", "20:32 180:32", false},
    {"3:5 4:9 90:20 91:1 92:7 250:22", "0:2 5:11 6:3 88:13 93:15 94:9 255:11", "0-4=0 5-87=89 88-92=90 93=91 94-255=7",
     "0:2 7:20 89:14 90:13 91:15", false},
    // A summed difference of 63 for 64 pixels is below one a pixel, 64 is not.
    {"129:53 134:11", "123:3 131:59 132:2", "0-123=0+ 124-130=123 131=129 132-253=134+ 254-255=7", "123:3 129:59 134:2",
     true},
    {"112:64", "111:64", "0-111=0+ 112-255=111", "111:64", false},
};

TEST(Brightness, ComparisonOfDistributions) {
    TestImage image(8, 8, flat(0));
    for (const Comparison& c : kComparisons) {
        GridColorDiff g(image, 4, COLOR);
        setCounts(g.bhist, c.background);
        setCounts(g.chist, c.frame);
        std::fill_n(g.lut, 256, 7);
        g.Equalise = !c.agree;
        g.ScoreHistDifference();
        EXPECT_EQ(runs(g.lut), c.lut) << c.frame;
        EXPECT_EQ(counts(g.chist), c.remapped) << c.frame;
        EXPECT_EQ(g.Equalise, c.agree) << c.frame;
    }
}

// --- derivatives and motion ---

TEST(Derivatives, NormAndDistance) {
    EXPECT_EQ(derNorm({0, 0, 0, 0, 0, 0}), 0.0);
    EXPECT_EQ(derNorm({2, -4, 4, 0, 8, 0}), 10.0);
    EXPECT_EQ(derNorm({46340, 0, 0, 0, 0, 0}), 46340.0);
    EXPECT_TRUE(std::isnan(derNorm({46341, 0, 0, 0, 0, 0})));         // the 32-bit sum has wrapped
    const ColorDerivative a{1, 2, 3, 4, 5, 6}, b{4, -1, 6, 1, 8, 3};  // six differences of 3
    struct Row {
        double n1, n2;
        int mindist;
        double distance;
    };
    for (const Row& r : {Row{5, 4.5, 9, 108 / 9.5}, Row{5, 5, 10, 10.8}, Row{5, 4.5, 10, 0}, Row{0.5, 0, 0, 216}})
        EXPECT_EQ(CellPartialDerivativeDistance(a, b, r.n1, r.n2, r.mindist), r.distance) << r.mindist;
    EXPECT_EQ(CellPartialDerivativeDistance(a, a, 5, 5, 1), 0.0);
}

// The confidence of a cell that is on, on, then off, remembered over 1, 2 and 5 frames.
TEST(Motion, ScoresRememberConfidence) {
    TestImage image(8, 8, flat(0));
    GridColorDiff g(image, 4, COLOR);
    const double on[3][3] = {{1 / 2., 3 / 4., 3 / 8.}, {1 / 3., 5 / 9., 10 / 27.}, {1 / 6., 11 / 36., 55 / 216.}};
    EXPECT_EQ(g.motion, nullptr);
    for (int step = 0; step < 3; step++) {
        g.diff[0] = step < 2 ? 300 : 100;  // above the ramp of 100..200, then at its lower end
        g.diff[1] = 150;                   // half-way up, always
        for (int i = 0; i < 3; i++) {
            const int num[] = {4, 3, 0};
            g.ConfidencesMotion(100, 200, num[i]);
            const double* score[] = {g.motion1, g.motion2, g.motion5};
            EXPECT_NEAR(score[i][0], on[i][step], 1e-12) << "num " << num[i] << " step " << step;
            EXPECT_EQ(g.motion[0], score[i][0]);
            EXPECT_EQ(g.motion[2], 0.0);
        }
    }
    EXPECT_NEAR(g.motion1[1], 0.5 * (1 - 1 / 8.), 1e-12);
    const double before = g.motion1[0];
    g.ConfidencesMotion(100, 200, 1);  // no such score
    EXPECT_EQ(g.motion1[0], before);
}

}  // namespace
