// The verbs that read the store, beside a running host or without one.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

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

/// What nearly was an event: tracks that failed one value of a rule. Uses camera, times and format.
int nearMissesCommand(const EventsOptions& options);
/// Copies events and their files. @param ids  "gate-12" ...; none: those that the filter finds
/// @param path  a folder or NAME.zip; "": a zip in the state directory
int exportCommand(const EventsOptions& options, const std::vector<std::string>& ids, const std::string& path);
/// "keep", "unkeep", "delete", by the running host or, without one, here.
int eventActCommand(const std::string& state, const std::string& verb, const std::vector<std::string>& ids);
/// Bytes by camera, and how many days will fit.
int dbUseCommand(const std::string& state);

/// That one, or $STATE_DIRECTORY. @throws SourceError where there is neither
std::string stateDirectoryOf(const std::string& given);
/// What the verb returns; errors of the store as exit statuses.
int withStore(const std::function<int()>& verb);

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
