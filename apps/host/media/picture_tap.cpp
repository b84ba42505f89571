#include "media/picture_tap.h"

#include <algorithm>

#include "media/best_view.h"
#include "outputs/shown.h"

namespace fleifeisa::host {
namespace {

constexpr double kBetter = 1.15;               ///< worth a copy of the frame
constexpr std::int64_t kViewNs = 250'000'000;  ///< between two views of a track
constexpr std::int64_t kTileNs = 1'000'000'000;
constexpr double kPatience = 5, kEndPatience = 30;  ///< seconds, of files that are read as fast as possible

}  // namespace

std::vector<Candidate> PictureTap::candidates(const FrameResult& result) const {
    std::vector<Candidate> found;
    for (const Track& track : result.tracks.tracks) {
        if (!isSeen(track, result.time_ns) || isLoose(track)) continue;
        const auto sent = sent_.find(track.number);
        if (sent != sent_.end() && result.time_ns - sent->second.time_ns < kViewNs) continue;
        const double score = viewScore({result.width, result.height, result.rgb}, track.box);
        if (sent == sent_.end() || score >= kBetter * sent->second.score)
            found.push_back({track.number, track.box, score});
    }
    return found;
}

/// Also while something may yet become a track, so that the strip of its event begins before it.
bool PictureTap::tileDue(const FrameResult& result) const {
    const bool since = result.time_ns - tile_ns_ >= kTileNs || result.time_ns < tile_ns_;
    return since && (!result.tracks.tracks.empty() || !running_.empty() || result.time_ns <= busy_until_ns_);
}

void PictureTap::frame(const FrameResult& result) {
    may_wait_ = !result.realtime;
    closeWhatIsOver(result.time_ns);
    PictureFrame frame{result.time_ns, result.width, result.height, {}, candidates(result), tileDue(result)};
    if (!frame.candidates.empty() || frame.tile || wanted_) {
        const std::vector<Candidate> views = frame.candidates;
        const bool tile = frame.tile;
        frame.rgb.assign(result.rgb.begin(), result.rgb.end());
        if (desk_.frame(camera_, std::move(frame), may_wait_ ? kPatience : 0)) {
            for (const Candidate& view : views) sent_[view.track] = {view.score, result.time_ns};
            if (tile) tile_ns_ = result.time_ns;
            wanted_ = false;
        }
    }
    forgetEnded(result.tracks);
}

/// Once the time has come, or will not come because the clock was set back.
void PictureTap::closeWhatIsOver(std::int64_t time_ns) {
    const bool back = time_ns < now_ns_;
    now_ns_ = time_ns;
    if (busy_until_ns_ == 0 || (time_ns <= busy_until_ns_ && !back)) return;
    if (desk_.passed(camera_, std::max(time_ns, busy_until_ns_ + 1))) busy_until_ns_ = 0;
}

void PictureTap::forgetEnded(const TrackFrame& frame) {
    for (const Track& track : frame.tracks)
        if (track.state == TrackState::kEnded && sent_.erase(track.number) > 0) desk_.trackEnded(camera_, track.number);
}

void PictureTap::ruled(const RuleResults& results) {
    for (const CameraEvent& event : results.events) {
        if (!hasPicture(event)) continue;
        desk_.event(camera_, event);
        wanted_ = wanted_ || event.kind == EventKind::kScene || event.kind == EventKind::kExternal ||
                  event.kind == EventKind::kRemoved;
        if (!event.end_ns) {
            running_.insert(event.number);
            continue;
        }
        running_.erase(event.number);
        busy_until_ns_ = std::max(busy_until_ns_, *event.end_ns + CameraPictures::kAfterNs);
    }
}

void PictureTap::finish() {
    desk_.finish(camera_, may_wait_ ? kEndPatience : 0);
}

}  // namespace fleifeisa::host
