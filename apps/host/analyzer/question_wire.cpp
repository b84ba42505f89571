#include "analyzer/question_wire.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <string_view>

namespace fleifeisa::host {
namespace {

constexpr std::size_t kMostHead = 40;  // bytes of "ID JSON-BYTES LAYER-BYTES"

struct Head {
    std::uint32_t id = 0;
    std::size_t json = 0, layer = 0;
};

template <class Number>
bool take(std::string_view& text, Number& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end == text.data()) return false;
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    if (text.starts_with(' ')) text.remove_prefix(1);
    return true;
}

std::optional<Head> headOf(std::string_view line) {
    Head head;
    if (!take(line, head.id) || !take(line, head.json) || !take(line, head.layer) || !line.empty()) return std::nullopt;
    if (head.json > QuestionWire::kMostJson || head.layer > QuestionWire::kMostLayer) return std::nullopt;
    return head;
}

}  // namespace

bool QuestionWire::ask(const std::string& words) {
    if (!open() || busy()) return false;
    asked_ = last_ = last_ == UINT32_MAX ? 1 : last_ + 1;
    answer_.reset();
    const std::string line = std::to_string(asked_) + ' ' + words + '\n';
    ssize_t count = 0;
    do {
        count = ::write(socket_.get(), line.data(), line.size());
    } while (count < 0 && errno == EINTR);
    // A line is shorter than what a socket holds: where it does not fit, nobody reads.
    if (count != static_cast<ssize_t>(line.size())) close();
    return open();
}

void QuestionWire::read() {
    std::array<char, 1 << 14> chunk{};
    while (open()) {
        const ssize_t count = ::read(socket_.get(), chunk.data(), chunk.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0 && errno == EAGAIN) return;
        if (count <= 0) return close();
        incoming_.append(chunk.data(), static_cast<std::size_t>(count));
        while (parse()) {
        }
        if (incoming_.size() > kMostHead + kMostJson + kMostLayer) return close();
    }
}

/// Takes one whole answer from what came in. Those to forgotten questions are dropped.
bool QuestionWire::parse() {
    const std::size_t line = incoming_.find('\n');
    if (std::min(line, incoming_.size()) > kMostHead) close();  // also one that has not ended yet
    if (line > kMostHead) return false;  // or there is none
    const auto head = headOf(std::string_view(incoming_).substr(0, line));
    if (!head) {
        close();
        return false;
    }
    if (incoming_.size() < line + 1 + head->json + head->layer) return false;
    if (head->id == asked_ && busy()) {
        answer_ = QuestionAnswer{incoming_.substr(line + 1, head->json),
                                 incoming_.substr(line + 1 + head->json, head->layer)};
        asked_ = 0;
    }
    incoming_.erase(0, line + 1 + head->json + head->layer);
    return true;
}

std::optional<QuestionAnswer> QuestionWire::take() {
    return std::exchange(answer_, std::nullopt);
}

void QuestionWire::close() {
    socket_.reset();
    asked_ = 0;
    incoming_.clear();
}

}  // namespace fleifeisa::host
