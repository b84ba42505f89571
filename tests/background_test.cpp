// The background model over a frame: construction, maps, learning and maintenance with their draws against a plain
// second model, and the difference queries.
#include <gtest/gtest.h>

#include "support/cells.h"
#include "support/images.h"
#include "vision/background/randomdraws.h"

namespace {

TEST(Background, StoredParameters) {
    TestImage image(8, 8, flat(3));
    GridColorDiff g(image, 4, COLOR);
    for (const auto& [alpha, stored] : {std::pair{0.07, 7}, {0.29, 28}, {0.055, 5}, {0.1, 10}, {0.95, 95}}) {
        BackgroundModel model(image, alpha, COLOR, &g, MULTIPLE, 30);
        EXPECT_EQ(model.alpha, stored);
        EXPECT_EQ(model.maxdist, 900);
        EXPECT_EQ(model.dermaxdist, 128);
        EXPECT_EQ(model.dermindist, 32);
    }
    EXPECT_EQ(BackgroundModel(image, 0.5, IR, &g, MULTIPLE, 30).maxdist, 30);
    BackgroundModel single(image, 0.5, COLOR, &g, SINGLE, 30);
    EXPECT_EQ(single.IBkg.rawsrc, image.image.rawsrc);
    EXPECT_EQ(single.cd, nullptr);
}

// The whole model by plain means.
class NaiveModel {
 public:
    NaiveModel(KsColorImage& image, const GridColorDiff& grid, ImageType image_type, int radius)
        : g_(grid), type_(image_type), maxdist_(type_ == COLOR ? radius * radius : radius) {
        cells_.assign(static_cast<std::size_t>(g_.cnum), NaiveCell(false));
        for (int k = 0; k < g_.cnum; k++) {
            gather(image, k);
            if (full(k)) at(k).cluster(maxdist_);  // the colour form, for infrared too
            at(k).gray = type_ == IR;
        }
    }

    void update(KsColorImage& image, bool updateall) {
        if (at(0).count == 0) {
            for (int k = 0; k < g_.cnum; k++) {
                gather(image, k);
                if (full(k)) at(k).cluster(maxdist_);
            }
        }
        if (at(0).count == 0) return;
        for (int k = 0; k < g_.cnum; k++) {
            if (g_.conf[k] > 0.0 && !updateall && !(rand() * 4.656612873077393e-10 > 0.7)) continue;
            gather(image, k);
            if (!full(k)) continue;
            at(k).update(maxdist_);
            if (!updateall) at(k).forget();
        }
    }

    NaiveCell& at(int k) { return cells_[static_cast<std::size_t>(k)]; }

 private:
    void gather(KsColorImage& image, int k) {
        for (int r = g_.cd[k].minr; r <= g_.cd[k].maxr && r < g_.NofR; r++)
            for (int c = g_.cd[k].minc; c <= g_.cd[k].maxc && c < g_.NofC; c++)
                at(k).samples.push_back(type_ == COLOR
                                            ? std::array<int, 3>{image.Red(r, c), image.Green(r, c), image.Blue(r, c)}
                                            : std::array<int, 3>{image.Red(r, c), 0, 0});
    }
    bool full(int k) { return static_cast<int>(at(k).samples.size()) + g_.cellsize * g_.cellsize > 64; }

