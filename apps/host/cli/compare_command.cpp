#include "cli/compare_command.h"

#include <sysexits.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <map>
#include <set>
#include <thread>

#include "archive/clip_pool.h"
#include "cli/clip_config.h"
#include "cli/clip_keys.h"
#include "cli/clip_list.h"
#include "cli/commands.h"
#include "common/log.h"
#include "common/text.h"
#include "compare/compare_runs.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

/// One of the two that are compared.
struct Side {
    std::string name;                          ///< as the user wrote it
    bool stored = false;                       ///< a directory of results, else a configuration
    ClipConfigs configs;                       ///< of a configuration
    std::map<std::string, ClipRun> runs;       ///< of a configuration, by clip name
    std::map<std::string, StoredRun> results;  ///< by clip name
};

/// The name a clip's result goes by: the file's that it was made from, else its directory's.
std::string clipNameOf(const fs::path& directory) {
    std::error_code error;
    if (!fs::exists(directory / "summary.json", error)) return directory.filename().string();
    try {
        return fs::path(fromJson<ClipSummary>(readFile((directory / "summary.json").string())).clip.file)
            .filename()
            .string();
    } catch (const std::exception&) {
        return directory.filename().string();
    }
}

/// What the run of a stored result saw, where it is at hand: the recording beside it.
std::optional<SourceOptions> storedSource(const fs::path& directory) {
    std::error_code error;
    if (!fs::exists(directory / "recording.bin", error)) return std::nullopt;
    SourceOptions source;
    source.source = (directory / "recording.bin").string();
    return source;
}

void readStored(Side& side) {
    const auto add = [&side](const fs::path& directory, std::string name) {
        for (int more = 2; side.results.contains(name); ++more) name += " " + std::to_string(more);
        side.results[name] = {directory.string(), storedSource(directory)};
    };
    const fs::path root =
        fs::is_directory(fs::path(side.name) / "results") ? fs::path(side.name) / "results" : fs::path(side.name);
    if (holdsResult(root.string())) return add(root, clipNameOf(root));
    std::set<fs::path> inside;
    for (const fs::directory_entry& entry : fs::directory_iterator(root)) inside.insert(entry.path());
    for (const fs::path& one : inside)
        if (fs::is_directory(one) && holdsResult(one.string())) add(one, clipNameOf(one));
    if (side.results.empty())
        throw SourceError(EX_NOINPUT, side.name +
                                          ": no results in it (they need the outputs jsonl and mot, and are written by "
                                          "play, replay, batch and compare)");
}

/// The configuration of a clip: its camera's, or the only one there is.
const std::string* configurationFor(const ClipConfigs& configs, const Clip& clip) {
    if (const std::string* own = configs.find(clip.camera)) return own;
    return configs.cameras.size() == 1 ? &configs.cameras.begin()->second : nullptr;
}

/// Short and unlike any other: the file's name, with its folders where that is not enough.
std::vector<std::string> namesOf(const std::vector<Clip>& clips) {
    std::map<std::string, int> count;
    for (const Clip& clip : clips) ++count[fs::path(clip.file).filename().string()];
    std::vector<std::string> names;
    for (const Clip& clip : clips) {
        const std::string name = fs::path(clip.file).filename().string();
        names.push_back(count[name] == 1 ? name : clip.file);
    }
    return names;
}

class Comparison {
 public:
    explicit Comparison(const CompareOptions& options) : options_(options) {
        a_.name = options.a;
        b_.name = options.b;
        for (Side* side : {&a_, &b_}) side->stored = fs::is_directory(side->name);
    }

    int run() {
        if (const int status = prepare(); status != 0) return status;
        makeDirectory(options_.out);
        Archive archive(options_.out + "/runs");
        std::string holder;
        const std::optional<Fd> lock = archive.lock(holder);
        if (!lock)
            throw SourceError(EX_TEMPFAIL, options_.out + ": another comparison is at work there (" + holder + ")");
        archive.removeLeftParts();
        const Interrupts interrupts;
        if (!runAll(archive, interrupts)) return EX_TEMPFAIL;
        collect(archive, a_, "a");
        collect(archive, b_, "b");
        compareAll(interrupts);
        showProgress("");
        if (interrupts.stopped()) return EX_TEMPFAIL;
        const std::string path = options_.out + "/compare.html";
        writeFile(path, comparePage(page_));
        const std::string cost = costText(archive);
        writeFile(options_.out + "/cost.txt", cost);
        if (!options_.quiet) std::printf("%s\n%s\n%s\n", compareText(page_).c_str(), cost.c_str(), path.c_str());
        return options_.fail_on_change && page_.differs() ? kChanged : 0;
    }

