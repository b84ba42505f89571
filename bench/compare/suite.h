// The whole comparison: which inputs in which order, and everything measured, ready to be printed.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "bench/compare/measure.h"

namespace bench {

struct SuiteOptions {
    std::string analyzer;      // path of the executable
    std::string footage;       // directory with the footage; made scenes stand in where it is missing
    std::vector<int> heights;  // which sizes to run: 240, 576, 1080
    bool worst = true;         // run the worst contents
    size_t rounds = 5;
    size_t block = 10;  // frames a contestant works on in a row
    int core = 0;       // everything measured runs on this core
    double reply_limit_seconds = 5.0;
    double length = 1.0;  // scales the numbers of frames
};

// One input of the main table.
struct InputResult {
    std::string name;
    int width = 0;
    int height = 0;
    size_t learning = 0;
    size_t detection = 0;
    std::vector<RoundResult> rounds;
    [[nodiscard]] double pixels() const { return static_cast<double>(width) * height; }
};

// One of the worst contents at one size; the analyzer alone.
struct WorstResult {
    std::string name;
    std::string what;
    int width = 0;
    int height = 0;
    std::vector<RoundResult> rounds;
    // The most expensive frame: each frame's median over the rounds, then the largest of them. Seconds.
    [[nodiscard]] double worstFrame() const;
    [[nodiscard]] double mostObjects() const;
    [[nodiscard]] std::string failure() const;
};

struct SuiteResult {
    std::string when;  // local time at the start
    double clock_hertz = 0.0;
    bool footage_found = false;
    std::vector<InputResult> inputs;
    std::vector<WorstResult> worst;
};

// Says on standard error what it is doing.
SuiteResult runSuite(const SuiteOptions& options);

// Time and memory against image size, and against the number of objects in a 768x576 frame.
struct SweepPoint {
    int width = 0;
    int height = 0;
    double objects_shown = 0.0;       // in the scene; negative where not known
    std::vector<RoundResult> rounds;  // of the same frames
};
struct SweepResult {
    std::vector<SweepPoint> sizes;
    std::vector<SweepPoint> objects;
};
SweepResult runSweep(const SuiteOptions& options);

}  // namespace bench
