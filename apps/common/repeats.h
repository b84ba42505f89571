// Which of many equal messages are worth a line.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "common/fd.h"

namespace fleifeisa {

/// A message that was let through is held back for a minute, then for two, four ... at most an hour; what was held
/// back is counted. One that stays away for longer begins anew. Knows no clock: the times are handed in.
class RepeatLimiter {
 public:
    /// Nothing: hold it back. Else how often it was held back since it was let through last.
    std::optional<std::int64_t> admit(const std::string& message, Clock::time_point now);

    struct Held {
        std::string message;
        std::int64_t count;
    };
    /// Messages that stay away, and were held back since they were let through; they are forgotten.
    std::vector<Held> expired(Clock::time_point now);

 private:
    struct Entry {
        Clock::time_point last{};  ///< let through
        Clock::duration quiet{};
        std::int64_t held = 0;
    };
    std::map<std::string, Entry> entries_;
};

}  // namespace fleifeisa
