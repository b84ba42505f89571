#include "hooks/hook_runner.h"

#include <algorithm>
#include <system_error>

#include "common/log.h"
#include "common/process.h"
#include "common/text.h"

namespace fleifeisa::host {
namespace {

/// How long a program may go on unwatched while the host wants to end.
constexpr double kLookSeconds = 0.1;

std::string valueOf(const std::string& name, const CameraEvent& event, bool& known) {
    known = true;
    if (name == "event") return eventId(event.camera, event.number);
    if (name == "camera") return event.camera;
    if (name == "kind") return nameOf(event.kind);
    if (name == "rule") return event.rule;
    if (name == "change") return event.change;
    if (name == "state") return nameOf(event.state);
    if (name == "track") return event.track > 0 ? std::to_string(event.track) : "";
    if (name == "time") return rfc3339(event.time_ns);
    if (name == "json") return eventJson(event);
    known = false;
    return "";
}

std::string filledIn(const std::string& text, const CameraEvent& event) {
    std::string result;
    for (std::size_t i = 0; i < text.size();) {
        const std::size_t close = text[i] == '{' ? text.find('}', i) : std::string::npos;
        bool known = false;
        const std::string value =
            close == std::string::npos ? "" : valueOf(text.substr(i + 1, close - i - 1), event, known);
        result += known ? value : text.substr(i, 1);
        i = known ? close + 1 : i + 1;
    }
    return result;
}

}  // namespace

std::vector<std::string> hookArguments(const std::vector<std::string>& command, const CameraEvent& event) {
    std::vector<std::string> arguments;
    for (const std::string& text : command)
        arguments.push_back(arguments.empty() ? text : filledIn(text, event));  // never the program itself
    return arguments;
}

std::string hookFault(const std::vector<std::string>& command) {
    if (command.empty() || command.front().empty()) return "expected a program and its arguments";
    if (findProgram(command.front()).empty()) return "there is no program '" + command.front() + "'";
    return "";
}

HookRunner::HookRunner(HookSettings settings) : settings_(std::move(settings)) {
    for (int i = 0; i < settings_.most_at_once; ++i) threads_.emplace_back(&HookRunner::work, this);
}

HookRunner::~HookRunner() {
    {
        std::unique_lock lock(mutex_);
        idle_.wait_for(lock, Seconds(grace_), [this] { return waiting_.empty() && running_ == 0; });
        stopping_ = true;
        counts_.left_out += static_cast<std::int64_t>(waiting_.size());
    }
    changed_.notify_all();
    for (std::thread& thread : threads_) thread.join();
    if (counts_.left_out > 0)
        logWarning("", "hook " + settings_.command.front() + ": not started for " + std::to_string(counts_.left_out) +
                           " events, too many came at once or at the end");
}

void HookRunner::tell(const CameraEvent& event) {
    if (std::ranges::find(settings_.states, event.state) == settings_.states.end()) return;
    const std::lock_guard lock(mutex_);
    if (!armed_) return;
    if (waiting_.size() >= settings_.most_waiting) {
        waiting_.pop_front();
        ++counts_.left_out;
    }
    waiting_.push_back(event);
    changed_.notify_one();
}

void HookRunner::arm(bool on) {
    const std::lock_guard lock(mutex_);
    armed_ = on;
    if (!on) waiting_.clear();
}

void HookRunner::graceAtEnd(double seconds_at_most) {
    const std::lock_guard lock(mutex_);
    grace_ = seconds_at_most;
}

HookRunner::Counts HookRunner::counts() {
    const std::lock_guard lock(mutex_);
    return counts_;
}

void HookRunner::work() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait(lock, [this] { return stopping_ || !waiting_.empty(); });
        if (stopping_) return;
        const CameraEvent event = std::move(waiting_.front());
        waiting_.pop_front();
        ++counts_.started;
        ++running_;
        lock.unlock();
        const bool good = runOne(event);
        lock.lock();
        --running_;
        if (!good) ++counts_.failed;
        idle_.notify_all();
    }
}

bool HookRunner::runOne(const CameraEvent& event) {
    const std::string what = "hook " + settings_.command.front() + " for " + eventId(event.camera, event.number) + ": ";
    try {
        Process::Options options;
        options.argv = hookArguments(settings_.command, event);
        Process process(options);
        const Clock::time_point deadline = Clock::now() + seconds(settings_.seconds);
        while (true) {
            if (const auto status = process.wait(std::min(deadline, Clock::now() + seconds(kLookSeconds)))) {
                if (*status == 0) {
                    logDebug(event.camera, what + "done");
                } else {
                    logWarning(event.camera, what + describeStatus(*status));
                }
                return *status == 0;
            }
            const std::lock_guard lock(mutex_);
            if (stopping_) return false;  // the process goes with its owner
            if (Clock::now() < deadline) continue;
            logWarning(event.camera, what + "took too long and was killed");
            return false;
        }
    } catch (const std::system_error& error) {
        logWarning(event.camera, what + error.what());
        return false;
    }
}

}  // namespace fleifeisa::host
