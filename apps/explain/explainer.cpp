#include "explain/explainer.h"

#include <poll.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <string_view>

namespace fleifeisa::explain {
namespace {

/// Tenths of a second of "SECONDS.FRACTION", with blanks before it; -1 where it is none.
std::int64_t tenths(const char* timestamp) {
    std::string_view text = timestamp != nullptr ? timestamp : "";
    while (text.starts_with(' ')) text.remove_prefix(1);
    std::int64_t whole = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), whole);
    if (error != std::errc() || whole < 0 || whole > INT64_MAX / 100) return -1;
    const bool fraction = end + 1 < text.data() + text.size() && *end == '.' && end[1] >= '0' && end[1] <= '9';
    return 10 * whole + (fraction ? end[1] - '0' : 0);
}

/// Every frame pays for this one: without a branch, so that it becomes vectors.
void markChanges(const int* label, Since* since, int cells, Since now) {
    for (int k = 0; k < cells; k++) {
        const Since is = label[k] != 0 ? 1 : 0;
        const Since then = since[k];
        since[k] = ((then ^ is) & 1) != 0 ? now | is : then;
    }
}

}  // namespace

void Explainer::Frame(const WatchedFrame& frame) {
    if (!channel_.open()) return;
    snapshot_.cycle = &frame.cycle;
    snapshot_.phase = frame.phase;
    snapshot_.parameters = &frame.parameters;
    snapshot_.sequence = frame.message.sequence_num;
    snapshot_.pixels = frame.image.Shared();
    noteTime(frame.message);
    if (frame.cycle.Tracker() != nullptr) noteCells();
    snapshot_.compared = true;
    if (held_ && held_->frame <= snapshot_.sequence) {
        channel_.send(held_->id, answer(*held_, snapshot_));
        held_.reset();
    }
    snapshot_.compared = false;
}

// Times that do not rise take none: 27 bits of seconds are four years.
void Explainer::noteTime(const streamin& message) {
    const std::int64_t time = tenths(message.timestamp);
    if (time < 0) return;
    if (first_tenth_ < 0) first_tenth_ = time;
    const std::int64_t passed = std::clamp<std::int64_t>(time - first_tenth_, 0, (std::int64_t{1} << 31) - 1);
    snapshot_.now = std::max(snapshot_.now, static_cast<Since>(passed) << 1);
}

// While nothing is foreground and nothing was, there is nothing to note.
void Explainer::noteCells() {
    const GridColorDiff& g = snapshot_.grid();
    if (since_.empty()) since_.resize(static_cast<std::size_t>(g.cnum));
    snapshot_.since = since_;
    if (!snapshot_.searched()) return;
    const bool any = g.GetNumLabel() > 0;
    if (!any && !any_labels_) return;
    any_labels_ = any;
    markChanges(g.label, since_.data(), g.cnum, snapshot_.now);
}

void Explainer::turn() {
    const std::optional<Question> question = channel_.turn();
    if (!channel_.open()) {
        held_.reset();
        snapshot_ = {};
    }
    if (!question) return;
    held_.reset();
    if (question->frame > snapshot_.sequence)
        held_ = question;
    else
        channel_.send(question->id, answer(*question, snapshot_));
}

void Explainer::waitFor(int frames) {
    while (channel_.open()) {
        std::array<pollfd, 2> items = {{{frames, POLLIN, 0}, {channel_.fd(), channel_.events(), 0}}};
        const bool ready = channel_.ready();
        if (::poll(items.data(), items.size(), ready ? 0 : -1) < 0) {
            if (errno != EINTR) return;
            continue;
        }
        // One question for each read at most: whoever asks without end holds up no frame.
        if (ready || items[1].revents != 0) turn();
        if (items[0].revents != 0) return;
    }
}

}  // namespace fleifeisa::explain
