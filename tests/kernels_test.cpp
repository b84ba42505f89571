// Every version of the kernels against the plain one, and the plain one against the background model's own queries.
// KERNELS_TEST_SEED and KERNELS_TEST_ROUNDS (a factor) make longer searches.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <iostream>

#include "backgroundmodel.h"
#include "kernels/kernels.h"
#include "support/process.h"
#include "support/scene.h"

namespace {

using kernels::CandidateList;
using kernels::DifferenceBlock;
using kernels::PixelBlock;
using kernels::QuadrantSums;
using kernels::Table;

int Setting(const char* name, int otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr ? std::atoi(text) : otherwise;
}

class Kernels : public testing::TestWithParam<const Table*> {
 protected:
    static constexpr const Table& plain = kernels::scalar;
    const Table& table = *GetParam();
    const int seed = Setting("KERNELS_TEST_SEED", 1), rounds = Setting("KERNELS_TEST_ROUNDS", 1);
    TestRandom random{static_cast<unsigned>(seed)};

    void SetUp() override { std::cout << "seed " << seed << "\n"; }

    // A channel value: anything, near an end, or from a small set in which ties are frequent.
    int Value(int kind, int low, int high) {
        switch (kind) {
            case 0:
                return random.Range(low, high);
            case 1:
                return random.Range(low, low + 2);
            case 2:
                return random.Range(high - 2, high);
            case 3:
                return random.Below(2) != 0 ? low : high;
            default:
                return std::clamp(random.Range(0, 2) * 4 + 126, low, high);
        }
    }

