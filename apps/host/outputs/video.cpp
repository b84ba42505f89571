#include "outputs/video.h"

#include <algorithm>

#include "common/text.h"
#include "outputs/track_colours.h"

namespace fleifeisa::host {
namespace {

constexpr std::size_t kTrailPoints = 100;
constexpr double kUnknownRate = 10;
constexpr Rgb kBlack = {0, 0, 0}, kWhite = {255, 255, 255};

/// Size of a text's dots: about one fiftieth of the picture's height for a line.
int textScale(int height) {
    return std::clamp(height / 360, 1, 6);
}

}  // namespace

std::string captionOf(const FrameResult& result) {
    const std::string time = result.live ? rfc3339(result.time_ns).substr(11, 8) + " UTC" : clockTime(result.time_ns);
    std::string text = std::string(result.camera) + "  " + time + "  frame " + std::to_string(result.sequence);
    const SceneState scene = result.detection ? result.tracks.scene : SceneState::kLearning;
    return scene == SceneState::kWatching ? text : text + "  " + nameOf(scene);
}

VideoOutput::VideoOutput(const std::string& path, const CameraInfo& camera, const FilePolicy& policy)
    : path_(path), policy_(policy), retries_({policy.retry_seconds, 30, std::chrono::seconds(10)}), rate_(camera.rate) {
    if (!policy_.service) openEncoder();
}

/// Before the first picture and some time after a failure. @throws OutputError
void VideoOutput::openEncoder() {
    const Clock::time_point now = Clock::now();
    if (encoder_ || now < retries_.nextTry()) return;
    retries_.began(now);
    try {
        encoder_.emplace(path_, policy_);
    } catch (const OutputError&) {
        fail();
        throw;
    }
}

void VideoOutput::fail() {
    encoder_.reset();
    retries_.failed(Clock::now());
    ++lost_;
}

void VideoOutput::encode() {
    try {
        encoder_->frame(picture_, width_, height_, rate_);
    } catch (const OutputError&) {
        fail();
        throw;
    }
}

void VideoOutput::started(const CameraInfo& camera) {
    if (rate_ <= 0) rate_ = camera.rate;  // known by now, perhaps
    raw_ = camera.tracks.raw;
}

void VideoOutput::dropTrails(const TrackFrame& frame) {
    for (const Track& track : frame.tracks)
        if (track.state == TrackState::kEnded) trails_.erase(track.number);
}

VideoOutput::Pixel VideoOutput::toPicture(const FrameResult& result, int x, int y) const {
    if (shown_width_ == result.width && shown_height_ == result.height) return {left_ + x, top_ + y};
    return {left_ + static_cast<int>(std::int64_t{x} * shown_width_ / result.width),
            top_ + static_cast<int>(std::int64_t{y} * shown_height_ / result.height)};
}

void VideoOutput::paint(const FrameResult& result) {
    if (width_ == 0) {
        width_ = result.width;
        height_ = result.height;
    }
    if (result.width == width_ && result.height == height_) {
        left_ = top_ = 0;
        shown_width_ = width_;
        shown_height_ = height_;
        picture_.assign(result.rgb.begin(), result.rgb.end());
        return;
    }
    const bool wider = std::int64_t{result.width} * height_ > std::int64_t{width_} * result.height;
    shown_width_ = wider ? width_ : static_cast<int>(std::int64_t{result.width} * height_ / result.height);
    shown_height_ = wider ? static_cast<int>(std::int64_t{result.height} * width_ / result.width) : height_;
    shown_width_ = std::max(1, shown_width_);
    shown_height_ = std::max(1, shown_height_);
    left_ = (width_ - shown_width_) / 2;
    top_ = (height_ - shown_height_) / 2;
    picture_.assign(static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 3, 0);
    for (int y = 0; y < shown_height_; ++y) {
        const std::int64_t from = std::int64_t{y} * result.height / shown_height_ * result.width;
        const std::int64_t to = std::int64_t{top_ + y} * width_ + left_;
        for (int x = 0; x < shown_width_; ++x) {
            const std::int64_t column = std::int64_t{x} * result.width / shown_width_;
            std::copy_n(result.rgb.begin() + static_cast<std::ptrdiff_t>((from + column) * 3), 3,
                        picture_.begin() + static_cast<std::ptrdiff_t>((to + x) * 3));
        }
    }
}

void VideoOutput::label(Canvas& canvas, const Track& track, Pixel corner, int scale) const {
    // The last five digits of a raw number are the analyzer's id.
    const std::string text = std::to_string(raw_ ? track.number % kRawNumberStep : track.number);
    const int width = Canvas::textWidth(text, scale) + 4 * scale, height = Canvas::textHeight(scale) + 4 * scale;
    const int top = std::max(0, corner.y - height);
    const int left = std::clamp(corner.x, 0, std::max(0, width_ - width));
    canvas.fill(left, top, width, height, trackColour(track.number));
    canvas.text(left + 2 * scale, top + 2 * scale, text, kBlack, scale);
}

void VideoOutput::annotate(const FrameResult& result) {
    Canvas canvas(picture_, width_, height_);
    const int scale = textScale(height_), thick = scale;
    for (const auto& [number, trail] : trails_)
        for (std::size_t i = 1; i < trail.size(); ++i)
            canvas.line(trail[i - 1].x, trail[i - 1].y, trail[i].x, trail[i].y, trackColour(number), thick + 1,
                        // older points fade
                        static_cast<int>(64 + 192 * (kTrailPoints - (trail.size() - i)) / kTrailPoints));
    for (const Track& track : result.tracks.tracks) {
        if (!isShown(track)) continue;
        const Pixel corner = toPicture(result, track.box.left, track.box.top);
        const Pixel end = toPicture(result, track.box.right(), track.box.bottom());
        const int width = std::max(1, end.x - corner.x), height = std::max(1, end.y - corner.y);
        canvas.box(corner.x - 1, corner.y - 1, width + 2, height + 2, kBlack, 1);
        canvas.box(corner.x, corner.y, width, height, isLoose(track) ? kLooseColour : trackColour(track.number), thick);
        if (!isLoose(track)) label(canvas, track, corner, scale);
    }
    const std::string line = captionOf(result);
    const int height = Canvas::textHeight(scale) + 6 * scale;
    canvas.fill(0, height_ - height, Canvas::textWidth(line, scale) + 8 * scale, height, kBlack, 150);
    canvas.text(4 * scale, height_ - height + 3 * scale, line, kWhite, scale);
}

void VideoOutput::extendTrails(const FrameResult& result) {
    for (const Track& track : result.tracks.tracks) {
        if (!isSeen(track, result.time_ns) || isLoose(track)) continue;
        std::deque<Pixel>& trail = trails_[track.number];
        trail.push_back(toPicture(result, track.box.left + track.box.width / 2, track.box.bottom()));
        if (trail.size() > kTrailPoints) trail.pop_front();
    }
}

void VideoOutput::sendWaiting(std::int64_t now_ns) {
    if (!waiting_) return;
    waiting_ = false;
    const std::int64_t step = now_ns - waiting_since_ns_;
    rate_ = step > 0 ? std::clamp(1e9 / static_cast<double>(step), 0.1, 1000.0) : kUnknownRate;
    if (encoder_) encode();
}

void VideoOutput::frame(const FrameResult& result) {
    sendWaiting(result.time_ns);
    paint(result);
    dropTrails(result.tracks);
    extendTrails(result);
    annotate(result);
    openEncoder();
    if (!encoder_) {
        ++lost_;
        return;
    }
    if (rate_ > 0) return encode();
    waiting_ = true;
    waiting_since_ns_ = result.time_ns;
}

void VideoOutput::finish() {
    sendWaiting(waiting_since_ns_);
    if (encoder_) encoder_->finish();
}

}  // namespace fleifeisa::host
