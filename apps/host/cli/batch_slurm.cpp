// `batch --slurm` and what its jobs run.
#include <sysexits.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <set>

#include "archive/clip_pool.h"
#include "archive/slurm.h"
#include "cli/batch_commands.h"
#include "cli/commands.h"
#include "common/log.h"

namespace fleifeisa::host {
namespace {

/// The runs of a plan that a batch would begin now.
std::vector<const ClipRun*> missing(const Archive& archive, const Plan& plan, bool retry) {
    const std::set<std::string> results = archive.results();
    const std::map<std::string, ClipFailure> failures = archive.failures();
    std::vector<const ClipRun*> runs;
    for (const ClipRun& run : plan.runs) {
        const auto failure = failures.find(run.name);
        const bool hopeless = failure != failures.end() && failure->second.lasting && !retry;
        if (!results.contains(run.name) && !hopeless) runs.push_back(&run);
    }
    return runs;
}

/// What is known of the cost of runs; where nothing is, some small clips are run here. Their results are as good as
/// any.
RunCost costOf(Archive& archive, std::vector<const ClipRun*> runs, const PoolSettings& settings, const Event& stop) {
    constexpr std::size_t kMost = 5;  // damaged ones among them tell nothing
    std::ranges::stable_sort(runs, {}, [](const ClipRun* run) { return run->clip.weight(); });
    for (std::size_t i = 0; i < std::min(kMost, runs.size()); ++i) {
        if (const auto cost = measuredCost(archive)) return *cost;
        showProgress("measuring what a clip costs: " + runs[i]->clip.file);
        runClips(archive, {runs[i], 1}, settings, stop, nullptr);
        showProgress("");
    }
    if (const auto cost = measuredCost(archive)) return *cost;
    throw SlurmError("none of the smallest clips could be run here, so nothing is known of what they cost");
}

int task(const std::string& directory, const std::string& chunks, const std::string& analyzer) {
    const char* const number = std::getenv("SLURM_ARRAY_TASK_ID");
    if (number == nullptr) throw SourceError(EX_USAGE, "SLURM_ARRAY_TASK_ID is not set: this is for jobs of Slurm");
    Archive archive(directory);
    const std::vector<std::string> names = runsOfTask(chunks, std::stoul(number));
    const std::set<std::string> wanted(names.begin(), names.end());
    std::vector<ClipRun> runs;
    for (ClipRun& run : Plan::load(archive).runs)
        if (wanted.contains(run.name)) runs.push_back(std::move(run));
    const Interrupts interrupts;
    PoolSettings settings;
    settings.jobs = 1;
    settings.analyzer = foundAnalyzer(analyzer);
    PoolEnd end = runClips(archive, runs, settings, interrupts.stop(), nullptr);
    // What failed for no reason of its clip gets another chance here; behind that it is left for the next batch.
    if (!end.stopped && end.failed > 0) end = runClips(archive, runs, settings, interrupts.stop(), nullptr);
    std::printf("%lld of %zu clips are done, %lld failed\n", static_cast<long long>(end.done), runs.size(),
                static_cast<long long>(end.failed));
    return end.stopped ? EX_TEMPFAIL : 0;
}

}  // namespace

int submitMissing(Archive& archive, const Plan& plan, const BatchOptions& options) {
    const Interrupts interrupts;
    PoolSettings settings;
    settings.analyzer = foundAnalyzer(options.analyzer);
    settings.retry_lasting = options.retry;
    settings.jobs = 1;
    std::vector<const ClipRun*> runs = missing(archive, plan, options.retry);
    if (options.retry)
        for (const ClipRun* run : runs) archive.forgetFailure(run->name);
    const std::size_t most = mostTasks();  // before anything is run: is there a cluster?
    if (!runs.empty()) {
        const RunCost cost = costOf(archive, runs, settings, interrupts.stop());
        if (interrupts.stopped()) return EX_TEMPFAIL;
        runs = missing(archive, plan, false);
        if (!runs.empty()) {
            const ArrayShape shape = shapeOf(runs, cost, most, static_cast<double>(options.task_ns) / 1e9);
            SlurmSettings slurm;
            slurm.analyzer = options.analyzer.empty() ? "" : settings.analyzer;
            slurm.sbatch = options.sbatch;
            slurm.merge = options.merge;
            const std::string id = submit(archive, shape, slurm);
            if (!options.quiet)
                std::printf(
                    "Submitted %zu clips as job %s: %zu tasks of at most %lld MB and %lld min.\n"
                    "How far they are: fleifeisa-host batch status %s --watch\n",
                    runs.size(), id.c_str(), shape.chunks.size(), static_cast<long long>(shape.memory_mb),
                    static_cast<long long>(shape.minutes), archive.directory().c_str());
            return 0;
        }
    }
    if (!options.quiet) std::printf("All clips that can be run are done.\n");
    return options.merge ? batchMergeCommand(archive.directory(), options.quiet) : 0;
}

int batchCancelCommand(const std::string& directory) {
    return statusOf([&] {
        const std::vector<std::string> ids = cancelJobs(existingArchive(directory));
        std::printf("%zu jobs were asked to end; what is done stays.\n", ids.size());
        return 0;
    });
}

int batchTaskCommand(const std::string& directory, const std::string& chunks, const std::string& analyzer) {
    return statusOf([&] { return task(directory, chunks, analyzer); });
}

}  // namespace fleifeisa::host
