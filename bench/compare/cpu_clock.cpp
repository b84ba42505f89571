#include "bench/compare/cpu_clock.h"

#include <algorithm>
#include <cstdint>

namespace bench {

double measureClockHertz() {
    constexpr int kTries = 9;
    constexpr uint64_t kTurns = 2'000'000;
    constexpr uint64_t kChain = 16;  // additions a turn
    double best = 0.0;
    for (int attempt = 0; attempt < kTries; ++attempt) {
        uint64_t x = 1;
        const double begin = threadSeconds();
        for (uint64_t turn = 0; turn < kTurns; ++turn) {
            for (uint64_t i = 0; i < kChain; ++i) {
                x += turn;
                asm volatile("" : "+r"(x));  // keeps the compiler from folding the chain
            }
        }
        const double seconds = threadSeconds() - begin;
        best = std::max(best, static_cast<double>(kTurns * kChain) / seconds);
    }
    return best;
}

}  // namespace bench
