#include "recorder/clip_jobs.h"

#include <algorithm>
#include <cmath>

namespace fleifeisa::host {
namespace {

std::int64_t nanoseconds(double seconds) {
    return std::llround(seconds * 1e9);
}

}  // namespace

std::int64_t ClipJob::fromNs(const ClipSettings& settings) const {
    return start_ns - nanoseconds(settings.before);
}

std::int64_t ClipJob::toNs(const ClipSettings& settings) const {
    const std::int64_t longest = start_ns + kLongestClipNs;
    return std::min(end_ns.value_or(longest), longest) + nanoseconds(settings.after);
}

bool ClipJobs::wanted(EventKind kind) {
    return kind != EventKind::kAnalyzer && kind != EventKind::kGap && kind != EventKind::kClock;
}

bool ClipJobs::take(const CameraEvent& event, Clock::time_point now) {
    const auto found = jobs_.find(event.number);
    if (found == jobs_.end() && (event.state != EventState::kStart || !wanted(event.kind))) return false;
    ClipJob& job = found == jobs_.end() ? jobs_[event.number] : found->second;
    job.number = event.number;
    job.start_ns = event.start_ns;
    if (event.end_ns && !job.end_ns) job.ended_at = now;
    job.end_ns = event.end_ns;
    return found == jobs_.end();
}

const ClipJob* ClipJobs::due(const ClipSettings& settings, const Ring& ring, const OpenRuns& open,
                             Clock::time_point now) const {
    for (const auto& [number, job] : jobs_)
        if (isDue(job, settings, ring, open, now)) return &job;
    return nullptr;
}

bool ClipJobs::isDue(const ClipJob& job, const ClipSettings& settings, const Ring& ring, const OpenRuns& open,
                     Clock::time_point now) {
    const std::int64_t to = job.toNs(settings);
    if (job.end_ns && now > job.ended_at + seconds(settings.after + kPatienceSeconds)) return true;
    if (ring.segments().empty()) return false;
    // Looking for it takes a while: only where something may come of it.
    const RingSegment& latest = ring.segments().back();
    if (latest.end_ns < to && latest.start_ns > job.start_ns && open.contains(latest.run)) return false;
    const auto segments = ring.cut(job.fromNs(settings), job.start_ns, to);
    if (segments.empty()) return false;
    const std::int64_t run = segments.back().run;
    // It began in a later run, of which nothing is on disk yet.
    for (const auto& [other, state] : open)
        if (other > run && state.first_ns <= job.start_ns) return false;
    return segments.back().end_ns >= to || !open.contains(run);
}

std::int64_t ClipJobs::needed(const ClipSettings& settings) const {
    std::int64_t earliest = INT64_MAX;
    for (const auto& [number, job] : jobs_) earliest = std::min(earliest, job.fromNs(settings));
    return earliest;
}

}  // namespace fleifeisa::host
