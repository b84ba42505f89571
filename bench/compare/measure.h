// Runs the analyzer and the OpenCV pipelines over the same frames, block by block in turns on one core.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "bench/compare/analyzer_process.h"
#include "bench/compare/clip.h"
#include "bench/compare/opencv_pipeline.h"

namespace bench {

// What one contestant needed in one round. Seconds of processor time, one entry a frame.
struct Samples {
    std::vector<double> learning;      // frames 2 to the last learning frame
    std::vector<double> detection;     // the frames after them
    std::vector<double> objects;       // found in each detection frame
    std::vector<StageSeconds> stages;  // OpenCV only, of the detection frames
    double first = 0.0;                // frame 1, which sets everything up
    long peak_kib = 0;                 // analyzer only

    [[nodiscard]] double meanLearning() const;
    [[nodiscard]] double meanDetection() const;
};

struct RoundPlan {
    size_t learning = 100;  // frames before detection begins
    size_t block = 10;      // frames a contestant works on before the next one takes its turn
    bool against_opencv = true;
    AnalyzerOptions analyzer;
};

struct RoundResult {
    std::string failure;  // why the analyzer's samples are missing or incomplete; empty when all is well
    Samples analyzer;
    std::optional<Samples> mog2;
    std::optional<Samples> cnt;
};

// Every contestant starts anew, learns from the clip's first frames and detects in the others.
RoundResult runRound(const Clip& clip, const RoundPlan& plan);

// The lowest, the middle and the highest of the rounds' values.
struct Spread {
    double low = 0.0;
    double median = 0.0;
    double high = 0.0;
};
Spread spreadOf(std::vector<double> values);
double mean(const std::vector<double>& values);

// Keeps the calling process, and what it starts, on one core while it lives.
class CorePin {
 public:
    explicit CorePin(int core);
    ~CorePin();
    CorePin(const CorePin&) = delete;
    CorePin& operator=(const CorePin&) = delete;

 private:
    std::vector<unsigned char> before_;
};

}  // namespace bench
