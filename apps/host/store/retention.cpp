#include "store/retention.h"

#include <string>

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kDayNs = 86'400'000'000'000;
constexpr std::int64_t kMinuteNs = 60'000'000'000;
constexpr int kRows = 1000;  ///< a step and table

std::string most() {
    return " LIMIT " + std::to_string(kRows);
}

/// Rows of a table that were removed.
int remove(Database& database, const std::string& table, const std::string& key, const std::string& which) {
    database.run("DELETE FROM " + table + " WHERE (" + key + ") IN (SELECT " + key + " FROM " + table + ' ' + which +
                 most() + ")");
    return database.changes();
}

constexpr const char* kOldEvents = "WHERE keep = 0 AND end_ns IS NOT NULL";

/// Rows of one camera, or of all but some.
bool pruneByAge(Database& database, std::int64_t days, const std::string& cameras, std::int64_t now_ns) {
    if (days <= 0) return false;
    const std::string before = std::to_string(now_ns - days * kDayNs), by_id = " AND (id >> 40) " + cameras;
    int removed = remove(database, "tracks", "id", "WHERE end_ns < " + before + by_id);
    removed += remove(database, "events", "id", std::string(kOldEvents) + " AND start_ns < " + before + by_id);
    removed += remove(
        database, "counts", "camera, line, hour",
        "WHERE hour < " + std::to_string((now_ns - days * kDayNs) / (60 * kMinuteNs)) + " AND camera " + cameras);
    removed += remove(database, "scenes", "camera, time_ns", "WHERE time_ns < " + before + " AND camera " + cameras);
    return removed > 0;
}

bool pruneByAge(Database& database, const RetentionLimits& limits, const std::map<std::int64_t, std::int64_t>& own_days,
                std::int64_t now_ns) {
    int removed = 0;
    const auto aged = [&](std::int64_t days, const char* table, const char* key, const std::string& condition,
                          std::int64_t unit_ns) {
        if (days > 0)
            removed += remove(database, table, key, condition + std::to_string((now_ns - days * kDayNs) / unit_ns));
    };
    aged(limits.near_miss_days, "near_misses", "rowid", "WHERE time_ns < ", 1);
    aged(limits.minute_days, "minutes", "camera, minute", "WHERE minute < ", kMinuteNs);
    bool more = removed > 0;
    std::string own;
    for (const auto& [camera, days] : own_days) {
        own += (own.empty() ? "" : ", ") + std::to_string(camera);
        more = pruneByAge(database, days, "= " + std::to_string(camera), now_ns) || more;
    }
    return pruneByAge(database, limits.event_days, "NOT IN (" + own + ")", now_ns) || more;
}

/// The oldest of what is least missed.
bool pruneOldest(Database& database, bool events_too) {
    if (remove(database, "near_misses", "rowid", "ORDER BY time_ns") > 0) return true;
    if (remove(database, "minutes", "camera, minute", "ORDER BY minute") > 0) return true;
    if (remove(database, "tracks", "id", "ORDER BY end_ns") > 0) return true;
    return events_too && remove(database, "events", "id", std::string(kOldEvents) + " ORDER BY start_ns") > 0;
}

}  // namespace

std::int64_t usedBytes(Database& database) {
    return (database.integer("PRAGMA page_count") - database.integer("PRAGMA freelist_count")) *
           database.integer("PRAGMA page_size");
}

bool prune(Database& database, const RetentionLimits& limits, const std::map<std::int64_t, std::int64_t>& own_days,
           std::int64_t now_ns, std::int64_t free_bytes) {
    Transaction transaction(database);
    bool more = pruneByAge(database, limits, own_days, now_ns);
    const bool too_large = limits.bytes > 0 && usedBytes(database) > limits.bytes;
    if (too_large || free_bytes < limits.min_free) more = pruneOldest(database, too_large) || more;
    transaction.commit();
    database.run("PRAGMA incremental_vacuum(1000)");
    return more;
}

}  // namespace fleifeisa::host
