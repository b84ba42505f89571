// The host's log on standard error: one line an event, as text or as JSON, from any thread.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace fleifeisa {

enum class LogLevel { kError, kWarning, kInfo, kDebug };

/// `camera` may be empty: the event concerns the host as a whole. Whatever the texts hold, it stays one line of UTF-8,
/// without secrets (common/secrets.h). Warnings and errors that repeat themselves are held back and counted.
void log(LogLevel level, std::string_view camera, std::string_view message);

inline void logError(std::string_view camera, std::string_view message) {
    log(LogLevel::kError, camera, message);
}
inline void logWarning(std::string_view camera, std::string_view message) {
    log(LogLevel::kWarning, camera, message);
}
inline void logInfo(std::string_view camera, std::string_view message) {
    log(LogLevel::kInfo, camera, message);
}
inline void logDebug(std::string_view camera, std::string_view message) {
    log(LogLevel::kDebug, camera, message);
}

/// Also forgets what was said before: nothing is held back for it.
void setLog(LogLevel least, bool json);

/// The line that is rewritten in place at a terminal; the log clears it before it writes. "" removes it.
void showProgress(std::string_view line);

/// Says how often messages came again that were held back. For the end of the program.
void flushLog();

/// A line as it is remembered: the latest 1000 of kInfo and above, whether they are shown or not.
struct LogLine {
    std::int64_t number = 0;  ///< from 1, rising
    std::int64_t time_ns = 0;
    LogLevel level = LogLevel::kInfo;
    std::string camera, message;
};
std::vector<LogLine> lastLogLines(std::int64_t after);

}  // namespace fleifeisa
