#include "media/camera_pictures.h"

#include <algorithm>
#include <utility>

#include "common/canvas.h"
#include "media/best_view.h"
#include "outputs/track_colours.h"

namespace fleifeisa::host {
namespace {

constexpr int kQuality = 88, kThumbQuality = 82;
constexpr int kThumbWidth = 320, kThumbHeight = 180;
constexpr double kMuchBetter = 1.5;  ///< worth another picture of an event that runs
constexpr std::int64_t kAgainNs = 10'000'000'000;
constexpr std::size_t kMostViews = 500;  ///< tracks whose end nobody told, where messages were left out
constexpr std::size_t kMostOpen = 200;   ///< events at once; the oldest are closed beyond

StoredMedia described(MediaKind kind, std::int64_t time_ns, int width, int height, std::string details = "") {
    return {kind, "", 0, time_ns, time_ns, width, height, std::move(details)};
}

std::string boxText(const Box& box) {
    return "{\"box\":[" + std::to_string(box.left) + ',' + std::to_string(box.top) + ',' + std::to_string(box.width) +
           ',' + std::to_string(box.height) + "]}";
}

}  // namespace

bool hasPicture(const CameraEvent& event) {
    switch (event.kind) {
        case EventKind::kAnalyzer:
        case EventKind::kGap:
        case EventKind::kClock:
            return false;
        case EventKind::kScene:
            return event.change != "lost";
        default:
            return true;
    }
}

/// A visit shows the best of all its tracks.
bool CameraPictures::concerns(const CameraEvent& event, std::int64_t track) {
    return event.kind == EventKind::kMotion || (event.track == track && event.kind != EventKind::kRemoved);
}

void CameraPictures::trackEnded(std::int64_t track) {
    const auto found = views_.find(track);
    if (found == views_.end()) return;
    const View view = std::move(found->second);
    views_.erase(found);
    if (keep_track_) keep_track_(track, thumbOf(view, pictureOf(*view.jpeg)));
}

void CameraPictures::passed(std::int64_t time_ns) {
    for (auto it = open_.begin(); it != open_.end();) {
        if (time_ns <= it->second.until_ns) {
            ++it;
            continue;
        }
        close(it->second);
        it = open_.erase(it);
    }
}

void CameraPictures::frame(const PictureFrame& frame) {
    passed(frame.time_ns);
    const PictureView picture{frame.width, frame.height, frame.rgb};
    View view{nullptr, frame.width, frame.height, {}, 0, frame.time_ns, 0};
    const auto encoded = [&] {
        if (!view.jpeg) view.jpeg = std::make_shared<const std::string>(jpegOf(picture, kQuality));
    };
    for (const Candidate& candidate : frame.candidates) {
        encoded();
        view.track = candidate.track;
        view.box = candidate.box;
        view.score = candidate.score;
        if (views_.size() > kMostViews) views_.erase(views_.begin());
        View& best = views_[candidate.track];
        if (view.score > best.score) best = view;
        for (auto& [number, open] : open_)
            if (concerns(open.event, candidate.track)) offer(open, view);
    }
    for (auto& [number, open] : open_) {
        if (!std::exchange(open.wants_frame, false)) continue;
        encoded();
        view.track = 0;
        view.box = open.event.box;
        if (open.event.width != frame.width || open.event.height != frame.height) view.box.reset();
        view.score = 1;
        offer(open, view);
    }
    if (!frame.tile) return;
    const SharedTile tile = tileOf(picture, frame.time_ns);
    recent_.push_back(tile);
    while (recent_.front()->time_ns < frame.time_ns - kBeforeNs || recent_.front()->time_ns > frame.time_ns)
        recent_.pop_front();
    for (auto& [number, open] : open_) open.strip.add(tile);
}

void CameraPictures::event(const CameraEvent& event) {
    if (!hasPicture(event)) return;
    auto found = open_.find(event.number);
    if (found == open_.end()) {
        if (event.state != EventState::kStart) return;  // told of before this run, or closed as one too many
        if (open_.size() >= kMostOpen) {
            close(open_.begin()->second);
            open_.erase(open_.begin());
        }
        found = open_.try_emplace(event.number).first;
        Open& open = found->second;
        open.event = event;
        open.wants_frame = event.kind != EventKind::kMotion && (event.track == 0 || event.kind == EventKind::kRemoved);
        for (const SharedTile& tile : recent_)
            if (tile->time_ns >= event.start_ns - kBeforeNs) open.strip.add(tile);
        for (const auto& [track, view] : views_)
            if (concerns(event, track)) offer(open, view);
    }
    Open& open = found->second;
    open.event = event;
    if (event.end_ns) open.until_ns = std::max(*event.end_ns, event.start_ns) + kAfterNs;
}

void CameraPictures::offer(Open& open, const View& view) {
    if (open.best && view.score <= open.best->score) return;
    open.best = view;
    const bool first = open.kept_score == 0;
    const bool worth = open.best->score >= kMuchBetter * open.kept_score && view.time_ns - open.kept_ns >= kAgainNs;
    if (first || worth) keepBest(open);
}

MadePicture CameraPictures::thumbOf(const View& view, const Picture& picture) {
    const PictureView plain{picture.width, picture.height, picture.rgb};
    const Cut cut = view.box ? thumbnailCut(plain, *view.box) : Cut{0, 0, plain.width, plain.height};
    const Picture thumb = reduced(plain, cut, kThumbWidth, kThumbHeight);
    return {described(MediaKind::kThumb, view.time_ns, thumb.width, thumb.height), jpegOf(thumb, kThumbQuality)};
}

void CameraPictures::keepBest(Open& open) {
    const View& view = *open.best;
    const std::string where = view.box ? boxText(*view.box) : "";
    std::vector<MadePicture> made;
    made.push_back({described(MediaKind::kPicture, view.time_ns, view.width, view.height, where), *view.jpeg});
    Picture picture = pictureOf(*view.jpeg);
    made.push_back(thumbOf(view, picture));
    if (view.box) {
        Canvas canvas(picture.rgb, picture.width, picture.height);
        const int thick = std::clamp(picture.height / 240, 1, 6);
        const Box& box = *view.box;
        canvas.box(box.left - thick - 1, box.top - thick - 1, box.width + 2 * thick + 2, box.height + 2 * thick + 2,
                   {0, 0, 0}, thick + 2);
        canvas.box(box.left - thick, box.top - thick, box.width + 2 * thick, box.height + 2 * thick,
                   trackColour(view.track), thick);
        made.push_back({described(MediaKind::kBox, view.time_ns, picture.width, picture.height, where),
                        jpegOf(picture, kQuality)});
    }
    open.kept_score = view.score;
    open.kept_ns = view.time_ns;
    keep_(open.event, std::move(made));
}

void CameraPictures::close(Open& open) {
    if (open.best && open.best->score > open.kept_score) keepBest(open);
    if (open.strip.empty()) return;
    Filmstrip::Strip strip = open.strip.strip();
    std::vector<MadePicture> made;
    made.push_back({{MediaKind::kStrip, "", 0, strip.start_ns, strip.end_ns, strip.width, strip.height, strip.details},
                    std::move(strip.jpeg)});
    keep_(open.event, std::move(made));
}

void CameraPictures::finish() {
    for (auto& [number, open] : open_) close(open);
    open_.clear();
    views_.clear();
    recent_.clear();
}

}  // namespace fleifeisa::host
