#include "bench/compare/measure.h"

#include <sched.h>

#include <algorithm>
#include <cstring>
#include <numeric>

namespace bench {
namespace {

// Reads every cache line of a frame, so that no contestant pays for fetching it from memory first.
void warm(const uint8_t* data, size_t size) {
    volatile unsigned char sink = 0;
    for (size_t i = 0; i < size; i += 64) sink = static_cast<unsigned char>(sink ^ data[i]);
}

void keep(Samples& samples, size_t frame, size_t learning, double seconds, size_t objects) {
    if (frame == 0) {
        samples.first = seconds;
    } else if (frame < learning) {
        samples.learning.push_back(seconds);
    } else {
        samples.detection.push_back(seconds);
        samples.objects.push_back(static_cast<double>(objects));
    }
}

void runOpenCv(OpenCvPipeline& pipeline, Samples& samples, const Clip& clip, size_t begin, size_t end,
               size_t learning) {
    for (size_t i = begin; i < end; ++i) {
        warm(clip.frame(i), clip.frameBytes());
        const StageSeconds seconds = pipeline.run(clip.frame(i));
        keep(samples, i, learning, seconds.total(), pipeline.objects());
        if (i >= learning) samples.stages.push_back(seconds);
    }
}

void runAnalyzer(AnalyzerProcess& analyzer, Samples& samples, const Clip& clip, size_t begin, size_t end,
                 size_t learning) {
    for (size_t i = begin; i < end; ++i) {
        const AnalyzerProcess::Answer answer = analyzer.send(clip.frame(i), clip.width, clip.height);
        keep(samples, i, learning, answer.cpu_seconds, answer.objects);
        samples.peak_kib = std::max(samples.peak_kib, analyzer.peakKiB());
    }
}

}  // namespace

double mean(const std::vector<double>& values) {
    if (values.empty()) return 0.0;
    return std::accumulate(values.begin(), values.end(), 0.0) / static_cast<double>(values.size());
}

double Samples::meanLearning() const {
    return mean(learning);
}
double Samples::meanDetection() const {
    return mean(detection);
}

RoundResult runRound(const Clip& clip, const RoundPlan& plan) {
    RoundResult result;
    std::optional<OpenCvPipeline> mog2;
    std::optional<OpenCvPipeline> cnt;
    if (plan.against_opencv && OpenCvPipeline::available()) {
        mog2.emplace(Subtractor::kMog2, clip.width, clip.height);
        cnt.emplace(Subtractor::kCnt, clip.width, clip.height);
        result.mog2.emplace();
        result.cnt.emplace();
    }
    AnalyzerOptions options = plan.analyzer;
    options.learning_frames = static_cast<int>(plan.learning);
    std::optional<AnalyzerProcess> analyzer;
    analyzer.emplace(options);

    for (size_t begin = 0; begin < clip.frames(); begin += plan.block) {
        const size_t end = std::min(begin + plan.block, clip.frames());
        if (analyzer) {
            try {
                runAnalyzer(*analyzer, result.analyzer, clip, begin, end, plan.learning);
            } catch (const std::runtime_error& failure) {
                result.failure = failure.what();
                analyzer.reset();
                if (!mog2) break;
            }
        }
        if (mog2) runOpenCv(*mog2, *result.mog2, clip, begin, end, plan.learning);
        if (cnt) runOpenCv(*cnt, *result.cnt, clip, begin, end, plan.learning);
    }
    return result;
}

Spread spreadOf(std::vector<double> values) {
    if (values.empty()) return {};
    std::sort(values.begin(), values.end());
    const size_t middle = values.size() / 2;
    const double median = values.size() % 2 == 1 ? values[middle] : 0.5 * (values[middle - 1] + values[middle]);
    return {values.front(), median, values.back()};
}

CorePin::CorePin(int core) : before_(sizeof(cpu_set_t)) {
    cpu_set_t set;
    sched_getaffinity(0, sizeof(set), &set);
    std::memcpy(before_.data(), &set, sizeof(set));
    CPU_ZERO(&set);
    CPU_SET(static_cast<size_t>(core), &set);
    sched_setaffinity(0, sizeof(set), &set);
}

CorePin::~CorePin() {
    cpu_set_t set;
    std::memcpy(&set, before_.data(), sizeof(set));
    sched_setaffinity(0, sizeof(set), &set);
}

}  // namespace bench
