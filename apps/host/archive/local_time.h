// Days and hours of a place.
#pragma once

#include <cstdint>
#include <string>

#include "events/schedule.h"

namespace fleifeisa::host {

class LocalTime {
 public:
    explicit LocalTime(const std::string& place) : zone_(place) {}

    /// Seconds to add to UTC at that moment.
    std::int64_t offsetAt(std::int64_t time_ns);
    /// "2026-03-01".
    std::string dayOf(std::int64_t time_ns);
    /// 0 to 23.
    int hourOf(std::int64_t time_ns);

 private:
    const TimeZone zone_;
    TimeZone::Offset offset_{0, 0, 0};
};

}  // namespace fleifeisa::host
