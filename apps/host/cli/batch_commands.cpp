#include "cli/batch_commands.h"

#include <sysexits.h>
#include <unistd.h>

#include <cstdio>
#include <iostream>

#include "archive/clip_pool.h"
#include "archive/clip_worker.h"
#include "cli/clip_list.h"
#include "cli/commands.h"
#include "common/log.h"

namespace fleifeisa::host {
namespace {

int batch(const BatchOptions& options) {
    std::vector<std::string> faults;
    const ClipConfigs configs = loadClipConfigs(options.config, faults);
    if (!faults.empty()) return tellFaults(faults);
    const std::vector<Clip> clips = listClips(options.clips, configs, faults);
    if (!faults.empty()) return tellFaults(faults);
    std::vector<ClipRun> runs;
    for (const Clip& clip : clips) runs.push_back(clipRun(clip, *configs.find(clip.camera), options.version));
    Archive archive(options.out);
    std::string holder;
    const std::optional<Fd> lock = archive.lock(holder);
    if (!lock) throw SourceError(EX_TEMPFAIL, options.out + ": another batch is at work there (" + holder + ")");
    archive.removeLeftParts();
    const Interrupts interrupts;
    PoolSettings settings;
    settings.jobs = options.jobs;
    settings.retry_lasting = options.retry;
    settings.analyzer = foundAnalyzer(options.analyzer);
    std::function<void(const PoolProgress&)> tick;
    if (!options.quiet && ::isatty(STDERR_FILENO) != 0)
        tick = [](const PoolProgress& progress) { showProgress(progressText(progress)); };
    const PoolEnd end = runClips(archive, runs, settings, interrupts.stop(), tick);
    showProgress("");
    if (!options.quiet)
        std::printf("%lld of %zu clips are done, %lld of them now; %lld failed.\n", static_cast<long long>(end.done),
                    runs.size(), static_cast<long long>(end.made), static_cast<long long>(end.failed));
    if (end.stopped) return EX_TEMPFAIL;
    return end.failed > 0 ? EX_DATAERR : 0;
}

}  // namespace

int batchCommand(const BatchOptions& options) {
    return statusOf([&options] { return batch(options); });
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
