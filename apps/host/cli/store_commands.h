// The verbs that read the store, beside a running host or without one.
#pragma once

#include <cstdint>
#include <string>

#include "store/reader.h"

namespace fleifeisa::host {

struct EventsOptions {
    std::string state;  ///< the state directory, "": $STATE_DIRECTORY
    EventFilter filter;
    enum class Format { kText, kJson, kCsv } format = Format::kText;
    std::string what_if;           ///< a rule that is tried on the stored tracks, "": the stored events
    std::string timezone = "UTC";  ///< of the times in text, and of active times
};
/// Lists events; with `what_if` those that a rule would have raised.
int eventsCommand(const EventsOptions& options);

/// $STATE_DIRECTORY, "" where there is none.
std::string stateDirectory();

/// Is the store whole? Says what is wrong with it.
int dbCheckCommand(const std::string& state);
/// A copy of the database while the host writes.
int dbBackupCommand(const std::string& state, const std::string& path);

/// "2026-11-21", "2026-11-21T08:15", "2026-11-21T08:15:02" (UTC, an ending Z is allowed), or before now: "36h", "7d",
/// "90min". Nanoseconds since 1970. @throws ValueError
std::int64_t parseTime(const std::string& text, std::int64_t now_ns);

}  // namespace fleifeisa::host
