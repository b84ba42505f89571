#include "tune/trial_worker.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>

#include "archive/clip_worker.h"
#include "common/leftovers.h"
#include "tune/trial.h"

namespace fleifeisa::host {

int makeTrial(const Archive& archive, const ClipRun& run, CameraConfig camera) {
    const Clock::time_point begin = Clock::now();
    endWithParent();
    const std::string part = archive.partOf(run.name, ::getpid());
    const Leftover leftover(part);
    std::filesystem::create_directories(part);
    camera.source.source = run.clip.file;
    Clock::time_point told = begin;
    const TrialResults results =
        runTrial(camera, trialOrderOf(run.trial), [&told](std::int64_t frames, std::int64_t expected) {
            constexpr Clock::duration kPause = std::chrono::milliseconds(250);
            if (Clock::now() - told < kPause) return;
            told = Clock::now();
            std::printf("frames %lld %lld\n", static_cast<long long>(frames), static_cast<long long>(expected));
            std::fflush(stdout);
        });
    writeFile(part + '/' + kTrialFile, toJson(results) + '\n');
    ClipSummary summary;
    summary.name = run.name;
    summary.clip = run.clip;
    summary.frames = results.facts.frames;
    summary.width = results.facts.width;
    summary.height = results.facts.height;
    summary.last_ns = results.facts.length_ns - results.facts.step_ns;
    writeFile(part + "/summary.json", toJson(summary) + '\n');
    ClipCost cost = costSince(begin);
    cost.ended_ns = std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
    writeFile(part + "/run.json", toJson(cost) + '\n');
    nameResult(archive, part, run.name);
    return 0;
}

}  // namespace fleifeisa::host
