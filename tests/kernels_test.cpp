// Every version of the kernels against the plain one, and the plain one against the background model's own queries.
// KERNELS_TEST_SEED and KERNELS_TEST_ROUNDS (a factor) make longer searches.
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <iostream>

#include "support/process.h"
#include "support/scene.h"
#include "vision/background/backgroundmodel.h"
#include "vision/kernels/kernels.h"

namespace {

using kernels::CandidateList;
using kernels::ClusterSet;
using kernels::PixelBlock;
using kernels::QuadrantSums;
using kernels::Table;

int setting(const char* name, int otherwise) {
    const char* text = std::getenv(name);
    return text != nullptr ? std::atoi(text) : otherwise;
}

class Kernels : public testing::TestWithParam<const Table*> {
 protected:
    static constexpr const Table& kPlain = kernels::scalar;
    const Table& table = *GetParam();
    const int seed = setting("KERNELS_TEST_SEED", 1), rounds = setting("KERNELS_TEST_ROUNDS", 1);
    TestRandom random{static_cast<unsigned>(seed)};

    void SetUp() override { std::cout << "seed " << seed << "\n"; }

    // A channel value: anything, near an end, or from a small set in which ties are frequent.
    int value(int kind, int low, int high) {
        if (kind == 0) return random.range(low, high);
        if (kind == 1) return random.range(low, low + 2);
        if (kind == 2) return random.range(high - 2, high);
        if (kind == 3) return random.below(2) != 0 ? low : high;
        return std::clamp(random.range(0, 2) * 4 + 126, low, high);
    }

    PixelBlock pixels(int kind) {
        PixelBlock px;
        for (std::uint32_t& p : px.p) {
            p = 0;
            for (int c = 0; c < 4; c++)  // the fourth byte is to be ignored
                p |= static_cast<std::uint32_t>(value(kind, 0, 255)) << (8 * c);
        }
        return px;
    }

    // A sum that gives this mean at some support of at least `support`, less what forgetting took away since. With
    // `far`, more has been taken away than one frame can: then a sum is as far from support x mean as it ever gets.
    int sumFor(int mean, int support, bool far) {
        const int before = far ? random.range(support, 512) : std::min(512, support + random.below(3));
        for (;;) {
            const int e =
                random.below(3) == 0 ? value(3, -before * 3 / 2, before / 2) : random.range(-2 * before, before);
            const int sum = before * mean + e;
            if (RoundedMean(sum, before) == mean) return sum - (before - support) * mean;
        }
    }

