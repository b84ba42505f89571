#include "cli/tune_command.h"

#include <sysexits.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>

#include "archive/clip_pool.h"
#include "cli/clip_config.h"
#include "cli/clip_keys.h"
#include "cli/clip_list.h"
#include "cli/commands.h"
#include "cli/compare_command.h"
#include "common/log.h"
#include "common/text.h"
#include "tune/hold_out.h"
#include "tune/search.h"
#include "tune/trial.h"
#include "tune/trial_worker.h"
#include "tune/tune_page.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

/// So many candidates are tried in one pass over a clip: more would keep results back for longer, fewer would decode
/// the clip more often.
constexpr std::size_t kMostInOrder = 24;
constexpr std::size_t kHeldOutRows = 10;  // of the best, and the front, which are scored on what was held out

/// A clip, its truth, and what came of it.
struct TriedClip {
    Clip clip;
    std::string name;
    Truth truth;
    ClipFacts facts;
    std::string fault;  ///< why it is not judged
    bool held_out = false;
    std::map<ParameterSet, TrialResult> results;

    bool judged() const { return fault.empty(); }
};

class Tuning {
 public:
    explicit Tuning(const TuneOptions& options) : options_(options) {}

    int run() {
        if (const int status = prepare(); status != 0) return status;
        makeDirectory(options_.out);
        Archive archive(options_.out + "/trials");
        archive_ = &archive;
        std::string holder;
        const std::optional<Fd> lock = archive.lock(holder);
        if (!lock) throw SourceError(EX_TEMPFAIL, options_.out + ": another search is at work there (" + holder + ")");
        archive.removeLeftParts();
        {
            const Interrupts interrupts;
            interrupts_ = &interrupts;
            if (!look() || !search() || !scoreHeldOut()) {
                showProgress("");
                if (!options_.quiet) std::puts("Stopped. The same command goes on from here.");
                return EX_TEMPFAIL;
            }
        }
        fillPage();
        return write();
    }

 private:
    int prepare() {
        std::vector<std::string> faults;
        const ClipConfigs configs = loadClipConfigs(options_.config, faults);
        if (!faults.empty()) return tellFaults(faults);
        if (const int status = chooseCamera(configs); status != 0) return status;
        const TruthBook book(options_.truth, faults);
        std::vector<Clip> clips = listClips(options_.clips, configs, faults);
        if (configs.cameras.size() > 1)
            std::erase_if(clips, [this](const Clip& clip) { return clip.camera != camera_name_; });
        for (Clip& clip : clips) {
            TriedClip tried;
            tried.name = fs::path(clip.file).filename().string();
            tried.clip = std::move(clip);
            if (auto truth = book.of(tried.clip.file, faults))
                tried.truth = std::move(*truth);
            else
                tried.fault = "nobody says what is in it (no " +
                              (options_.truth.empty() ? fs::path(tried.name).replace_extension(".toml").string()
                                                      : "[[clip]] in " + options_.truth) +
                              ")";
            clips_.push_back(std::move(tried));
        }
        if (!faults.empty()) return tellFaults(faults);
        if (std::ranges::none_of(clips_, &TriedClip::judged)) {
            for (const TriedClip& clip : clips_) logError("", clip.name + ": " + clip.fault);
            throw SourceError(EX_NOINPUT, "there is no clip to search with");
        }
        program_ = foundAnalyzer(options_.analyzer);
        return 0;
    }

    int chooseCamera(const ClipConfigs& configs) {
        std::string names;
        for (const auto& [name, text] : configs.cameras) names += (names.empty() ? "" : ", ") + name;
        if (options_.camera.empty() && configs.cameras.size() > 1)
            throw SourceError(EX_USAGE, options_.config + " has several cameras, --camera says which: " + names);
        camera_name_ = options_.camera.empty() ? configs.cameras.begin()->first : options_.camera;
        const std::string* const found = configs.find(camera_name_);
        if (found == nullptr)
            throw SourceError(EX_USAGE, "--camera: there is no camera '" + camera_name_ + "' (" + names + ")");
        // As trials have it: nothing but tracks. What idle_rate passes over depends on tracks of before, so that
        // candidates could share nothing.
        configuration_ = withoutKey(withOutputs(*found, {}), "idle_rate");
        camera_ = clipCamera(configuration_);
        present_ = candidateOf(camera_);
        return 0;
    }

