#include "camera/idle_rate.h"

#include <algorithm>

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kBefore = 2;  // frames: a file has two under way, see kFileWindow

}  // namespace

bool showsNothing(const Reply& reply, const TrackFrame& frame) {
    return reply.detection && reply.objects.empty() && frame.tracks.empty() &&
           (frame.scene == SceneState::kWatching || frame.scene == SceneState::kBlind);
}

bool IdleRate::decidable() const {
    const auto open = std::ranges::find(wanted_, false, &Wanted::answered);
    return open == wanted_.end() || open->index > next_ - kBefore;
}

bool IdleRate::wants(std::int64_t time_ns) {
    if (rate_ <= 0) return true;
    // A clock that was set back begins anew.
    if (time_ns < latest_ns_) {
        for (Wanted& frame : wanted_) frame.time_ns = std::min(frame.time_ns, time_ns);
        busy_ns_ = time_ns;
    }
    latest_ns_ = time_ns;
    for (; !wanted_.empty() && wanted_.front().index <= next_ - kBefore; wanted_.pop_front())
        if (!wanted_.front().quiet || !busy_ns_) busy_ns_ = wanted_.front().time_ns;
    if (!busy_ns_ || time_ns - *busy_ns_ <= kStaysNs) grid_.restart();
    const std::int64_t index = next_++;
    if (!grid_.takes(time_ns)) return false;
    wanted_.push_back({index, time_ns, false, false});
    return true;
}

void IdleRate::answered(bool quiet) {
    const auto open = std::ranges::find(wanted_, false, &Wanted::answered);
    if (open == wanted_.end()) return;
    open->answered = true;
    open->quiet = quiet;
}

}  // namespace fleifeisa::host
