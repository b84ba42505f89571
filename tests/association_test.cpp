// Identity and the object table against a second, slow association that walks over all records for every question.
#include <gtest/gtest.h>

#include <map>
#include <memory>
#include <set>

#include "support/images.h"
#include "tracker/kscolortracker.h"

namespace {

struct Record {
    int framenum = 0, id = 0, label = 0, numframes = 0, area = 0;
};

class SlowTable {
 public:
    std::vector<Record> cells{std::vector<Record>(ColorDiffTracker::kMaxObjects)};
    std::vector<int> used;
    int next = 1;
    // What has happened so far, to see that the cases of interest occur.
    int splits = 0, takeovers = 0, orphans = 0, shared = 0, twins = 0, refused = 0;

    // Associates the components that the grid has found in a frame.
    void frame(const GridColorDiff& g, int frame) {
        clean(frame);
        for (int label = 1; label <= g.numlabel; label++) {
            if (!(g.labelconf[label] > 0.1)) continue;
            const int k = take(frame);
            if (k < 0) {
                refused++;
                continue;
            }
            Record& r = cells[static_cast<std::size_t>(k)];
            r.framenum = frame;
            r.label = label;
            r.area = areaOf(g, label);
            associate(r, parentOf(g, label), frame);
            if (next > ColorDiffTracker::kMaxId) next = 1;
        }
    }

    static int areaOf(const GridColorDiff& g, int label) {
        std::set<std::pair<int, int>> pixels;
        for (int k = 0; k < g.cnum; k++) {
            if (g.label[k] != label) continue;
            const RasterPlace at = placeOf(g, k);
            for (int r = at.row * 2; r < std::min(at.row * 2 + 4, g.NofR); r++)
                for (int c = at.col * 2; c < std::min(at.col * 2 + 4, g.NofC); c++) pixels.insert({r, c});
        }
        return static_cast<int>(pixels.size());
    }

 private:
    Record& record(std::size_t i) { return cells[static_cast<std::size_t>(used[i])]; }

    void release(std::size_t i) {
        record(i).id = 0;
        used[i] = used.back();
        used.pop_back();
    }

    void clean(int frame) {
        std::map<int, int> newest;
        for (const int k : used) {
            const Record& r = cells[static_cast<std::size_t>(k)];
            newest[r.id] = std::max(newest.count(r.id) != 0 ? newest[r.id] : r.framenum, r.framenum);
        }
        for (std::size_t i = 0; i < used.size();) {
            const Record& r = record(i);
            const int last = newest.count(r.id) != 0 ? newest[r.id] : r.framenum;
            if (last + r.numframes < frame || frame > r.framenum + ColorDiffTracker::kMaxAge)
                release(i);
            else
                i++;
        }
    }

    int take(int frame) {
        for (std::size_t i = 0; i < used.size();) {
            if (record(i).framenum + ColorDiffTracker::kMaxAge < frame)
                release(i);
            else
                i++;
        }
        if (used.size() >= ColorDiffTracker::kMaxUsed) return -1;
        for (int k = 0; k < ColorDiffTracker::kMaxObjects; k++) {
            if (cells[static_cast<std::size_t>(k)].id != 0) continue;
            used.push_back(k);
            return k;
        }
        return -1;
    }

    // The earlier label with most cells, the one met first on a tie; 0 for none.
    static int parentOf(const GridColorDiff& g, int label) {
        std::vector<std::pair<int, int>> counts;
        for (int k = 0; k < g.cnum; k++) {
            if (g.label[k] != label || g.prevlabel[k] == 0) continue;
            std::size_t i = 0;
            while (i < counts.size() && counts[i].first != g.prevlabel[k]) i++;
            if (i == counts.size()) counts.push_back({g.prevlabel[k], 0});
            counts[i].second++;
        }
        std::pair<int, int> best{0, 0};
        for (const auto& c : counts)
            if (c.second > best.second) best = c;
        return best.first;
    }

    template <class F>
    Record* find(F matches) {
        for (std::size_t i = 0; i + 1 < used.size(); i++)
            if (matches(record(i))) return &record(i);
        return nullptr;
    }

    void associate(Record& r, int parent_label, int frame) {
        if (parent_label == 0) {
            r.id = next++;
            r.numframes = 1;
            return;
        }
        Record* parent = find([&](const Record& o) { return o.framenum == frame - 1 && o.label == parent_label; });
        orphans += parent == nullptr;
        if (parent == nullptr) parent = &r;
        const int id = parent->id, numframes = parent->numframes + 1;
        int holders = 0;
        find([&](const Record& o) { return holders += o.framenum == frame && o.id == id && &o != &r, false; });
        twins += holders > 1;
        Record* rival = find([&](const Record& o) { return o.framenum == frame && o.id == id; });
        shared += rival == &r;
        splits += rival != nullptr;
        if (rival == nullptr) {
            r.id = id;
        } else if (r.area > rival->area) {
            takeovers++;
            rival->id = next++;
            r.id = id;
        } else {
            r.id = next++;
        }
        r.numframes = numframes;
    }
};

struct Blob {
    int row, col, height, width, level;
};

class Association : public testing::Test {
 protected:
    void build(int rows, int cols) {
        image = std::make_unique<TestImage>(rows, cols, flat(100));
        tracker = MakeTracker(COLOR, *image, 20);
        for (int f = 2; f <= 20; f++) tracker->UpdateBackground(*image, true);
        slow = {};
    }