    /// Adds the runs of one order over the clips that `chosen` lets pass; false where it was stopped.
    bool tryAll(const std::vector<TrialOrder>& orders, const std::function<bool(const TriedClip&)>& chosen,
                const std::string& what) {
        std::vector<ClipRun> runs;
        std::vector<std::pair<std::size_t, std::size_t>> of;  // clip and order of each run
        for (std::size_t i = 0; i < clips_.size(); ++i) {
            if (!clips_[i].judged() || !chosen(clips_[i])) continue;
            for (std::size_t j = 0; j < orders.size(); ++j) {
                TrialOrder order = orders[j];
                order.truth = clips_[i].truth;
                runs.push_back(clipRun(clips_[i].clip, configuration_, options_.version, toJson(order)));
                of.emplace_back(i, j);
            }
        }
        PoolSettings settings;
        settings.jobs = options_.jobs;
        settings.analyzer = program_;
        std::function<void(const PoolProgress&)> tick;
        if (!options_.quiet && ::isatty(STDERR_FILENO) != 0)
            tick = [&what](const PoolProgress& progress) { showProgress(what + progressText(progress)); };
        if (runClips(*archive_, runs, settings, interrupts_->stop(), tick).stopped) return false;
        const std::map<std::string, ClipFailure> failures = archive_->failures();
        for (std::size_t i = 0; i < runs.size(); ++i)
            take(runs[i], clips_[of[i].first], orders[of[i].second], failures);
        return true;
    }

    void take(const ClipRun& run, TriedClip& clip, const TrialOrder& order,
              const std::map<std::string, ClipFailure>& failures) {
        if (!archive_->has(run.name)) {
            const auto failure = failures.find(run.name);
            clip.fault = failure == failures.end() ? "it could not be analyzed" : failure->second.reason;
            return;
        }
        const TrialResults all = trialResultsOf(readFile(archive_->resultOf(run.name) + '/' + kTrialFile));
        const ClipCost cost = archive_->cost(run.name);
        cpu_seconds_ += cost.cpu_seconds;
        seconds_ += cost.seconds;
        clip.facts = all.facts;
        for (std::size_t i = 0; i < all.results.size(); ++i) clip.results[order.candidates.at(i)] = all.results[i];
    }

    /// What the clips are: lengths, sizes, rates. Decides which are judged, and which are held out.
    bool look() {
        TrialOrder order;
        order.candidates = {present_};
        order.candidates.front().rate = 0;
        if (!tryAll(
                {order}, [](const TriedClip&) { return true; }, "looking: "))
            return false;
        std::vector<std::int64_t> steps;
        for (const TriedClip& clip : clips_)
            if (clip.judged()) steps.push_back(clip.facts.step_ns);
        if (steps.empty()) return true;
        std::ranges::sort(steps);
        space_.infrared = camera_.analyzer.infrared;
        const double step = static_cast<double>(steps[steps.size() / 2]) / 1e9;
        space_.learning_seconds =
            present_.learning_frames * (present_.rate > 0 ? std::max(step, 1 / present_.rate) : step);
        learned_ns_ = std::llround(space_.learning_seconds * 1e9);
        for (TriedClip& clip : clips_) {
            if (!clip.judged()) continue;
            clip.results.clear();  // judged from the start, they were
            const double behind = static_cast<double>(clip.facts.length_ns) / 1e9 - space_.learning_seconds;
            if (behind < options_.least_seconds) {
                clip.fault = rounded(static_cast<double>(clip.facts.length_ns) / 1e9, 1) +
                             " s long, shorter than learning (" + rounded(space_.learning_seconds, 1) + " s) and " +
                             rounded(options_.least_seconds, 0) + " s";
                continue;
            }
            space_.longest_side = std::max({space_.longest_side, clip.facts.width, clip.facts.height});
            if (clip.facts.step_ns > 0)
                space_.rate = std::max(space_.rate, 1e9 / static_cast<double>(clip.facts.step_ns));
        }
        holdOut();
        return true;
    }

    void holdOut() {
        std::vector<HeldOutClip> named;
        std::vector<TriedClip*> judged;
        for (TriedClip& clip : clips_) {
            if (!clip.judged()) continue;
            named.push_back({clip.name, !clip.truth.things.empty()});
            judged.push_back(&clip);
        }
        const std::vector<bool> held = heldOut(named);
        for (std::size_t i = 0; i < judged.size(); ++i) judged[i]->held_out = held[i];
    }

