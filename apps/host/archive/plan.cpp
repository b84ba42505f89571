#include "archive/plan.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <sstream>
#include <unordered_map>

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;
using Json = nlohmann::ordered_json;

constexpr const char* kPlan = "plan.jsonl";
constexpr double kAlive = 60;  ///< seconds after which a part that says nothing is nobody's any more

/// The progress of what is at work: its maker says so every few seconds.
std::vector<std::pair<std::string, PartProgress>> partsAtWork(const Archive& archive) {
    std::vector<std::pair<std::string, PartProgress>> parts;
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    for (const auto& entry : fs::directory_iterator(archive.path("parts"))) {
        const std::string file = entry.path().string() + '/' + PartProgress::kFile;
        struct stat status {};
        if (::stat(file.c_str(), &status) != 0 && ::stat(entry.path().c_str(), &status) != 0) continue;
        if (Seconds(now - std::chrono::seconds(status.st_mtim.tv_sec)).count() > kAlive) continue;
        const std::string name = entry.path().filename();
        PartProgress progress;
        std::ifstream(file) >> progress.frames >> progress.expected >> progress.seconds;
        parts.emplace_back(name.substr(0, name.rfind('@')), progress);
    }
    return parts;
}

}  // namespace

void notePart(const std::string& part, const PartProgress& progress) {
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << progress.frames << ' ' << progress.expected << ' ' << progress.seconds << '\n';
    std::ofstream(part + '/' + PartProgress::kFile) << text.str();
}

void Plan::save(const Archive& archive) const {
    // Each configuration stands once, in the first line.
    std::map<std::string, std::size_t> numbers;
    Json configurations = Json::array();
    for (const ClipRun& run : runs)
        if (numbers.emplace(run.configuration, numbers.size()).second) configurations.push_back(run.configuration);
    std::string text =
        Json{{"timezone", timezone}, {"titles", titles}, {"configurations", configurations}}.dump() + '\n';
    for (const ClipRun& run : runs)
        text += toJson(ClipRun{run.name, run.clip, std::to_string(numbers.at(run.configuration))}) + '\n';
    writeFile(archive.path(kPlan), text);
}

Plan Plan::load(const Archive& archive) {
    std::ifstream file(archive.path(kPlan));
    std::string line;
    if (!file || !std::getline(file, line))
        throw std::runtime_error(archive.directory() + ": holds no archive (batch makes one)");
    Plan plan;
    try {
        const Json head = Json::parse(line);
        plan.timezone = head.at("timezone");
        plan.titles = head.at("titles").get<std::map<std::string, std::string>>();
        const auto configurations = head.at("configurations").get<std::vector<std::string>>();
        while (std::getline(file, line)) {
            plan.runs.push_back(fromJson<ClipRun>(line));
            std::string& configuration = plan.runs.back().configuration;
            configuration = configurations.at(std::stoul(configuration));
        }
    } catch (const std::exception& error) {
        throw std::runtime_error(archive.path(kPlan) + ": " + error.what());
    }
    return plan;
}

ArchiveStatus archiveStatus(const Archive& archive, const Plan& plan) {
    ArchiveStatus status;
    const std::set<std::string> results = archive.results();
    const std::map<std::string, ClipFailure> failures = archive.failures();
    std::unordered_map<std::string, const ClipRun*> open;
    double left = 0;
    for (const ClipRun& run : plan.runs) {
        ++status.runs;
        if (results.contains(run.name)) {
            ++status.done;
            continue;
        }
        const auto failure = failures.find(run.name);
        if (failure != failures.end()) {
            ++status.failed;
            status.failures.push_back(failure->second);
        } else {
            left += run.clip.weight();
        }
        open[run.name] = &run;
    }
    double bytes = 0, seconds = 0;
    for (const JournalLine& line : archive.journal()) {
        if (!line.done) continue;
        status.frames += line.frames;
        status.cpu_seconds += line.cpu_seconds;
        bytes += line.weight;
        seconds += line.seconds;
    }
    for (const auto& [name, progress] : partsAtWork(archive)) {
        const auto run = open.find(name);
        if (run == open.end()) continue;
        ++status.running;
        if (progress.seconds > 0) status.frames_per_second += static_cast<double>(progress.frames) / progress.seconds;
        if (progress.expected <= 0) continue;
        const double share =
            std::min(1.0, static_cast<double>(progress.frames) / static_cast<double>(progress.expected));
        bytes += share * run->second->clip.weight();
        seconds += progress.seconds;
        left -= share * run->second->clip.weight();
    }
    if (status.running > 0 && bytes > 0 && seconds > 0)
        status.seconds_left = std::max(0.0, left) / (bytes / seconds) / static_cast<double>(status.running);
    return status;
}

}  // namespace fleifeisa::host
