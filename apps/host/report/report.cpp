#include "report/report.h"

#include <algorithm>
#include <cmath>

#include "outputs/shown.h"

namespace fleifeisa::host {
namespace {

constexpr std::size_t kMaxTracks = 1000, kKeptTracks = 800, kMaxSpans = 480, kMaxRestarts = 100, kMaxEvents = 1000;
constexpr int kThumbnailPixels = 96, kThumbnailQuality = 80, kBackgroundQuality = 82;

/// Half as many spans of twice the length.
void mergePairs(std::vector<ReportSpan>& spans) {
    for (std::size_t i = 0; 2 * i < spans.size(); ++i) {
        ReportSpan merged = spans[2 * i];
        if (2 * i + 1 < spans.size()) {
            const ReportSpan& next = spans[2 * i + 1];
            merged.end_ns = next.end_ns;
            merged.frames += next.frames;
            merged.learning += next.learning;
            merged.share_sum += next.share_sum;
            merged.share_max = std::max(merged.share_max, next.share_max);
            merged.tracks_max = std::max(merged.tracks_max, next.tracks_max);
        }
        spans[i] = merged;
    }
    spans.resize((spans.size() + 1) / 2);
}

/// Box with a margin, for the thumbnail.
Cut withMargin(const Box& box) {
    const int across = box.width / 8 + 3, down = box.height / 8 + 3;
    return {box.left - across, box.top - down, box.width + 2 * across, box.height + 2 * down};
}

bool touchesEdge(const FrameResult& result, const Box& box) {
    return box.left <= 0 || box.top <= 0 || box.right() >= result.width || box.bottom() >= result.height;
}

}  // namespace

ReportOutput::ReportOutput(const std::string& path, const CameraInfo& camera, const FilePolicy& policy)
    : file_(path, WriteMode::kWhole, policy) {
    data_.camera = camera.title.empty() ? camera.name : camera.title;
    data_.source = camera.source;
    data_.infrared = camera.infrared;
    data_.live = camera.live;
    data_.rate = camera.rate;
}

void ReportOutput::started(const CameraInfo& camera) {
    data_.raw = camera.tracks.raw;
    data_.rate = camera.rate;  // known by now
    rules_ = camera.rules;
    restarted_ = data_.frames > 0;
}

/// Time since the first frame. Sources that jump back in time (a stream that begins anew) stand still here until they
/// have caught up, so that nothing on the page overlaps.
std::int64_t ReportOutput::elapsed(const FrameResult& result) {
    if (data_.frames++ == 0) {
        data_.first_ns = result.time_ns;
        data_.width = result.width;
        data_.height = result.height;
        placeShapes();
        return 0;
    }
    const std::int64_t now = std::max(now_ns_, result.time_ns - data_.first_ns);
    last_step_ns_ = now - now_ns_;
    return now;
}

void ReportOutput::addSpan(const FrameResult& result, std::int64_t now) {
    std::vector<ReportSpan>& spans = data_.spans;
    if (!spans.empty()) spans.back().end_ns = now;
    if (spans.empty() || spans.back().frames + spans.back().learning >= span_frames_) {
        if (spans.size() >= kMaxSpans) {
            mergePairs(spans);
            span_frames_ *= 2;
        }
        spans.push_back({});
        spans.back().start_ns = spans.back().end_ns = now;
    }
    ReportSpan& span = spans.back();
    if (!result.detection) {
        ++span.learning;
        return;
    }
    const std::int64_t share = std::llround(result.tracks.foreground * 1e6);  // millionths
    ++span.frames;
    span.share_sum += share;
    span.share_max = std::max(span.share_max, share);
    span.tracks_max = std::max<std::int64_t>(span.tracks_max, std::ranges::count_if(result.tracks.tracks, isShown));
}

Point ReportOutput::inFirstSize(const FrameResult& result, Point point) const {
    if (result.width == data_.width && result.height == data_.height) return point;
    return {point.x * data_.width / std::max(1, result.width), point.y * data_.height / std::max(1, result.height)};
}

void ReportOutput::addSighting(const FrameResult& result, const Track& track, std::int64_t now) {
    Open& open = open_[track.number];
    // It was seen for a moment before it was confirmed.
    if (open.track.path.sightings() == 0)
        open.track.start_ns = std::max<std::int64_t>(0, now - (result.time_ns - track.start_ns));
    open.track.number = track.number;
    open.track.end_ns = now;
    open.track.path.add(result.time_ns, inFirstSize(result, track.centre));
    std::int64_t score = 1 + std::int64_t{100} * track.area;
    if (touchesEdge(result, track.box)) score = (score + 1) / 2;
    // A little larger is not worth another picture.
    if (score * 8 < open.score * 9 || score == open.score) return;
    open.score = score;
    open.track.box_width = track.box.width;
    open.track.box_height = track.box.height;
    open.thumbnail =
        reduced({result.width, result.height, result.rgb}, withMargin(track.box), kThumbnailPixels, kThumbnailPixels);
}

void ReportOutput::frame(const FrameResult& result) {
    const std::int64_t now = elapsed(result);
    now_ns_ = now;
    data_.dropped += result.dropped;
    if (result.detection) ++data_.detected;
    if (restarted_) {
        ++data_.restarts;
        if (data_.restarts_ns.size() < kMaxRestarts) data_.restarts_ns.push_back(now);
        restarted_ = false;
    }
    addSpan(result, now);
    if (result.width == data_.width && result.height == data_.height)
        background_.add({result.width, result.height, result.rgb});
    else
        data_.size_changed = true;
    for (const Track& track : result.tracks.tracks) {
        if (isLoose(track))
            ++data_.loose_objects;
        else if (isSeen(track, result.time_ns))
            addSighting(result, track, now);
    }
    closeEnded(result.tracks);
}

void ReportOutput::closeEnded(const TrackFrame& frame) {
    for (const Track& track : frame.tracks)
        if (track.state == TrackState::kEnded) close(track.number);
}

void ReportOutput::close(std::int64_t number) {
    const auto found = open_.find(number);
    if (found == open_.end()) return;
    found->second.track.thumbnail = jpegOf(found->second.thumbnail, kThumbnailQuality);
    data_.tracks.push_back(std::move(found->second.track));
    open_.erase(found);
    if (data_.tracks.size() > kMaxTracks) leaveOutBriefest();
}

void ReportOutput::leaveOutBriefest() {
    std::stable_sort(data_.tracks.begin(), data_.tracks.end(), [](const ReportTrack& a, const ReportTrack& b) {
        return a.path.sightings() > b.path.sightings();
    });
    data_.tracks_left_out += static_cast<std::int64_t>(data_.tracks.size() - kKeptTracks);
    data_.tracks.resize(kKeptTracks);
}

/// From shares of the source picture to pixels of the first frame.
void ReportOutput::placeShapes() {
    const auto placed = [this](Point share) {
        const PictureMap& map = rules_.start.map;
        return Point{(share.x - map.left) / map.width * data_.width, (share.y - map.top) / map.height * data_.height};
    };
    for (const ZoneRule& zone : rules_.rules.zones) {
        ReportShape shape{zone.name, false, {}, 0, 0};
        for (const Point& point : zone.points) shape.points.push_back(placed(point));
        data_.shapes.push_back(std::move(shape));
    }
    for (const LineRule& line : rules_.rules.lines)
        data_.shapes.push_back({line.name, true, {placed(line.from), placed(line.to)}, 0, 0});
}

void ReportOutput::ruled(const RuleResults& results) {
    for (const Crossing& crossing : results.crossings)
        for (ReportShape& shape : data_.shapes)
            if (shape.line && shape.name == crossing.line) ++(crossing.forward ? shape.forward : shape.backward);
    for (const CameraEvent& event : results.events) {
        const auto [row, fresh] = event_rows_.try_emplace(event.number, data_.events.size());
        if (fresh && data_.events.size() >= kMaxEvents) {
            event_rows_.erase(row);
            if (event.state == EventState::kStart) ++data_.events_left_out;
            continue;
        }
        if (fresh) data_.events.emplace_back();
        ReportEvent& shown = data_.events[row->second];
        if (!event.change.empty() && !shown.changes.ends_with(event.change))
            shown.changes += (shown.changes.empty() ? "" : ", ") + event.change;
        shown.number = event.number;
        shown.track = event.track;
        shown.start_ns = std::max<std::int64_t>(0, event.start_ns - data_.first_ns);
        shown.end_ns = event.end_ns ? std::max(shown.start_ns, *event.end_ns - data_.first_ns) : -1;
        shown.kind = nameOf(event.kind);
        shown.rule = event.rule;
        shown.value = event.value ? valueText(*event.value) : "";
        shown.reason = event.text.empty() ? event.reason : event.text;
        shown.held = event.held;
    }
}

void ReportOutput::finish() {
    if (finished_) return;
    finished_ = true;
    while (!open_.empty()) close(open_.begin()->first);
    // The last frame is shown as long as the one before it.
    const std::int64_t step = last_step_ns_ > 0 ? last_step_ns_ : data_.rate > 0 ? std::llround(1e9 / data_.rate) : 0;
    data_.duration_ns = data_.frames > 0 ? now_ns_ + step : 0;
    if (!data_.spans.empty()) data_.spans.back().end_ns = data_.duration_ns;
    std::sort(data_.tracks.begin(), data_.tracks.end(), [](const ReportTrack& a, const ReportTrack& b) {
        return a.start_ns != b.start_ns ? a.start_ns < b.start_ns : a.number < b.number;
    });
    data_.background_samples = background_.samples();
    if (data_.background_samples > 0) data_.background = jpegOf(background_.median(), kBackgroundQuality);
    file_.write(reportPage(data_));
    file_.endRecord();
    file_.close();
}

}  // namespace fleifeisa::host
