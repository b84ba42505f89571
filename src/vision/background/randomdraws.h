// The process-wide random generator, counted. Its draws are part of the result: only the background model draws, and
// only through these functions. On Linux random() and rand() share one state.
#pragma once

#include <cstdlib>

namespace random_draws {

inline long long count = 0;  // draws since the latest Seed, for traces

inline void Seed() {
    ::srandom(0);
    count = 0;
}
inline long Random() {
    count++;
    return ::random();
}
inline int Rand() {
    count++;
    return std::rand();
}

}  // namespace random_draws
