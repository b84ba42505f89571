// What goes of clips and pictures: by age, by size, by free disk; and how long what there is will fit.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "store/database.h"
#include "store/retention.h"

namespace fleifeisa::host {

/// Of one camera.
struct CameraLimits {
    std::int64_t clip_bytes = 0;  ///< clips and pictures, 0: no limit
    std::int64_t clip_days = 14;  ///< clips, 0: as long as their event
    std::int64_t event_days = 0;  ///< events and tracks, 0: as the host's

    bool operator==(const CameraLimits&) const = default;
};

/// Continuous recording, which shares the disk. Empty functions: there is none.
struct RingUse {
    std::function<std::int64_t()> bytes;  ///< in use, of all cameras
    std::function<bool()> drop_oldest;    ///< false: there is nothing that could go
};

/// An event whose clip or pictures went.
struct Expired {
    std::int64_t camera = 0, number = 0;
};

/// One step, of some hundred files at most. Clips go first, the oldest first; their events stay and say so. Where no
/// clip is left: continuous recording, then pictures. Nothing of an event that is marked `keep` goes, and its bytes
/// count for nothing but RetentionLimits::kept_bytes. Within the caller's transaction.
/// @param limits  by the camera's id  @returns what went; empty: there is nothing (more) to do
std::vector<Expired> pruneMedia(Database& database, const RetentionLimits& host,
                                const std::map<std::int64_t, CameraLimits>& limits, const RingUse& ring,
                                std::int64_t now_ns, std::int64_t free_bytes);

/// What one camera has on disk.
struct MediaUse {
    std::string camera;
    std::int64_t clips = 0, pictures = 0;  ///< bytes
    std::int64_t kept = 0;                 ///< of them, bytes of events that are marked
    std::int64_t a_day = 0;                ///< bytes at the rate of the latest seven days
    CameraLimits limits;
    double days_that_fit = -1;  ///< at this rate, with its limit of bytes and its share of the disk; -1: any
};

/// @param free_bytes  of the filesystem beyond what is to stay free
std::vector<MediaUse> mediaUse(Database& database, std::int64_t now_ns, std::int64_t free_bytes);

/// Bytes of all files of marked events.
std::int64_t keptBytes(Database& database);

}  // namespace fleifeisa::host
