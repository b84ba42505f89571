#include "store/camera_keeper.h"

#include <algorithm>

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kMinuteNs = 60'000'000'000;
constexpr int kSide = ActivityMinute::kSide;

/// The cell of a share of the picture.
int cellOf(double share) {
    return std::clamp(static_cast<int>(share * kSide), 0, kSide - 1);
}

}  // namespace

void CameraKeeper::frame(const TrackFrame& frame, const PictureMap& map, bool seen) {
    if (seen) scene(frame.time_ns, frame.scene);
    for (const Track& track : frame.tracks)
        if (track.state != TrackState::kTentative) keepTrack(track, frame, map);
    if (seen) keepMinute(frame, map);
}

void CameraKeeper::scene(std::int64_t time_ns, SceneState state) {
    if (scene_ == state) return;
    scene_ = state;
    store_.scene(camera_, {time_ns, state});
}

void CameraKeeper::keepTrack(const Track& track, const TrackFrame& frame, const PictureMap& map) {
    if (track.state != TrackState::kEnded) {
        if (track.seen_ns != frame.time_ns) return;
        Open& open = open_[track.number];
        open.width = frame.width;
        open.height = frame.height;
        open.path.add({frame.time_ns, map.shareOf(track.foot(), frame.width, frame.height),
                       map.width * track.box.width / frame.width, map.height * track.box.height / frame.height});
        return;
    }
    const auto found = open_.find(track.number);
    if (found == open_.end()) return;
    const Open& open = found->second;
    store_.track(camera_,
                 {{track.number, track.split_from, track.ended, track.start_ns, frame.time_ns, open.path.points()},
                  track.frames,
                  track.path_px,
                  open.width,
                  open.height,
                  track.removed,
                  open.path.error()});
    open_.erase(found);
}

void CameraKeeper::keepMinute(const TrackFrame& frame, const PictureMap& map) {
    const std::int64_t minute = frame.time_ns / kMinuteNs;
    if (minute != minute_) finish();
    minute_ = minute;
    ++frames_;
    foreground_ += frame.foreground;
    std::array<bool, kSide * kSide> active{};
    for (const Track& track : frame.tracks) {
        if (track.state == TrackState::kTentative || track.seen_ns != frame.time_ns) continue;
        const auto share = [&](int x, int y) {
            return map.shareOf({static_cast<double>(x), static_cast<double>(y)}, frame.width, frame.height);
        };
        const Point least = share(track.box.left, track.box.top);
        const Point greatest = share(track.box.right() - 1, track.box.bottom() - 1);
        for (int y = cellOf(least.y); y <= cellOf(greatest.y); ++y)
            for (int x = cellOf(least.x); x <= cellOf(greatest.x); ++x)
                active[static_cast<std::size_t>(y * kSide + x)] = true;
    }
    for (std::size_t i = 0; i < active.size(); ++i) cells_[i] += active[i] ? 1 : 0;
}

void CameraKeeper::finish() {
    if (frames_ == 0) return;
    ActivityMinute minute{minute_, foreground_ / static_cast<double>(frames_), {}};
    for (std::size_t i = 0; i < cells_.size(); ++i)
        minute.grid[i] = static_cast<std::uint8_t>((255 * cells_[i] + frames_ / 2) / frames_);
    store_.minute(camera_, minute);
    frames_ = 0;
    foreground_ = 0;
    cells_.fill(0);
}

}  // namespace fleifeisa::host
