#include "recorder/transcoder.h"

#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <system_error>

#include "common/text.h"

namespace fleifeisa::host {
namespace {

constexpr int kNice = 10;
constexpr std::size_t kLongestLine = 2000;

}  // namespace

Transcoder::Transcoder(const std::vector<std::string>& arguments, bool fed, const Event& stop) : stop_(stop) {
    if (findProgram("ffmpeg").empty())
        throw ClipError("clips need ffmpeg, which was not found in PATH (Debian package ffmpeg)");
    Process::Options options;
    options.argv = {"ffmpeg", "-nostdin", "-hide_banner", "-nostats", "-loglevel", "level+info", "-y"};
    options.argv.insert(options.argv.end(), arguments.begin(), arguments.end());
    options.pipe_in = fed;
    options.pipe_err = true;
    options.nice = kNice;
    try {
        process_ = Process(options);
    } catch (const std::system_error& error) {
        throw ClipError(std::string("ffmpeg cannot be started: ") + error.what());
    }
}

void Transcoder::feed(std::span<const std::uint8_t> bytes) {
    Clock::time_point deadline = Clock::now() + seconds(kStallSeconds);
    while (!bytes.empty()) {
        std::array<pollfd, 3> items = {
            {{process_.in.get(), POLLOUT, 0}, {process_.err.get(), POLLIN, 0}, {stop_.fd(), POLLIN, 0}}};
        const int ready = ::poll(items.data(), items.size(), pollTimeout(deadline));
        if (ready < 0 && errno == EINTR) continue;
        if (ready == 0) fail("ffmpeg takes nothing more");
        if (items[2].revents != 0) fail("stopped");
        if (items[1].revents != 0) readMessages();
        if (items[0].revents == 0) continue;
        const ssize_t count = ::write(process_.in.get(), bytes.data(), bytes.size());
        if (count < 0 && (errno == EINTR || errno == EAGAIN)) continue;
        if (count < 0) fail("ffmpeg ended early");
        bytes = bytes.subspan(static_cast<std::size_t>(count));
        deadline = Clock::now() + seconds(kStallSeconds);
    }
}

void Transcoder::finish() {
    process_.in.reset();
    // It closes its messages at its end; while it works on a long file it says nothing, which is no stall.
    while (process_.err) {
        std::array<pollfd, 2> items = {{{process_.err.get(), POLLIN, 0}, {stop_.fd(), POLLIN, 0}}};
        if (::poll(items.data(), items.size(), -1) < 0) continue;
        if (items[1].revents != 0) fail("stopped");
        readMessages();
    }
    const auto status = process_.wait(Clock::now() + seconds(kStallSeconds));
    if (!status) fail("ffmpeg does not come to an end");
    if (*status != 0) fail("ffmpeg failed with " + describeStatus(*status));
}

void Transcoder::readMessages() {
    std::array<char, 4096> chunk{};
    for (;;) {
        const ssize_t count = ::read(process_.err.get(), chunk.data(), chunk.size());
        if (count < 0 && errno == EINTR) continue;
        if (count == 0) process_.err.reset();
        if (count <= 0) return;
        for (std::size_t i = 0; i < static_cast<std::size_t>(count); ++i) {
            if (chunk[i] != '\n') {
                if (line_.size() < kLongestLine) line_ += chunk[i];
                continue;
            }
            if (line_.find("[error]") != std::string::npos || line_.find("[fatal]") != std::string::npos)
                last_error_ = line_;
            // "Stream #0:0[0x100]: Video: h264 (High) ([27][0][0][0] / 0x001B), yuv420p(progressive), 320x240 [SAR ..."
            const std::size_t video = line_.find("Video: ");
            for (std::size_t at = line_.find(", ", video); width_ == 0 && video != std::string::npos;
                 at = line_.find(", ", at + 2)) {
                if (at == std::string::npos) break;
                if (std::sscanf(line_.c_str() + at + 2, "%5dx%5d", &width_, &height_) != 2) width_ = height_ = 0;
            }
            line_.clear();
        }
    }
}

void Transcoder::fail(const std::string& why) {
    if (process_.err && !process_.in) readMessages();
    process_.kill();
    const std::string said = cleanUtf8(last_error_);
    throw ClipError(why + (said.empty() ? "" : " (" + said + ")"));
}

}  // namespace fleifeisa::host
