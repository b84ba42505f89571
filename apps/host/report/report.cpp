#include "report/report.h"

#include <algorithm>
#include <cmath>

namespace fleifeisa::host {
namespace {

constexpr std::size_t kMaxTracks = 1000, kKeptTracks = 800, kMaxSpans = 480, kMaxRestarts = 100;
constexpr int kThumbnailPixels = 96, kThumbnailQuality = 80, kBackgroundQuality = 82;

/// Part of the picture that the objects' foreground covers, in millionths.
std::int64_t foregroundShare(const FrameResult& result) {
    std::int64_t percents = 0;
    for (const AnalyzerObject& object : result.objects)
        percents += std::int64_t{object.width} * object.height * std::clamp(object.density, 0, 100);
    const std::int64_t whole = std::int64_t{result.width} * result.height;
    return whole > 0 ? std::min<std::int64_t>(1'000'000, percents * 10'000 / whole) : 0;
}

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
            merged.objects_max = std::max(merged.objects_max, next.objects_max);
        }
        spans[i] = merged;
    }
    spans.resize((spans.size() + 1) / 2);
}

/// Box with a margin, for the thumbnail.
Cut withMargin(const AnalyzerObject& object) {
    const int across = object.width / 8 + 3, down = object.height / 8 + 3;
    return {object.left - across, object.top - down, object.width + 2 * across, object.height + 2 * down};
}

bool touchesEdge(const FrameResult& result, const AnalyzerObject& object) {
    return object.left <= 0 || object.top <= 0 || object.left + object.width >= result.width ||
           object.top + object.height >= result.height;
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
    close(follower_.endAll());
    data_.rate = camera.rate;  // known by now
    restarted_ = data_.frames > 0;
}

/// Time since the first frame. Sources that jump back in time (a stream that begins anew) stand still here until they
/// have caught up, so that nothing on the page overlaps.
std::int64_t ReportOutput::elapsed(const FrameResult& result) {
    if (data_.frames++ == 0) {
        data_.first_ns = result.time_ns;
        data_.width = result.width;
        data_.height = result.height;
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
    const std::int64_t share = foregroundShare(result);
    ++span.frames;
    span.share_sum += share;
    span.share_max = std::max(span.share_max, share);
    span.objects_max = std::max(span.objects_max, static_cast<std::int64_t>(result.objects.size()));
}

AnalyzerObject ReportOutput::inFirstSize(const FrameResult& result, AnalyzerObject object) const {
    if (result.width == data_.width && result.height == data_.height) return object;
    const auto scale = [](int value, int to, int from) {
        return static_cast<int>(std::int64_t{value} * to / std::max(1, from));
    };
    object.left = scale(object.left, data_.width, result.width);
    object.width = std::max(1, scale(object.width, data_.width, result.width));
    object.top = scale(object.top, data_.height, result.height);
    object.height = std::max(1, scale(object.height, data_.height, result.height));
    return object;
}

void ReportOutput::addSighting(const FrameResult& result, const AnalyzerObject& object, std::int64_t number,
                               std::int64_t now) {
    Open& open = open_[number];
    if (open.track.path.sightings() == 0) open.track.start_ns = now;
    open.track.number = number;
    open.track.end_ns = now;
    open.track.path.add(result.sequence, inFirstSize(result, object));
    std::int64_t score = 1 + std::int64_t{object.width} * object.height * std::max(0, object.density);
    if (touchesEdge(result, object)) score = (score + 1) / 2;
    // A little larger is not worth another picture.
    if (score * 8 < open.score * 9 || score == open.score) return;
    open.score = score;
    open.track.box_width = object.width;
    open.track.box_height = object.height;
    open.thumbnail =
        reduced({result.width, result.height, result.rgb}, withMargin(object), kThumbnailPixels, kThumbnailPixels);
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
    const FollowedFrame followed = follower_.frame(result);
    close(followed.ended);
    for (std::size_t i = 0; i < result.objects.size(); ++i) {
        if (isTrack(followed.numbers[i]))
            addSighting(result, result.objects[i], followed.numbers[i], now);
        else
            ++data_.loose_objects;
    }
}

void ReportOutput::close(std::span<const std::int64_t> ended) {
    for (const std::int64_t number : ended) {
        Open& open = open_.at(number);
        open.track.thumbnail = jpegOf(open.thumbnail, kThumbnailQuality);
        data_.tracks.push_back(std::move(open.track));
        open_.erase(number);
    }
    if (data_.tracks.size() > kMaxTracks) leaveOutBriefest();
}

void ReportOutput::leaveOutBriefest() {
    std::stable_sort(data_.tracks.begin(), data_.tracks.end(), [](const ReportTrack& a, const ReportTrack& b) {
        return a.path.sightings() > b.path.sightings();
    });
    data_.tracks_left_out += static_cast<std::int64_t>(data_.tracks.size() - kKeptTracks);
    data_.tracks.resize(kKeptTracks);
}

void ReportOutput::finish() {
    if (finished_) return;
    finished_ = true;
    close(follower_.endAll());
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
