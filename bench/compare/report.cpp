#include "bench/compare/report.h"

#include <sys/utsname.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <fstream>
#include <functional>

namespace bench {
namespace {

// What the analyzer has to reach.
constexpr double kOfMog2 = 0.10;
constexpr double kOfCnt = 0.25;
constexpr double kLearningToDetection = 1.0;
constexpr double kPixelLargeToSmall = 1.3;  // 1920x1080 to 320x240
constexpr double kWorstToOrdinary = 5.0;

double peakLimitMiB(int height) {
    return height <= 240 ? 20.0 : height <= 576 ? 64.0 : 256.0;
}

[[gnu::format(printf, 1, 2)]] std::string text(const char* format, ...) {
    char text[256];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof(text), format, values);
    va_end(values);
    return text;
}

const char* verdict(double value, double limit) {
    return value > 0.0 && value <= limit ? "met" : "MISSED";
}

// One value a round, of the rounds that have it.
Spread perRound(const InputResult& input, const std::function<double(const RoundResult&)>& value) {
    std::vector<double> values;
    for (const RoundResult& round : input.rounds) {
        const double v = value(round);
        if (v > 0.0) values.push_back(v);
    }
    return spreadOf(values);
}

double ratio(double part, double whole) {
    return whole > 0.0 ? part / whole : 0.0;
}
double analyzerMean(const RoundResult& r) {
    return r.analyzer.meanDetection();
}
double mog2Mean(const RoundResult& r) {
    return r.mog2 ? r.mog2->meanDetection() : 0.0;
}
double cntMean(const RoundResult& r) {
    return r.cnt ? r.cnt->meanDetection() : 0.0;
}

std::string milliseconds(const Spread& s) {
    if (s.median <= 0.0) return "-";
    return text("%.3f (%.3f..%.3f)", s.median * 1e3, s.low * 1e3, s.high * 1e3);
}

std::string ratioText(const Spread& s) {
    if (s.median <= 0.0) return "-";
    return text("%.3f (%.3f..%.3f)", s.median, s.low, s.high);
}

std::string size(int width, int height) {
    return text("%dx%d", width, height);
}

void printMain(std::ostream& out, const SuiteResult& result) {
    out << "\nCPU time of a detection frame, ms: median (lowest..highest) of the rounds' means\n\n"
        << text("%-14s %-10s %-26s %-26s %-26s %s\n", "input", "size", "analyzer", "MOG2 pipeline", "CNT pipeline",
                "objects");
    for (const InputResult& input : result.inputs) {
        const Spread objects = perRound(input, [](const RoundResult& r) { return mean(r.analyzer.objects); });
        out << text("%-14s %-10s %-26s %-26s %-26s %.0f\n", input.name.c_str(), size(input.width, input.height).c_str(),
                    milliseconds(perRound(input, analyzerMean)).c_str(),
                    milliseconds(perRound(input, mog2Mean)).c_str(), milliseconds(perRound(input, cntMean)).c_str(),
                    objects.median);
        for (const RoundResult& round : input.rounds) {
            if (!round.failure.empty()) out << "    the analyzer failed: " << round.failure << "\n";
        }
    }
    out << "\nRatios, computed within each round: median (lowest..highest)\n\n"
        << text("%-14s %-10s %-34s %-34s %s\n", "input", "size", "analyzer / MOG2 (target 0.100)",
                "analyzer / CNT (target 0.250)", "learning / detection (target 1.000)");
    for (const InputResult& input : result.inputs) {
        const Spread mog2 = perRound(input, [](const RoundResult& r) { return ratio(analyzerMean(r), mog2Mean(r)); });
        const Spread cnt = perRound(input, [](const RoundResult& r) { return ratio(analyzerMean(r), cntMean(r)); });
        const Spread learning =
            perRound(input, [](const RoundResult& r) { return ratio(r.analyzer.meanLearning(), analyzerMean(r)); });
        out << text("%-14s %-10s %-34s %-34s %s\n", input.name.c_str(), size(input.width, input.height).c_str(),
                    (ratioText(mog2) + " " + verdict(mog2.median, kOfMog2)).c_str(),
                    (ratioText(cnt) + " " + verdict(cnt.median, kOfCnt)).c_str(),
                    (ratioText(learning) + " " + verdict(learning.median, kLearningToDetection)).c_str());
    }
}

void printPixels(std::ostream& out, const SuiteResult& result) {
    out << "\nThe analyzer by size\n\n"
        << text("%-10s %10s %13s %12s %12s %12s %14s %s\n", "size", "ns/pixel", "cycles/pixel", "learning ms",
                "frame 1 ms", "dearest ms", "peak MiB", "target");
    double small = 0.0;
    double large = 0.0;
    for (const InputResult& input : result.inputs) {
        const double seconds = perRound(input, analyzerMean).median / input.pixels();
        if (input.height == 240) small = seconds;
        if (input.height == 1080) large = seconds;
        const Spread peak =
            perRound(input, [](const RoundResult& r) { return static_cast<double>(r.analyzer.peak_kib); });
        const Spread learning = perRound(input, [](const RoundResult& r) { return r.analyzer.meanLearning(); });
        const Spread first = perRound(input, [](const RoundResult& r) { return r.analyzer.first; });
        const Spread dearest = perRound(input, [](const RoundResult& r) {
            return r.analyzer.detection.empty()
                       ? 0.0
                       : *std::max_element(r.analyzer.detection.begin(), r.analyzer.detection.end());
        });
        const double limit = peakLimitMiB(input.height);
        out << text("%-10s %10.3f %13.2f %12.3f %12.3f %12.3f %14.1f %.0f %s\n",
                    size(input.width, input.height).c_str(), seconds * 1e9, seconds * result.clock_hertz,
                    learning.median * 1e3, first.median * 1e3, dearest.median * 1e3, peak.high / 1024.0, limit,
                    verdict(peak.high / 1024.0, limit));
    }
    if (small > 0.0 && large > 0.0) {
        out << text("time per pixel, 1920x1080 to 320x240: %.3f (target %.1f) %s\n", large / small, kPixelLargeToSmall,
                    verdict(large / small, kPixelLargeToSmall));
    }
}

void printWorst(std::ostream& out, const SuiteResult& result) {
    if (result.worst.empty()) return;
    out << "\nWorst contents: the dearest frame (median over the rounds of the same frame) against the mean ordinary\n"
           "detection frame of the size; target at most "
        << text("%.0f", kWorstToOrdinary) << " times\n\n"
        << text("%-18s %-10s %12s %12s %12s %10s %s\n", "content", "size", "dearest ms", "ordinary ms", "ns/pixel",
                "times", "most objects");
    for (const WorstResult& worst : result.worst) {
        const auto ordinary = std::find_if(result.inputs.begin(), result.inputs.end(),
                                           [&](const InputResult& i) { return i.height == worst.height; });
        const double usual = ordinary == result.inputs.end() ? 0.0 : perRound(*ordinary, analyzerMean).median;
        const double seconds = worst.worstFrame();
        const std::string failure = worst.failure();
        const std::string names = text("%-18s %-10s", worst.name.c_str(), size(worst.width, worst.height).c_str());
        if (!failure.empty()) {  // the frame that failed has no time
            out << names << " MISSED: " << failure << "\n";
            continue;
        }
        const double times = ratio(seconds, usual);
        out << names
            << text(" %12.3f %12.3f %12.2f %10.2f %6.0f  %s\n", seconds * 1e3, usual * 1e3,
                    seconds * 1e9 / (static_cast<double>(worst.width) * worst.height), times, worst.mostObjects(),
                    verdict(times, kWorstToOrdinary));
    }
}

void printStages(std::ostream& out, const SuiteResult& result) {
    if (result.inputs.empty() || result.inputs.front().rounds.empty() || !result.inputs.front().rounds.front().mog2)
        return;
    out << "\nThe OpenCV pipelines by stage, ms a detection frame, median of the rounds' means\n\n"
        << text("%-10s %-5s", "size", "");
    for (const char* name : StageSeconds::kNames) out << text(" %12s", name);
    out << "\n";
    for (const InputResult& input : result.inputs) {
        for (const bool mog2 : {true, false}) {
            out << text("%-10s %-5s", size(input.width, input.height).c_str(), mog2 ? "MOG2" : "CNT");
            for (size_t stage = 0; stage < StageSeconds::kStages; ++stage) {
                const Spread s = perRound(input, [&](const RoundResult& r) {
                    const Samples& samples = mog2 ? *r.mog2 : *r.cnt;
                    double sum = 0.0;
                    for (const StageSeconds& frame : samples.stages) sum += frame.stage[stage];
                    return ratio(sum, static_cast<double>(samples.stages.size()));
                });
                out << text(" %12.3f", s.median * 1e3);
            }
            out << "\n";
        }
    }
}

std::string machine() {
    std::string model = "unknown processor";
    std::ifstream info("/proc/cpuinfo");
    for (std::string line; std::getline(info, line);) {
        if (line.rfind("model name", 0) == 0) {
            model = line.substr(line.find(':') + 2);
            break;
        }
    }
    utsname system{};
    uname(&system);
    return model + ", " + system.sysname + " " + system.release + " " + system.machine;
}

}  // namespace

