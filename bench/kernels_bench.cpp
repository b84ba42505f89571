// Every kernel in every version that this processor runs, on data in the cache. "cycles/px" takes the clock rate as
// measured at the start, so other programs on the same core make it too large. A name is kernel/version; see
// --benchmark_filter and --benchmark_format.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <numeric>
#include <random>
#include <string>
#include <vector>

#include "bench/compare/cpu_clock.h"
#include "vision/background/backgroundmodel.h"
#include "vision/kernels/kernels.h"

namespace {

using kernels::Table;

double hertz;
std::mt19937 generator(1);

int random(int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(generator);
}

// Counts the cycles of the loop behind its construction.
class PerPixel {
 public:
    PerPixel(benchmark::State& s, int n) : state_(s), pixels_(n), begin(bench::ThreadSeconds()) {}
    ~PerPixel() {
        const double cycles = (bench::ThreadSeconds() - begin) * hertz;
        state.counters["cycles/px"] = cycles / static_cast<double>(pixels) / static_cast<double>(state.iterations());
        state_.SetItemsProcessed(state_.iterations() * pixels_);
    }
    PerPixel(const PerPixel&) = delete;
    PerPixel& operator=(const PerPixel&) = delete;

 private:
    benchmark::State& state_;
    int pixels_;
    double begin_;
};

kernels::PixelBlock randomPixels() {
    kernels::PixelBlock px;
    for (std::uint32_t& p : px.p) p = static_cast<std::uint32_t>(Random(0, 0xffffff));
    return px;
}

// Clusters 40 apart.
kernels::ClusterSet randomSet(int clusters) {
    kernels::ClusterSet set{};
    set.n = static_cast<std::int16_t>(clusters);
    for (int j = 0; j < clusters; j++) {
        set.support[j] = 300;
        for (int c = 0; c < 3; c++) {
            set.mean[c][j] = static_cast<std::int16_t>(20 + 40 * j);
            set.sum[c][j] = 300 * (20 + 40 * j);
        }
    }
    return set;
}

// Whole main cells of a row of 320 pixels, and all of a frame's, which lie in two lattices.
constexpr int kRow = 80, kCells = 80 * 60 + 79 * 59;
constexpr std::size_t kWidth = 4 * kRow;

// A row of cells, and 64 samples for each close around its clusters.
struct Cells {
    std::vector<int> cells = std::vector<int>(kRow);
    std::vector<kernels::ClusterSet> sets;
    std::vector<kernels::CandidateList> lists{kRow};
    std::vector<kernels::PixelBlock> px{kRow * kernels::kFrames};
    const kernels::CellRun run;

