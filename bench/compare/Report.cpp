#include "bench/compare/Report.h"

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

double PeakLimitMiB(int height) {
    return height <= 240 ? 20.0 : height <= 576 ? 64.0 : 256.0;
}

[[gnu::format(printf, 1, 2)]] std::string Text(const char* format, ...) {
    char text[256];
    va_list values;
    va_start(values, format);
    std::vsnprintf(text, sizeof(text), format, values);
    va_end(values);
    return text;
}

const char* Verdict(double value, double limit) {
    return value > 0.0 && value <= limit ? "met" : "MISSED";
}

// One value a round, of the rounds that have it.
Spread PerRound(const InputResult& input, const std::function<double(const RoundResult&)>& value) {
    std::vector<double> values;
    for (const RoundResult& round : input.rounds) {
        const double v = value(round);
        if (v > 0.0) values.push_back(v);
    }
    return SpreadOf(values);
}

double Ratio(double part, double whole) {
    return whole > 0.0 ? part / whole : 0.0;
}
double AnalyzerMean(const RoundResult& r) {
    return r.analyzer.MeanDetection();
}
double Mog2Mean(const RoundResult& r) {
    return r.mog2 ? r.mog2->MeanDetection() : 0.0;
}
double CntMean(const RoundResult& r) {
    return r.cnt ? r.cnt->MeanDetection() : 0.0;
}

std::string Milliseconds(const Spread& s) {
    if (s.median <= 0.0) return "-";
    return Text("%.3f (%.3f..%.3f)", s.median * 1e3, s.low * 1e3, s.high * 1e3);
}

std::string RatioText(const Spread& s) {
    if (s.median <= 0.0) return "-";
    return Text("%.3f (%.3f..%.3f)", s.median, s.low, s.high);
}

std::string Size(int width, int height) {
    return Text("%dx%d", width, height);
}

void PrintMain(std::ostream& out, const SuiteResult& result) {
    out << "\nCPU time of a detection frame, ms: median (lowest..highest) of the rounds' means\n\n"
        << Text("%-14s %-10s %-26s %-26s %-26s %s\n", "input", "size", "analyzer", "MOG2 pipeline", "CNT pipeline",
                "objects");
    for (const InputResult& input : result.inputs) {
        const Spread objects = PerRound(input, [](const RoundResult& r) { return Mean(r.analyzer.objects); });
        out << Text("%-14s %-10s %-26s %-26s %-26s %.0f\n", input.name.c_str(), Size(input.width, input.height).c_str(),
                    Milliseconds(PerRound(input, AnalyzerMean)).c_str(),
                    Milliseconds(PerRound(input, Mog2Mean)).c_str(), Milliseconds(PerRound(input, CntMean)).c_str(),
                    objects.median);
        for (const RoundResult& round : input.rounds) {
            if (!round.failure.empty()) out << "    the analyzer failed: " << round.failure << "\n";
        }
    }
    out << "\nRatios, computed within each round: median (lowest..highest)\n\n"
        << Text("%-14s %-10s %-34s %-34s %s\n", "input", "size", "analyzer / MOG2 (target 0.100)",
                "analyzer / CNT (target 0.250)", "learning / detection (target 1.000)");
    for (const InputResult& input : result.inputs) {
        const Spread mog2 = PerRound(input, [](const RoundResult& r) { return Ratio(AnalyzerMean(r), Mog2Mean(r)); });
        const Spread cnt = PerRound(input, [](const RoundResult& r) { return Ratio(AnalyzerMean(r), CntMean(r)); });
        const Spread learning =
            PerRound(input, [](const RoundResult& r) { return Ratio(r.analyzer.MeanLearning(), AnalyzerMean(r)); });
        out << Text("%-14s %-10s %-34s %-34s %s\n", input.name.c_str(), Size(input.width, input.height).c_str(),
                    (RatioText(mog2) + " " + Verdict(mog2.median, kOfMog2)).c_str(),
                    (RatioText(cnt) + " " + Verdict(cnt.median, kOfCnt)).c_str(),
                    (RatioText(learning) + " " + Verdict(learning.median, kLearningToDetection)).c_str());
    }
}

