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
    explicit Running(int frames) : pixels_(kRows * kCols * 3) {
        paint(1);
        tracker_ = MakeTracker(COLOR, image_, kLearning);
        for (int frame = 2; frame <= frames; frame++) {
            paint(frame);
            if (frame > kLearning) tracker_->DetectForeground(image_, frame, 0.25f, 0.5f, 1.0f, 2.0f);
            tracker_->UpdateBackground(image_, frame <= kLearning);
            EXPECT_EQ(FrameViolation(*tracker_), "") << "frame " << frame;
        }
    }
    ColorDiffTracker& operator*() { return *tracker_; }

 private:
    void paint(int frame) {
        image_.KsReadImageMemory(pixels_.data(), kRows, kCols);
        for (int r = 0; r < kRows; r++)
            for (int c = 0; c < kCols; c++) {
                const int x = (frame - kLearning) * 2;
                const bool square = frame > kLearning && r >= 16 && r < 32 && c >= x && c < x + 12;
                const int v = square ? 230 : 60 + (r * 7 + c * 13 + frame * 5) % 24;
                image_.SetRed(r, c, static_cast<unsigned char>(v));
                image_.SetGreen(r, c, static_cast<unsigned char>(v / 2));
                image_.SetBlue(r, c, static_cast<unsigned char>(255 - v));
            }
    }

    std::vector<unsigned char> pixels_;
    KsColorImage image_;
    std::unique_ptr<ColorDiffTracker> tracker_;
};

ContNode* contour(ColorDiffTracker& t) {
    return t.Ob[t.usedob[t.numobjects - 1]].fnode;
}

struct Damage {
    const char* expected;  // part of the violation's text
    std::function<void(ColorDiffTracker&)> inflict;
};

const Damage kDamages[] = {
    {"is carried by no cell", [](auto& t) { t.G->numlabel++; }},
    {"label = 2 out of range", [](auto& t) { t.G->label[5] = t.G->numlabel + 1; }},
    {"prevlabel = -1 out of range", [](auto& t) { t.G->prevlabel[5] = -1; }},
    {"conf = 1.5", [](auto& t) { t.G->conf[7] = 1.5; }},
    {"conf = nan", [](auto& t) { t.G->conf[7] = std::nan(""); }},
    {"nsamples = 49", [](auto& t) { t.B->cd[3].nsamples = 49; }},
    {"nclusters = 7", [](auto& t) { t.B->cd[3].nclusters = 7; }},
    {"support = 513", [](auto& t) { t.B->cd[3].support[0] = 513; }},
    {"support = 0", [](auto& t) { t.B->cd[3].support[0] = 0; }},
    {"channel 2: sum", [](auto& t) { t.B->cd[3].clusters[0].B += 1; }},
    {"channel 1: sum", [](auto& t) { t.B->cd[3].clustersum[0].G += 2 * t.B->cd[3].support[0]; }},
    {"numobjects = 5001", [](auto& t) { t.numobjects = 5001; }},
    {"cell = 10000", [](auto& t) { t.usedob[0] = 10000; }},
    {"NextTmpObId = 100000", [](auto& t) { t.NextTmpObId = 100000; }},
    {"numparents = 21", [](auto& t) { t.Ob[t.usedob[0]].numparents = 21; }},
    {"not closed", [](auto& t) { contour(t)->r++; }},
    {"contour nodes are in no list", [](auto& t) { t.G->GetNewNode(); }},
    {"of another list",
     [](auto& t) {
         ContNode* last = contour(t);
         while (last->link->link != nullptr) last = last->link;
         last->link = t.G->FreeNodes;
     }},
    {"the free list holds",
     [](auto& t) {
         static ContNode foreign;
         foreign.link = t.G->FreeNodes;
         t.G->FreeNodes = &foreign;
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
