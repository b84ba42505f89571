#include "events/schedule.h"

#include <date/tz.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <stdexcept>

namespace fleifeisa::host {
namespace {

constexpr int kMinutesOfDay = 24 * 60;
constexpr int kSecondsOfDay = 86400;
constexpr std::array<std::string_view, 7> kDays = {"mo", "tu", "we", "th", "fr", "sa", "su"};

[[noreturn]] void refuse() {
    throw std::invalid_argument("expected HH:MM-HH:MM and days, such as \"22:00-06:00 mo-fr\", parts by semicolons");
}

int floorMod(std::int64_t value, int divisor) {
    const auto rest = static_cast<int>(value % divisor);
    return rest < 0 ? rest + divisor : rest;
}

int twoDigits(std::string_view text, int greatest) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (text.size() != 2 || error != std::errc() || end != text.data() + 2 || value < 0 || value > greatest) refuse();
    return value;
}

/// "HH:MM" as minutes of the day, up to 24:00.
int minuteOf(std::string_view text) {
    if (text.size() != 5 || text[2] != ':') refuse();
    const int minute = twoDigits(text.substr(0, 2), 24) * 60 + twoDigits(text.substr(3), 59);
    if (minute > kMinutesOfDay) refuse();
    return minute;
}

int dayOf(std::string_view text) {
    const auto* const found = std::ranges::find(kDays, text);
    if (found == kDays.end()) refuse();
    return static_cast<int>(found - kDays.begin());
}

/// "mo-fr", "sa,su", "fr-mo": bits, Monday is 0.
unsigned daysOf(std::string_view text) {
    unsigned days = 0;
    while (true) {
        const std::size_t comma = text.find(',');
        const std::string_view item = text.substr(0, comma);
        const std::size_t dash = item.find('-');
        const int first = dayOf(item.substr(0, dash));
        const int last = dash == std::string_view::npos ? first : dayOf(item.substr(dash + 1));
        for (int day = first;; day = (day + 1) % 7) {
            days |= 1u << static_cast<unsigned>(day);
            if (day == last) break;
        }
        if (comma == std::string_view::npos) return days;
        text.remove_prefix(comma + 1);
    }
}

std::vector<std::string> words(const std::string& text) {
    std::vector<std::string> found;
    std::string word;
    for (const char c : text + ' ') {
        if (c != ' ') {
            word += c;
        } else if (!word.empty()) {
            found.push_back(std::exchange(word, ""));
        }
    }
    return found;
}

}  // namespace

TimeZone::TimeZone(const std::string& name) : name_(name) {
    try {
        zone_ = date::locate_zone(name);
    } catch (const std::exception&) {
        throw std::invalid_argument("there is no time zone '" + name + "' (such as Europe/Berlin)");
    }
}

TimeZone::Offset TimeZone::offsetAt(std::int64_t time_s) const {
    const auto info =
        static_cast<const date::time_zone*>(zone_)->get_info(date::sys_seconds(std::chrono::seconds(time_s)));
    return {info.offset.count(), info.begin.time_since_epoch().count(), info.end.time_since_epoch().count()};
}

Schedule::Schedule(const std::string& text, std::shared_ptr<const TimeZone> zone)
    : text_(text), zone_(std::move(zone)) {
    std::size_t begin = 0;
    while (begin <= text.size()) {
        const std::size_t end = std::min(text.find(';', begin), text.size());
        ranges_.push_back(parsePart(text.substr(begin, end - begin)));
        begin = end + 1;
    }
}

Schedule::Range Schedule::parsePart(const std::string& part) {
    const std::vector<std::string> parts = words(part);
    if (parts.empty() || parts.size() > 2) refuse();
    Range range;
    const std::string& first = parts.front();
    const bool has_time = first[0] >= '0' && first[0] <= '9';
    if (has_time) {
        if (first.size() != 11 || first[5] != '-') refuse();
        range.begin = minuteOf(std::string_view(first).substr(0, 5));
        range.end = minuteOf(std::string_view(first).substr(6));
        if (range.begin == range.end || range.begin == kMinutesOfDay) refuse();
    }
    if (has_time && parts.size() == 1) return range;
    if (!has_time && parts.size() == 2) refuse();
    range.days = daysOf(parts.back());
    return range;
}

bool Schedule::active(std::int64_t time_ns) const {
    if (ranges_.empty()) return true;
    const std::int64_t time_s = time_ns / 1'000'000'000 - (time_ns % 1'000'000'000 < 0 ? 1 : 0);
    if (time_s < offset_.begin_s || time_s >= offset_.end_s) offset_ = zone_->offsetAt(time_s);
    const std::int64_t local = time_s + offset_.seconds;
    const int minute = floorMod(local, kSecondsOfDay) / 60;
    const int today =
        floorMod((local - floorMod(local, kSecondsOfDay)) / kSecondsOfDay + 3, 7);  // 1970-01-01: Thursday
    const int yesterday = (today + 6) % 7;
    return std::ranges::any_of(ranges_, [&](const Range& range) {
        const auto on = [&range](int day) { return (range.days >> static_cast<unsigned>(day) & 1u) != 0; };
        if (range.begin < range.end) return on(today) && minute >= range.begin && minute < range.end;
        return (on(today) && minute >= range.begin) || (on(yesterday) && minute < range.end);
    });
}

}  // namespace fleifeisa::host
