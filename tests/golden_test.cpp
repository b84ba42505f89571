// Whole streams through the host functions and the tracker, with the state after every frame against committed hashes:
// one changed bit anywhere is seen, and the first frame and part of the state are named.
#include <gtest/gtest.h>

#include "support/golden.h"
#include "support/scene.h"
#include "support/state_hash.h"

namespace {

struct GoldenCase {
    const char* name;
    Scene scene;
    ReplayOptions options;
};

const GoldenCase kCases[] = {
    {"color-64x48", {64, 48, 90, 13, 5, 0, 1}, {COLOR, 12, {}}},
    {"color-relearn-48x36", {48, 36, 80, 11, 6, 0, 2}, {COLOR, 10, {{25, 10}, {45, 7}, {60, 1}}}},
    {"color-levels-64x32", {64, 32, 60, 14, 3, 4, 3}, {COLOR, 13, {}}},
    {"ir-64x48", {64, 48, 90, 13, 5, 0, 4}, {IR, 12, {}}},
    {"ir-levels-relearn-40x40", {40, 40, 70, 11, 4, 3, 5}, {IR, 10, {{30, 8}, {50, 2}}}},
    {"color-4x4", {4, 4, 40, 8, 2, 0, 6}, {COLOR, 7, {}}},
    {"color-odd-37x29", {37, 29, 70, 11, 5, 0, 7}, {COLOR, 10, {{40, 6}}}},
    {"ir-odd-13x50", {13, 50, 60, 11, 4, 0, 8}, {IR, 10, {}}},
    {"color-crowd-96x64", {96, 64, 50, 11, 30, 0, 9}, {COLOR, 10, {{30, 4}}}},
};

void PrintTo(const GoldenCase& c, std::ostream* os) {
    *os << c.name;
}

class Golden : public testing::TestWithParam<GoldenCase> {};

TEST_P(Golden, StateAfterEveryFrame) {
    const GoldenCase& c = GetParam();
    std::vector<std::string> lines;
    int records = 0;
    replay(sceneStream(c.scene), c.options, [&](const ReplayedFrame& frame) {
        lines.push_back(goldenLine(frame));
        records += frame.tracker.numobjects;
    });
    EXPECT_EQ(lines.size(), static_cast<std::size_t>(c.scene.frames));
    // A single cell has no spread of differences and never shows an object.
    EXPECT_EQ(records > 0, c.scene.width > 4) << "without objects the replay would prove little";

    compareWithGolden(c.name, lines, goldenDifference);
}

// A relearning period that the file sets below 0 never ends.
TEST(Replay, NegativeRelearning) {
    replay(sceneStream({16, 16, 40, 8, 2, 0, 1}), {COLOR, 8, {{20, -1}}}, [](const ReplayedFrame& frame) {
        const Phase expected = frame.number == 1                        ? Phase::kFirst
                               : frame.number <= 8 || frame.number > 20 ? Phase::kLearning
                                                                        : Phase::kDetection;
        EXPECT_EQ(frame.phase, expected) << frame.number;
    });
}

INSTANTIATE_TEST_SUITE_P(All, Golden, testing::ValuesIn(kCases), [](const auto& param) {
    std::string name = param.param.name;
    for (char& ch : name)
        if (ch == '-') ch = '_';
    return name;
});

}  // namespace
