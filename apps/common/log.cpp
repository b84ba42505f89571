#include "common/log.h"

#include <array>
#include <chrono>
#include <cstdio>
#include <mutex>

#include "common/text.h"

namespace fleifeisa {
namespace {

std::mutex mutex;
LogLevel least_level = LogLevel::kWarning;
bool as_json = false;
std::string progress;

constexpr std::array<std::string_view, 4> kNames = {"error", "warning", "info", "debug"};

void put(std::string_view text) {
    std::fwrite(text.data(), 1, text.size(), stderr);
}

}  // namespace

void log(LogLevel level, std::string_view camera, std::string_view message) {
    const std::lock_guard lock(mutex);
    if (level > least_level) return;
    const auto now =
        std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
            .count();
    const std::string_view name = kNames[static_cast<std::size_t>(level)];
    std::string line;
    if (as_json) {
        line = "{\"time\":\"" + rfc3339(now) + "\",\"level\":\"" + std::string(name) + "\"";
        if (!camera.empty()) line += ",\"camera\":" + jsonString(camera);
        line += ",\"message\":" + jsonString(message) + "}\n";
    } else {
        line = "fleifeisa-host: " + std::string(name) + ": ";
        if (!camera.empty()) line += cleanUtf8(camera) + ": ";
        line += cleanUtf8(message) + "\n";
    }
    if (!progress.empty()) put("\r\033[K");
    put(line);
    if (!progress.empty()) put(progress);
}

void setLog(LogLevel least, bool json) {
    const std::lock_guard lock(mutex);
    least_level = least;
    as_json = json;
}

void showProgress(std::string_view line) {
    const std::lock_guard lock(mutex);
    if (progress.empty() && line.empty()) return;
    put("\r\033[K");
    put(line);
    progress = line;
}

std::string withoutPassword(std::string_view url) {
    const std::size_t scheme = url.find("://");
    if (scheme == std::string_view::npos) return std::string(url);
    const std::size_t begin = scheme + 3;
    const std::size_t end = url.substr(begin, url.find('/', begin) - begin).rfind('@');
    const std::size_t colon = url.find(':', begin);
    if (end == std::string_view::npos || colon == std::string_view::npos || colon > begin + end)
        return std::string(url);
    return std::string(url.substr(0, colon)) + ":***" + std::string(url.substr(begin + end));
}

}  // namespace fleifeisa
