#include "explain/channel.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <cerrno>

namespace fleifeisa::explain {

Channel::Channel(int fd) : fd_(fd) {
    if (fd_ < 0) return;
    const int flags = ::fcntl(fd_, F_GETFL);
    if (flags < 0 || ::fcntl(fd_, F_SETFL, flags | O_NONBLOCK) != 0) close();
}

short Channel::events() const {
    return outgoing_.empty() ? POLLIN : POLLOUT;
}

std::optional<Question> Channel::turn() {
    if (!outgoing_.empty()) write();
    if (!outgoing_.empty() || !open()) return std::nullopt;
    if (auto question = nextLine()) return question;
    read();
    return nextLine();
}

void Channel::send(std::uint32_t id, const Answer& answer) {
    outgoing_ += framed(id, answer);
    write();
}

void Channel::write() {
    while (open() && sent_ < outgoing_.size()) {
        const ssize_t count = ::write(fd_, outgoing_.data() + sent_, outgoing_.size() - sent_);
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && errno == EAGAIN) return;
        if (count < 0) return close();
        sent_ += static_cast<std::size_t>(count);
    }
    outgoing_.clear();
    sent_ = 0;
}

void Channel::read() {
    std::array<char, 2 * kMostLine> chunk{};
    ssize_t count = 0;
    do {
        count = ::read(fd_, chunk.data(), chunk.size());
    } while (count < 0 && errno == EINTR);
    if (count < 0 && errno == EAGAIN) return;
    if (count <= 0) return close();
    incoming_.append(chunk.data(), static_cast<std::size_t>(count));
}

/// The next whole line. One that is too long is answered as such as soon as that is known, and dropped to its end.
std::optional<Question> Channel::nextLine() {
    while (open() && outgoing_.empty()) {
        const std::size_t end = incoming_.find('\n');
        if (end == std::string::npos) {
            if (incoming_.size() <= kMostLine) return std::nullopt;
            incoming_.clear();
            if (!skipping_) send(0, errorAnswer("the line is too long"));
            skipping_ = true;
            return std::nullopt;
        }
        const std::string line = incoming_.substr(0, end);
        incoming_.erase(0, end + 1);
        if (std::exchange(skipping_, false)) continue;
        Question question;
        const std::string fault = line.size() > kMostLine ? "the line is too long" : parseQuestion(line, question);
        if (fault.empty()) return question;
        send(question.id, errorAnswer(fault));
    }
    return std::nullopt;
}

}  // namespace fleifeisa::explain
