#include "cli/batch_commands.h"

#include <poll.h>
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <iostream>

#include "archive/clip_pool.h"
#include "archive/clip_worker.h"
#include "archive/merge.h"
#include "cli/clip_list.h"
#include "cli/commands.h"
#include "common/log.h"

namespace fleifeisa::host {
namespace {

using std::chrono::milliseconds;

bool onTerminal(bool quiet) {
    return !quiet && ::isatty(STDERR_FILENO) != 0;
}

int merge(const Archive& archive, const Plan& plan, const Event& stop, bool quiet) {
    std::function<void(std::int64_t)> tick;
    if (onTerminal(quiet))
        tick = [&plan, last = Clock::now()](std::int64_t clips) mutable {
            if (Clock::now() - last < milliseconds(200)) return;
            last = Clock::now();
            showProgress("merging, " + std::to_string(clips) + " of " + std::to_string(plan.runs.size()) + " clips");
        };
    const MergeEnd end = mergeArchive(archive, plan, stop, tick);
    archive.removeNeedlessParts();
    showProgress("");
    for (const std::string& fault : end.damaged) logError("", fault + " (remove this result and start batch again)");
    if (!quiet)
        std::printf("%lld events and %lld tracks of %lld clips: %s\n", static_cast<long long>(end.events),
                    static_cast<long long>(end.tracks), static_cast<long long>(end.clips),
                    archive.path("merged/index.html").c_str());
    return end.damaged.empty() ? 0 : EX_DATAERR;
}

int runHere(Archive& archive, const Plan& plan, const BatchOptions& options) {
    const Interrupts interrupts;
    PoolSettings settings;
    settings.jobs = options.jobs;
    settings.nice = options.nice;
    settings.retry_lasting = options.retry;
    settings.analyzer = foundAnalyzer(options.analyzer);
    std::function<void(const PoolProgress&)> tick;
    if (onTerminal(options.quiet)) tick = [](const PoolProgress& progress) { showProgress(progressText(progress)); };
    const PoolEnd end = runClips(archive, plan.runs, settings, interrupts.stop(), tick);
    showProgress("");
    if (!options.quiet)
        std::printf("%lld of %zu clips are done, %lld of them now; %lld failed.\n", static_cast<long long>(end.done),
                    plan.runs.size(), static_cast<long long>(end.made), static_cast<long long>(end.failed));
    if (end.stopped) return EX_TEMPFAIL;
    const int merged = options.merge ? merge(archive, plan, interrupts.stop(), options.quiet) : 0;
    if (interrupts.stopped()) return EX_TEMPFAIL;
    return end.failed > 0 ? EX_DATAERR : merged;
}

int batch(const BatchOptions& options) {
    std::vector<std::string> faults;
    const ClipConfigs configs = loadClipConfigs(options.config, faults);
    if (!faults.empty()) return tellFaults(faults);
    const std::vector<Clip> clips = listClips(options.clips, configs, faults);
    if (!faults.empty()) return tellFaults(faults);
    Archive archive(options.out);
    std::string holder;
    const std::optional<Fd> lock = archive.lock(holder);
    if (!lock) throw SourceError(EX_TEMPFAIL, options.out + ": another batch is at work there (" + holder + ")");
    archive.removeLeftParts();
    Plan plan{{}, configs.titles, configs.timezone};
    for (const Clip& clip : cutClips(archive, clips, options.cut))
        plan.runs.push_back(clipRun(clip, *configs.find(clip.camera), options.version));
    plan.save(archive);
    return options.slurm ? submitMissing(archive, plan, options) : runHere(archive, plan, options);
}

std::string line(const ArchiveStatus& status) {
    PoolProgress progress;
    progress.runs = status.runs;
    progress.done = status.done;
    progress.failed = status.failed;
    progress.running = status.running;
    progress.frames_per_second = status.frames_per_second;
    progress.seconds_left = status.done + status.failed < status.runs ? status.seconds_left : -1;
    return progressText(progress);
}

int tellStatus(const std::string& directory, bool watch) {
    const Archive archive = existingArchive(directory);
    const Plan plan = Plan::load(archive);
    ArchiveStatus status = archiveStatus(archive, plan);
    if (watch) {
        const Interrupts interrupts;
        pollfd item{interrupts.stop().fd(), POLLIN, 0};
        constexpr int kMilliseconds = 1000;
        while (status.done + status.failed < status.runs) {
            showProgress(line(status));
            if (::poll(&item, 1, kMilliseconds) > 0) break;
            status = archiveStatus(archive, plan);
        }
        showProgress("");
    }
    std::printf("%s\n", line(status).c_str());
    if (status.frames > 0)
        std::printf("%lld frames so far, in %.2f hours of processor time\n", static_cast<long long>(status.frames),
                    status.cpu_seconds / 3600);
    constexpr std::size_t kMost = 20;
    for (std::size_t i = 0; i < std::min(status.failures.size(), kMost); ++i) {
        const ClipFailure& failure = status.failures[i];
        std::printf("failed%s on %s: %s\n", failure.lasting ? "" : " (will be tried again)", failure.node.c_str(),
                    failure.reason.c_str());
    }
    if (status.failures.size() > kMost) std::printf("and %zu more\n", status.failures.size() - kMost);
    return 0;
}

}  // namespace

Archive existingArchive(const std::string& directory) {
    if (!std::filesystem::is_directory(directory + "/results"))
        throw SourceError(EX_NOINPUT, directory + ": holds no archive (batch makes one)");
    return Archive(directory);
}

int batchCommand(const BatchOptions& options) {
    return statusOf([&options] { return batch(options); });
}

int batchStatusCommand(const std::string& directory, bool watch) {
    return statusOf([&] { return tellStatus(directory, watch); });
}

int batchMergeCommand(const std::string& directory, bool quiet) {
    return statusOf([&] {
        const Archive archive = existingArchive(directory);
        const Interrupts interrupts;
        const int code = merge(archive, Plan::load(archive), interrupts.stop(), quiet);
        return interrupts.stopped() ? EX_TEMPFAIL : code;
    });
}

int clipRunCommand(const std::string& directory, const std::string& analyzer) {
    return statusOf([&] {
        std::string order;
        if (!std::getline(std::cin, order)) throw SourceError(EX_USAGE, "expected an order on standard input");
        const ClipRun run = fromJson<ClipRun>(order);
        CameraConfig camera = clipCamera(run.configuration);
        camera.analyzer.program = foundAnalyzer(analyzer);
        return makeResult(Archive(directory), run, std::move(camera));
    });
}

}  // namespace fleifeisa::host
