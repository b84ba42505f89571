// What goes when: by age, by size, by free space. Rows of the database; pictures and clips have limits of their own.
#pragma once

#include <cstdint>
#include <map>

#include "store/database.h"

namespace fleifeisa::host {

struct RetentionLimits {
    std::int64_t event_days = 365;   ///< events, tracks, counts, scene states; 0: for ever
    std::int64_t minute_days = 365;  ///< activity
    std::int64_t near_miss_days = 1;
    std::int64_t bytes = 0;             ///< of the database, 0: no limit
    std::int64_t media_bytes = 0;       ///< clips, pictures and continuous recording of all cameras, 0: no limit
    std::int64_t kept_bytes = 0;        ///< files of events that are marked `keep`, 0: no limit
    std::int64_t min_free = 100 << 20;  ///< bytes of the filesystem; below it nothing but events is kept

    bool operator==(const RetentionLimits&) const = default;
};

/// Removes at most a few thousand rows, the oldest first, and gives their space back: a step that does not hold up the
/// writer. Over `bytes`: near misses, activity, tracks go first, then events that are not marked `keep`; under
/// `min_free` the same without the events, which stay. Events that run are never removed.
/// @param own_days  event_days of cameras that have their own, by id
/// @param free_bytes  of the filesystem now  @returns whether there is more to do
bool prune(Database& database, const RetentionLimits& limits, const std::map<std::int64_t, std::int64_t>& own_days,
           std::int64_t now_ns, std::int64_t free_bytes);

/// Bytes in use, without pages that are free to be used again.
std::int64_t usedBytes(Database& database);

}  // namespace fleifeisa::host
