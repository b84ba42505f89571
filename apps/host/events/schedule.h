// Active times of a rule in the time zone of the place: "22:00-06:00 mo-fr".
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace fleifeisa::host {

/// A place's time. Reads the system's time zone database when it is made and where a new year is asked for.
class TimeZone {
 public:
    /// "Europe/Berlin", "UTC". @throws std::invalid_argument where there is none of that name
    explicit TimeZone(const std::string& name);

    const std::string& name() const { return name_; }
    /// Seconds to add to UTC at that moment, and until when (seconds since 1970, exclusive) that holds.
    struct Offset {
        std::int64_t seconds, begin_s, end_s;
    };
    Offset offsetAt(std::int64_t time_s) const;

 private:
    std::string name_;
    const void* zone_;  ///< date::time_zone, which lives as long as the program
};

/// Ranges of local time on days of the week. Without a range: always.
///
/// Clocks on the wall decide, also when they are changed: "02:00-03:00" is empty in the night in which that hour is
/// skipped, and lasts two hours in the night in which it comes twice. A range over midnight belongs to the day on
/// which it begins.
class Schedule {
 public:
    Schedule() = default;
    /// "22:00-06:00 mo-fr", "sa,su", "08:00-12:00; 13:00-17:00 mo-th" (parts by semicolons).
    /// @throws std::invalid_argument: what is expected
    Schedule(const std::string& text, std::shared_ptr<const TimeZone> zone);

    bool always() const { return ranges_.empty(); }
    bool active(std::int64_t time_ns) const;
    /// As it was written, "" for always.
    const std::string& text() const { return text_; }

 private:
    struct Range {
        int begin = 0, end = 1440;  ///< minutes of the day; the end lies before the begin where it goes over midnight
        unsigned days = 0x7F;       ///< bit 0: Monday
    };
    static Range parsePart(const std::string& part);

    std::string text_;
    std::vector<Range> ranges_;
    std::shared_ptr<const TimeZone> zone_;
    mutable TimeZone::Offset offset_{0, 0, 0};  ///< of the latest question; holds for months
};

}  // namespace fleifeisa::host
