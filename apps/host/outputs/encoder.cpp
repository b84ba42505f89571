#include "outputs/encoder.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <system_error>

#include "common/text.h"
#include "outputs/output.h"

namespace fleifeisa::host {
namespace {

/// An encoder that takes nothing for this long is given up.
constexpr double kStalledSeconds = 60;
constexpr std::size_t kMaxMessages = 2000;

std::vector<std::string> arguments(const std::string& path, double rate, int width, int height) {
    const std::string size = std::to_string(width) + "x" + std::to_string(height);
    const std::string frames = fixedPoint(std::max<std::int64_t>(1, std::llround(rate * 1000)), 3);
    return {"ffmpeg", "-nostdin", "-hide_banner", "-loglevel", "error", "-y",
            // what comes through the pipe
            "-f", "rawvideo", "-pixel_format", "yuv420p", "-video_size", size, "-framerate", frames, "-i", "pipe:0",
            // what goes into the file
            "-c:v", "libx264", "-preset", "veryfast", "-crf", "21", "-threads", "1", "-pix_fmt", "yuv420p",
            "-colorspace", "bt709", "-color_primaries", "bt709", "-color_trc", "bt709", "-color_range", "tv",
            "-map_metadata", "-1", "-fflags", "+bitexact", "-flags:v", "+bitexact", "-movflags", "+faststart", "-f",
            "mp4", "file:" + path};
}

int even(int value) {
    return value + value % 2;
}

}  // namespace

Encoder::Encoder(std::string path, const FilePolicy& policy)
    : file_(path, WriteMode::kWhole, policy), path_(std::move(path)) {
    if (findProgram("ffmpeg").empty())
        throw OutputError(path_ +
                          ": annotated video needs ffmpeg, which was not found in PATH (Debian package ffmpeg)");
}

void Encoder::start(int width, int height, double rate) {
    Process::Options options;
    options.argv = arguments(file_.workPath(), rate, even(width), even(height));
    options.pipe_in = options.pipe_err = options.survives = true;
    try {
        ffmpeg_.emplace(options);
    } catch (const std::system_error& error) {
        fail(std::string("ffmpeg cannot be started: ") + error.what());
    }
}

/// BT.709, limited range, in whole numbers. Sizes that are not even are filled up with the last column and row.
void Encoder::convert(std::span<const std::uint8_t> rgb, int width, int height) {
    const int wide = even(width), high = even(height);
    const auto pixels = static_cast<std::size_t>(wide) * static_cast<std::size_t>(high);
    planes_.resize(pixels + pixels / 2);
    std::uint8_t* luma = planes_.data();
    std::uint8_t* blue = luma + pixels;
    std::uint8_t* red = blue + pixels / 4;
    for (int y = 0; y < high; y += 2) {
        for (int x = 0; x < wide; x += 2) {
            int sum[3] = {0, 0, 0};
            for (int i = 0; i < 4; ++i) {
                const int column = x + i % 2, row = y + i / 2;
                const int from = (std::min(row, height - 1) * width + std::min(column, width - 1)) * 3;
                const std::uint8_t* p = &rgb[static_cast<std::size_t>(from)];
                luma[static_cast<std::size_t>(row * wide + column)] =
                    static_cast<std::uint8_t>(16 + ((47 * p[0] + 157 * p[1] + 16 * p[2] + 128) >> 8));
                for (int c = 0; c < 3; ++c) sum[c] += p[c];
            }
            // Four pixels: 2 bits more than the 8 of the factors.
            *blue++ = static_cast<std::uint8_t>(((128 << 10) - 26 * sum[0] - 86 * sum[1] + 112 * sum[2] + 512) >> 10);
            *red++ = static_cast<std::uint8_t>(((128 << 10) + 112 * sum[0] - 102 * sum[1] - 10 * sum[2] + 512) >> 10);
        }
    }
}

void Encoder::frame(std::span<const std::uint8_t> rgb, int width, int height, double rate) {
    if (!ffmpeg_) start(width, height, rate);
    convert(rgb, width, height);
    send();
}

void Encoder::send() {
    std::size_t sent = 0;
    Clock::time_point deadline = Clock::now() + seconds(kStalledSeconds);
    while (sent < planes_.size()) {
        pollfd items[2] = {{ffmpeg_->in.get(), POLLOUT, 0}, {ffmpeg_->err.get(), POLLIN, 0}};
        const int ready = ::poll(items, 2, pollTimeout(deadline));
        if (ready < 0 && errno == EINTR) continue;
        if (ready == 0) fail("ffmpeg takes no more pictures");
        if (items[1].revents) readMessages();
        if (!items[0].revents) continue;
        const ssize_t count = ::write(ffmpeg_->in.get(), planes_.data() + sent, planes_.size() - sent);
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count < 0) fail("ffmpeg ended early");
        sent += static_cast<std::size_t>(count);
        deadline = Clock::now() + seconds(kStalledSeconds);
    }
}

void Encoder::readMessages() {
    char text[512];
    for (;;) {
        const ssize_t count = ::read(ffmpeg_->err.get(), text, sizeof text);
        if (count < 0 && errno == EINTR) continue;
        if (count == 0) ffmpeg_->err.reset();  // or poll would return at once for ever
        if (count <= 0) return;
        messages_.append(text, static_cast<std::size_t>(count));
        if (messages_.size() > kMaxMessages) messages_.erase(0, messages_.size() - kMaxMessages);
    }
}

void Encoder::finish() {
    if (finished_) return;
    finished_ = true;
    if (!ffmpeg_) return file_.discard();
    ffmpeg_->in.reset();
    const std::optional<int> status = ffmpeg_->wait(Clock::now() + seconds(kStalledSeconds));
    if (!status) fail("ffmpeg does not come to an end");
    if (*status != 0) fail("ffmpeg failed with " + describeStatus(*status));
    file_.close();
}

void Encoder::fail(const std::string& why) {
    finished_ = true;
    if (ffmpeg_ && ffmpeg_->err) {
        ffmpeg_->in.reset();
        static_cast<void>(ffmpeg_->wait(Clock::now() + seconds(2)));  // its last words
        readMessages();
    }
    ffmpeg_.reset();  // before the file it writes goes
    file_.discard();
    std::string said = messages_.substr(0, messages_.find_last_not_of("\r\n") + 1);
    std::replace(said.begin(), said.end(), '\n', ';');
    said = cleanUtf8(said);
    throw OutputError(path_ + ": " + why + (said.empty() ? "" : " (" + said + ")"));
}

}  // namespace fleifeisa::host
