// `fleifeisa-host play SOURCE`.
#include <sysexits.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>

#include "camera/supervisor.h"
#include "cli/commands.h"
#include "cli/paths.h"
#include "common/log.h"
#include "common/private_root.h"
#include "outputs/track_table.h"

namespace fleifeisa::host {
namespace {

/// The line at the terminal: how far, how fast, how long still.
class Progress {
 public:
    explicit Progress(const Camera& camera) : camera_(camera) {}

    void show() {
        const std::int64_t done = camera_.counts().answered + camera_.counts().passed_over;
        const std::int64_t all = camera_.counts().expected;
        const Clock::time_point now = Clock::now();
        // The rate of the last seconds, so that the time left follows what really happens.
        constexpr double kMemory = 3;
        const double passed = Seconds(now - last_).count();
        if (passed <= 0) return;
        const double rate = static_cast<double>(done - last_done_) / passed;
        const double weight = rate_ == 0 ? 1 : std::min(1.0, passed / kMemory);
        rate_ += weight * (rate - rate_);
        last_ = now;
        last_done_ = done;
        std::array<char, 400> line{};
        int length = std::snprintf(line.data(), line.size(), "%s: frame %lld", camera_.config().name.c_str(),
                                   static_cast<long long>(done));
        const auto append = [&](const char* format, auto... values) {
            if (length > 0 && length < static_cast<int>(line.size()))
                length += std::snprintf(line.data() + length, line.size() - static_cast<std::size_t>(length), format,
                                        values...);
        };
        if (all > 0)
            append(" of %lld (%.0f %%)", static_cast<long long>(all),
                   std::min(100.0, 100.0 * static_cast<double>(done) / static_cast<double>(all)));
        append(", %.0f frames/s", rate_);
        if (all > 0 && rate_ > 0.5)
            append(", %.0f s left", static_cast<double>(std::max<std::int64_t>(0, all - done)) / rate_);
        if (const std::string trouble = camera_.trouble(); !trouble.empty())
            append(", %s", trouble.c_str());
        else if (camera_.counts().detected == 0)
            append("%s", ", learning the background");
        showProgress(line.data());
    }

 private:
    const Camera& camera_;
    Clock::time_point last_ = Clock::now();
    std::int64_t last_done_ = 0;
    double rate_ = 0;
};

std::vector<OutputChoice> chosenOutputs(const PlayOptions& options) {
    std::vector<OutputChoice> choices;
    if (options.outputs.empty()) {
        for (const std::string_view usual : {"replies", "jsonl", "report"})
            choices.push_back(parseOutputChoice(std::string(usual), options.out));
    }
    for (const std::string& text : options.outputs) choices.push_back(parseOutputChoice(text, options.out));
    for (OutputChoice& choice : choices) choice.policy.rotation = options.rotation;
    return choices;
}

void printEnd(const Camera& camera, const TrackTable& table, double elapsed) {
    constexpr std::size_t kRows = 40;
    const CameraCounts& counts = camera.counts();
    std::fputs(table.text(kRows).c_str(), stdout);
    const auto answered = static_cast<long long>(counts.answered);
    std::printf("\n%lld frames in %.1f s (%.0f a second), detection on %lld of them.\n", answered, elapsed,
                elapsed > 0 ? static_cast<double>(answered) / elapsed : 0.0, static_cast<long long>(counts.detected));
    if (counts.passed_over > 0)
        std::printf("%lld more were not analyzed, because nothing moved (idle rate).\n",
                    static_cast<long long>(counts.passed_over));
    if (counts.dropped > 0)
        std::printf("%lld live frames were dropped for newer ones.\n", static_cast<long long>(counts.dropped));
    if (counts.restarts > 0)
        std::printf("The analyzer was restarted %lld times, %lld frames were lost.\n",
                    static_cast<long long>(counts.restarts), static_cast<long long>(counts.lost));
    for (const OutputEnd& output : camera.outputEnds()) {
        if (output.state.failing || output.choice.path.empty() || output.choice.path == "-") continue;
        std::printf("%-10s %s", output.choice.type.c_str(), output.choice.path.c_str());
        if (output.state.lost > 0)
            std::printf(" (%llu records are missing)", static_cast<unsigned long long>(output.state.lost));
        std::putchar('\n');
    }
}

int play(PlayOptions& options) {
    CameraConfig& config = options.camera;
    config.analyzer.program = foundAnalyzer(options.analyzer);
    const auto to_standard_output = [](const OutputChoice& choice) { return choice.path == "-"; };
    const PrivateRoot root;
    config.analyzer.root = root.path();
    config.outputs = chosenOutputs(options);
    if (std::ranges::any_of(config.outputs, to_standard_output)) options.quiet = true;  // the table would stand in it
    for (const std::string& fault : pathFaults({&config, 1})) throw SourceError(EX_USAGE, fault);
    if (const std::string fault = idleRateFault(config.source); !fault.empty())
        throw SourceError(EX_USAGE, "--idle-rate: " + fault);
    std::optional<EventDesk> desk;
    if (!options.state.empty()) {
        if (!hasDates(config.source))
            throw SourceError(EX_USAGE, "--state: the store keeps moments, so a file needs its --start-time");
        try {
            desk.emplace(DeskSettings{options.state, {}, {}});
        } catch (const StoreError& error) {
            throw SourceError(EX_CANTCREAT, error.what());
        }
    }
    TrackTable table;
    Supervisor supervisor;
    auto owned = std::make_unique<Camera>(config, std::vector<Output*>{&table}, desk ? &*desk : nullptr);
    Camera& camera = *owned;
    camera.prepare();
    const Clock::time_point begin = Clock::now();
    supervisor.add(std::move(owned));
    Progress progress(camera);
    std::function<void()> tick;
    if (!options.quiet && ::isatty(STDERR_FILENO)) tick = [&progress] { progress.show(); };
    const int code = supervisor.run(tick, nullptr);
    if (desk) desk->finish(supervisor.stopping() ? kStopSeconds : kFinishSeconds);
    desk.reset();  // while signals are still looked after: the disk may be slow
    showProgress("");
    if (camera.counts().answered == 0 && code != 0) return code;
    if (!options.quiet) printEnd(camera, table, Seconds(Clock::now() - begin).count());
    return code;
}

}  // namespace

int playCommand(PlayOptions options) {
    return statusOf([&options] { return play(options); });
}

}  // namespace fleifeisa::host