    /// Orders for candidates: one size and rate each, so that a clip is decoded once for all of them.
    std::vector<TrialOrder> ordersOf(const std::vector<ParameterSet>& candidates) const {
        std::vector<TrialOrder> orders;
        std::map<std::pair<int, double>, std::vector<ParameterSet>> groups;
        for (const ParameterSet& one : candidates) {
            TrialOrder order;
            order.learned_ns = learned_ns_;
            if (one == present_) {
                order.present = true;
                order.candidates = {one};
                orders.push_back(std::move(order));
            } else {
                groups[{one.longest_side, one.rate}].push_back(one);
            }
        }
        for (auto& [key, group] : groups) {
            std::ranges::sort(group);  // equal thresholds beside each other: they share an analyzer
            for (std::size_t i = 0; i < group.size(); i += kMostInOrder) {
                TrialOrder order;
                order.learned_ns = learned_ns_;
                const auto begin = group.begin() + static_cast<std::ptrdiff_t>(i);
                order.candidates.assign(begin,
                                        begin + static_cast<std::ptrdiff_t>(std::min(kMostInOrder, group.size() - i)));
                orders.push_back(std::move(order));
            }
        }
        return orders;
    }

    static bool searched(const TriedClip& clip) { return !clip.held_out; }
    static bool heldBack(const TriedClip& clip) { return clip.held_out; }

    /// Over the clips that `chosen` lets pass.
    Judged sumOf(const ParameterSet& candidate, bool (*chosen)(const TriedClip&)) const {
        Judged sum{candidate, {}, {}};
        for (const TriedClip& clip : clips_) {
            if (!clip.judged() || !chosen(clip)) continue;
            const auto found = clip.results.find(candidate);
            if (found == clip.results.end()) continue;
            sum.score += found->second.score;
            sum.cost += found->second.cost;
        }
        return sum;
    }

    void requireClips() const {
        if (std::ranges::any_of(clips_, [](const TriedClip& clip) { return clip.judged() && !clip.held_out; })) return;
        for (const TriedClip& clip : clips_)
            if (!clip.judged()) logError("", clip.name + ": not judged: " + clip.fault);
        throw SourceError(EX_DATAERR, "no clip can be judged");
    }

    bool search() {
        requireClips();
        Search search(present_, space_, static_cast<std::size_t>(options_.candidates), options_.weights);
        for (;;) {
            std::vector<Judged> judged;
            for (const ParameterSet& one : tried_) judged.push_back(sumOf(one, searched));
            const std::vector<ParameterSet> next = search.next(judged);
            if (next.empty()) {
                std::ranges::stable_sort(judged,
                                         [&search](const Judged& a, const Judged& b) { return search.better(a, b); });
                for (Judged& one : judged) page_.rows.push_back({one, false, {}});
                return true;
            }
            tried_.insert(tried_.end(), next.begin(), next.end());
            const std::string what = (search.round() == 0 ? "grid" : "step " + std::to_string(search.round())) + ", " +
                                     std::to_string(tried_.size()) + " of at most " +
                                     std::to_string(options_.candidates) + " candidates: ";
            if (!tryAll(ordersOf(next), searched, what)) return false;
            requireClips();
        }
    }

    bool scoreHeldOut() {
        for (std::size_t i = 0; i < page_.rows.size(); ++i)
            if (page_.rows[i].judged.candidate == present_) page_.present = i;
        std::set<std::size_t> chosen = {0, page_.present};
        for (const std::size_t i : tradeFront(page_.rows)) chosen.insert(i);
        for (std::size_t i = 0; i < std::min(kHeldOutRows, page_.rows.size()); ++i) chosen.insert(i);
        std::vector<ParameterSet> candidates;
        for (const std::size_t i : chosen) candidates.push_back(page_.rows[i].judged.candidate);
        if (std::ranges::none_of(clips_, [](const TriedClip& clip) { return clip.judged() && clip.held_out; }))
            return true;
        if (!tryAll(ordersOf(candidates), heldBack, "held out: ")) return false;
        for (const std::size_t i : chosen) {
            page_.rows[i].held_out_known = true;
            page_.rows[i].held_out = sumOf(page_.rows[i].judged.candidate, heldBack).score;
        }
        return true;
    }

    void fillPage() {
        page_.infrared = space_.infrared;
        page_.over_rate = present_.rate > 0;
        page_.weights = options_.weights;
        page_.least_seconds = options_.least_seconds;
        page_.learning_seconds = space_.learning_seconds;
        page_.cpu_seconds = cpu_seconds_;
        page_.seconds = seconds_;
        const ParameterSet best = page_.best().judged.candidate;
        for (const TriedClip& clip : clips_) {
            TunedClip shown;
            shown.name = clip.name;
            shown.why = clip.fault;
            shown.things = static_cast<std::int64_t>(clip.truth.things.size());
            shown.length_ns = clip.facts.length_ns;
            if (clip.judged()) {
                shown.use = clip.held_out ? TunedClip::Use::kHeldOut : TunedClip::Use::kSearched;
                if (const auto found = clip.results.find(present_); found != clip.results.end())
                    shown.present = found->second.score;
                if (const auto found = clip.results.find(best); found != clip.results.end())
                    shown.best = found->second.score;
            }
            page_.clips.push_back(std::move(shown));
        }
    }

