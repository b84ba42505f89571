#include "archive/verify.h"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <sstream>

#include "outputs/digest.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

/// Repeats the runs of these clips and adds what came of it. False where a stop came.
bool repeat(const Archive& archive, const char* below, std::vector<VerifiedClip*> clips, const Plan& plan,
            const RunAgain& again) {
    const std::string directory = archive.path(below);
    fs::remove_all(directory);
    Archive second(directory);
    std::vector<const ClipRun*> runs;
    std::map<std::string, std::vector<std::string>> nodes;
    Plan part{{}, plan.titles, plan.timezone};
    for (const VerifiedClip* clip : clips) {
        runs.push_back(clip->run);
        part.runs.push_back(*clip->run);
        for (const Witness& witness : clip->witnesses) nodes[clip->run->name].push_back(witness.node);
    }
    part.save(second);
    const bool whole = again(second, runs, nodes);
    const std::map<std::string, ClipFailure> failures = second.failures();
    for (VerifiedClip* clip : clips) {
        const std::string& name = clip->run->name;
        if (second.has(name))
            clip->witnesses.push_back({second.cost(name).node, second.summary(name).hashes()});
        else if (const auto failure = failures.find(name); failure != failures.end())
            clip->failure = failure->second.reason;
        else
            clip->failure = "it was not run";
    }
    fs::remove_all(directory);
    return whole;
}

}  // namespace

bool VerifiedClip::agrees() const {
    return failure.empty() && std::ranges::all_of(witnesses, [this](const Witness& witness) {
               return witness.hashes == witnesses.front().hashes;
           });
}

std::vector<std::string> VerifiedClip::wrongNodes() const {
    std::vector<std::string> wrong;
    for (const Witness& witness : witnesses) {
        const auto as = std::ranges::count(witnesses, witness.hashes, &Witness::hashes);
        if (2 * as < static_cast<std::ptrdiff_t>(witnesses.size())) wrong.push_back(witness.node);
    }
    // Three that say three things accuse nobody.
    return 2 * wrong.size() < witnesses.size() ? wrong : std::vector<std::string>();
}

std::string VerifiedClip::differences() const {
    std::string text;
    std::vector<std::istringstream> words;
    for (const Witness& witness : witnesses) words.emplace_back(witness.hashes);
    for (const char* what : {"frames", "replies", "tracks", "events"}) {
        std::vector<std::string> said;
        for (std::istringstream& from : words) from >> said.emplace_back();
        if (std::ranges::adjacent_find(said, std::ranges::not_equal_to()) != said.end())
            text += (text.empty() ? "" : ", ") + std::string(what);
    }
    return text;
}

std::vector<const ClipRun*> chosenRuns(const Archive& archive, const Plan& plan, double share) {
    std::map<std::string, std::vector<std::pair<std::string, const ClipRun*>>> by_node;
    const std::set<std::string> results = archive.results();
    for (const ClipRun& run : plan.runs)
        if (results.contains(run.name))
            by_node[archive.cost(run.name).node].emplace_back(digestOf({std::string_view(run.name)}), &run);
    std::vector<const ClipRun*> chosen;
    for (auto& [node, runs] : by_node) {
        std::ranges::sort(runs);
        const double wanted = std::ceil(share * static_cast<double>(runs.size()));
        const auto count = std::clamp(static_cast<std::size_t>(std::max(1.0, wanted)), std::size_t{1}, runs.size());
        for (std::size_t i = 0; i < count; ++i) chosen.push_back(runs[i].second);
    }
    return chosen;
}

std::vector<VerifiedClip> verifyRuns(const Archive& archive, const Plan& plan, double share, const RunAgain& again) {
    std::vector<VerifiedClip> clips;
    for (const ClipRun* run : chosenRuns(archive, plan, share))
        clips.push_back({run, {{archive.cost(run->name).node, archive.summary(run->name).hashes()}}, ""});
    std::vector<VerifiedClip*> all, odd;
    for (VerifiedClip& clip : clips) all.push_back(&clip);
    const bool whole = repeat(archive, "verify/1", all, plan, again);
    for (VerifiedClip& clip : clips)
        if (clip.failure.empty() && !clip.agrees()) odd.push_back(&clip);
    if (whole && !odd.empty()) repeat(archive, "verify/2", odd, plan, again);
    return clips;
}

}  // namespace fleifeisa::host