    const GridColorDiff& g_;
    ImageType type_;
    int maxdist_;
    std::vector<NaiveCell> cells_;
};

struct ModelCase {
    int rows, cols, cell;
    ImageType type;
    int radius;
};

// Sizes that are no multiples of the cell size leave border cells that fill more slowly.
const ModelCase kModels[] = {{16, 20, 4, COLOR, 7}, {11, 13, 4, COLOR, 5}, {16, 20, 4, IR, 3},  {10, 9, 4, IR, 2},
                             {16, 24, 8, COLOR, 9}, {19, 17, 8, IR, 4},    {9, 9, 3, COLOR, 3}, {4, 4, 4, COLOR, 7}};

TEST(Background, FramesAgainstNaiveModel) {
    unsigned seed = 0;
    for (const ModelCase& m : kModels) {
        seed++;
        SCOPED_TRACE(testing::Message() << m.cols << "x" << m.rows << " cell " << m.cell << " type " << m.type);
        TestRandom random(seed);
        const auto pixel = [&](int r, int c) {
            const int level = (c / 5 + r / 6) % 3 == 0 ? random.below(3) * 9 : random.below(4);
            return ColorValue{60 + level, 90 + level / 2 + random.below(2), (r * 7 + c) % 256};
        };
        TestImage image(m.rows, m.cols, pixel);
        GridColorDiff g(image, m.cell, m.type);
        std::fill(g.conf, g.conf + g.cnum, 0.0);
        srandom(0);
        NaiveModel naive(image, g, m.type, m.radius);
        const long next = ::random();
        BackgroundModel real(image, 0.95, m.type, &g, MULTIPLE, m.radius);
        ASSERT_EQ(::random(), next) << "draws of the construction";
        // Read through a const reference: a cell that may have been changed from outside is treated with more care.
        const BackgroundModel& view = real;
        const auto compare = [&] {
            for (int k = 0; k < g.cnum; k++) {
                const std::string difference = cellDifference(view.cd[k], naive.at(k));
                if (!difference.empty()) return "cell " + std::to_string(k) + ", " + difference;
            }
            return std::string();
        };
        ASSERT_EQ(compare(), "");
        for (int frame = 2; frame < 60; frame++) {
            image.fill(pixel);
            // From frame 40 on somebody holds some of the cells.
            for (int k = frame == 40 ? 0 : g.cnum; k < g.cnum; k += 3) real.cd[k];
            for (int k = 0; k < g.cnum; k++) g.conf[k] = random.below(3) == 0 ? 0.5 : random.below(2) * -1.0;
            const bool updateall = frame < 25 || frame % 11 == 0;
            const auto state = static_cast<unsigned>(frame);
            srandom(state);
            naive.update(image, updateall);
            const long after = ::random();
            srandom(state);
            real.UpdateBackground(image, updateall, frame);
            ASSERT_EQ(compare(), "") << "frame " << frame;
            ASSERT_EQ(::random(), after) << "draws of frame " << frame;
            ASSERT_EQ(real.t, frame);
        }
    }
}

TEST(Background, SingleModelDrawsAndHistogram) {
    TestImage image(8, 12, flat(3)), other(8, 12, flat(90));
    GridColorDiff g(image, 4, COLOR);
    for (int k = 0; k < g.cnum; k++) g.conf[k] = k % 2;  // 3 of the 6 main cells
    BackgroundModel model(image, 0.95, COLOR, &g, SINGLE, 7);
    std::fill(g.bhist, g.bhist + 256, 5);
    model.UpdateBackground(other, true, 2);
    EXPECT_EQ(random_draws::count, 0);
    model.UpdateBackground(other, false, 3);
    EXPECT_EQ(random_draws::count, 3);
    EXPECT_EQ(g.bhist[(3 * 3 + 1) / 3], 96) << "of the background, not of the new frame";
    EXPECT_EQ(g.bhist[30], 0);
    g.ComputeDifferences(other, &model);
    EXPECT_EQ(g.RedD[95], 87) << "frame minus background";
}

// Against maps painted from the cells' boxes.
TEST(Background, PixelMaps) {
    const std::pair<int, int> sizes[] = {{1, 1},   {1, 9},   {9, 1},   {4, 4},  {7, 8},
                                         {10, 13}, {16, 24}, {23, 17}, {31, 33}};
    for (const auto& [rows, cols] : sizes) {
        for (int cellsize = 1; cellsize <= 8; cellsize++) {
            TestImage image(rows, cols, flat(3));
            GridColorDiff g(image, cellsize, COLOR);
            BackgroundModel model(image, 0.95, COLOR, &g, MULTIPLE, 7);
            const auto pixels = static_cast<std::size_t>(rows * cols);
            std::vector<int> main(pixels, -1), shifted(pixels, -1);
            for (int k = 0; k < g.cnum; k++)
                for (int r = g.cd[k].minr; r <= std::min(g.cd[k].maxr, rows - 1); r++)
                    for (int c = g.cd[k].minc; c <= std::min(g.cd[k].maxc, cols - 1); c++)
                        (k < g.cnum_2 ? main : shifted)[static_cast<std::size_t>(r * cols + c)] = k;
            for (std::size_t i = 0; i < pixels; i++) {
                ASSERT_EQ(model.map1[i], main[i]) << rows << "x" << cols << " cell " << cellsize << " pixel " << i;
                ASSERT_EQ(model.map2[i], shifted[i]) << rows << "x" << cols << " cell " << cellsize << " pixel " << i;
            }
            EXPECT_FALSE(model.map1 == nullptr || model.map2 == nullptr);
        }
    }
    EXPECT_TRUE(BackgroundModel().map1 == nullptr && BackgroundModel().map2 == nullptr);
}

// The nearest well-supported cluster among a pixel's cell and its four diagonal neighbours, by exhaustive search.
TEST(Background, QueriesAgainstExhaustiveSearch) {
    for (const ImageType type : {COLOR, IR}) {
        TestImage image(17, 22, flat(3));
        GridColorDiff g(image, 4, type);
        BackgroundModel model(image, 0.95, type, &g, MULTIPLE, 7);
        TestRandom random(5);
        int untouched = 0;
        for (int turn = 0; turn < 60; turn++) {
            for (int k = 0; k < g.cnum; k++) {
                put(model.cd[k].nclusters, random.below(5) == 0 ? random.below(7) : random.below(3));
                for (int j = 0; j < 6; j++) {
                    put(model.cd[k].support[j], 127 + random.below(4));
                    const auto level = [&] { return random.below(20) == 0 ? 1500 : random.below(4) * 10; };
                    auto& cluster = model.cd[k].clusters[j];
                    for (auto* channel : {&cluster.R, &cluster.G, &cluster.B}) put(*channel, level());
                }
            }
            image.fill([&](int, int) { return ColorValue{random.below(40), random.below(40), random.below(40)}; });
            std::fill(g.RedD, g.RedD + 17 * 22, 12345);
            std::fill(g.BlueD, g.BlueD + 17 * 22, 12345);
            g.ComputeDifferences(image, &model);
            for (int r = 0; r < 17; r++) {
                for (int c = 0; c < 22; c++) {
                    const int own = r / 4 * 6 + c / 4;
                    const int red = image.image.Red(r, c), green = image.image.Green(r, c),
                              blue = image.image.Blue(r, c);
                    int best = 1000000, red_difference = 12345, blue_difference = 12345;
                    for (const int k : {own, g.n[own].n[4], g.n[own].n[5], g.n[own].n[6], g.n[own].n[7]}) {
                        for (int j = 0; k >= 0 && j < model.cd[k].nclusters; j++) {
                            const ColorValue& v = model.cd[k].clusters[j];
                            const int d = type == IR ? std::abs(v.R - red)
                                                     : (v.R - red) * (v.R - red) + (v.G - green) * (v.G - green) +
                                                           (v.B - blue) * (v.B - blue);
                            if (model.cd[k].support[j] <= 128 || d >= best) continue;
                            best = d;
                            red_difference = v.R - red;
                            if (type == COLOR) blue_difference = v.B - blue;
                        }
                    }
                    ASSERT_EQ(g.RedD[r * 22 + c], red_difference) << r << "," << c;
                    ASSERT_EQ(g.BlueD[r * 22 + c], blue_difference) << r << "," << c;
                    untouched += red_difference == 12345;
                }
            }
        }
        EXPECT_GT(untouched, 0) << "some pixels must find no cluster";
    }
}

}  // namespace