    PixelBlock Pixels(int kind) {
        PixelBlock px;
        for (std::uint32_t& p : px.p) {
            p = 0;
            for (int c = 0; c < 4; c++)  // the fourth byte is to be ignored
                p |= static_cast<std::uint32_t>(Value(kind, 0, 255)) << (8 * c);
        }
        return px;
    }
};

std::vector<const Table*> Tables() {
    std::vector<const Table*> all;
    for (const Table* const* t = kernels::Available(); *t != nullptr; t++) all.push_back(*t);
    return all;
}

INSTANTIATE_TEST_SUITE_P(Every, Kernels, testing::ValuesIn(Tables()),
                         [](const auto& of) { return std::string(of.param->name); });

// Pages between two that nobody may touch.
class GuardedPages {
 public:
    explicit GuardedPages(std::size_t pages) : page(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
        size = (pages + 2) * page;
        at = static_cast<unsigned char*>(mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (at == MAP_FAILED || mprotect(begin(), size - 2 * page, PROT_READ | PROT_WRITE) != 0) std::abort();
    }
    ~GuardedPages() { munmap(at, size); }
    GuardedPages(const GuardedPages&) = delete;
    GuardedPages& operator=(const GuardedPages&) = delete;
    unsigned char* begin() const { return at + page; }
    unsigned char* end() const { return at + size - page; }

 private:
    std::size_t page, size;
    unsigned char* at;
};

TEST_P(Kernels, LoadStaysInsideTheFrame) {
    const GuardedPages pages(1);
    for (unsigned char* p = pages.begin(); p < pages.end(); p++) *p = static_cast<unsigned char>(random.Below(256));
    const auto check = [&](const unsigned char* rgb, std::size_t stride) {
        PixelBlock px;
        table.load(rgb, stride, px);
        for (std::size_t i = 0; i < 16; i++) {
            const unsigned char* p = rgb + i / 4 * stride + i % 4 * 3;
            const std::uint32_t want = p[0] | static_cast<unsigned>(p[1]) << 8 | static_cast<unsigned>(p[2]) << 16;
            ASSERT_EQ(px.p[i], want) << "pixel " << i << ", stride " << stride;
        }
    };
    for (std::size_t width = 4; width <= 41; width++) {
        const std::size_t stride = width * 3;
        for (std::size_t c = 0; c + 4 <= width; c++) {
            check(pages.begin() + c * 3, stride);
            check(pages.end() - 4 * stride + c * 3, stride);
        }
    }
    for (std::size_t shift = 0; shift < 64; shift++) check(pages.begin() + shift, 64 + shift);
}

// A cell with clusters of the given supports; those with support above 128 take part in queries.
KsBackgroundCell CellOf(const std::vector<ColorValue>& means, const std::vector<int>& supports) {
    KsBackgroundCell cell{};
    cell.nclusters = static_cast<std::int16_t>(means.size());
    for (std::size_t j = 0; j < means.size(); j++) {
        Put(cell.clusters[j].R, means[j].R);
        Put(cell.clusters[j].G, means[j].G);
        Put(cell.clusters[j].B, means[j].B);
        Put(cell.support[j], supports[j]);
    }
    return cell;
}

TEST(CandidateLists, Bounds) {
    struct Case {
        const char* what;
        ColorValue mean;
        int support;
        bool gray;
        int n;
    };
    const Case cases[] = {
        {"well supported", {1, 2, 3}, 129, false, 1},
        {"not enough support for queries", {1, 2, 3}, 128, false, 0},
        {"the ends", {kernels::kLowest, kernels::kHighest, 0}, 512, false, 1},
        {"red too low", {kernels::kLowest - 1, 0, 0}, 512, false, -1},
        {"blue too high", {0, 0, kernels::kHighest + 1}, 512, false, -1},
        {"out of bounds although no query sees it", {0, kernels::kHighest + 1, 0}, 1, false, -1},
        {"gray ignores green and blue", {0, 30000, -30000}, 129, true, 1},
        {"red too high, gray", {kernels::kHighest + 1, 0, 0}, 129, true, -1},
        {"no support", {0, 0, 0}, 0, false, -1},
    };
    for (const Case& c : cases) {
        CandidateList list{};
        kernels::ListCandidates(CellOf({{7, 8, 9}, c.mean}, {100, c.support}), c.gray, list);
        EXPECT_EQ(list.n, c.n) << c.what;
    }
}

TEST_P(Kernels, NearestIsWhatTheCellsAnswer) {
    for (int turn = 0; turn < 20000 * rounds; turn++) {
        const bool gray = turn % 4 == 3;
        const int kind = random.Below(5), wide = random.Below(2), n = random.Range(1, 5);
        std::vector<KsBackgroundCell> cells;
        CandidateList list[5];
        const CandidateList* lists[5];
        int candidates = 0;
        for (int l = 0; l < n; l++) {
            std::vector<ColorValue> means;
            std::vector<int> supports;
            for (int j = random.Below(7); j > 0; j--) {
                const int low = wide ? kernels::kLowest : 0, high = wide ? kernels::kHighest : 255;
                means.push_back({Value(kind, low, high), Value(kind, low, high), Value(kind, low, high)});
                supports.push_back(random.Below(4) == 0 ? random.Range(1, 130) : random.Range(129, 512));
            }
            cells.push_back(CellOf(means, supports));
            kernels::ListCandidates(cells.back(), gray, list[l]);
            lists[l] = &list[l];
            ASSERT_GE(list[l].n, 0);
            candidates += list[l].n;
        }
        if (candidates == 0) continue;
        const PixelBlock px = Pixels(random.Below(3) == 0 ? random.Below(5) : kind);
        DifferenceBlock d;
        QuadrantSums q, want{};
        table.nearest(px, lists, n, d, q);
        for (int i = 0; i < kernels::kPixels; i++) {
            const std::uint32_t p = px.p[i];
            const int r = p & 255, g = p >> 8 & 255, b = p >> 16 & 255;
            int dr = 0, dg = -g, db = -b, min = 1000000;
            for (const KsBackgroundCell& cell : cells)
                min = gray ? cell.GetMinDifferenceGray(min, r, dr) : cell.GetMinDifference(min, r, g, b, dr, dg, db);
            ASSERT_EQ(d.r[i], dr) << "turn " << turn << ", pixel " << i;
            ASSERT_EQ(d.g[i], dg) << "turn " << turn << ", pixel " << i;
            ASSERT_EQ(d.b[i], db) << "turn " << turn << ", pixel " << i;
            want.Add(i / 8 * 2 + i % 4 / 2, dr, dg, db);
        }
        ASSERT_EQ(std::memcmp(&q, &want, sizeof q), 0) << "turn " << turn;
    }
}

TEST_P(Kernels, Sums) {
    for (int turn = 0; turn < 1000; turn++) {
        const PixelBlock px = Pixels(turn % 5);
        QuadrantSums q, want{};
        table.sums(px, q);
        for (int i = 0; i < kernels::kPixels; i++)
            want.Add(i / 8 * 2 + i % 4 / 2, px.p[i] & 255, px.p[i] >> 8 & 255, px.p[i] >> 16 & 255);
        ASSERT_EQ(std::memcmp(&q, &want, sizeof q), 0) << "turn " << turn;
    }
}

// Rows of 0..40 cells in buffers without room to spare. The largest sums are those of 64 pixels.
TEST_P(Kernels, MeasureAndDerive) {
    constexpr int kMost = 64 * (255 - kernels::kLowest);
    for (int turn = 0; turn < 4100; turn++) {
        const int n = turn % 41, kind = random.Below(4);
        const auto row = [&](int length) {
            std::vector<int> v(static_cast<std::size_t>(length));
            for (int& x : v) x = kind == 0 ? random.Range(-2, 2) : Value(kind - 1, -kMost, kMost);
            return v;
        };
        const auto count = static_cast<std::size_t>(n);
        const std::vector<int> c[3] = {row(n), row(n), row(n)};
        std::vector<double> diff(count);
        double total = 3, squares = 5;
        table.measure(c[0].data(), c[1].data(), c[2].data(), n, diff.data(), total, squares);
        long long want_total = 3, want_squares = 5;
        for (std::size_t i = 0; i < count; i++) {
            long long square = 0;
            for (const std::vector<int>& channel : c) square += 1LL * channel[i] * channel[i];
            const auto length = static_cast<long long>(diff[i]);
            ASSERT_EQ(static_cast<double>(length), diff[i]);
            ASSERT_TRUE(length * length <= square && square < (length + 1) * (length + 1)) << diff[i] << " " << square;
            want_total += length;
            want_squares += length * length;
        }
        ASSERT_EQ(total, static_cast<double>(want_total)) << n;
        ASSERT_EQ(squares, static_cast<double>(want_squares)) << n;

        const std::vector<int> u[3] = {row(n + 1), row(n + 1), row(n + 1)}, d[3] = {row(n + 1), row(n + 1), row(n + 1)};
        const int* const up[3] = {u[0].data(), u[1].data(), u[2].data()};
        const int* const down[3] = {d[0].data(), d[1].data(), d[2].data()};
        table.derive(up, down, n, diff.data());
        for (std::size_t j = 0; j < count; j++) {
            long long want = 0;
            for (int k = 0; k < 3; k++) {
                const long long x = d[k][j] + d[k][j + 1] - u[k][j] - u[k][j + 1];
                const long long y = u[k][j + 1] + d[k][j + 1] - u[k][j] - d[k][j];
                want += x * x + y * y;
            }
            ASSERT_EQ(diff[j], static_cast<double>(want)) << j << " of " << n;
        }
    }
}

// First difference of two cells, everything counted that is stored, also behind the clusters in use.
std::string Difference(const KsBackgroundCell& a, const KsBackgroundCell& b) {
    const auto of = [](const char* what, int at, int x, int want) {
        return x == want ? std::string()
                         : std::string(what) + " " + std::to_string(at) + ": " + std::to_string(x) + ", plain " +
                               std::to_string(want) + "; ";
    };
    std::string text = of("nclusters", 0, a.nclusters, b.nclusters) + of("nsamples", 0, a.nsamples, b.nsamples);
    for (int j = 0; j < KsBackgroundCell::kMaxClusters; j++) {
        text += of("support", j, a.support[j], b.support[j]) + of("added", j, a.added[j], b.added[j]);
        text += of("R", j, a.clusters[j].R, b.clusters[j].R) + of("G", j, a.clusters[j].G, b.clusters[j].G);
        text += of("B", j, a.clusters[j].B, b.clusters[j].B) + of("sum R", j, a.clustersum[j].R, b.clustersum[j].R);
        text += of("sum G", j, a.clustersum[j].G, b.clustersum[j].G);
        text += of("sum B", j, a.clustersum[j].B, b.clustersum[j].B);
    }
    for (int i = 0; i < KsBackgroundCell::kMaxSamples; i++)
        text += of("sample R", i, a.cv[i].R, b.cv[i].R) + of("sample G", i, a.cv[i].G, b.cv[i].G) +
                of("sample B", i, a.cv[i].B, b.cv[i].B);
    return text;
}

class Maintenance : public Kernels {
 protected:
    // A sum that gives this mean at some support of at least `support`, less what forgetting took away since. With
    // `far`, more has been taken away than one frame can: then a sum is as far from support x mean as it ever gets.
    int SumFor(int mean, int support, bool far) {
        const int before = far ? random.Range(support, 512) : std::min(512, support + random.Below(3));
        for (;;) {
            const int e =
                random.Below(3) == 0 ? Value(3, -before * 3 / 2, before / 2) : random.Range(-2 * before, before);
            const int sum = before * mean + e;
            if (RoundedMean(sum, before) == mean) return sum - (before - support) * mean;
        }
    }

