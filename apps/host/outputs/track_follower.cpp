#include "outputs/track_follower.h"

#include <algorithm>

namespace fleifeisa::host {

std::int64_t TrackFollower::follow(const AnalyzerObject& object, std::int64_t sequence) {
    if (object.id <= 0 || object.id >= kTrackNumberStep) return loose_ += kTrackNumberStep;
    const auto [entry, fresh] = open_.try_emplace(object.id, Open{0, sequence});
    Open& track = entry->second;
    if (fresh) {
        std::int64_t& next = next_number_.try_emplace(object.id, object.id).first->second;
        track.number = next;
        next += kTrackNumberStep;
    } else if (track.last == sequence) {
        return loose_ += kTrackNumberStep;
    }
    track.last = sequence;
    return track.number;
}

void TrackFollower::endUnseen(std::int64_t before) {
    for (auto entry = open_.begin(); entry != open_.end();) {
        if (entry->second.last < before) {
            ended_.push_back(entry->second.number);
            entry = open_.erase(entry);
        } else {
            ++entry;
        }
    }
}

FollowedFrame TrackFollower::frame(const FrameResult& result) {
    numbers_.clear();
    ended_.clear();
    endUnseen(result.sequence - kTrackGapFrames);  // only after frames that are missing: the rest ended in time
    for (const AnalyzerObject& object : result.objects) numbers_.push_back(follow(object, result.sequence));
    endUnseen(result.sequence - kTrackGapFrames + 1);
    std::sort(ended_.begin(), ended_.end());
    return {numbers_, ended_};
}

std::span<const std::int64_t> TrackFollower::endAll() {
    ended_.clear();
    for (const auto& [id, track] : open_) ended_.push_back(track.number);
    open_.clear();
    std::sort(ended_.begin(), ended_.end());
    return ended_;
}

}  // namespace fleifeisa::host
