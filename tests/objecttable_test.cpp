// Association of components with earlier records, ageing, and the conservation of contour nodes, in small examples;
// frames over a full table, ids that wrap and crowds are in association_test.cpp.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <set>

#include "support/images.h"
#include "tracker/kscolortracker.h"

namespace {

struct Blob {
    int row, col, height, width;  // pixels
};
using Blobs = std::vector<Blob>;

// A tracker over a flat scene whose background has been learnt; blobs are far from it in colour.
class ObjectTable : public testing::Test {
 protected:
    static constexpr int kRows = 64, kCols = 96;

    void SetUp() override {
        image.fill(flat(100));
        tracker = MakeTracker(COLOR, image, 20);
        for (int f = 2; f <= 20; f++) tracker->UpdateBackground(image, true);
    }

    // Detects a frame; returns "id/numframes" of its records in the order of usedob.
    std::string detect(int frame, const Blobs& blobs) {
        image.fill([&](int r, int c) {
            for (const Blob& b : blobs)
                if (r >= b.row && r < b.row + b.height && c >= b.col && c < b.col + b.width)
                    return ColorValue{250, 240, 230};
            return ColorValue{100, 100, 100};
        });
        tracker->DetectForeground(image, frame, 0.25f, 0.5f, 1.0f, 2.0f);
        checkNodes();
        std::string text;
        for (int i = 0; i < tracker->numobjects; i++) {
            const Object& o = tracker->Ob[tracker->usedob[i]];
            if (o.framenum != frame) continue;
            EXPECT_TRUE(o.reportit);
            text += (text.empty() ? "" : " ") + std::to_string(o.id) + "/" + std::to_string(o.numframes);
        }
        return text;
    }

    // Every node of the pool's one block is in exactly one list: the free list or the contour of one cell in use.
    void checkNodes() {
        const std::set<int> cells(tracker->usedob, tracker->usedob + tracker->numobjects);
        std::vector<const ContNode*> lists{tracker->G->FreeNodes};
        for (const int k : cells) lists.push_back(tracker->Ob[k].fnode);
        std::vector<bool> seen(100000, false);
        for (const ContNode* q : lists) {
            for (; q != nullptr; q = q->link) {
                const auto at = static_cast<std::size_t>(q - tracker->G->tmpstorage);
                ASSERT_FALSE(seen[at]) << "a node in two lists";
                seen[at] = true;
            }
        }
        ASSERT_EQ(std::count(seen.begin(), seen.end(), true), 100000) << "a node in no list";
    }

    // A record made by hand, with a contour of its own.
    void add(int cell, int framenum, int id, int numframes) {
        Object& o = tracker->Ob[cell];
        o.framenum = framenum;
        o.id = id;
        o.numframes = numframes;
        o.fnode = nullptr;
        for (int i = 0; i < 5; i++) {
            ContNode* node = tracker->G->GetNewNode();
            node->link = o.fnode;
            o.fnode = node;
        }
        tracker->usedob[tracker->numobjects++] = cell;
    }

    // Cells in use, in order.
    std::vector<int> usedPlaces() const { return {tracker->usedob, tracker->usedob + tracker->numobjects}; }

