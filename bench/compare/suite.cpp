#include "bench/compare/suite.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <iostream>

#include "bench/compare/cpu_clock.h"
#include "bench/compare/scenes.h"

namespace bench {
namespace {

struct Input {
    const char* name;
    const char* file;  // below the footage directory
    int width;
    int height;
    size_t learning;
    size_t detection;
};

constexpr Input kInputs[] = {
    {"highway", "cdnet-highway/highway.mp4", 320, 240, 200, 200},
    {"vtest", "pets09-s2l1/vtest.avi", 768, 576, 150, 100},
    {"vtest scaled", "pets09-s2l1/vtest.avi", 1920, 1080, 100, 60},
};

size_t scaled(size_t frames, double length) {
    return std::max<size_t>(static_cast<size_t>(static_cast<double>(frames) * length), 24);
}

// The piece of footage for one round: the rounds' pieces are spread evenly over the file.
Clip inputClip(const Input& input, const SuiteOptions& options, size_t round, SceneLength length) {
    const std::string path = options.footage + "/" + input.file;
    if (!std::filesystem::exists(path)) return streetScene(input.width, input.height, length);
    const size_t wanted = length.learning + length.detection;
    const size_t total = countFrames(path);
    const size_t room = total > wanted ? total - wanted : 0;
    const size_t first = options.rounds > 1 ? room * round / (options.rounds - 1) : 0;
    return decodeClip({input.name, path, input.width, input.height, first, wanted});
}

RoundPlan planFor(const SuiteOptions& options, size_t learning) {
    RoundPlan plan;
    plan.learning = learning;
    plan.block = options.block;
    plan.analyzer.program = options.analyzer;
    plan.analyzer.reply_limit_seconds = options.reply_limit_seconds;
    return plan;
}

std::string localTime() {
    const std::time_t now = std::time(nullptr);
    char text[64];
    std::strftime(text, sizeof(text), "%Y-%m-%d %H:%M:%S %Z", std::localtime(&now));
    return text;
}

void runWorst(const SuiteOptions& options, const Input& input, SuiteResult& result, size_t round) {
    for (const WorstScene& scene : worstScenes()) {
        const auto known = std::find_if(result.worst.begin(), result.worst.end(), [&](const WorstResult& w) {
            return w.name == scene.name && w.height == input.height;
        });
        if (known != result.worst.end() && !known->failure().empty()) continue;  // no second wait for a stuck process
        WorstResult& worst =
            known != result.worst.end()
                ? *known
                : result.worst.emplace_back(WorstResult{scene.name, scene.what, input.width, input.height, {}});
        std::cerr << "  round " << round + 1 << ": " << scene.name << " " << input.width << "x" << input.height << "\n";
        const SceneLength length;
        const Clip clip = scene.make(input.width, input.height, length);
        RoundPlan plan = planFor(options, length.learning);
        plan.against_opencv = false;
        const CorePin pin(options.core);
        worst.rounds.push_back(runRound(clip, plan));
    }
}

}  // namespace

double WorstResult::worstFrame() const {
    double worst = 0.0;
    for (size_t frame = 0; !rounds.empty() && frame < rounds.front().analyzer.detection.size(); ++frame) {
        std::vector<double> seconds;
        for (const RoundResult& round : rounds) {
            if (frame < round.analyzer.detection.size()) seconds.push_back(round.analyzer.detection[frame]);
        }
        worst = std::max(worst, spreadOf(seconds).median);
    }
    return worst;
}

double WorstResult::mostObjects() const {
    double most = 0.0;
    for (const RoundResult& round : rounds) {
        for (const double objects : round.analyzer.objects) most = std::max(most, objects);
    }
    return most;
}

std::string WorstResult::failure() const {
    for (const RoundResult& round : rounds) {
        if (!round.failure.empty()) return round.failure;
    }
    return {};
}

SuiteResult runSuite(const SuiteOptions& options) {
    SuiteResult result;
    result.when = localTime();
    result.footage_found = std::filesystem::exists(options.footage + "/" + kInputs[0].file);
    {
        const CorePin pin(options.core);
        result.clock_hertz = measureClockHertz();
    }
    for (size_t round = 0; round < options.rounds; ++round) {
        for (const Input& input : kInputs) {
            if (std::find(options.heights.begin(), options.heights.end(), input.height) == options.heights.end())
                continue;
            const auto known = std::find_if(result.inputs.begin(), result.inputs.end(),
                                            [&](const InputResult& i) { return i.height == input.height; });
            InputResult& main = known != result.inputs.end() ? *known : result.inputs.emplace_back(InputResult{});
            const SceneLength length{scaled(input.learning, options.length), scaled(input.detection, options.length)};
            const Clip clip = inputClip(input, options, round, length);
            main.name = clip.name;
            main.width = input.width;
            main.height = input.height;
            main.learning = length.learning;
            main.detection = length.detection;
            std::cerr << "  round " << round + 1 << ": " << clip.name << " " << input.width << "x" << input.height
                      << "\n";
            {
                const CorePin pin(options.core);
                main.rounds.push_back(runRound(clip, planFor(options, length.learning)));
            }
            if (options.worst) runWorst(options, input, result, round);
        }
    }
    return result;
}

namespace {

SweepPoint measurePoint(const SuiteOptions& options, const Clip& clip, size_t learning, double objects) {
    constexpr size_t kRounds = 3;
    SweepPoint point{clip.width, clip.height, objects, {}};
    const CorePin pin(options.core);
    for (size_t round = 0; round < kRounds; ++round) point.rounds.push_back(runRound(clip, planFor(options, learning)));
    return point;
}

}  // namespace

SweepResult runSweep(const SuiteOptions& options) {
    SweepResult result;
    const SceneLength length{60, 40};
    constexpr int kSizes[][2] = {{160, 120},  {320, 240},  {640, 480},  {768, 576},
                                 {1280, 720}, {1600, 900}, {1920, 1080}};
    const std::string path = options.footage + "/" + kInputs[1].file;
    for (const auto& [width, height] : kSizes) {
        std::cerr << "  size " << width << "x" << height << "\n";
        const Clip clip = std::filesystem::exists(path)
                              ? decodeClip({"vtest", path, width, height, 200, length.learning + length.detection})
                              : streetScene(width, height, length);
        result.sizes.push_back(measurePoint(options, clip, length.learning, -1.0));
    }
    for (const size_t objects : std::to_array<size_t>({0, 1, 3, 10, 30, 100, 300, 1000, 3000})) {
        std::cerr << "  " << objects << " objects\n";
        const Clip clip = manyObjects(768, 576, objects, {length.learning, 16});
        result.objects.push_back(measurePoint(options, clip, length.learning, static_cast<double>(objects)));
    }
    return result;
}

}  // namespace bench
