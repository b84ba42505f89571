// Which clips of a camera are still to be made, and when each can be.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <vector>

#include "common/fd.h"
#include "events/event.h"
#include "recorder/clip_settings.h"
#include "recorder/ring.h"

namespace fleifeisa::host {

/// The longest part of an event that its clip shows. What goes on for hours, a car that is parked, is shown as it
/// began.
constexpr std::int64_t kLongestClipNs = 600'000'000'000;

struct ClipJob {
    std::int64_t number = 0;  ///< of the event
    std::int64_t start_ns = 0;
    std::optional<std::int64_t> end_ns;
    Clock::time_point ended_at{};  ///< when that became known

    std::int64_t fromNs(const ClipSettings& settings) const;
    /// The end that is wanted as far as is known now: of an event that runs, that of the longest clip.
    std::int64_t toNs(const ClipSettings& settings) const;
};

/// A decoder's run whose packets still come, or wait to be written.
struct OpenRun {
    std::int64_t first_ns = INT64_MAX;  ///< of its first frame, INT64_MAX: none has come
    int queued = 0;                     ///< segments that wait for the disk
    bool ended = false;                 ///< no more packets come
};
using OpenRuns = std::map<std::int64_t, OpenRun>;

class ClipJobs {
 public:
    /// Video that is missing this long after it was expected does not come any more.
    static constexpr double kPatienceSeconds = 30;

    /// Whether events of that kind get a clip: those that something can be seen of.
    static bool wanted(EventKind kind);
    /// True where it is a new one.
    bool take(const CameraEvent& event, Clock::time_point now);
    void remove(std::int64_t number) { jobs_.erase(number); }
    bool empty() const { return jobs_.empty(); }
    const std::map<std::int64_t, ClipJob>& all() const { return jobs_; }

    /// A job whose video is there, or will not come; null: none.
    const ClipJob* due(const ClipSettings& settings, const Ring& ring, const OpenRuns& open,
                       Clock::time_point now) const;
    /// The earliest moment that a clip may still need, INT64_MAX: none.
    std::int64_t needed(const ClipSettings& settings) const;

 private:
    static bool isDue(const ClipJob& job, const ClipSettings& settings, const Ring& ring, const OpenRuns& open,
                      Clock::time_point now);

    std::map<std::int64_t, ClipJob> jobs_;
};

}  // namespace fleifeisa::host