    KsBackgroundCell RandomCell(int kind, bool wide, bool far) {
        const int low = wide ? kernels::kLowest : 0, high = wide ? kernels::kHighest : 255;
        KsBackgroundCell cell{};
        cell.nclusters = static_cast<std::int16_t>(random.Range(1, 6));
        for (int j = 0; j < 6; j++) {
            const int near[] = {1, 2, 3, 128, 129, 448, 449, 510, 511, 512};
            const int support = random.Below(2) != 0 ? random.Range(1, 512) : near[random.Below(10)];
            const int v[3] = {Value(kind, low, high), Value(kind, low, high), Value(kind, low, high)};
            Put(cell.support[j], support);
            Put(cell.added[j], random.Below(65));
            Put(cell.clusters[j].R, v[0]);
            Put(cell.clusters[j].G, v[1]);
            Put(cell.clusters[j].B, v[2]);
            cell.clustersum[j] = {SumFor(v[0], support, far), SumFor(v[1], support, far), SumFor(v[2], support, far)};
        }
        return cell;
    }

    // 64 samples: anything, or close around the cell's clusters with a few far away.
    void Fill(KsBackgroundCell& cell, int kind) {
        const bool close = random.Below(2) == 0;
        const int spread = random.Below(12), strays = random.Below(5);
        for (int i = 0; i < KsBackgroundCell::kMaxSamples; i++) {
            const ColorValue c = cell.clusters[random.Below(cell.nclusters)];
            const bool stray = !close || random.Below(64) < strays;
            const auto pick = [&](int mean) {
                return stray ? Value(kind, 0, 255) : std::clamp(mean + random.Range(-spread, spread), 0, 255);
            };
            Put(cell.cv[i].R, pick(c.R));
            Put(cell.cv[i].G, pick(c.G));
            Put(cell.cv[i].B, pick(c.B));
            // The byte behind a sample's channels is to be ignored.
            reinterpret_cast<unsigned char*>(&cell.cv[i])[3] = static_cast<unsigned char>(random.Below(256));
        }
        cell.nsamples = KsBackgroundCell::kMaxSamples;
    }

