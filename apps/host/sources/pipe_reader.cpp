#include "sources/pipe_reader.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>

namespace fleifeisa::host {

/// What ffmpeg says comes in scraps, a dozen for each frame, and would wake this thread as often. It fits into its pipe
/// while data come; whoever needs it asks for it (drainErrors), and where no data come it is looked after all the same.
void PipeReader::waitForData() {
    constexpr std::chrono::milliseconds kErrorsWait{100};
    const Clock::time_point deadline = Clock::now() + stall_;
    for (bool errors_too = false;; errors_too = true) {
        std::array<pollfd, 4> items = {
            {{data_, POLLIN, 0}, {stop_.fd(), POLLIN, 0}, {also_, POLLIN, 0}, {errors_too ? errors_ : -1, POLLIN, 0}}};
        const Clock::time_point until = errors_too ? deadline : std::min(deadline, Clock::now() + kErrorsWait);
        const int ready = ::poll(items.data(), items.size(), pollTimeout(until));
        if (ready < 0 && errno == EINTR) continue;
        if (items[1].revents != 0) throw ReadEnd(ReadEnd::kStopped, "stopped");
        if (ready == 0 || items[3].revents != 0) drainErrors();
        if (items[2].revents != 0) drainAlso();
        if (items[0].revents != 0) return;
        if (Clock::now() >= deadline) throw ReadEnd(ReadEnd::kStalled, "no data in time");
    }
}

std::size_t PipeReader::receive(std::span<std::uint8_t> to) {
    for (;;) {
        const ssize_t count = ::read(data_, to.data(), to.size());
        if (count >= 0) return static_cast<std::size_t>(count);
        if (errno == EAGAIN)
            waitForData();
        else if (errno != EINTR)
            return 0;
    }
}

bool PipeReader::more() {
    if (begin_ == end_) {
        begin_ = 0;
        end_ = receive(buffer_);
    }
    return begin_ < end_;
}

std::uint8_t PipeReader::byte() {
    if (!more()) throw ReadEnd(ReadEnd::kEnd, "the data ends");
    ++position_;
    return buffer_[begin_++];
}

void PipeReader::read(std::span<std::uint8_t> to) {
    const std::size_t held = std::min(to.size(), end_ - begin_);
    std::copy_n(buffer_.begin() + static_cast<std::ptrdiff_t>(begin_), held, to.begin());
    begin_ += held;
    position_ += to.size();
    for (to = to.subspan(held); !to.empty();) {
        const std::size_t count = receive(to);
        if (count == 0) throw ReadEnd(ReadEnd::kEnd, "the data ends within a frame");
        to = to.subspan(count);
    }
}

void PipeReader::drainErrors() {
    constexpr std::size_t kLongestLine = 4096;
    std::array<char, 4096> chunk{};
    while (errors_ >= 0) {
        const ssize_t count = ::read(errors_, chunk.data(), chunk.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return;
        if (count == 0) errors_ = -1;  // closed: poll skips negative descriptors
        for (ssize_t i = 0; i < count; ++i) {
            const char c = chunk[static_cast<std::size_t>(i)];
            if (c == '\n' || c == '\r') {
                if (!line_.empty()) on_line_(line_);
                line_.clear();
            } else if (line_.size() < kLongestLine) {
                line_ += c;
            }
        }
        if (count < static_cast<ssize_t>(chunk.size())) return;  // that was all
    }
}

void PipeReader::finishAlso(Clock::time_point deadline) {
    for (drainAlso(); also_ >= 0 && Clock::now() < deadline; drainAlso()) {
        std::array<pollfd, 3> items = {{{also_, POLLIN, 0}, {stop_.fd(), POLLIN, 0}, {errors_, POLLIN, 0}}};
        ::poll(items.data(), items.size(), pollTimeout(deadline));
        if (items[1].revents != 0) return;
        drainErrors();
    }
}

void PipeReader::drainAlso() {
    also_buffer_.resize(1 << 16);
    while (also_ >= 0) {
        const ssize_t count = ::read(also_, also_buffer_.data(), also_buffer_.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) return;
        if (count == 0) also_ = -1;
        if (count > 0) taken_({also_buffer_.data(), static_cast<std::size_t>(count)});
    }
}

}  // namespace fleifeisa::host
