// The tracker on boxes alone.
#include "tracks/tracker.h"

#include <gtest/gtest.h>

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kTenth = 100'000'000;

/// Ten frames a second of 320 x 240.
class Boxes {
 public:
    Boxes() { tracker_.reset(320, 240, 1e-4, 1); }

    /// A frame with these things in it: the tracks that live, by number, without tentative ones.
    std::vector<Track> frame(const std::vector<Box>& seen) {
        std::vector<Blob> blobs;
        for (const Box& box : seen) blobs.push_back({box, box.width * box.height});
        now_ += kTenth;
        tracker_.predict(0.1);
        tracker_.update(blobs, now_, 0.1);
        std::vector<Track> tracks;
        tracker_.tell(tracks);
        std::erase_if(tracks, [](const Track& track) {
            return track.state == TrackState::kTentative || track.state == TrackState::kEnded;
        });
        return tracks;
    }

 private:
    Tracker tracker_;
    std::int64_t now_ = 0;
};

// A head over a wall, then whoever it belongs to comes out as a whole. It is the same track, and at once of that size.
TEST(Tracker, APartBecomesTheWhole) {
    struct Row {
        Box part, whole;
        std::int64_t number;
    };
    const Row rows[] = {
        {{60, 30, 16, 12}, {56, 30, 24, 60}, 1},  // 7.5 times as large
        {{60, 30, 16, 12}, {48, 30, 40, 60}, 2},  // 12 times: somebody else before it
        {{60, 30, 16, 12}, {66, 30, 24, 60}, 2},  // next to it
    };
    for (const Row& row : rows) {
        Boxes boxes;
        for (int i = 0; i < 10; ++i) boxes.frame({row.part});
        ASSERT_EQ(boxes.frame({row.part}).size(), 1u);
        auto tracks = boxes.frame({row.whole});
        if (row.number == 1) {
            ASSERT_EQ(tracks.size(), 1u);
            EXPECT_GT(tracks[0].box.height, 40);
        }
        for (int i = 0; i < 5; ++i) tracks = boxes.frame({row.whole});
        EXPECT_EQ(tracks.back().number, row.number);
    }
}

// Legs and body that were never seen apart are one thing when they grow together. Two who have been seen beside each
// other, and two who came one above the other from afar, stay two in their group.
TEST(Tracker, WhoWasSeenApartStaysTwo) {
    struct Row {
        int away_x, away_y;  ///< how far the lower one goes away meanwhile
        std::size_t tracks;
    };
    for (const Row& row : {Row{0, 0, 1}, Row{60, 0, 2}, Row{0, 60, 2}}) {
        Boxes boxes;
        const Box upper{100, 40, 20, 24};
        std::vector<Track> tracks;
        for (int i = 0; i < 60; ++i) {
            const int there = std::min({std::max(0, i - 10), 20, std::max(0, 50 - i)});  // twentieths of the way
            tracks = boxes.frame({upper, {100 + row.away_x * there / 20, 66 + row.away_y * there / 20, 20, 24}});
        }
        ASSERT_EQ(tracks.size(), 2u) << row.away_x;
        for (int i = 0; i < 8; ++i) tracks = boxes.frame({{100, 40, 20, 50}});
        ASSERT_EQ(tracks.size(), row.tracks) << row.away_x << ' ' << row.away_y;
        EXPECT_EQ(tracks[0].number, 1);
        EXPECT_EQ(tracks[0].merged_with != 0, row.tracks == 2);
    }
}

}  // namespace
}  // namespace fleifeisa::host
