// `batch verify`.
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <set>

#include "archive/clip_pool.h"
#include "archive/slurm.h"
#include "archive/verify.h"
#include "cli/batch_commands.h"
#include "cli/commands.h"
#include "common/log.h"

namespace fleifeisa::host {
namespace {

std::string joined(const std::set<std::string>& words) {
    std::string text;
    for (const std::string& word : words) text += (text.empty() ? "" : ",") + word;
    return text;
}

/// On this machine.
RunAgain runAgainHere(const VerifyOptions& options, const Event& stop) {
    PoolSettings settings;
    settings.jobs = options.jobs;
    settings.analyzer = foundAnalyzer(options.analyzer);
    const bool told = !options.quiet && ::isatty(STDERR_FILENO) != 0;
    return [settings, told, &stop](Archive& again, const std::vector<const ClipRun*>& runs, const auto&) {
        std::vector<ClipRun> copies;
        for (const ClipRun* run : runs) copies.push_back(*run);
        std::function<void(const PoolProgress&)> tick;
        if (told) tick = [](const PoolProgress& progress) { showProgress("again: " + progressText(progress)); };
        const PoolEnd end = runClips(again, copies, settings, stop, tick);
        showProgress("");
        return !end.stopped;
    };
}

/// By the cluster: one array for all that the same nodes have done, which leaves these out.
RunAgain runAgainByOthers(const VerifyOptions& options, const Archive& archive, const Event& stop) {
    const auto cost = measuredCost(archive);
    if (!cost) throw SourceError(EX_NOINPUT, archive.directory() + ": nothing is done there yet");
    return [&options, &stop, cost = *cost](Archive& again, const std::vector<const ClipRun*>& runs,
                                           const std::map<std::string, std::vector<std::string>>& nodes) {
        const std::set<std::string> known = clusterNodes();
        std::map<std::string, std::vector<const ClipRun*>> groups;
        for (const ClipRun* run : runs) {
            std::set<std::string> exclude;
            for (const std::string& node : nodes.at(run->name))
                if (known.contains(node)) exclude.insert(node);  // others, such as this one, do no jobs anyway
            groups[joined(exclude)].push_back(run);
        }
        std::vector<std::string> ids;
        for (const auto& [exclude, group] : groups) {
            SlurmSettings settings;
            settings.analyzer = options.analyzer;
            settings.sbatch = options.sbatch;
            settings.exclude = exclude;
            settings.merge = false;
            ids.push_back(submit(again, shapeOf(group, cost, mostTasks()), settings));
        }
        const bool whole = waitForJobs(ids, stop);
        if (!whole) cancelJobs(again);
        return whole;
    };
}

int tell(const std::vector<VerifiedClip>& clips) {
    std::set<std::string> nodes;
    std::map<std::string, std::int64_t> wrong;
    std::int64_t agreed = 0, differing = 0, failed = 0;
    for (const VerifiedClip& clip : clips) {
        for (const Witness& witness : clip.witnesses) nodes.insert(witness.node);
        if (clip.agrees()) {
            ++agreed;
        } else if (!clip.failure.empty() && clip.differences().empty()) {
            ++failed;
            std::printf("not run again: %s: %s\n", clip.run->name.c_str(), clip.failure.c_str());
        } else {
            ++differing;
            const std::vector<std::string> who = clip.wrongNodes();
            for (const std::string& node : who) ++wrong[node];
            std::printf("differs: %s, in its %s%s\n", clip.run->name.c_str(), clip.differences().c_str(),
                        who.empty() ? "; who is wrong is not known" : (": node " + who.front() + " is wrong").c_str());
        }
    }
    std::printf("%lld clips were run again, by %zu nodes in all: %lld agree, %lld differ, %lld failed.\n",
                static_cast<long long>(clips.size()), nodes.size(), static_cast<long long>(agreed),
                static_cast<long long>(differing), static_cast<long long>(failed));
    for (const auto& [node, count] : wrong)
        std::printf("Node %s computed something wrong in %lld clips: remove its results.\n", node.c_str(),
                    static_cast<long long>(count));
    return differing > 0 ? EX_SOFTWARE : failed > 0 ? EX_TEMPFAIL : 0;
}

}  // namespace

int batchVerifyCommand(const VerifyOptions& options) {
    return statusOf([&options] {
        const Archive archive = existingArchive(options.directory);
        const Plan plan = Plan::load(archive);
        const Interrupts interrupts;
        const RunAgain again = options.slurm ? runAgainByOthers(options, archive, interrupts.stop())
                                             : runAgainHere(options, interrupts.stop());
        constexpr double kPerCent = 100;
        const std::vector<VerifiedClip> clips = verifyRuns(archive, plan, options.share / kPerCent, again);
        if (interrupts.stopped()) return EX_TEMPFAIL;
        if (clips.empty()) throw SourceError(EX_NOINPUT, options.directory + ": nothing is done there yet");
        return tell(clips);
    });
}

}  // namespace fleifeisa::host
