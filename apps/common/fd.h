// File descriptors with an owner, and an event that wakes a poll.
#pragma once

#include <sys/eventfd.h>
#include <unistd.h>

#include <chrono>
#include <cstdint>
#include <utility>

namespace fleifeisa {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

class Fd {
 public:
    Fd() = default;
    explicit Fd(int fd) : fd_(fd) {}
    Fd(Fd&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
    Fd& operator=(Fd&& other) noexcept {
        std::swap(fd_, other.fd_);
        return *this;
    }
    ~Fd() { reset(); }

    int get() const { return fd_; }
    explicit operator bool() const { return fd_ >= 0; }
    /// The caller closes it from now on.
    int release() { return std::exchange(fd_, -1); }
    void reset() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

 private:
    int fd_ = -1;
};

/// An event other threads set and a poll waits for. Stays set until cleared.
class Event {
 public:
    Event() : fd_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

    int fd() const { return fd_.get(); }
    void set() const {
        const std::uint64_t one = 1;
        if (::write(fd_.get(), &one, sizeof one) < 0) return;  // only when the counter is full: set already
    }
    void clear() const {
        std::uint64_t count = 0;
        if (::read(fd_.get(), &count, sizeof count) < 0) return;  // was not set
    }

 private:
    Fd fd_;
};

/// Milliseconds for poll() until `deadline`, rounded up, at least 0.
inline int pollTimeout(Clock::time_point deadline) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left < 0 ? 0 : left > 3'600'000 ? 3'600'000 : static_cast<int>(left);
}

inline Clock::duration seconds(double value) {
    return std::chrono::duration_cast<Clock::duration>(Seconds(value));
}

}  // namespace fleifeisa
