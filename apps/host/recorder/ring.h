// The segments of one camera on disk, oldest first.
//
// A segment is a file RING/CAMERA/DATE/RUN-NUMBER-START-END-k.ts, the date being that of its start (UTC), times in
// nanoseconds since 1970; "k" where decoding can begin in it, "p" where it is a part that goes on. So the names tell
// all that is needed to find a moment again, also after a restart.
#pragma once

#include <cstdint>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "recorder/segment.h"

namespace fleifeisa::host {

/// 48 bytes a segment: at 2 s each some 2 MB for a day of a camera.
struct RingSegment {
    std::int64_t run = 0, number = 0;
    std::int64_t start_ns = 0, end_ns = 0;  ///< of its earliest and latest frame
    std::int64_t bytes = 0;
    bool key = false;  ///< decoding can begin in it

    bool operator==(const RingSegment&) const = default;
};

class Ring {
 public:
    /// @param directory  of the camera; need not exist
    explicit Ring(std::string directory) : directory_(std::move(directory)) {}

    /// What an earlier run of the host left; what it left unfinished is removed. Waits for the disk.
    void load();
    std::string path(const RingSegment& segment) const;
    void add(const RingSegment& segment);
    /// Takes the oldest out of the list; its file is the caller's to remove.
    std::optional<RingSegment> takeOldest();
    const std::deque<RingSegment>& segments() const { return segments_; }
    std::int64_t bytes() const { return bytes_; }
    const std::string& directory() const { return directory_; }

    /// What a clip is cut from: segments of one run, the first of which holds, or follows, the moment `from_ns`, as
    /// far as `to_ns`. It is the run in which `at_ns` lies; where that lies between two, the one before, unless
    /// nothing of it is left. Empty where nothing of that time is there.
    std::vector<RingSegment> cut(std::int64_t from_ns, std::int64_t at_ns, std::int64_t to_ns) const;

 private:
    std::string directory_;
    std::deque<RingSegment> segments_;  ///< in the order in which they were made
    std::int64_t bytes_ = 0;
};

/// The file's name behind RING/CAMERA/.
std::string segmentName(const RingSegment& segment);
/// The size stays 0.
std::optional<RingSegment> parseSegmentName(const std::string& name);

}  // namespace fleifeisa::host
