#include "tracks/raw_tracks.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace fleifeisa::host {
namespace {

/// Where the object is, for a track that is seen in it.
void place(Track& track, const AnalyzerObject& object, std::int64_t time_ns) {
    track.box = {object.left, object.top, object.width, object.height};
    track.centre = {object.left + object.width / 2.0, object.top + object.height / 2.0};
    track.objects = {object.id};
    track.area =
        static_cast<int>(std::int64_t{object.width} * object.height * std::clamp(object.density, 0, 100) / 100);
    track.seen_ns = time_ns;
    ++track.frames;
}

}  // namespace

void RawTracks::see(const AnalyzerObject& object, std::int64_t time_ns) {
    const auto [entry, fresh] = open_.try_emplace(object.id);
    Open& open = entry->second;
    if (!fresh && open.last == frames_) return tellLoose(object, time_ns);
    Track& track = open.track;
    const Point before = track.centre;
    const std::int64_t passed = time_ns - track.seen_ns;
    open.last = frames_;
    track.state = TrackState::kConfirmed;
    place(track, object, time_ns);
    if (fresh) {
        std::int64_t& next = next_number_.try_emplace(object.id, object.id).first->second;
        track.number = next;
        next += kRawNumberStep;
        track.start_ns = time_ns;
        track.birth = track.box;
    } else {
        const double dx = track.centre.x - before.x, dy = track.centre.y - before.y;
        track.path_px += std::sqrt(dx * dx + dy * dy);
        if (passed > 0)
            track.velocity = {dx * 1e9 / static_cast<double>(passed), dy * 1e9 / static_cast<double>(passed)};
    }
    told_.push_back(track);
}

void RawTracks::tellLoose(const AnalyzerObject& object, std::int64_t time_ns) {
    Track track;
    track.number = loose_ += kRawNumberStep;
    track.start_ns = time_ns;
    place(track, object, time_ns);
    told_.push_back(track);
}

TrackFrame RawTracks::frame(const FilterInput& input) {
    ++frames_;
    told_.clear();
    std::int64_t percents = 0;
    for (const AnalyzerObject& object : input.objects) {
        percents += std::int64_t{object.width} * object.height * std::clamp(object.density, 0, 100);
        if (object.id <= 0 || object.id >= kRawNumberStep)
            tellLoose(object, input.time_ns);
        else
            see(object, input.time_ns);
    }
    for (auto entry = open_.begin(); entry != open_.end();) {
        Open& open = entry->second;
        const bool seen = open.last == frames_, over = frames_ - open.last >= kRawGapFrames;
        if (!seen) {
            open.track.objects.clear();
            open.track.area = 0;
            open.track.state = over ? TrackState::kEnded : TrackState::kCoasting;
            if (over) open.track.ended = TrackEnd::kLost;
            (over ? ended_ : told_).push_back(open.track);
        }
        entry = over ? open_.erase(entry) : std::next(entry);
    }
    std::ranges::sort(ended_, {}, &Track::number);
    told_.insert(told_.end(), ended_.begin(), ended_.end());
    ended_.clear();
    latest_.time_ns = input.time_ns;
    latest_.width = input.width;
    latest_.height = input.height;
    latest_.scene = input.detection ? SceneState::kWatching : SceneState::kLearning;
    TrackFrame result = latest_;
    result.tracks = told_;
    const double whole = 100.0 * input.width * input.height;
    result.foreground = whole > 0 ? std::min(1.0, static_cast<double>(percents) / whole) : 0;
    return result;
}

void RawTracks::closeAll(TrackEnd why) {
    for (auto& [id, open] : open_) {
        open.track.state = TrackState::kEnded;
        open.track.ended = why;
        open.track.objects.clear();
        open.track.area = 0;
        ended_.push_back(open.track);
    }
    open_.clear();
}

void RawTracks::analyzerRestarted() {
    closeAll(TrackEnd::kLost);
}

TrackFrame RawTracks::end(TrackEnd why) {
    closeAll(why);
    told_ = std::exchange(ended_, {});
    std::ranges::sort(told_, {}, &Track::number);
    TrackFrame result = latest_;
    result.tracks = told_;
    return result;
}

}  // namespace fleifeisa::host