    int Limit(bool gray) {
        const int limits[] = {0, 1, 3, 49, 181, 1000, 181 * 181, 32767};
        return limits[random.Below(gray ? 5 : 8)];
    }
};

INSTANTIATE_TEST_SUITE_P(Every, Maintenance, testing::ValuesIn(Tables()),
                         [](const auto& of) { return std::string(of.param->name); });

TEST_P(Maintenance, SingleCells) {
    int merged = 0, opened = 0, beyond = 0;
    for (int turn = 0; turn < 60000 * rounds; turn++) {
        const bool gray = turn % 3 == 2;
        const int kind = random.Below(5);
        KsBackgroundCell want = RandomCell(kind, random.Below(2) != 0, random.Below(2) != 0);
        Fill(want, random.Below(2) != 0 ? kind : random.Below(5));
        const KsBackgroundCell start = want;
        KsBackgroundCell cell = start;
        CandidateList list;
        kernels::ListCandidates(cell, gray, list);
        ASSERT_GE(list.n, 0);
        const int limit = Limit(gray);
        plain.maintain(want, limit, gray);
        table.maintain(cell, limit, gray);
        ASSERT_EQ(Difference(cell, want), "") << "turn " << turn << (gray ? ", gray, limit " : ", limit ") << limit;
        opened += cell.nclusters > start.nclusters;
        merged += start.nclusters == 6 && cell.clusters[5].R != start.clusters[5].R;
        for (int j = 0; j < cell.nclusters; j++)
            beyond += cell.clusters[j].R < kernels::kLowest || cell.clusters[j].R > kernels::kHighest;
    }
    EXPECT_GT(opened, 0);
    EXPECT_GT(merged, 0);
    EXPECT_GT(beyond, 0) << "no merged mean left the bounds";
}

// The life of a cell: every frame maintains and forgets.
TEST_P(Maintenance, Chains) {
    int forgotten = 0;
    for (int chain = 0; chain < 400 * rounds; chain++) {
        const bool gray = chain % 3 == 2;
        const int kind = random.Below(5), limit = Limit(gray);
        KsBackgroundCell want = RandomCell(kind, chain % 8 == 0, false), cell = want;
        for (int call = 0; call < 50; call++) {
            CandidateList list;
            kernels::ListCandidates(want, gray, list);
            if (list.n < 0 || want.nclusters == 0) break;
            Fill(want, random.Below(8) != 0 ? kind : random.Below(5));
            std::memcpy(cell.cv, want.cv, sizeof cell.cv);
            cell.nsamples = want.nsamples;
            for (KsBackgroundCell* c : {&want, &cell}) {
                (c == &want ? plain : table).maintain(*c, limit, gray);
                const int before = c->nclusters;
                if (gray)
                    c->ForgetUnsupportedClustersGray();
                else
                    c->ForgetUnsupportedClusters();
                forgotten += before - c->nclusters;
            }
            ASSERT_EQ(Difference(cell, want), "") << "chain " << chain << ", call " << call;
        }
    }
    EXPECT_GT(forgotten, 0);
}

// The choice is made once in a process; the tests above must not make it in this one.
TEST(KernelChoiceDeathTest, NamesAreObeyed) {
    for (const Table* t : Tables()) {
        setenv("FLEIFEISA_KERNELS", t->name, 1);
        EXPECT_EXIT(std::exit(&kernels::Active() == t ? 0 : 1), testing::ExitedWithCode(0), "^$") << t->name;
    }
    for (const char* unset : {"", "nonsense", "AVX2"}) {
        setenv("FLEIFEISA_KERNELS", unset, 1);
        EXPECT_EXIT(std::exit(&kernels::Active() == Tables().back() ? 0 : 1), testing::ExitedWithCode(0), "") << unset;
    }
    unsetenv("FLEIFEISA_KERNELS");
}

TEST(KernelChoice, EveryNameGivesTheSameReplies) {
    const TempDir root;
    root.WriteControl(BackgroundFrames(4));
    const std::string stream = SceneStream({67, 45, 40, 6, 4, 0, 3});
    const auto run_with = [&](const std::string& name) {
        setenv("FLEIFEISA_KERNELS", name.c_str(), 1);
        RunResult run = RunAnalyzer({"COLOR", "STREAMING", "3", "5"}, stream, root.path);
        EXPECT_EQ(run.status, 0) << name;
        return run;
    };
    const RunResult want = run_with("scalar");
    EXPECT_NE(want.out.find("<OBJECT"), std::string::npos) << "nothing was detected";
    for (const Table* t : Tables()) {
        const RunResult run = run_with(t->name);
        EXPECT_EQ(run.out, want.out) << t->name;
        EXPECT_EQ(run.err, want.err) << t->name;
    }
    const RunResult run = run_with("nonsense");
    EXPECT_EQ(run.out, want.out);
    EXPECT_EQ(run.err,
              want.err + "FLEIFEISA_KERNELS=nonsense cannot be used here; using " + Tables().back()->name + ".\n");
    unsetenv("FLEIFEISA_KERNELS");
}

}  // namespace