 private:
    int prepare() {
        std::vector<std::string> faults;
        for (Side* side : {&a_, &b_}) {
            if (side->stored)
                readStored(*side);
            else
                side->configs = loadClipConfigs(side->name, faults);
        }
        if (!faults.empty()) return tellFaults(faults);
        if (a_.stored && b_.stored) {
            if (!options_.clips.empty())
                throw SourceError(EX_USAGE, "--clips: two directories of results hold their clips already");
            return 0;
        }
        if (options_.clips.empty())
            throw SourceError(EX_USAGE, "a configuration needs --clips: video files, directories, lists");
        const std::vector<Clip> clips = listClips(options_.clips, (a_.stored ? b_ : a_).configs, faults);
        const std::vector<std::string> names = namesOf(clips);
        for (Side* side : {&a_, &b_}) {
            if (side->stored) continue;
            for (std::size_t i = 0; i < clips.size(); ++i) {
                const std::string* configuration = configurationFor(side->configs, clips[i]);
                if (configuration == nullptr) {
                    faults.push_back(side->name + ": no camera of it fits " + clips[i].file);
                    continue;
                }
                side->runs.emplace(names[i],
                                   clipRun(clips[i], withOutputs(*configuration, {"jsonl", "mot"}), options_.version));
            }
        }
        return faults.empty() ? 0 : tellFaults(faults);
    }

    /// False where the user stopped it.
    bool runAll(Archive& archive, const Interrupts& interrupts) {
        std::map<std::string, ClipRun> runs;  // where both say the same for a clip, it is run once
        for (const Side* side : {&a_, &b_})
            for (const auto& [name, run] : side->runs) runs.emplace(run.name, run);
        if (runs.empty()) return true;
        std::vector<ClipRun> all;
        for (auto& [name, run] : runs) all.push_back(std::move(run));
        PoolSettings settings;
        settings.jobs = options_.jobs;
        settings.analyzer = foundAnalyzer(options_.analyzer);
        std::function<void(const PoolProgress&)> tick;
        if (!options_.quiet && ::isatty(STDERR_FILENO) != 0)
            tick = [](const PoolProgress& progress) { showProgress(progressText(progress)); };
        return !runClips(archive, all, settings, interrupts.stop(), tick).stopped;
    }

    /// Where the results of a configuration are, also as OUT/a/CLIP for people and for later comparisons.
    void collect(const Archive& archive, Side& side, const std::string& letter) {
        if (side.stored) return;
        const fs::path links = fs::path(options_.out) / letter;
        fs::remove_all(links);
        fs::create_directories(links);
        for (const auto& [name, run] : side.runs) {
            SourceOptions source = clipCamera(run.configuration).source;
            source.source = run.clip.file;
            source.live = false;
            source.loop = source.realtime = false;
            side.results[name] = {archive.resultOf(run.name), source};
            if (!archive.has(run.name)) continue;
            std::string link = name;
            std::ranges::replace(link, '/', '_');
            fs::create_directory_symlink(fs::path("../runs/results") / run.name, links / link);
        }
        failures_.merge(archive.failures());
    }

    void compareAll(const Interrupts& interrupts) {
        page_.a = a_.name;
        page_.b = b_.name;
        describeDifferences();
        std::set<std::string> names;
        const bool single = a_.results.size() == 1 && b_.results.size() == 1 && (a_.stored || b_.stored);
        for (const auto& [name, run] : a_.results) names.insert(name);
        if (!single)
            for (const auto& [name, run] : b_.results) names.insert(name);
        page_.clips.resize(names.size());
        const std::vector<std::string> list(names.begin(), names.end());
        std::atomic<std::size_t> next{0}, done{0};
        const auto work = [&] {
            for (std::size_t i = next++; i < list.size() && !interrupts.stopped(); i = next++) {
                page_.clips[i] = compareOne(list[i], single);
                ++done;
            }
        };
        const auto count = std::min<std::size_t>(
            list.size(), static_cast<std::size_t>(options_.jobs > 0 ? options_.jobs : processors()));
        if (!options_.quiet && ::isatty(STDERR_FILENO) != 0)
            showProgress("comparing " + std::to_string(list.size()) + " clips");
        std::vector<std::thread> threads;
        for (std::size_t i = 1; i < count; ++i) threads.emplace_back(work);
        work();
        for (std::thread& thread : threads) thread.join();
    }