void PrintPixels(std::ostream& out, const SuiteResult& result) {
    out << "\nThe analyzer by size\n\n"
        << Text("%-10s %10s %13s %12s %12s %12s %14s %s\n", "size", "ns/pixel", "cycles/pixel", "learning ms",
                "frame 1 ms", "dearest ms", "peak MiB", "target");
    double small = 0.0;
    double large = 0.0;
    for (const InputResult& input : result.inputs) {
        const double seconds = PerRound(input, AnalyzerMean).median / input.Pixels();
        if (input.height == 240) small = seconds;
        if (input.height == 1080) large = seconds;
        const Spread peak =
            PerRound(input, [](const RoundResult& r) { return static_cast<double>(r.analyzer.peak_kib); });
        const Spread learning = PerRound(input, [](const RoundResult& r) { return r.analyzer.MeanLearning(); });
        const Spread first = PerRound(input, [](const RoundResult& r) { return r.analyzer.first; });
        const Spread dearest = PerRound(input, [](const RoundResult& r) {
            return r.analyzer.detection.empty()
                       ? 0.0
                       : *std::max_element(r.analyzer.detection.begin(), r.analyzer.detection.end());
        });
        const double limit = PeakLimitMiB(input.height);
        out << Text("%-10s %10.3f %13.2f %12.3f %12.3f %12.3f %14.1f %.0f %s\n",
                    Size(input.width, input.height).c_str(), seconds * 1e9, seconds * result.clock_hertz,
                    learning.median * 1e3, first.median * 1e3, dearest.median * 1e3, peak.high / 1024.0, limit,
                    Verdict(peak.high / 1024.0, limit));
    }
    if (small > 0.0 && large > 0.0) {
        out << Text("time per pixel, 1920x1080 to 320x240: %.3f (target %.1f) %s\n", large / small, kPixelLargeToSmall,
                    Verdict(large / small, kPixelLargeToSmall));
    }
}

void PrintWorst(std::ostream& out, const SuiteResult& result) {
    if (result.worst.empty()) return;
    out << "\nWorst contents: the dearest frame (median over the rounds of the same frame) against the mean ordinary\n"
           "detection frame of the size; target at most "
        << Text("%.0f", kWorstToOrdinary) << " times\n\n"
        << Text("%-18s %-10s %12s %12s %12s %10s %s\n", "content", "size", "dearest ms", "ordinary ms", "ns/pixel",
                "times", "most objects");
    for (const WorstResult& worst : result.worst) {
        const auto ordinary = std::find_if(result.inputs.begin(), result.inputs.end(),
                                           [&](const InputResult& i) { return i.height == worst.height; });
        const double usual = ordinary == result.inputs.end() ? 0.0 : PerRound(*ordinary, AnalyzerMean).median;
        const double seconds = worst.WorstFrame();
        const std::string failure = worst.Failure();
        const std::string names = Text("%-18s %-10s", worst.name.c_str(), Size(worst.width, worst.height).c_str());
        if (!failure.empty()) {  // the frame that failed has no time
            out << names << " MISSED: " << failure << "\n";
            continue;
        }
        const double times = Ratio(seconds, usual);
        out << names
            << Text(" %12.3f %12.3f %12.2f %10.2f %6.0f  %s\n", seconds * 1e3, usual * 1e3,
                    seconds * 1e9 / (static_cast<double>(worst.width) * worst.height), times, worst.MostObjects(),
                    Verdict(times, kWorstToOrdinary));
    }
}

void PrintStages(std::ostream& out, const SuiteResult& result) {
    if (result.inputs.empty() || result.inputs.front().rounds.empty() || !result.inputs.front().rounds.front().mog2)
        return;
    out << "\nThe OpenCV pipelines by stage, ms a detection frame, median of the rounds' means\n\n"
        << Text("%-10s %-5s", "size", "");
    for (const char* name : StageSeconds::kNames) out << Text(" %12s", name);
    out << "\n";
    for (const InputResult& input : result.inputs) {
        for (const bool mog2 : {true, false}) {
            out << Text("%-10s %-5s", Size(input.width, input.height).c_str(), mog2 ? "MOG2" : "CNT");
            for (size_t stage = 0; stage < StageSeconds::kStages; ++stage) {
                const Spread s = PerRound(input, [&](const RoundResult& r) {
                    const Samples& samples = mog2 ? *r.mog2 : *r.cnt;
                    double sum = 0.0;
                    for (const StageSeconds& frame : samples.stages) sum += frame.stage[stage];
                    return Ratio(sum, static_cast<double>(samples.stages.size()));
                });
                out << Text(" %12.3f", s.median * 1e3);
            }
            out << "\n";
        }
    }
}

std::string Machine() {
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

void PrintHeader(std::ostream& out, const SuiteOptions& options, const SuiteResult& result, const std::string& label) {
    out << "Comparison of " << result.when << (label.empty() ? "" : ", " + label) << "\n"
        << "machine: " << Machine() << Text(", %.0f MHz measured, core %d", result.clock_hertz / 1e6, options.core)
        << "\n"
        << OpenCvPipeline::Description() << "\n"
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

void PrintTables(std::ostream& out, const SuiteResult& result) {
    PrintMain(out, result);
    PrintPixels(out, result);
    PrintWorst(out, result);
    PrintStages(out, result);
}

}  // namespace bench
