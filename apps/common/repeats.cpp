#include "common/repeats.h"

#include <algorithm>

namespace fleifeisa {
namespace {

constexpr Clock::duration kFirst = std::chrono::minutes(1), kLongest = std::chrono::hours(1);
constexpr std::size_t kMost = 1000;  // different messages remembered; beyond that every new one passes

}  // namespace

std::optional<std::int64_t> RepeatLimiter::admit(const std::string& message, Clock::time_point now) {
    const auto found = entries_.find(message);
    if (found == entries_.end()) {
        if (entries_.size() < kMost) entries_[message] = {now, kFirst, 0};
        return 0;
    }
    Entry& entry = found->second;
    if (now < entry.last + entry.quiet) {
        ++entry.held;
        return std::nullopt;
    }
    const bool again = now < entry.last + 2 * entry.quiet;
    const std::int64_t held = entry.held;
    entry = {now, again ? std::min(2 * entry.quiet, kLongest) : kFirst, 0};
    return held;
}

std::vector<RepeatLimiter::Held> RepeatLimiter::expired(Clock::time_point now) {
    std::vector<Held> result;
    std::erase_if(entries_, [&](const auto& item) {
        const auto& [message, entry] = item;
        if (now < entry.last + 2 * entry.quiet) return false;
        if (entry.held > 0) result.push_back({message, entry.held});
        return true;
    });
    return result;
}

}  // namespace fleifeisa
