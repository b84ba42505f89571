// The invariant checks themselves: silent over a running tracker, and each finds the fault it is there for.
#include "tracker/Invariants.h"

#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <memory>
#include <vector>

namespace {

constexpr int kRows = 48, kCols = 64, kLearning = 20;

// A textured scene with a bright square that crosses it, in a tracker that has seen `frames` of it.
class Running {
 public:
    explicit Running(int frames) : pixels(kRows * kCols * 3) {
        Paint(1);
        tracker = MakeTracker(COLOR, image, kLearning);
        for (int frame = 2; frame <= frames; frame++) {
            Paint(frame);
            if (frame > kLearning) tracker->DetectForeground(image, frame, 0.25f, 0.5f, 1.0f, 2.0f);
            tracker->UpdateBackground(image, frame <= kLearning);
            EXPECT_EQ(FrameViolation(*tracker), "") << "frame " << frame;
        }
    }
    ColorDiffTracker& operator*() { return *tracker; }

 private:
    void Paint(int frame) {
        image.KsReadImageMemory(pixels.data(), kRows, kCols);
        for (int r = 0; r < kRows; r++)
            for (int c = 0; c < kCols; c++) {
                const int x = (frame - kLearning) * 2;
                const bool square = frame > kLearning && r >= 16 && r < 32 && c >= x && c < x + 12;
                const int v = square ? 230 : 60 + (r * 7 + c * 13 + frame * 5) % 24;
                image.SetRed(r, c, static_cast<unsigned char>(v));
                image.SetGreen(r, c, static_cast<unsigned char>(v / 2));
                image.SetBlue(r, c, static_cast<unsigned char>(255 - v));
            }
    }

    std::vector<unsigned char> pixels;
    KsColorImage image;
    std::unique_ptr<ColorDiffTracker> tracker;
};

ContNode* Contour(ColorDiffTracker& T) {
    return T.Ob[T.usedob[T.numobjects - 1]].fnode;
}

struct Damage {
    const char* expected;  // part of the violation's text
    std::function<void(ColorDiffTracker&)> inflict;
};

const Damage kDamages[] = {
    {"is carried by no cell", [](auto& T) { T.G->numlabel++; }},
    {"label = 2 out of range", [](auto& T) { T.G->label[5] = T.G->numlabel + 1; }},
    {"prevlabel = -1 out of range", [](auto& T) { T.G->prevlabel[5] = -1; }},
    {"conf = 1.5", [](auto& T) { T.G->conf[7] = 1.5; }},
    {"conf = nan", [](auto& T) { T.G->conf[7] = std::nan(""); }},
    {"nsamples = 49", [](auto& T) { T.B->cd[3].nsamples = 49; }},
    {"nclusters = 7", [](auto& T) { T.B->cd[3].nclusters = 7; }},
    {"support = 513", [](auto& T) { T.B->cd[3].support[0] = 513; }},
    {"support = 0", [](auto& T) { T.B->cd[3].support[0] = 0; }},
    {"channel 2: sum", [](auto& T) { T.B->cd[3].clusters[0].B += 1; }},
    {"channel 1: sum", [](auto& T) { T.B->cd[3].clustersum[0].G += 2 * T.B->cd[3].support[0]; }},
    {"numobjects = 5001", [](auto& T) { T.numobjects = 5001; }},
    {"cell = 10000", [](auto& T) { T.usedob[0] = 10000; }},
    {"NextTmpObId = 100000", [](auto& T) { T.NextTmpObId = 100000; }},
    {"numparents = 21", [](auto& T) { T.Ob[T.usedob[0]].numparents = 21; }},
    {"not closed", [](auto& T) { Contour(T)->r++; }},
    {"contour nodes are in no list", [](auto& T) { T.G->GetNewNode(); }},
    {"of another list",
     [](auto& T) {
         ContNode* last = Contour(T);
         while (last->link->link != nullptr) last = last->link;
         last->link = T.G->FreeNodes;
     }},
    {"the free list holds",
     [](auto& T) {
         static ContNode foreign;
         foreign.link = T.G->FreeNodes;
         T.G->FreeNodes = &foreign;
     }},
};

TEST(Invariants, EachDamageIsFound) {
    for (const Damage& damage : kDamages) {
        SCOPED_TRACE(damage.expected);
        Running running(kLearning + 8);
        ASSERT_EQ((*running).G->numlabel, 1);
        damage.inflict(*running);
        EXPECT_NE(FrameViolation(*running).find(damage.expected), std::string::npos) << FrameViolation(*running);
        (*running).numobjects = 0;
    }
}

TEST(Invariants, GeometryFaultsAreFound) {
    Running running(1);
    ASSERT_EQ(GeometryViolation(*running), "");
    const Neighbors sound = (*running).G->n[20];
    for (int slot = 0; slot < 8; slot++) {
        (*running).G->n[20].n[slot] = slot < 4 ? 22 + slot : 0;
        EXPECT_NE(GeometryViolation(*running), "") << "slot " << slot;
        (*running).G->n[20] = sound;
    }
}

TEST(Invariants, ConfidencesMayBeNoNumbersOnlyWithTheThresholds) {
    Running running(kLearning + 1);
    (*running).G->conf[0] = std::nan("");
    EXPECT_NE(FrameViolation(*running), "");
    (*running).cht = std::nan("");
    EXPECT_EQ(FrameViolation(*running), "");
}

}  // namespace