    // Detects a frame on both sides and compares the tables.
    void step(int frame, const std::vector<Blob>& blobs) {
        image->fill(flat(100));
        for (const Blob& b : blobs)
            for (int r = std::max(b.row, 0); r < std::min(b.row + b.height, image->image.NofR); r++)
                for (int c = std::max(b.col, 0); c < std::min(b.col + b.width, image->image.NofC); c++) {
                    image->image.SetRed(r, c, static_cast<unsigned char>(b.level));
                    image->image.SetGreen(r, c, static_cast<unsigned char>(b.level));
                }
        tracker->DetectForeground(*image, frame, 0.25f, 0.5f, 1.0f, 2.0f);
        slow.frame(*tracker->G, frame);
        ASSERT_EQ(std::vector<int>(tracker->usedob, tracker->usedob + tracker->numobjects), slow.used);
        for (const int k : slow.used) {
            const Object& o = tracker->Ob[k];
            const Record& r = slow.cells[static_cast<std::size_t>(k)];
            ASSERT_EQ(o.id, r.id) << "cell " << k << ", label " << r.label;
            ASSERT_EQ(o.numframes, r.numframes) << "cell " << k << ", label " << r.label;
            ASSERT_EQ(std::tuple(o.framenum, o.label, o.area), std::tuple(r.framenum, r.label, r.area));
        }
        ASSERT_EQ(tracker->NextTmpObId, slow.next);
    }

    std::unique_ptr<TestImage> image;
    std::unique_ptr<ColorDiffTracker> tracker;
    SlowTable slow;
};

// Blobs that wander, grow, part and meet. Frame numbers leap as they do over relearning. The next id is set back now
// and then, to the last ones or to ones that are in use, so that several objects of a frame hold the same.
TEST_F(Association, RandomComponents) {
    const char* text = std::getenv("ASSOCIATION_TEST_SEED");
    const int first = text != nullptr ? std::atoi(text) : 1;
    SlowTable sum;
    int wraps = 0;
    for (int seed = first; seed < first + 10; seed++) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        TestRandom random(static_cast<unsigned>(seed));
        build(64, 160);
        std::vector<Blob> blobs;
        int frame = 20;
        for (int turn = 0; turn < 120; turn++) {
            frame += random.below(8) == 0 ? random.range(2, 30) : 1;
            for (Blob& b : blobs) {
                b.row = std::clamp(b.row + random.range(-4, 4), -4, 60);
                b.col = std::clamp(b.col + random.range(-4, 4), -8, 150);
                b.width = std::clamp(b.width + random.range(-3, 6), 4, 60);
            }
            if (random.below(3) == 0 && !blobs.empty())
                blobs.erase(blobs.begin() + random.below(static_cast<int>(blobs.size())));
            while (blobs.size() < 3 || random.below(2) == 0)
                blobs.push_back({random.below(60), random.below(152), random.range(4, 20), random.range(4, 50),
                                 random.below(6) == 0 ? random.range(110, 130) : random.range(150, 255)});
            if (blobs.size() > 16) blobs.resize(4);
            for (std::size_t i = 0; i < blobs.size(); i++) {
                if (blobs[i].width < 36 || random.below(2) != 0) continue;
                Blob right = blobs[i];  // parts with a gap between them
                blobs[i].width /= 3;
                right.width -= blobs[i].width + 16;
                right.col += blobs[i].width + 16;
                blobs.push_back(right);
            }
            const int jump = random.below(12);
            if (jump == 0) slow.next = random.range(99990, 99999);
            if (jump > 8 && !slow.used.empty()) {
                const int k = slow.used[static_cast<std::size_t>(random.below(static_cast<int>(slow.used.size())))];
                slow.next = std::max(1, slow.cells[static_cast<std::size_t>(k)].id - random.below(3));
            }
            tracker->NextTmpObId = slow.next;
            const int before = slow.next;
            step(frame, blobs);
            if (HasFatalFailure()) return;
            wraps += slow.next < before;
        }
        sum.splits += slow.splits;
        sum.takeovers += slow.takeovers;
        sum.orphans += slow.orphans;
        sum.shared += slow.shared;
        sum.twins += slow.twins;
    }
    EXPECT_GT(wraps, 0);
    EXPECT_GT(sum.splits, 0);
    EXPECT_GT(sum.takeovers, 0);
    EXPECT_GT(sum.orphans, 0) << "no component over labels without a record";
    EXPECT_GT(sum.shared, 0) << "no cell stood twice";
    EXPECT_GT(sum.twins, 0) << "no id with several holders in a frame";
}

// More components than the table takes, standing and flickering.
TEST_F(Association, FullTable) {
    TestRandom random(5);
    build(360, 360);
    for (int frame = 30; frame < 64; frame++) {
        std::vector<Blob> blobs;
        for (int i = 0; i < 225; i++)
            if (frame < 54 || random.below(3) != 0) blobs.push_back({8 + i / 15 * 24, 8 + i % 15 * 24, 8, 8, 250});
        step(frame, blobs);
        if (HasFatalFailure()) return;
    }
    EXPECT_GT(slow.refused, 0);
}

}  // namespace
