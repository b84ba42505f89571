#include "archive/slurm.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "archive/child_output.h"
#include "archive/clip_pool.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

std::string ask(const std::vector<std::string>& argv) {
    int status = 0;
    std::string complaints, text = outputOf(argv, &status, &complaints);
    while (complaints.ends_with('\n')) complaints.pop_back();
    if (status != 0)
        throw SlurmError(argv[0] + ": " +
                         (complaints.empty() ? "it failed (is Slurm's slurm-client installed?)" : complaints));
    while (text.ends_with('\n')) text.pop_back();
    return text;
}

std::string shellQuoted(const std::string& text) {
    std::string quoted = "'";
    for (const char c : text) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
    return quoted + "'";
}

std::string command(const std::vector<std::string>& words) {
    std::string text = "exec";
    for (const std::string& word : words) text += ' ' + shellQuoted(word);
    return text;
}

/// The next file for chunks: two that are submitted at once do not take the same.
std::string newChunkFile(const Archive& archive, std::string_view text) {
    for (int number = 1;; ++number) {
        const std::string path = archive.path("slurm/" + std::to_string(number) + ".chunks");
        const Fd fd(::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666));
        if (!fd && errno == EEXIST) continue;
        if (!fd) throw std::system_error(errno, std::generic_category(), path);
        writeFile(path, text);
        return path;
    }
}

void noteJob(const Archive& archive, const std::string& id) {
    std::ofstream file(archive.path("slurm/jobs"), std::ios::app);
    file << id << std::endl;
}

}  // namespace

std::optional<RunCost> measuredCost(const Archive& archive) {
    RunCost cost;
    double seconds = 0, weight = 0;
    for (const JournalLine& line : archive.journal()) {
        if (!line.done) continue;
        seconds += line.cpu_seconds;
        weight += line.weight;
        cost.peak_bytes = std::max(cost.peak_bytes, line.peak_bytes);
    }
    if (weight <= 0) return std::nullopt;
    cost.seconds_per_weight = seconds / weight;
    return cost;
}

ArrayShape shapeOf(std::span<const ClipRun* const> runs, const RunCost& cost, std::size_t most_tasks,
                   double task_seconds) {
    constexpr double kSpare = 1.5, kSlower = 4;  // of memory; of time: clips and machines differ
    constexpr std::int64_t kMore = 256, kStep = 64, kMega = 1 << 20, kMinutes = 15;
    const auto seconds = [&cost](const ClipRun* run) { return run->clip.weight() * cost.seconds_per_weight; };
    double all = 0;
    for (const ClipRun* run : runs) all += seconds(run);
    // Twice the share of each task, as the last clip of a task may be longer than what was left for it.
    const double wanted = std::max(task_seconds, 2 * all / static_cast<double>(std::max<std::size_t>(1, most_tasks)));
    ArrayShape shape;
    double filled = wanted, longest = 0;
    for (const ClipRun* run : runs) {
        if (filled + seconds(run) > wanted && shape.chunks.size() < most_tasks) {
            shape.chunks.emplace_back();
            filled = 0;
        }
        shape.chunks.back().push_back(run->name);
        filled += seconds(run);
        longest = std::max(longest, filled);
    }
    const auto peak = static_cast<std::int64_t>(kSpare * static_cast<double>(cost.peak_bytes)) / kMega + kMore;
    shape.memory_mb = (peak + kStep - 1) / kStep * kStep;
    shape.minutes = kMinutes + std::llround(std::ceil(kSlower * longest / 60));
    return shape;
}

std::set<std::string> clusterNodes() {
    std::istringstream words(ask({"sinfo", "--noheader", "--Node", "--format=%N"}));
    std::set<std::string> nodes;
    for (std::string node; words >> node;) nodes.insert(node);
    return nodes;
}

std::size_t mostTasks() {
    std::istringstream lines(ask({"scontrol", "show", "config"}));
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with("MaxArraySize"))
            return static_cast<std::size_t>(std::max(1L, std::stol(line.substr(line.find('=') + 1)) - 1));
    return 1000;
}