    ClusterSet randomSet(int kind, bool wide, bool far) {
        ClusterSet set{};
        put(set.n, random.range(1, 6));
        for (int j = 0; j < kernels::kClusters; j++) {
            const int near[] = {1, 2, 3, 128, 129, 448, 449, 510, 511, 512};
            const int support = random.below(2) != 0 ? random.range(1, 512) : near[random.below(10)];
            put(set.support[j], support);
            put(set.added[j], random.below(65));
            for (int c = 0; c < 3; c++) {
                const int mean = wide ? value(kind, kernels::kLowest, kernels::kHighest) : value(kind, 0, 255);
                put(set.mean[c][j], mean);
                set.sum[c][j] = sumFor(mean, support, far);
            }
        }
        return set;
    }
};

std::vector<const Table*> tables() {
    std::vector<const Table*> all;
    for (const Table* const* t = kernels::Available(); *t != nullptr; t++) all.push_back(*t);
    return all;
}

constexpr auto kNameOf = [](const auto& of) { return std::string(of.param->name); };

INSTANTIATE_TEST_SUITE_P(Every, Kernels, testing::ValuesIn(tables()), kNameOf);

// Pages between two that nobody may touch.
class GuardedPages {
 public:
    explicit GuardedPages(std::size_t pages) : page_(static_cast<std::size_t>(sysconf(_SC_PAGESIZE))) {
        size_ = (pages + 2) * page_;
        at_ = static_cast<unsigned char*>(mmap(nullptr, size_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
        if (at_ == MAP_FAILED || mprotect(begin(), size_ - 2 * page_, PROT_READ | PROT_WRITE) != 0) std::abort();
    }
    ~GuardedPages() { munmap(at_, size_); }
    GuardedPages(const GuardedPages&) = delete;
    GuardedPages& operator=(const GuardedPages&) = delete;
    unsigned char* begin() const { return at_ + page_; }
    unsigned char* end() const { return at_ + size_ - page_; }

 private:
    std::size_t page_, size_;
    unsigned char* at_;
};

TEST_P(Kernels, LoadStaysInsideTheFrame) {
    const GuardedPages pages(1);
    for (unsigned char* p = pages.begin(); p < pages.end(); p++) *p = static_cast<unsigned char>(random.below(256));
    for (std::size_t n = 0; n <= 17; n++)
        for (std::size_t more = 0; more < 50; more++) {
            const std::size_t stride = 12 * n + more;
            for (const unsigned char* rgb : {pages.begin(), pages.begin() + more, pages.end() - 3 * stride - 12 * n}) {
                std::vector<PixelBlock> px(n + 1, PixelBlock{});  // the last one stays as it is
                table.load(rgb, stride, static_cast<int>(n), px.data());
                for (std::size_t i = 0; i < 16 * (n + 1); i++) {
                    const unsigned char* p = rgb + i % 16 / 4 * stride + (i / 16 * 4 + i % 4) * 3;
                    const std::uint32_t want = i < 16 * n ? p[0] | unsigned{p[1]} << 8 | unsigned{p[2]} << 16 : 0;
                    ASSERT_EQ(px[i / 16].p[i % 16], want) << "pixel " << i << " of " << n << " cells, +" << more;
                }
            }
        }
}

CandidateList listOf(const ClusterSet& set, bool gray) {
    CandidateList list;
    std::memset(&list, 0x5a, sizeof list);  // what must not be read is such that it would win
    kernels::ListCandidates(set, gray, list);
    return list;
}

TEST(CandidateLists, Bounds) {
    struct Case {
        const char* what;
        int mean[3], support;
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
        ClusterSet set{};
        set.n = 2;
        set.support[0] = 100;
        put(set.support[1], c.support);
        for (int i = 0; i < 3; i++) put(set.mean[i][1], c.mean[i]);
        EXPECT_EQ(listOf(set, c.gray).n, c.n) << c.what;
    }
}

// What the cells around answer by their own queries.
struct Answer {
    kernels::Outcome outcome = kernels::kCompared;
    std::array<int, 3> d[kernels::kPixels];
    QuadrantSums sums{};

    Answer(const KsBackgroundCell* const (&around)[5], const PixelBlock& px, bool gray) {
        for (int i = 0; i < kernels::kPixels; i++) {
            const int r = px.p[i] & 255, g = px.p[i] >> 8 & 255, b = px.p[i] >> 16 & 255;
            int min = kFarthest, dr = 0, dg = -g, db = -b;
            for (const KsBackgroundCell* c : around)
                min = gray ? c->GetMinDifferenceGray(min, r, dr) : c->GetMinDifference(min, r, g, b, dr, dg, db);
            if (min == kFarthest) outcome = kernels::kWithout;
            d[i] = {dr, dg, db};
            sums.Add(i / 8 * 2 + i % 4 / 2, dr, dg, db);
        }
        for (const KsBackgroundCell* c : around)
            if (c->nclusters > 0 && c->clusters[0].R < kernels::kLowest) outcome = kernels::kUnfit;
    }
};

// In buffers without room to spare.
TEST_P(Kernels, RowsAreWhatTheCellsAnswer) {
    constexpr std::int16_t kUntouched = 12345;
    int outcomes[3] = {};
    for (int turn = 0; turn < 4000 * rounds; turn++) {
        const bool gray = turn % 4 == 3, wide = random.below(2) != 0;
        const int kind = random.below(5), filling = random.below(4);
        const std::size_t n = random.range(1, 9), before = random.below(5), width = 4 * n + random.below(4);
        std::vector<KsBackgroundCell> cells[3];  // own, above, below
        std::vector<CandidateList> lists[3];
        for (std::size_t l = 0; l < 3; l++)
            for (std::size_t k = 0; k < n + (l > 0); k++) {
                ClusterSet set = randomSet(kind, wide, false);
                if (filling == 0 && random.below(8) != 0) set.n = 0;
                if (filling == 1) set.n = kernels::kClusters;
                for (std::int16_t& support : set.support)
                    if (filling == 1) put(support, random.range(129, 512));
                if (random.below(40) == 0) set.mean[0][0] = kernels::kLowest - 1;
                cells[l].emplace_back().TakeClusters(set);
                lists[l].push_back(listOf(set, gray));
            }
        std::vector<PixelBlock> px;
        while (px.size() < n) px.push_back(pixels(random.below(3) == 0 ? random.below(5) : kind));
        std::vector<std::int16_t> planes[3], want[3];
        std::int16_t* at[3] = {};
        for (int c = 0; c < 3; c++) {
            planes[c] = want[c] = std::vector(before + 3 * width + 4 * n, kUntouched);
            if (c == 0 || !gray) at[c] = planes[c].data() + before;
        }
        std::vector<std::int16_t> sums[3], want_sums[3];
        const std::size_t sums_width = 2 * n + random.below(3);
        for (int c = 0; c < 3; c++) sums[c] = want_sums[c] = std::vector(sums_width + 2 * n, kUntouched);
        std::vector<kernels::Outcome> outcome(n);
        const CandidateList *own = lists[0].data(), *above = lists[1].data(), *below = lists[2].data();
        const int count = static_cast<int>(n);
        table.compare({count,
                       px.data(),
                       own,
                       above,
                       below,
                       {at[0], at[1], at[2]},
                       width,
                       {sums[0].data(), gray ? nullptr : sums[1].data(), gray ? nullptr : sums[2].data()},
                       sums_width,
                       outcome.data()});
        for (std::size_t j = 0; j < n; j++) {
            const Answer a({&cells[0][j], &cells[1][j + 1], &cells[1][j], &cells[2][j], &cells[2][j + 1]}, px[j], gray);
            ASSERT_EQ(outcome[j], a.outcome) << "turn " << turn << ", cell " << j;
            outcomes[a.outcome]++;
            if (a.outcome != kernels::kCompared) continue;
            for (std::size_t q = 0; q < 4; q++)
                for (std::size_t c = 0; c < (gray ? 1 : 3); c++)
                    want_sums[c][q / 2 * sums_width + 2 * j + q % 2] = a.sums.q[q][c == 0 ? 0 : 3 - c];
            for (std::size_t i = 0; i < kernels::kPixels; i++)
                for (std::size_t c = 0; c < (gray ? 1 : 3); c++)
                    put(want[c][before + i / 4 * width + 4 * j + i % 4], a.d[i][c]);
        }
        for (int c = 0; c < 3; c++) {
            ASSERT_EQ(planes[c], want[c]) << "turn " << turn << ", channel " << c;
            ASSERT_EQ(sums[c], want_sums[c]) << "turn " << turn << ", channel " << c;
        }
    }
    for (const int times : outcomes) EXPECT_GT(times, 100 * rounds);
}

TEST_P(Kernels, Sums) {
    for (int turn = 0; turn < 1000; turn++) {
        const PixelBlock px = pixels(turn % 5);
        QuadrantSums q, want{};
        table.sums(px, q);
        for (int i = 0; i < kernels::kPixels; i++)
            want.Add(i / 8 * 2 + i % 4 / 2, px.p[i] & 255, px.p[i] >> 8 & 255, px.p[i] >> 16 & 255);
        ASSERT_EQ(std::memcmp(&q, &want, sizeof q), 0) << "turn " << turn;
    }
}

// Rows of 0..40 cells in buffers without room to spare. The largest sums are those of 64 pixels.
TEST_P(Kernels, AddMeasureAndDerive) {
    constexpr int kMost = 64 * (255 - kernels::kLowest);
    for (int turn = 0; turn < 4100; turn++) {
        const int n = turn % 41, kind = random.below(4);
        const auto row = [&](int length) {
            std::vector<int> v(static_cast<std::size_t>(length));
            for (int& x : v) x = kind == 0 ? random.range(-2, 2) : value(kind - 1, -kMost, kMost);
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

        std::vector<std::int16_t> halves[2];
        for (std::vector<std::int16_t>& half : halves)
            for (int i = 0; i < 2 * n; i++) half.push_back(static_cast<std::int16_t>(value(kind, -32768, 32767)));
        std::vector<int> sums(count);
        table.add(halves[0].data(), halves[1].data(), n, sums.data());
        for (std::size_t j = 0; j < count; j++)
            ASSERT_EQ(sums[j], halves[0][2 * j] + halves[0][2 * j + 1] + halves[1][2 * j] + halves[1][2 * j + 1]) << n;

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

// Everything that is stored, also behind the clusters in use: n and the list's n, then eight values for each cluster
// and three for each entry of the list.
std::vector<int> values(const ClusterSet& set, const CandidateList& list) {
    std::vector<int> v{set.n, list.n};
    for (int j = 0; j < kernels::kClusters; j++) {
        v.insert(v.end(), {set.support[j], set.added[j]});
        for (int c = 0; c < 3; c++) v.insert(v.end(), {set.mean[c][j], set.sum[c][j]});
    }
    for (int j = 0; j < list.n; j++) v.insert(v.end(), {list.constant[j], list.rb[j], list.g[j]});
    return v;
}

class Maintenance : public Kernels {
 protected:
    void setCells(int n, int kind, bool wide, bool far) {
        sets.clear();
        while (n-- > 0) sets.push_back(randomSet(kind, wide, far));
    }

    // Chooses some of the cells, with 64 samples each: anything, or close around its clusters with a few far away.
    void setSamples(int kind) {
        const bool close = random.below(2) == 0;
        const int spread = random.below(12), strays = random.below(5);
        cells.clear();
        for (std::size_t k = 0; k < sets.size(); k++)
            if (random.below(4) != 0 || k + 1 == sets.size()) cells.push_back(static_cast<int>(k));
        stride = cells.size() + random.below(3);
        px.resize(3 * stride + cells.size());
        for (std::size_t i = 0; i < px.size(); i++)
            for (std::uint32_t& p : px[i].p) {
                const ClusterSet& set = sets[cells[std::min(i % stride, cells.size() - 1)]];
                const int j = random.below(set.n);
                const bool stray = !close || random.below(64) < strays;
                p = static_cast<std::uint32_t>(random.below(256)) << 24;  // to be ignored
                for (int c = 0; c < 3; c++) {
                    const int near = set.mean[c][j] + random.range(-spread, spread);
                    p |= static_cast<std::uint32_t>(stray ? value(kind, 0, 255) : std::clamp(near, 0, 255)) << (8 * c);
                }
            }
    }

    // Has the plain version and this one act on the chosen cells; then `sets` is theirs.
    template <class F>
    void act(bool gray, F act) {
        std::vector<ClusterSet> want = sets;
        std::vector<CandidateList> lists(sets.size(), listOf({}, gray)), want_lists = lists;
        const int n = static_cast<int>(cells.size());
        act(kPlain, kernels::CellRun{n, cells.data(), want.data(), want_lists.data(), px.data(), stride});
        act(table, kernels::CellRun{n, cells.data(), sets.data(), lists.data(), px.data(), stride});
        for (const int k : cells) want_lists[k] = listOf(want[k], gray);
        for (std::size_t k = 0; k < sets.size(); k++) {
            const std::vector<int> got = values(sets[k], lists[k]), expected = values(want[k], want_lists[k]);
            ASSERT_EQ(got, expected) << "cell " << k << ", from value "
                                     << std::mismatch(got.begin(), got.end(), expected.begin()).first - got.begin();
        }
    }

    int anyLimit(bool gray) {
        const int limits[] = {0, 1, 3, 49, 181, 1000, 181 * 181, 32767};
        return limits[random.below(gray ? 5 : 8)];
    }

    std::vector<ClusterSet> sets;
    std::vector<int> cells;
    std::vector<PixelBlock> px;
    std::size_t stride;
};

INSTANTIATE_TEST_SUITE_P(Every, Maintenance, testing::ValuesIn(tables()), kNameOf);

// Over whatever stands in the cells; the same draws leave the generator in the same state.
TEST_P(Maintenance, FirstClusterings) {
    int counts[kernels::kClusters] = {};
    for (int turn = 0; turn < 4000 * rounds; turn++) {
        const bool gray = turn % 3 == 2;
        const int kind = random.below(5), limit = anyLimit(gray);
        SCOPED_TRACE("turn " + std::to_string(turn) + (gray ? ", gray, limit " : ", limit ") + std::to_string(limit));
        setCells(random.range(1, 5), kind, false, false);
        setSamples(random.below(2) != 0 ? kind : random.below(5));
        std::vector<long> next;
        act(gray, [&](const Table& t, const kernels::CellRun& run) {
            srandom(static_cast<unsigned>(turn));
            t.cluster(run, limit, gray, ::random);
            next.push_back(::random());
        });
        ASSERT_EQ(next[0], next[1]);
        if (HasFatalFailure()) return;
        for (const int k : cells) counts[sets[k].n]++;
    }
    for (const int n : {1, 2, 3}) EXPECT_GT(counts[n], 100 * rounds) << n << " clusters";
}

// Any cells, once; or the life of cells: every frame maintains, and most forget.
TEST_P(Maintenance, Runs) {
    int merged = 0, opened = 0, beyond = 0, forgotten = 0;
    for (int turn = 0; turn < 16000 * rounds; turn++) {
        const bool gray = turn % 3 == 2, life = turn % 240 < 3;
        const int kind = random.below(5), limit = anyLimit(gray);
        setCells(random.range(1, 5), kind, random.below(life ? 8 : 2) == 0, !life && random.below(2) != 0);
        for (int call = 0; call < (life ? 50 : 1) && !sets.empty(); call++) {
            const bool forget = random.below(life ? 8 : 2) != 0;
            SCOPED_TRACE("turn " + std::to_string(turn) + ", call " + std::to_string(call) + (gray ? ", gray" : "") +
                         (forget ? ", forget" : "") + ", limit " + std::to_string(limit));
            setSamples(random.below(life ? 8 : 2) != 0 ? kind : random.below(5));
            const std::vector<ClusterSet> start = sets;
            act(gray, [&](const Table& t, const kernels::CellRun& run) { t.maintain(run, limit, gray, forget); });
            if (HasFatalFailure()) return;
            for (std::size_t j = 0; j < sets.size(); j++) {
                opened += sets[j].n > start[j].n;
                merged += !forget && start[j].n == 6 && sets[j].support[5] < start[j].support[5];
                beyond += listOf(sets[j], gray).n < 0;
                forgotten += sets[j].n < start[j].n;
            }
            std::erase_if(sets, [&](const ClusterSet& set) { return set.n == 0 || listOf(set, gray).n < 0; });
        }
    }
    for (const int times : {merged, opened, beyond, forgotten}) EXPECT_GT(times, 100 * rounds);
}

// A cell that is not theirs ends a run of the vector versions: it and those behind it stay as they are.
TEST_P(Maintenance, StopBeforeWhatDoesNotFit) {
    for (const bool empty : {true, false}) {
        setCells(5, 0, false, false);
        cells = {0, 2, 3, 4};
        stride = cells.size();
        px.assign(4 * stride, {});
        std::vector<CandidateList> lists(sets.size(), listOf({}, false));
        if (empty)
            sets[3].n = 0;
        else
            lists[3].n = -1;
        const std::vector<ClusterSet> start = sets;
        const int done =
            table.maintain({4, cells.data(), sets.data(), lists.data(), px.data(), stride}, 49, false, true);
        ASSERT_EQ(done, &table == &kPlain ? 4 : 2);
        if (done == 4) continue;
        EXPECT_NE(values(sets[2], {}), values(start[2], {}));
        for (const int k : {1, 3, 4}) EXPECT_EQ(values(sets[k], {}), values(start[k], {})) << k;
    }
}

// The choice is made once in a process; the tests above must not make it in this one.
TEST(KernelChoiceDeathTest, NamesAreObeyed) {
    for (const Table* t : tables()) {
        setenv("FLEIFEISA_KERNELS", t->name, 1);
        EXPECT_EXIT(std::exit(&kernels::Active() == t ? 0 : 1), testing::ExitedWithCode(0), "^$") << t->name;
    }
    for (const char* unset : {"", "nonsense", "AVX2"}) {
        setenv("FLEIFEISA_KERNELS", unset, 1);
        EXPECT_EXIT(std::exit(&kernels::Active() == tables().back() ? 0 : 1), testing::ExitedWithCode(0), "") << unset;
    }
    unsetenv("FLEIFEISA_KERNELS");
}

TEST(KernelChoice, EveryNameGivesTheSameReplies) {
    const TempDir root;
    root.writeControl(backgroundFrames(4));
    const std::string stream = sceneStream({67, 45, 40, 6, 4, 0, 3});
    const auto run_with = [&](const std::string& name) {
        setenv("FLEIFEISA_KERNELS", name.c_str(), 1);
        RunResult run = runAnalyzer({"COLOR", "STREAMING", "3", "5"}, stream, root.path);
        EXPECT_EQ(run.status, 0) << name;
        return run;
    };
    const RunResult want = run_with("scalar");
    EXPECT_NE(want.out.find("<OBJECT"), std::string::npos) << "nothing was detected";
    for (const Table* t : tables()) {
        const RunResult run = run_with(t->name);
        EXPECT_EQ(run.out, want.out) << t->name;
        EXPECT_EQ(run.err, want.err) << t->name;
    }
    const RunResult run = run_with("nonsense");
    EXPECT_EQ(run.out, want.out);
    EXPECT_EQ(run.err,
              want.err + "FLEIFEISA_KERNELS=nonsense cannot be used here; using " + tables().back()->name + ".\n");
    unsetenv("FLEIFEISA_KERNELS");
}

}  // namespace
