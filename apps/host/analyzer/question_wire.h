// Questions to an analyzer that explains itself (docs/explain.md), without ever waiting for it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "common/fd.h"

namespace fleifeisa::host {

/// What it answered: JSON of one object, and the bytes of a layer where one was asked for.
struct QuestionAnswer {
    std::string json, layer;
};

class QuestionWire {
 public:
    static constexpr std::size_t kMostJson = 64 << 10, kMostLayer = 64 << 10;  ///< bytes; more is no such answer

    QuestionWire() = default;
    /// @param socket  non-blocking
    explicit QuestionWire(Fd socket) : socket_(std::move(socket)) {}

    bool open() const { return static_cast<bool>(socket_); }
    /// A question is under way.
    bool busy() const { return asked_ != 0; }
    /// One at a time. @param words  what stands behind the number: "0 cell 3 4"  @returns whether it was taken
    bool ask(const std::string& words);
    /// The answer to the latest question does not matter any more; another one may be asked.
    void forget() { asked_ = 0; }
    /// For poll, -1: there is nothing to wait for.
    int wantsRead() const { return socket_.get(); }
    /// Reads what is there. Whatever is no answer closes the wire; frames go on.
    void read();
    /// The answer to the latest question, once.
    std::optional<QuestionAnswer> take();

 private:
    bool parse();
    void close();

    Fd socket_;
    std::uint32_t last_ = 0, asked_ = 0;  // numbers of questions; 0: none
    std::string incoming_;
    std::optional<QuestionAnswer> answer_;
};

}  // namespace fleifeisa::host