    explicit Cells(int clusters)
        : sets(kRow, RandomSet(clusters)), run{kRow, cells.data(), sets.data(), lists.data(), px.data(), kRow} {
        std::iota(cells.begin(), cells.end(), 0);
        for (kernels::PixelBlock& block : px)
            for (std::uint32_t& p : block.p) {
                const int mean = 20 + 40 * Random(0, clusters - 1);
                p = 0;
                for (int c = 0; c < 3; c++) p = p << 8 | static_cast<std::uint32_t>(mean + Random(-3, 3));
            }
    }
};

void load(benchmark::State& state, const Table* table) {
    std::vector<unsigned char> rows(4 * 3 * kWidth);
    for (unsigned char& v : rows) v = static_cast<unsigned char>(Random(0, 255));
    std::vector<kernels::PixelBlock> px(kRow);
    const PerPixel meter(state, kRow * kernels::kPixels);
    for (auto _ : state) {
        table->load(rows.data(), 3 * kWidth, kRow, px.data());
        benchmark::ClobberMemory();
    }
}

// Five lists around each cell, as inside a frame.
void compare(benchmark::State& state, const Table* table, int clusters) {
    std::vector<kernels::PixelBlock> px(kRow);
    for (kernels::PixelBlock& block : px) block = RandomPixels();
    kernels::CandidateList list;
    kernels::ListCandidates(randomSet(clusters), false, list);
    const std::vector<kernels::CandidateList> own(kRow, list), above(kRow + 1, list), below(kRow + 1, list);
    std::vector<std::int16_t> red(4 * kWidth), green(4 * kWidth), blue(4 * kWidth);
    std::vector<std::int16_t> sums(3 * 4 * kRow);
    std::vector<kernels::Outcome> outcome(kRow);
    const kernels::ComparisonRow row{kRow,         px.data(),
                                     own.data(),   above.data(),
                                     below.data(), {red.data(), green.data(), blue.data()},
                                     kWidth,       {sums.data(), sums.data() + 4 * kRow, sums.data() + 8 * kRow},
                                     2 * kRow,     outcome.data()};
    const PerPixel meter(state, kRow * kernels::kPixels);
    for (auto _ : state) {
        table->compare(row);
        benchmark::ClobberMemory();
    }
}

void sums(benchmark::State& state, const Table* table) {
    const kernels::PixelBlock px = randomPixels();
    kernels::QuadrantSums q;
    const PerPixel meter(state, kernels::kPixels);
    for (auto _ : state) {
        table->sums(px, q);
        benchmark::DoNotOptimize(q);
    }
}

constexpr int kSamples = kRow * kernels::kFrames * kernels::kPixels;

// Per sample; the first clustering.
void cluster(benchmark::State& state, const Table* table, int clusters) {
    const Cells cells(clusters);
    const PerPixel meter(state, kSamples);
    for (auto _ : state) {
        table->cluster(cells.run, 60, false, random);
        benchmark::ClobberMemory();
    }
}

// Per sample. The samples stay near the clusters, so that none is opened.
void maintain(benchmark::State& state, const Table* table, int clusters) {
    const Cells cells(clusters);
    const PerPixel meter(state, kSamples);
    for (auto _ : state) {
        table->maintain(cells.run, 60, false, true);
        benchmark::ClobberMemory();
    }
}

// Per sample, with two of six clusters merged and one opened each time; includes a copy of the sets.
void merge(benchmark::State& state, const Table* table) {
    Cells cells(kernels::kClusters);
    const std::vector<kernels::ClusterSet> start = cells.sets;
    for (int j = 0; j < kRow; j++) cells.px[static_cast<std::size_t>(2 * kRow + j)].p[5] = 0xff0000;
    const PerPixel meter(state, kSamples);
    for (auto _ : state) {
        std::copy(start.begin(), start.end(), cells.sets.begin());
        table->maintain(cells.run, 20000, false, true);
        benchmark::ClobberMemory();
    }
}

constexpr int kFrame = 320 * 240;  // measure and derive count per pixel of a frame

std::vector<int> row(int n) {
    std::vector<int> v(static_cast<std::size_t>(n));
    for (int& x : v) x = Random(-1000, 1000);
    return v;
}

void measure(benchmark::State& state, const Table* table) {
    const std::vector<int> r = Row(kCells), g = Row(kCells), b = Row(kCells);
    std::vector<double> diff(kCells);
    const PerPixel meter(state, kFrame);
    for (auto _ : state) {
        double total = 0, squares = 0;
        table->measure(r.data(), g.data(), b.data(), kCells, diff.data(), total, squares);
        benchmark::DoNotOptimize(total);
        benchmark::DoNotOptimize(squares);
    }
}

void derive(benchmark::State& state, const Table* table) {
    const std::vector<int> u[3] = {Row(kRow), Row(kRow), Row(kRow)}, d[3] = {Row(kRow), Row(kRow), Row(kRow)};
    const int* const up[3] = {u[0].data(), u[1].data(), u[2].data()};
    const int* const down[3] = {d[0].data(), d[1].data(), d[2].data()};
    std::vector<double> squares(kRow);
    const PerPixel meter(state, kFrame);
    for (auto _ : state)
        for (int row = 0; row < kCells / kRow; row++) {
            table->derive(up, down, kRow - 1, squares.data());
            benchmark::DoNotOptimize(squares.data());
            benchmark::ClobberMemory();
        }
}

}  // namespace

int main(int argc, char** argv) {
    hertz = bench::MeasureClockHertz();
    for (const Table* const* t = kernels::Available(); *t != nullptr; t++) {
        const Table* table = *t;
        const auto name = [&](const char* kernel) { return std::string(kernel) + "/" + table->name; };
        benchmark::RegisterBenchmark(name("load").c_str(), load, table);
        for (const int n : {1, 3, 6}) {
            const std::string clusters = std::to_string(n) + (n == 1 ? " cluster" : " clusters");
            benchmark::RegisterBenchmark(name(("compare, 5 lists of " + clusters).c_str()).c_str(), Compare, table, n);
            benchmark::RegisterBenchmark(name(("cluster, " + clusters).c_str()).c_str(), Cluster, table, n);
            benchmark::RegisterBenchmark(name(("maintain, " + clusters).c_str()).c_str(), Maintain, table, n);
        }
        benchmark::RegisterBenchmark(name("maintain, 6 clusters, 1 merged, 1 opened").c_str(), merge, table);
        benchmark::RegisterBenchmark(name("sums").c_str(), sums, table);
        benchmark::RegisterBenchmark(name("measure").c_str(), measure, table);
        benchmark::RegisterBenchmark(name("derive").c_str(), derive, table);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 64;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