    TestImage image{kRows, kCols, flat(100)};
    std::unique_ptr<ColorDiffTracker> tracker;
};

const Blob kA{8, 8, 12, 12}, kB{8, 40, 12, 12}, kC{8, 72, 12, 12};

struct Step {
    int frame;
    Blobs blobs;
    std::string records;
};

struct AssociationCase {
    const char* what;
    std::vector<Step> steps;
};

const AssociationCase kAssociation[] = {
    // Behind a relearning period the labels of the previous frame are stale: their records are not of frame - 1, so a
    // component that overlaps them is its own parent. It keeps id 0, with the cell's old numframes plus 1, and its cell
    // counts as free: the next component gets the same cell, finds itself as the record of this frame with id 0, and
    // gets a new id. The cell then stands twice in usedob.
    {"id 0 over stale labels", {{30, {kA}, "1/1"}, {36, {kA}, "0/2"}}},
    {"id 0, two components share a cell", {{30, {kA, kB}, "1/1 2/1"}, {36, {kA, kB}, "3/3 3/3"}}},
    {"id 0, a third one, and the frames behind",
     {{30, {kA, kB, kC}, "1/1 2/1 3/1"},
      {36, {kA, kB, kC}, "4/3 4/3 0/2"},
      {37, {kA, kB, kC}, "5/3 5/3 4/4 0/1"},
      {38, {}, ""},
      {90, {kA, kB, kC}, "6/1 7/1 8/1"}}},
    {"new ids in order of the components, then longer tracks",
     {{30, {kB, kA}, "1/1 2/1"}, {31, {kA, kB}, "1/2 2/2"}, {32, {kA, kB, kC}, "1/3 2/3 3/1"}, {33, {kB}, "2/4"}}},
    {"split, the second larger: it takes the id",
     {{30, {{8, 8, 12, 44}}, "1/1"}, {31, {{8, 8, 12, 8}, {8, 32, 12, 20}}, "2/2 1/2"}}},
    {"split, the second smaller", {{30, {{8, 8, 12, 44}}, "1/1"}, {31, {{8, 8, 12, 20}, {8, 44, 12, 8}}, "1/2 2/2"}}},
    {"split, equal areas: the first keeps it",
     {{30, {{8, 8, 12, 44}}, "1/1"}, {31, {{8, 8, 12, 12}, {8, 40, 12, 12}}, "1/2 2/2"}}},
    {"split in three, growing: every larger one takes it over",
     {{30, {{8, 4, 12, 80}}, "1/1"}, {31, {{8, 4, 12, 8}, {8, 28, 12, 12}, {8, 60, 12, 20}}, "2/2 3/2 1/2"}}},
    {"merge: the larger overlap gives the id",
     {{30, {{8, 8, 12, 8}, {8, 32, 12, 20}}, "1/1 2/1"}, {31, {{8, 8, 12, 44}}, "2/2"}, {32, {{8, 8, 12, 44}}, "2/3"}}},
    {"merge, equal overlaps: the label met first", {{30, {kA, kB}, "1/1 2/1"}, {31, {{8, 8, 12, 44}}, "1/2"}}},
};

TEST_F(ObjectTable, Association) {
    for (const AssociationCase& c : kAssociation) {
        SCOPED_TRACE(c.what);
        SetUp();
        for (const Step& s : c.steps) {
            SCOPED_TRACE(s.frame);
            EXPECT_EQ(detect(s.frame, s.blobs), s.records);
        }
    }
}

// Half a cell of one pixel is none: its quadrants have no pixels, so that components have no area.
TEST(CellsOfOnePixel, GiveRecordsWithoutAnArea) {
    TestImage image(20, 24, flat(100));
    const auto tracker = MakeTracker(COLOR, image, 20, SINGLE, 1);
    TestImage frame(20, 24, [](int r, int c) {
        return r > 4 && r < 12 && c > 6 && c < 16 ? ColorValue{255, 255, 255} : ColorValue{100, 100, 100};
    });
    tracker->lt = tracker->ht = tracker->dlt = tracker->dht = 0;
    tracker->clt = tracker->cht = 1;
    tracker->DetectForeground(frame, 21, 0.25f, 0.5f, 1.0f, 2.0f);
    ASSERT_EQ(tracker->numobjects, 1);
    const Object& ob = tracker->Ob[tracker->usedob[0]];
    EXPECT_EQ(ob.area, 0);
    EXPECT_EQ(ob.rc, 8);
    EXPECT_EQ(ob.cc, 11);
}

TEST_F(ObjectTable, MeasuresOfARecord) {
    EXPECT_EQ(tracker->maxdist, 0.0);
    detect(30, {{8, 16, 16, 8}});
    ASSERT_EQ(tracker->numobjects, 1);
    const Object& o = tracker->Ob[tracker->usedob[0]];
    // Six by four main cells: a rim of cells around the blob joins by its derivatives, with the shifted cells between.
    EXPECT_EQ(o.h.minr, 4);
    EXPECT_EQ(o.h.maxr, 27);
    EXPECT_EQ(o.h.minc, 12);
    EXPECT_EQ(o.h.maxc, 27);
    EXPECT_EQ(o.area, 24 * 16);
    EXPECT_EQ(o.h.csum, 24 * 16);
    EXPECT_EQ(o.numcells, 6 * 4 + 5 * 3);
    EXPECT_EQ(o.rc, 16) << "15.5 rounded";
    EXPECT_EQ(o.cc, 20) << "19.5 rounded";
    EXPECT_EQ(o.conf, 1.0);
    EXPECT_EQ(o.numparents, 0);
}

TEST_F(ObjectTable, NextFreeCellReleasesRecordsOver25FramesOld) {
    add(0, 74, 1, 9);
    add(1, 75, 2, 9);
    add(2, 60, 3, 9);
    add(3, 74, 4, 9);  // moves into the place of a released one and is examined there
    ContNode* const last_released = tracker->Ob[2].fnode;
    EXPECT_EQ(tracker->NextFreeObjectCell(100), 0);
    EXPECT_EQ(usedPlaces(), (std::vector<int>{1, 0}));
    EXPECT_EQ(tracker->Ob[0].id, 0) << "until association gives it one";
    EXPECT_EQ(tracker->G->FreeNodes, last_released) << "the nodes stand in front of the free list";
    checkNodes();
}

struct CleanCase {
    const char* what;
    std::vector<std::array<int, 3>> records;  // framenum, id, numframes; cell = position
    std::vector<int> kept;                    // cells, in the order left behind
};

const CleanCase kClean[] = {
    {"a track ends when unseen for longer than it lasted", {{96, 1, 3}}, {}},
    {"and not before", {{96, 1, 4}}, {0}},
    {"the id's newest record counts, with each record's own length", {{90, 1, 3}, {96, 1, 9}}, {1}},
    {"the newest record first in the table", {{96, 1, 9}, {90, 1, 4}}, {0, 1}},
    {"25 frames", {{75, 1, 99}, {99, 1, 99}}, {0, 1}},
    {"26 frames", {{74, 1, 99}, {99, 1, 99}}, {1}},
    {"the last entry moves up and is examined", {{50, 1, 1}, {99, 2, 9}, {50, 3, 1}, {99, 4, 9}, {50, 5, 1}}, {3, 1}},
    {"records with id 0 form one list", {{96, 0, 3}, {98, 0, 2}}, {0, 1}},
};

TEST_F(ObjectTable, CleanObjectList) {
    for (const CleanCase& c : kClean) {
        SCOPED_TRACE(c.what);
        SetUp();
        for (std::size_t i = 0; i < c.records.size(); i++)
            add(static_cast<int>(i), c.records[i][0], c.records[i][1], c.records[i][2]);
        tracker->CleanObjectList(100);
        EXPECT_EQ(usedPlaces(), c.kept);
        checkNodes();
    }
    // A cell that stands twice: the second place finds the id released by the first, and nothing left to return.
    SetUp();
    add(0, 97, 7, 1);
    tracker->usedob[tracker->numobjects++] = 0;
    tracker->CleanObjectList(100);
    EXPECT_EQ(tracker->numobjects, 0);
    checkNodes();
}

TEST_F(ObjectTable, FullTable) {
    for (int k = 0; k < ColorDiffTracker::kMaxUsed; k++) {
        tracker->Ob[k].framenum = 30;
        tracker->Ob[k].id = k + 1;
        tracker->Ob[k].numframes = 9;
        tracker->usedob[k] = k;
    }
    tracker->numobjects = ColorDiffTracker::kMaxUsed - 1;
    const int last = tracker->NextFreeObjectCell(31);
    EXPECT_EQ(last, ColorDiffTracker::kMaxUsed) << "the first cell without a record";
    tracker->Ob[last].framenum = 31;
    tracker->Ob[last].id = 1;
    tracker->Ob[last].numframes = 9;
    EXPECT_EQ(tracker->NextFreeObjectCell(31), ColorDiffTracker::kMaxObjects);
    EXPECT_EQ(tracker->numobjects, ColorDiffTracker::kMaxUsed);
    SetUp();
    for (int k = 0; k < ColorDiffTracker::kMaxObjects; k++) tracker->Ob[k].id = 1;
    EXPECT_EQ(tracker->NextFreeObjectCell(31), ColorDiffTracker::kMaxObjects);
    EXPECT_EQ(tracker->numobjects, 0);
}

TEST_F(ObjectTable, ParentsByOverlap) {
    GridColorDiff& g = *tracker->G;
    const auto parents_of = [&](const std::vector<std::pair<int, int>>& counts) {  // label and cells, in order
        std::fill(g.label, g.label + g.cnum, 0);
        std::fill(g.prevlabel, g.prevlabel + g.cnum, 6);
        int k = 0;
        for (const auto& [label, cells] : counts)
            for (int i = 0; i < cells; i++, k++) g.label[k] = 3, g.prevlabel[k] = label;
        Object o;
        o.label = 3;
        g.FindPotentialParents(o);
        EXPECT_EQ(o.numcells, k);
        std::vector<std::pair<int, int>> found;
        for (int i = 0; i < o.numparents; i++) found.push_back({o.parents[i], static_cast<int>(o.dist[i])});
        return found;
    };
    using Found = std::vector<std::pair<int, int>>;
    EXPECT_EQ(parents_of({}), Found());
    EXPECT_EQ(parents_of({{0, 5}}), Found());
    EXPECT_EQ(parents_of({{4, 2}, {0, 1}, {2, 3}, {4, 2}}), (Found{{4, 4}, {2, 3}}));
    EXPECT_EQ(parents_of({{3, 5}, {2, 5}}), (Found{{3, 5}, {2, 5}})) << "the label met first wins a tie";
    // The last candidate moves into the place of the one that was taken, and ties follow the new order.
    EXPECT_EQ(parents_of({{5, 2}, {3, 1}, {7, 2}, {2, 1}, {9, 1}}), (Found{{5, 2}, {7, 2}, {9, 1}, {2, 1}, {3, 1}}));
    Found many;
    for (int label = 1; label <= 30; label++) many.push_back({label, label});
    const Found best = parents_of(many);
    ASSERT_EQ(best.size(), 20u);
    for (int i = 0; i < 20; i++) EXPECT_EQ(best[static_cast<std::size_t>(i)], std::pair(30 - i, 30 - i));
}

// Crowds that come and go, with gaps in the frame numbers as relearning leaves them.
TEST_F(ObjectTable, RandomLifeConservesNodes) {
    TestRandom random(1);
    int frame = 20, zero_ids = 0, twice = 0;
    for (int turn = 0; turn < 150; turn++) {
        frame += random.below(6) == 0 ? random.range(2, 8) : 1;
        Blobs blobs;
        for (int i = random.below(14); i > 0; i--)
            blobs.push_back({random.below(kRows), random.below(kCols), random.range(4, 9), random.range(4, 9)});
        detect(frame, blobs);
        if (HasFatalFailure()) return;
        if (turn % 2 == 0) tracker->UpdateBackground(image, random.below(2) == 0);
        const std::vector<int> used = usedPlaces();
        twice += std::set<int>(used.begin(), used.end()).size() != used.size();
        for (const int k : used) {
            const Object& o = tracker->Ob[k];
            zero_ids += o.id == 0;
            EXPECT_LE(frame - o.framenum, 25);
            ASSERT_NE(o.fnode, nullptr);
            const ContNode* last = o.fnode;
            while (last->link != nullptr) last = last->link;
            EXPECT_EQ(std::pair(last->r, last->c), std::pair(o.fnode->r, o.fnode->c)) << "closed";
        }
    }
    EXPECT_GT(zero_ids, 0);
    EXPECT_GT(twice, 0);
}

}  // namespace
