#include "recorder/frame_encoder.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <system_error>

#include "common/log.h"
#include "common/text.h"
#include "recorder/recorder.h"

namespace fleifeisa::host {
namespace {

constexpr int kNice = 5;  // behind analysis, before clips that nobody waits for
constexpr double kKeySeconds = 2, kUsualRate = 10;
// For what is still in the encoder. A live camera's end is part of a stop, which has little time.
constexpr Clock::duration kEndGrace = std::chrono::milliseconds(800), kLiveEndGrace = std::chrono::milliseconds(300);
constexpr Clock::duration kPatience = std::chrono::seconds(10);  // of a caller who may wait
constexpr Backoff::Limits kRetries = {1, 60, std::chrono::seconds(30)};
constexpr std::size_t kMostMessages = 1000;

/// Without B-frames and delay: frame for frame a picture comes out, in order, so that each is given the time of its
/// own. The rate is no more than a hint for the encoder.
std::vector<std::string> arguments(int width, int height, double rate) {
    const double known = rate > 0 ? rate : kUsualRate;
    const int group = std::clamp(static_cast<int>(std::lround(known * kKeySeconds)), 1, 250);
    return {"ffmpeg",
            "-nostdin",
            "-hide_banner",
            "-nostats",
            "-loglevel",
            "error",
            "-f",
            "rawvideo",
            "-pixel_format",
            "rgb24",
            "-video_size",
            std::to_string(width) + "x" + std::to_string(height),
            "-framerate",
            fixedPoint(std::max<std::int64_t>(1, std::llround(known * 1000)), 3),
            "-i",
            "pipe:0",
            "-vf",
            "scale=ceil(iw/2)*2:ceil(ih/2)*2:out_color_matrix=bt709:out_range=tv,format=yuv420p",
            "-colorspace",
            "bt709",
            "-color_range",
            "tv",
            "-c:v",
            "libx264",
            "-preset",
            "veryfast",
            "-tune",
            "zerolatency",
            "-bf",
            "0",
            "-crf",
            "23",
            "-g",
            std::to_string(group),
            "-threads",
            "1",
            "-fps_mode",
            "passthrough",
            "-muxdelay",
            "0",
            "-muxpreload",
            "0",
            "-mpegts_flags",
            "+pat_pmt_at_frames",
            "-flush_packets",
            "1",
            "-f",
            "mpegts",
            "pipe:1"};
}

std::int64_t ticks(std::int64_t ns) {
    return std::llround(static_cast<double>(ns) * kTicksPerSecond / 1e9) + 10 * kTicksPerSecond;
}

}  // namespace

FrameEncoder::FrameEncoder(Recorder& recorder, std::string camera, bool live, double rate)
    : recorder_(recorder),
      camera_(std::move(camera)),
      live_(live),
      rate_(rate),
      maker_([this](Segment segment) { recorder_.take(camera_, std::move(segment)); }),
      retries_(kRetries) {
    maker_.rewrite([this](std::span<std::uint8_t, kTsPacket> packet, TsPicture& picture) {
        if (under_way_.empty()) return;
        picture.pts = picture.dts = ticks(under_way_.front() - first_ns_);
        maker_.frame(picture.pts, under_way_.front());
        under_way_.pop_front();
        setPesTime(packet.subspan(payloadOf(packet)), picture.pts);
    });
    thread_ = std::thread(&FrameEncoder::run, this);
}

FrameEncoder::~FrameEncoder() {
    {
        const std::lock_guard lock(mutex_);
        ending_ = true;
    }
    wake_.set();
    room_.notify_all();
    thread_.join();
}

void FrameEncoder::frame(std::span<const std::uint8_t> rgb, int width, int height, std::int64_t time_ns) {
    std::unique_lock lock(mutex_);
    const auto has_room = [this] { return queue_.size() < kMostFrames || ending_; };
    if (!live_) room_.wait_for(lock, kPatience, has_room);
    if (!has_room()) {
        ++left_out_;
        return;
    }
    Picture picture{std::exchange(spare_, {}), width, height, time_ns};
    picture.rgb.assign(rgb.begin(), rgb.end());
    queue_.push_back(std::move(picture));
    wake_.set();
}

std::int64_t FrameEncoder::leftOut() const {
    const std::lock_guard lock(mutex_);
    return left_out_;
}

/// The next picture; false where there is none.
bool FrameEncoder::take() {
    const std::lock_guard lock(mutex_);
    wake_.clear();
    if (ending_) wake_.set();
    if (queue_.empty()) return false;
    picture_ = std::move(queue_.front());
    queue_.pop_front();
    sent_ = 0;
    fresh_ = true;
    room_.notify_all();
    return true;
}

void FrameEncoder::run() {
    for (;;) {
        if (!picture_ && !take()) {
            const std::lock_guard lock(mutex_);
            if (ending_ && queue_.empty()) break;
        }
        try {
            if (picture_ && std::exchange(fresh_, false)) {
                const bool goes_on = ffmpeg_ && picture_->width == width_ && picture_->height == height_ &&
                                     picture_->time_ns > latest_ns_;
                if (!goes_on) end();
                if (!ffmpeg_ && Clock::now() < retries_.nextTry()) {
                    picture_.reset();  // the encoder fails, this one is lost
                    continue;
                }
                if (!ffmpeg_) begin();
                latest_ns_ = picture_->time_ns;
                under_way_.push_back(latest_ns_);
            }
            step(true);
        } catch (const std::exception& error) {
            failed(error.what());
        }
    }
    end();
}

void FrameEncoder::begin() {
    retries_.began(Clock::now());
    Process::Options options;
    width_ = picture_->width;
    height_ = picture_->height;
    options.argv = arguments(width_, height_, rate_);
    options.pipe_in = options.pipe_out = options.pipe_err = true;
    options.nice = kNice;
    messages_.clear();
    ffmpeg_.emplace(options);
    first_ns_ = picture_->time_ns;
    run_ = recorder_.begin(camera_);
    recorder_.note(camera_, run_, first_ns_);
    maker_.begin(run_);
}

/// One wait and what comes of it. @param waiting  also for the next picture
void FrameEncoder::step(bool waiting) {
    std::array<pollfd, 4> items = {{{picture_ && ffmpeg_ ? ffmpeg_->in.get() : -1, POLLOUT, 0},
                                    {ffmpeg_ ? ffmpeg_->out.get() : -1, POLLIN, 0},
                                    {ffmpeg_ ? ffmpeg_->err.get() : -1, POLLIN, 0},
                                    {waiting && !picture_ ? wake_.fd() : -1, POLLIN, 0}}};
    constexpr int kLongest = 500;
    ::poll(items.data(), items.size(), kLongest);
    if (items[2].revents != 0) readMessages();
    if (items[1].revents != 0) readPackets();
    if (items[0].revents == 0) return;
    const ssize_t count = ::write(ffmpeg_->in.get(), picture_->rgb.data() + sent_, picture_->rgb.size() - sent_);
    if (count < 0 && errno != EAGAIN && errno != EINTR)
        throw std::system_error(errno, std::generic_category(), "ffmpeg");
    if (count > 0) sent_ += static_cast<std::size_t>(count);
    if (sent_ < picture_->rgb.size()) return;
    const std::lock_guard lock(mutex_);
    spare_ = std::move(picture_->rgb);
    picture_.reset();
}

void FrameEncoder::readPackets() {
    std::array<std::uint8_t, 1 << 16> bytes;
    for (;;) {
        const ssize_t count = ::read(ffmpeg_->out.get(), bytes.data(), bytes.size());
        if (count < 0 && errno == EINTR) continue;
        if (count == 0) ffmpeg_->out.reset();
        if (count <= 0) return;
        maker_.packets(std::span(bytes).first(static_cast<std::size_t>(count)));
    }
}

void FrameEncoder::readMessages() {
    std::array<char, 512> text{};
    const ssize_t count = ::read(ffmpeg_->err.get(), text.data(), text.size());
    if (count == 0) ffmpeg_->err.reset();
    if (count > 0 && messages_.size() < kMostMessages) messages_.append(text.data(), static_cast<std::size_t>(count));
}

/// What the encoder still has comes out.
void FrameEncoder::end() {
    if (!ffmpeg_) return;
    ffmpeg_->in.reset();
    const Clock::time_point deadline = Clock::now() + (live_ ? kLiveEndGrace : kEndGrace);
    auto later = std::exchange(picture_, std::nullopt);
    while (ffmpeg_->out && Clock::now() < deadline) step(false);
    picture_ = std::move(later);
    ffmpeg_.reset();
    maker_.end();
    recorder_.end(camera_, run_);
    under_way_.clear();
}

void FrameEncoder::failed(const std::string& why) {
    if (ffmpeg_ && ffmpeg_->err) readMessages();
    const std::string said = cleanUtf8(messages_.substr(0, messages_.find('\n')));
    logWarning(camera_, "its frames cannot be encoded: " + why + (said.empty() ? "" : " (" + said + ")"));
    picture_.reset();
    ffmpeg_.reset();
    maker_.end();
    recorder_.end(camera_, run_);
    under_way_.clear();
    retries_.failed(Clock::now());
}

}  // namespace fleifeisa::host