void printHeader(std::ostream& out, const SuiteOptions& options, const SuiteResult& result, const std::string& label) {
    out << "Comparison of " << result.when << (label.empty() ? "" : ", " + label) << "\n"
        << "machine: " << machine() << text(", %.0f MHz measured, core %d", result.clock_hertz / 1e6, options.core)
        << "\n"
        << OpenCvPipeline::description() << "\n"
        << "input: " << (result.footage_found ? "footage" : "made scenes (no footage found)") << "; " << options.rounds
        << " rounds, each with processes and models anew; blocks of " << options.block
        << " frames in turns; everything on one core\n"
        << "Counted for the analyzer: all user and system time of its process, from before a frame is written until "
           "it\n"
           "waits for the next: reading the pipe, parsing, detection, background update, reply. Not counted: the "
           "writer.\n"
           "Counted for OpenCV: thread time of background subtraction, 3x3 open and close, "
           "connectedComponentsWithStats,\n"
           "findContours (outer, simple) and approxPolyDP 1.41 on a frame already in memory and in the cache, no "
           "pipe.\n"
           "MOG2: history 500, threshold 16, no shadows. CNT: its defaults. A round's value is the mean over all its\n"
           "detection frames, so frames in which the background is maintained are in it. Peak memory is VmHWM.\n";
}

void printTables(std::ostream& out, const SuiteResult& result) {
    printMain(out, result);
    printPixels(out, result);
    printWorst(out, result);
    printStages(out, result);
}

}  // namespace bench
