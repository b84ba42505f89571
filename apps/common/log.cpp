#include "common/log.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <deque>
#include <mutex>

#include "common/repeats.h"
#include "common/secrets.h"
#include "common/text.h"

namespace fleifeisa {
namespace {

std::mutex mutex;
LogLevel least_level = LogLevel::kWarning;
bool as_json = false;
std::string progress;

constexpr std::array<std::string_view, 4> kNames = {"error", "warning", "info", "debug"};

RepeatLimiter repeats;
Clock::time_point next_sweep{};

constexpr std::size_t kRemembered = 1000;
std::deque<LogLine> remembered;
std::int64_t next_line = 1;

std::int64_t wallClock() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

void put(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
}

struct LogEvent {
    LogLevel level;
    std::string camera, message;

    std::string key() const { return std::to_string(static_cast<int>(level)) + camera + '\0' + message; }
    static LogEvent ofKey(const std::string& key) {
        const std::size_t end = key.find('\0');
        return {static_cast<LogLevel>(key[0] - '0'), key.substr(1, end - 1), key.substr(end + 1)};
    }
};

void write(const LogEvent& event, std::string_view addition) {
    const std::int64_t now = wallClock();
    const std::string_view name = kNames[static_cast<std::size_t>(event.level)];
    const std::string message = event.message + std::string(addition);
    if (event.level <= LogLevel::kInfo) {
        remembered.push_back({next_line++, now, event.level, event.camera, message});
        if (remembered.size() > kRemembered) remembered.pop_front();
    }
    if (event.level > least_level) return;
    std::string line;
    if (as_json) {
        line = "{\"time\":\"" + rfc3339(now) + "\",\"level\":\"" + std::string(name) + "\"";
        if (!event.camera.empty()) line += ",\"camera\":" + jsonString(event.camera);
        line += ",\"message\":" + jsonString(message) + "}\n";
    } else {
        line = "fleifeisa-host: " + std::string(name) + ": ";
        if (!event.camera.empty()) line += cleanUtf8(event.camera) + ": ";
        line += cleanUtf8(message) + "\n";
    }
    if (!progress.empty()) put("\r\033[K");
    put(line);
    if (!progress.empty()) put(progress);
}

void writeHeldBack(Clock::time_point now) {
    for (const auto& [key, count] : repeats.expired(now))
        write(LogEvent::ofKey(key), " (again " + std::to_string(count) + " times)");
}

}  // namespace

void log(LogLevel level, std::string_view camera, std::string_view message) {
    const std::lock_guard lock(mutex);
    if (level > least_level && level > LogLevel::kInfo) return;
    const LogEvent event{level, withoutSecrets(camera), withoutSecrets(message)};
    if (level > LogLevel::kWarning) return write(event, "");
    const Clock::time_point now = Clock::now();
    if (now >= next_sweep) {
        next_sweep = now + std::chrono::minutes(1);
        writeHeldBack(now);
    }
    if (const auto held = repeats.admit(event.key(), now))
        write(event, *held > 0 ? " (again " + std::to_string(*held) + " times)" : "");
}

void flushLog() {
    const std::lock_guard lock(mutex);
    writeHeldBack(Clock::time_point::max());
}

void setLog(LogLevel least, bool json) {
    const std::lock_guard lock(mutex);
    least_level = least;
    as_json = json;
    repeats = {};
}

void showProgress(std::string_view line) {
    const std::lock_guard lock(mutex);
    if (progress.empty() && line.empty()) return;
    put("\r\033[K");
    put(line);
    progress = line;
}

std::vector<LogLine> lastLogLines(std::int64_t after) {
    const std::lock_guard lock(mutex);
    std::vector<LogLine> lines;
    for (const LogLine& line : remembered)
        if (line.number > after) lines.push_back(line);
    return lines;
}

}  // namespace fleifeisa