    /// The files: the page, the table, both configurations, and their comparison.
    int write() {
        showProgress("");
        const std::string lines = candidateToml(page_.best().judged.candidate, page_.infrared, page_.over_rate);
        // Under the name that is taken for every clip, whatever its camera is called.
        const std::string present = withLines(configuration_, std::string("name = \"") + kAnyCamera + "\"\n");
        writeFile(options_.out + "/present.toml", present);
        writeFile(options_.out + "/best.toml", page_.present == 0 ? present : withLines(present, lines));
        writeFile(options_.out + "/candidates.csv", tuneTable(page_));
        int status = 0;
        if (page_.present != 0) {
            CompareOptions compare;
            compare.a = options_.out + "/present.toml";
            compare.b = options_.out + "/best.toml";
            for (const TriedClip& clip : clips_)
                if (clip.judged()) compare.clips.push_back(clip.clip.file);
            compare.out = options_.out + "/compare";
            compare.jobs = options_.jobs;
            compare.quiet = true;
            compare.analyzer = options_.analyzer;
            compare.version = options_.version;
            status = compareCommand(compare);
            page_.compare = "compare/compare.html";
        }
        writeFile(options_.out + "/tune.html", tunePage(page_));
        if (!options_.quiet) std::printf("%s\n%s/tune.html\n", tuneText(page_).c_str(), options_.out.c_str());
        return status;
    }

    const TuneOptions& options_;
    std::string camera_name_, configuration_, program_;
    CameraConfig camera_;
    ParameterSet present_;
    SearchSpace space_;
    std::int64_t learned_ns_ = 0;
    std::vector<TriedClip> clips_;
    std::vector<ParameterSet> tried_;
    Archive* archive_ = nullptr;
    const Interrupts* interrupts_ = nullptr;
    TunePage page_;
    double cpu_seconds_ = 0, seconds_ = 0;
};

}  // namespace

int tuneCommand(const TuneOptions& options) {
    return statusOf([&options] { return Tuning(options).run(); });
}

void addTune(CLI::App& app, int& code, const std::string& version) {
    auto options = std::make_shared<TuneOptions>();
    options->version = version;
    CLI::App* tune = app.add_subcommand(
        "tune",
        "Searches for the parameters that find most and are wrong least, on clips of which the truth is known.");
    tune->add_option("--clips", options->clips, "video files, directories of them, lists (.csv: camera,file,start)")
        ->required();
    tune->add_option("--truth", options->truth,
                     "one file (TOML) with a [[clip]] table for each, else a file beside each: gate.toml for gate.mp4");
    tune->add_option("--config", options->config, "what is set now (TOML, as of run); the rest of it stays as it is");
    tune->add_option("--camera", options->camera, "which of its cameras");
    tune->add_option("--out", options->out, "directory of the page, tune.html, and of all results (tune)");
    tune->add_option("--candidates", options->candidates, "try at most so many (200)")->check(CLI::Range(2, 100'000));
    tune->add_option("--miss-weight", options->weights.missed,
                     "a missed thing weighs as much as so many wrong tracks (2)")
        ->check(CLI::Range(0.01, 1000.0));
    tune->add_option("--least-seconds", options->least_seconds,
                     "judge clips that go on for so long after learning; shorter ones say little (60)")
        ->check(CLI::Range(0.0, 86400.0));
    tune->add_option("--jobs", options->jobs, "processes at a time (as many as there are processors)")
        ->check(CLI::Range(1, 1024));
    tune->add_option("--analyzer", options->analyzer, "the analyzer's executable");
    tune->add_flag("-q,--quiet", options->quiet, "no progress, no summary");
    tune->footer(
        "Started again with the same words it goes on where it was.\n\n"
        "Examples:\n"
        "  fleifeisa-host tune --clips recordings --config cameras.toml --camera gate\n"
        "  fleifeisa-host tune --clips recordings --truth truth.toml --candidates 60 --out gate-tuning\n");
    tune->callback([options, &code] { code = tuneCommand(*options); });
}

}  // namespace fleifeisa::host