    ComparedClip compareOne(const std::string& name, bool single) const {
        const auto a = single ? a_.results.begin() : a_.results.find(name);
        const auto b = single ? b_.results.begin() : b_.results.find(name);
        ComparedClip clip;
        clip.name = name;
        if (a == a_.results.end() || b == b_.results.end()) {
            clip.fault = std::string(a == a_.results.end() ? "A" : "B") + " has no result of this clip";
            return clip;
        }
        for (const Side* side : {&a_, &b_}) {
            const auto run = side->runs.find(name);
            if (run == side->runs.end()) continue;
            if (const auto failure = failures_.find(run->second.name);
                failure != failures_.end() && !holdsResult((side == &a_ ? a : b)->second.directory)) {
                clip.fault = failure->second.reason;
                return clip;
            }
        }
        return compareRuns(name, a->second, b->second);
    }

    /// Of the first camera that both have, or of each clip's in turn, every difference once.
    void describeDifferences() {
        std::set<std::tuple<std::string, std::string, std::string>> told;
        for (const auto& [name, run] : a_.runs) {
            const auto other = b_.runs.find(name);
            if (other == b_.runs.end()) continue;
            for (const DifferentKey& line : differentKeys(run.configuration, other->second.configuration))
                if (told.emplace(line.key, line.a, line.b).second)
                    page_.differences.push_back({line.key, line.a, line.b});
        }
    }

    /// Measured, so another text each time the runs are made anew.
    std::string costText(const Archive& archive) const {
        std::string text;
        for (const auto& [letter, side] : {std::pair("A", &a_), std::pair("B", &b_)}) {
            double cpu = 0, seconds = 0;
            std::int64_t frames = 0;
            for (const auto& [name, run] : side->runs) {
                if (!archive.has(run.name)) continue;
                const ClipCost cost = archive.cost(run.name);
                const ClipSummary summary = archive.summary(run.name);
                cpu += cost.cpu_seconds;
                seconds += static_cast<double>(summary.last_ns - summary.first_ns) / 1e9;
                frames += summary.frames;
            }
            if (frames == 0) continue;
            text += std::string(letter) + ": " + rounded(cpu, 2) + " s of processor time for " + rounded(seconds, 1) +
                    " s of video, " + rounded(1e3 * cpu / static_cast<double>(frames), 2) + " ms a frame (" +
                    side->name + ")\n";
        }
        return text;
    }

    const CompareOptions& options_;
    Side a_, b_;
    std::map<std::string, ClipFailure> failures_;  ///< by run
    ComparePage page_;
};

}  // namespace

int compareCommand(const CompareOptions& options) {
    return statusOf([&options] { return Comparison(options).run(); });
}

void addCompare(CLI::App& app, int& code, const std::string& version) {
    auto options = std::make_shared<CompareOptions>();
    options->version = version;
    CLI::App* compare =
        app.add_subcommand("compare", "Two configurations on the same clips: one page of what they find otherwise.");
    compare->add_option("A", options->a, "a configuration (TOML, as of run), or a directory of results")->required();
    compare->add_option("B", options->b, "the other one")->required();
    compare->add_option("--clips", options->clips, "video files, directories of them, lists (.csv: camera,file,start)");
    compare->add_option("--out", options->out, "directory of the page, compare.html, and of the results (compare)");
    compare->add_flag("--fail-on-change", options->fail_on_change, "status 1 where any track or event differs");
    compare->add_option("--jobs", options->jobs, "processes at a time (as many as there are processors)")
        ->check(CLI::Range(1, 1024));
    compare->add_option("--analyzer", options->analyzer, "the analyzer's executable");
    compare->add_flag("-q,--quiet", options->quiet, "no progress, no table");
    compare->footer(
        "Started again it goes on where it was. OUT/a and OUT/b hold the results by clip, and may be compared later "
        "on.\n\n"
        "Examples:\n"
        "  fleifeisa-host compare now.toml new.toml --clips recordings\n"
        "  fleifeisa-host compare good/b new.toml --clips recordings --out today --fail-on-change\n");
    compare->callback([options, &code] { code = compareCommand(*options); });
}

}  // namespace fleifeisa::host
