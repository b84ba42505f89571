// Every kernel in every version that this processor runs, on data in the cache. "cycles/px" takes the clock rate as
// measured at the start, so other programs on the same core make it too large. A name is kernel/version; see
// --benchmark_filter and --benchmark_format.
#include <benchmark/benchmark.h>

#include <random>
#include <string>
#include <vector>

#include "backgroundmodel.h"
#include "compare/CpuClock.h"
#include "kernels/kernels.h"

namespace {

using kernels::Table;

double hertz;
std::mt19937 generator(1);

int Random(int low, int high) {
    return std::uniform_int_distribution<int>(low, high)(generator);
}

// Counts the cycles of the loop behind its construction.
class PerPixel {
 public:
    PerPixel(benchmark::State& s, int n) : state(s), pixels(n), begin(bench::ThreadSeconds()) {}
    ~PerPixel() {
        const double cycles = (bench::ThreadSeconds() - begin) * hertz;
        state.counters["cycles/px"] = cycles / static_cast<double>(pixels) / static_cast<double>(state.iterations());
    }
    PerPixel(const PerPixel&) = delete;
    PerPixel& operator=(const PerPixel&) = delete;

 private:
    benchmark::State& state;
    int pixels;
    double begin;
};

kernels::PixelBlock RandomPixels() {
    kernels::PixelBlock px;
    for (std::uint32_t& p : px.p) p = static_cast<std::uint32_t>(Random(0, 0xffffff));
    return px;
}

// A cell with clusters 40 apart, and samples close around them.
KsBackgroundCell RandomCell(int clusters) {
    KsBackgroundCell cell{};
    cell.nclusters = static_cast<std::int16_t>(clusters);
    for (int j = 0; j < clusters; j++) {
        const auto mean = static_cast<std::int16_t>(20 + 40 * j);
        cell.support[j] = 300;
        cell.clusters[j] = {mean, mean, mean};
        cell.clustersum[j] = {300 * mean, 300 * mean, 300 * mean};
    }
    for (ColorSample& s : cell.cv) {
        const auto near = [mean = 20 + 40 * Random(0, clusters - 1)] {
            return static_cast<std::uint8_t>(mean + Random(-3, 3));
        };
        s.R = near();
        s.G = near();
        s.B = near();
    }
    cell.nsamples = KsBackgroundCell::kMaxSamples;
    return cell;
}

void Load(benchmark::State& state, const Table* table) {
    constexpr std::size_t kStride = 3 * 320;
    std::vector<unsigned char> rows(4 * kStride);
    for (unsigned char& v : rows) v = static_cast<unsigned char>(Random(0, 255));
    kernels::PixelBlock px;
    std::size_t at = 0;
    const PerPixel meter(state, kernels::kPixels);
    for (auto _ : state) {
        table->load(rows.data() + at, kStride, px);
        benchmark::DoNotOptimize(px);
        at = at + 12 < kStride ? at + 12 : 0;
    }
}

// Five lists, as around a cell inside the frame.
void Nearest(benchmark::State& state, const Table* table, int clusters) {
    const kernels::PixelBlock px = RandomPixels();
    kernels::CandidateList list[5];
    const kernels::CandidateList* lists[5];
    for (int i = 0; i < 5; i++) {
        kernels::ListCandidates(RandomCell(clusters), false, list[i]);
        lists[i] = &list[i];
    }
    kernels::DifferenceBlock d;
    kernels::QuadrantSums q;
    const PerPixel meter(state, kernels::kPixels);
    for (auto _ : state) {
        table->nearest(px, lists, 5, d, q);
        benchmark::DoNotOptimize(d);
        benchmark::DoNotOptimize(q);
    }
}

void Sums(benchmark::State& state, const Table* table) {
    const kernels::PixelBlock px = RandomPixels();
    kernels::QuadrantSums q;
    const PerPixel meter(state, kernels::kPixels);
    for (auto _ : state) {
        table->sums(px, q);
        benchmark::DoNotOptimize(q);
    }
}

// Per sample. The samples stay near the clusters, so that none is opened.
void Maintain(benchmark::State& state, const Table* table, int clusters) {
    KsBackgroundCell cell = RandomCell(clusters);
    const PerPixel meter(state, KsBackgroundCell::kMaxSamples);
    for (auto _ : state) {
        cell.nsamples = KsBackgroundCell::kMaxSamples;
        table->maintain(cell, 60, false);
        benchmark::DoNotOptimize(cell);
    }
}

// Per sample, with three clusters opened in each call; includes a copy of the cell.
void Open(benchmark::State& state, const Table* table) {
    KsBackgroundCell start = RandomCell(2);
    for (int i = 0; i < 6; i++)
        start.cv[10 * i] = {static_cast<std::uint8_t>(120 + 25 * i), static_cast<std::uint8_t>(40 * i), 200};
    const PerPixel meter(state, KsBackgroundCell::kMaxSamples);
    for (auto _ : state) {
        KsBackgroundCell cell = start;
        table->maintain(cell, 60, false);
        benchmark::DoNotOptimize(cell);
    }
}

// Per pixel of a 320 x 240 frame, whose 9461 cells lie in two lattices.
constexpr int kFrame = 320 * 240, kCells = 80 * 60 + 79 * 59, kRow = 80;

std::vector<int> Row(int n) {
    std::vector<int> v(static_cast<std::size_t>(n));
    for (int& x : v) x = Random(-1000, 1000);
    return v;
}

void Measure(benchmark::State& state, const Table* table) {
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

void Derive(benchmark::State& state, const Table* table) {
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
        benchmark::RegisterBenchmark(name("load").c_str(), Load, table);
        for (const int n : {1, 3, 6}) {
            const std::string clusters = std::to_string(n) + (n == 1 ? " cluster" : " clusters");
            benchmark::RegisterBenchmark(name(("nearest, 5 lists of " + clusters).c_str()).c_str(), Nearest, table, n);
            benchmark::RegisterBenchmark(name(("maintain, " + clusters).c_str()).c_str(), Maintain, table, n);
        }
        benchmark::RegisterBenchmark(name("maintain, 3 opened").c_str(), Open, table);
        benchmark::RegisterBenchmark(name("sums").c_str(), Sums, table);
        benchmark::RegisterBenchmark(name("measure").c_str(), Measure, table);
        benchmark::RegisterBenchmark(name("derive").c_str(), Derive, table);
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 64;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
}