std::string submit(const Archive& archive, const ArrayShape& shape, const SlurmSettings& settings) {
    fs::create_directories(archive.path("slurm"));
    std::string text;
    for (const auto& chunk : shape.chunks) {
        for (const std::string& name : chunk) text += name + ' ';
        text.back() = '\n';
    }
    const std::string chunks = newChunkFile(archive, text);
    std::vector<std::string> task{thisProgram(), "batch", "task", archive.directory(), chunks};
    if (!settings.analyzer.empty()) task.insert(task.end(), {"--analyzer", settings.analyzer});
    std::vector<std::string> common{"sbatch", "--parsable", "--job-name=fleifeisa", "--requeue",
                                    "--chdir=" + archive.directory()};
    common.insert(common.end(), settings.sbatch.begin(), settings.sbatch.end());
    std::vector<std::string> array = common;
    array.insert(array.end(),
                 {"--array=0-" + std::to_string(shape.chunks.size() - 1), "--cpus-per-task=1",
                  "--mem=" + std::to_string(shape.memory_mb) + "M", "--time=" + std::to_string(shape.minutes),
                  "--output=" + archive.path("slurm/%A_%a.log")});
    if (!settings.exclude.empty()) array.push_back("--exclude=" + settings.exclude);
    array.push_back("--wrap=" + command(task));
    std::string id = ask(array);
    id = id.substr(0, id.find(';'));  // behind it stands the cluster
    noteJob(archive, id);
    if (!settings.merge) return id;
    std::vector<std::string> merge = common;
    // A merge whose array failed goes, instead of waiting for ever: batch, started again, submits what is missing.
    merge.insert(merge.end(),
                 {"--dependency=afterok:" + id, "--kill-on-invalid-dep=yes", "--output=" + archive.path("slurm/%j.log"),
                  "--wrap=" + command({thisProgram(), "batch", "merge", "--quiet", archive.directory()})});
    std::string merge_id = ask(merge);
    noteJob(archive, merge_id.substr(0, merge_id.find(';')));
    return id;
}

std::vector<std::string> runsOfTask(const std::string& chunks, std::size_t task) {
    std::istringstream lines(readFile(chunks));
    std::string line;
    for (std::size_t i = 0; i <= task; ++i)
        if (!std::getline(lines, line)) throw std::runtime_error(chunks + ": there is no task " + std::to_string(task));
    std::istringstream words(line);
    std::vector<std::string> names;
    for (std::string name; words >> name;) names.push_back(name);
    return names;
}

bool waitForJobs(std::span<const std::string> ids, const Event& stop) {
    constexpr int kMilliseconds = 1000, kPatience = 300;  // tries in a row without an answer
    pollfd item{stop.fd(), POLLIN, 0};
    for (int failures = 0;;) {
        int status = 0;
        std::string complaints;
        // All jobs of this user: those that are over are no jobs of that name any more, which would be an error.
        std::istringstream lines(outputOf({"squeue", "--me", "--noheader", "--format=%A %F"}, &status, &complaints));
        failures = status == 0 ? 0 : failures + 1;  // no answer is not "nothing runs"
        if (failures > kPatience) throw SlurmError("squeue: " + complaints);
        bool any = status != 0;
        for (std::string job, array; lines >> job >> array;)
            any = any || std::ranges::count(ids, job) > 0 || std::ranges::count(ids, array) > 0;
        if (!any) return true;
        if (::poll(&item, 1, kMilliseconds) > 0) return false;
    }
}

std::vector<std::string> cancelJobs(const Archive& archive) {
    std::vector<std::string> ids;
    std::ifstream file(archive.path("slurm/jobs"));
    for (std::string id; std::getline(file, id);) ids.push_back(id);
    if (ids.empty()) return ids;
    std::vector<std::string> argv{"scancel", "--quiet"};
    argv.insert(argv.end(), ids.begin(), ids.end());
    ask(argv);
    return ids;
}

}  // namespace fleifeisa::host
