// Cluster tables of one background cell, and the real cell against a plain second model on random sample sequences,
// with the random draws.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include "support/cells.h"
#include "support/images.h"
#include "vision/background/randomdraws.h"

namespace {

struct Run {
    int count;
    ColorSample colour;
};

std::unique_ptr<KsBackgroundCell> cellWith(const std::vector<Run>& runs) {
    auto cell = std::make_unique<KsBackgroundCell>();
    for (const Run& run : runs)
        for (int i = 0; i < run.count; i++) cell->cv[cell->nsamples++] = run.colour;
    return cell;
}

struct Expected {
    ColorValue mean;
    int support;
};

struct ClusterCase {
    const char* what;
    bool gray;
    int maxdist;
    std::vector<Run> samples;
    int draws;
    std::vector<Expected> clusters;
};

const ClusterCase kFirst[] = {
    {"one colour", false, 0, {{64, {9, 8, 7}}}, 0, {{{9, 8, 7}, 64}}},
    {"mean rounds down below a half", false, 3, {{2, {0, 0, 0}}, {1, {1, 1, 1}}}, 0, {{{0, 0, 0}, 3}}},
    {"mean rounds halves up", false, 3, {{1, {0, 4, 8}}, {1, {1, 5, 9}}}, 0, {{{1, 5, 9}, 2}}},
    {"gray within the radius", true, 30, {{32, {10, 0, 0}}, {32, {50, 0, 0}}}, 0, {{{30, 0, 0}, 64}}},
    {"gray exactly at the radius", true, 20, {{32, {10, 0, 0}}, {32, {50, 0, 0}}}, 0, {{{30, 0, 0}, 64}}},
    {"gray ignores green and blue", true, 0, {{1, {5, 90, 0}}, {1, {5, 0, 90}}}, 0, {{{5, 0, 0}, 2}}},
    {"colour takes the distance squared", false, 400, {{8, {10, 0, 0}}, {8, {50, 0, 0}}}, 0, {{{30, 0, 0}, 16}}},
};

TEST(FirstClustering, Table) {
    for (const ClusterCase& c : kFirst) {
        SCOPED_TRACE(c.what);
        auto cell = cellWith(c.samples);
        random_draws::Seed();
        c.gray ? cell->ClusterCellGray(c.maxdist) : cell->ClusterCell(c.maxdist);
        EXPECT_EQ(random_draws::count, c.draws);
        EXPECT_EQ(cell->nsamples, 0);
        ASSERT_EQ(cell->nclusters, static_cast<int>(c.clusters.size()));
        for (int j = 0; j < cell->nclusters; j++) {
            const Expected& e = c.clusters[static_cast<std::size_t>(j)];
            EXPECT_EQ(cell->clusters[j].R, e.mean.R);
            EXPECT_EQ(cell->clusters[j].G, e.mean.G);
            EXPECT_EQ(cell->clusters[j].B, e.mean.B);
            EXPECT_EQ(cell->support[j], e.support);
        }
    }
}

// Two colours on the first try give two clusters, three distinct far colours always three.
TEST(FirstClustering, TwoAndThreeColours) {
    int twos = 0;
    for (unsigned seed = 0; seed < 40; seed++) {
        srandom(seed);
        auto two = cellWith({{20, {10, 10, 10}}, {44, {200, 10, 10}}});
        two->ClusterCell(49);
        ASSERT_EQ(two->nclusters, 2) << "two centres of two colours explain everything at distance 0";
        EXPECT_EQ(two->support[0] + two->support[1], 64);
        EXPECT_EQ(std::min(two->support[0], two->support[1]), 20);
        auto three = cellWith({{20, {10, 10, 10}}, {22, {200, 10, 10}}, {22, {10, 200, 10}}});
        three->ClusterCell(49);
        ASSERT_EQ(three->nclusters, 3);
        twos += two->support[0] == 20;
    }
    EXPECT_GT(twos, 0);
    EXPECT_LT(twos, 40) << "which colour comes first is the generator's choice";
}

TEST(FirstClustering, RandomCentersDrawsAgainOnRepeats) {
    for (unsigned seed = 0; seed < 20; seed++) {
        std::vector<int> expected;
        srandom(seed);
        int draws = 0;
        while (expected.size() < 4) {
            const int pick = static_cast<int>(::random() % 5);
            draws++;
            if (std::find(expected.begin(), expected.end(), pick) == expected.end()) expected.push_back(pick);
        }
        int got[4];
        srandom(seed);
        random_draws::count = 0;
        RandomCenters(got, 4, 5);
        EXPECT_EQ(std::vector<int>(got, got + 4), expected);
        EXPECT_EQ(random_draws::count, draws);
    }
}

struct State {
    int mean, support, added;
};

struct MaintenanceCase {
    const char* what;
    char step;  // u update, m merge, f forget
    int maxdist;
    std::vector<State> before;
    std::vector<Run> samples;
    std::vector<State> after;
};

// All on the red channel, by the gray forms and, with squared radii, by the colour forms.
const MaintenanceCase kMaintenance[] = {
    {"explained samples",
     'u',
     5,
     {{10, 100, 9}, {50, 100, 9}},
     {{2, {12, 0, 0}}, {1, {50, 0, 0}}},
     {{10, 102, 2}, {50, 101, 1}}},
    {"a tie goes to the lower index",
     'u',
     5,
     {{10, 100, 0}, {20, 100, 0}},
     {{3, {15, 0, 0}}},
     {{10, 103, 3}, {20, 100, 0}}},
    {"support reaches the ceiling", 'u', 99, {{10, 510, 0}}, {{4, {10, 0, 0}}}, {{10, 512, 4}}},
    {"a full cluster moves by a share", 'u', 99, {{10, 512, 0}}, {{16, {74, 0, 0}}}, {{12, 512, 16}}},
    {"an unexplained sample opens a cluster and leaves the store",
     'u',
     5,
     {{10, 100, 0}},
     {{1, {40, 0, 0}}, {2, {11, 0, 0}}},
     {{10, 102, 2}, {40, 1, 0}}},
    {"the first of the farthest opens first",
     'u',
     5,
     {{100, 100, 0}},
     {{1, {130, 0, 0}}, {1, {70, 0, 0}}},
     {{100, 100, 0}, {130, 1, 0}, {70, 1, 0}}},
    {"three clusters a call at most",
     'u',
     5,
     {{10, 100, 0}},
     {{1, {50, 0, 0}}, {1, {90, 0, 0}}, {1, {130, 0, 0}}, {1, {170, 0, 0}}},
     {{10, 100, 0}, {150, 2, 1}, {90, 1, 0}, {50, 1, 0}}},
    {"no room and no close pair: joins its nearest",
     'u',
     5,
     {{0, 9, 0}, {40, 9, 0}, {80, 9, 0}, {120, 9, 0}, {160, 9, 0}, {200, 9, 0}},
     {{1, {220, 0, 0}}},
     {{0, 9, 0}, {40, 9, 0}, {80, 9, 0}, {120, 9, 0}, {160, 9, 0}, {202, 10, 1}}},
    {"no room, a pair as far as the sample does not merge",
     'u',
     5,
     {{0, 9, 0}, {20, 9, 0}, {80, 9, 0}, {120, 9, 0}, {160, 9, 0}, {200, 9, 0}},
     {{1, {220, 0, 0}}},
     {{0, 9, 0}, {20, 9, 0}, {80, 9, 0}, {120, 9, 0}, {160, 9, 0}, {202, 10, 1}}},
    {"no room, a closer pair merges",
     'u',
     5,
     {{0, 9, 0}, {18, 9, 0}, {80, 9, 0}, {120, 9, 0}, {160, 9, 0}, {200, 9, 0}},
     {{1, {220, 0, 0}}},
     {{9, 18, 0}, {200, 9, 0}, {80, 9, 0}, {120, 9, 0}, {160, 9, 0}, {220, 1, 0}}},
    {"a cluster without support gives way", 'u', 5, {{10, 0, 0}, {50, 9, 0}}, {{1, {50, 0, 0}}}, {{50, 10, 0}}},
    {"merge, first of two closest pairs", 'm', 21, {{0, 4, 7}, {20, 4, 8}, {40, 4, 9}}, {}, {{10, 8, 7}, {40, 4, 8}}},
    {"merge keeps the ceiling", 'm', 99, {{10, 400, 0}, {20, 300, 0}}, {}, {{14, 512, 0}}},
    {"merge bound is strict", 'm', 20, {{0, 4, 0}, {20, 4, 0}}, {}, {{0, 4, 0}, {20, 4, 0}}},
    {"forgetting steps",
     'f',
     0,
     {{10, 3, 0}, {20, 3, 1}, {30, 3, 2}, {40, 512, 0}, {50, 511, 0}},
     {},
     {{10, 1, 0}, {20, 2, 1}, {30, 3, 2}, {40, 512, 0}, {50, 509, 0}}},
    {"the moved cluster is tested with the slot's old count",
     'f',
     0,
     {{10, 1, 0}, {20, 30, 1}, {30, 9, 5}},
     {},
     {{30, 7, 0}, {20, 29, 1}}},
    {"forgetting everything", 'f', 0, {{10, 2, 0}, {20, 1, 1}}, {}, {}},
};

TEST(Maintenance, Table) {
    for (const bool gray : {true, false}) {
        for (const MaintenanceCase& c : kMaintenance) {
            SCOPED_TRACE(testing::Message() << c.what << (gray ? ", gray" : ", colour"));
            auto cell = cellWith(c.samples);
            for (const State& s : c.before) {
                const int j = cell->nclusters++;
                put(cell->clusters[j].R, s.mean);
                cell->clustersum[j].R = s.mean * s.support;
                put(cell->support[j], s.support);
                put(cell->added[j], s.added);
            }
            const int bound = gray ? c.maxdist : c.maxdist * c.maxdist;
            srandom(1);
            const long next = ::random();
            srandom(1);
            if (c.step == 'u') gray ? cell->UpdateCellClustersGray(bound) : cell->UpdateCellClusters(bound);
            if (c.step == 'm') gray ? cell->MergeClustersGray(bound) : cell->MergeClusters(bound);
            if (c.step == 'f') gray ? cell->ForgetUnsupportedClustersGray() : cell->ForgetUnsupportedClusters();
            EXPECT_EQ(::random(), next) << "no draws";
            EXPECT_EQ(cell->nsamples, 0);
            ASSERT_EQ(cell->nclusters, static_cast<int>(c.after.size()));
            for (int j = 0; j < cell->nclusters; j++) {
                const State& s = c.after[static_cast<std::size_t>(j)];
                EXPECT_EQ(cell->clusters[j].R, s.mean) << j;
                EXPECT_EQ(cell->support[j], s.support) << j;
                EXPECT_EQ(cell->added[j], s.added) << j;
                EXPECT_EQ(cell->clusters[j].G, 0);
            }
        }
    }
}

// Random life of one cell: a first clustering, then rounds of maintenance and forgetting. Samples come from palettes of
// few colours, so that ties and equal centres
// occur.
class AgainstNaive : public testing::TestWithParam<bool> {};

TEST_P(AgainstNaive, LifeOfACell) {
    const bool gray = GetParam();
    int seen[7] = {};
    for (unsigned seed = 1; seed <= 400; seed++) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        TestRandom random(seed);
        const int radius = random.range(0, 9), maxdist = gray ? radius : radius * radius;
        const int colours = random.range(1, 9), spread = random.range(2, 60), noise = random.range(0, 4);
        std::vector<std::array<int, 3>> palette;
        for (int i = 0; i < colours; i++)
            palette.push_back({100 + random.below(spread), 100 + random.below(spread), random.below(spread)});
        auto real = std::make_unique<KsBackgroundCell>();
        NaiveCell naive(gray);
        const int rounds = seed % 8 == 0 ? 80 : 15;
        for (int round = 0; round < rounds; round++) {
            const int n = random.range(1, 64), among = random.range(1, colours);
            for (int i = 0; i < n; i++) {
                std::array<int, 3> s = palette[static_cast<std::size_t>(random.below(among))];
                for (int& v : s) v += random.below(noise + 1);
                real->cv[real->nsamples++] = {static_cast<std::uint8_t>(s[0]), static_cast<std::uint8_t>(s[1]),
                                              static_cast<std::uint8_t>(s[2])};
                naive.samples.push_back(s);
            }
            const bool first = round == 0 && seed % 5 != 0;  // a cell can also miss its first clustering
            srandom(seed);
            if (first) naive.cluster(maxdist);
            if (!first) naive.update(maxdist);
            const long next = ::random();
            srandom(seed);
            if (first) gray ? real->ClusterCellGray(maxdist) : real->ClusterCell(maxdist);
            if (!first) gray ? real->UpdateCellClustersGray(maxdist) : real->UpdateCellClusters(maxdist);
            ASSERT_EQ(cellDifference(*real, naive), "") << "round " << round;
            ASSERT_EQ(::random(), next) << "round " << round << ": another number of draws";
            if (random.below(3) == 0) {
                naive.forget();
                gray ? real->ForgetUnsupportedClustersGray() : real->ForgetUnsupportedClusters();
                ASSERT_EQ(cellDifference(*real, naive), "") << "round " << round << ", forgetting";
            }
            seen[naive.count]++;
        }
    }
    for (const int count : seen) EXPECT_GT(count, 0) << "the sequences must reach every number of clusters";
}

INSTANTIATE_TEST_SUITE_P(ColourAndGray, AgainstNaive, testing::Bool());

}  // namespace
