// The asker's end of the wire, without ever waiting for it: lines come in, answers go out.
#pragma once

#include <optional>
#include <string>

#include "explain/answer.h"

namespace fleifeisa::explain {

class Channel {
 public:
    /// @param fd  a socket or a pair of pipes under one number, not closed here; -1: nobody asks
    explicit Channel(int fd);

    int fd() const { return fd_; }
    bool open() const { return fd_ >= 0; }
    /// For poll: what to wait for. While an answer has not gone out whole, no question is taken.
    short events() const;
    /// A question has come in that turn() did not give yet.
    bool ready() const { return open() && outgoing_.empty() && incoming_.find('\n') != std::string::npos; }
    /// Sends what is left of an answer, or takes the next question if there is one. It closes where the other end has.
    std::optional<Question> turn();
    /// Of a question that turn() gave; at once as far as it goes.
    void send(std::uint32_t id, const Answer& answer);

 private:
    void write();
    void read();
    std::optional<Question> nextLine();
    void close() { fd_ = -1; }

    int fd_;
    std::string incoming_;   // at most a few lines
    bool skipping_ = false;  // the rest of a line that is too long
    std::string outgoing_;
    std::size_t sent_ = 0;  // of outgoing_
};

}  // namespace fleifeisa::explain
