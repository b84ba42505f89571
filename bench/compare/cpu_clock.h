// Processor time: of the calling thread, of another process, and how many cycles a second of it holds.
#pragma once

#include <sys/types.h>

#include <ctime>

namespace bench {

// Seconds of processor time a clock has counted. The clocks of threads and processes count user and system time.
inline double clockSeconds(clockid_t clock) {
    timespec now{};
    clock_gettime(clock, &now);
    return static_cast<double>(now.tv_sec) + 1e-9 * static_cast<double>(now.tv_nsec);
}

inline double threadSeconds() {
    return clockSeconds(CLOCK_THREAD_CPUTIME_ID);
}

// Cycles a second of the core under load: times a chain of additions, each of which waits for the one before and takes
// one cycle. Good to about one percent, the best of several tries; no access to performance counters is needed.
double measureClockHertz();

}  // namespace bench
