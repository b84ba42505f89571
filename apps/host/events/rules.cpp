#include "events/rules.h"

#include <array>
#include <charconv>
#include <cmath>

namespace fleifeisa::host {
namespace {

/// The shortest text that reads back as the same number, whatever the locale.
std::string number(double value) {
    std::array<char, 40> text{};
    return {text.data(), std::to_chars(text.data(), text.data() + text.size(), value).ptr};
}

std::string pair(Point point) {
    return number(point.x) + ',' + number(point.y);
}

std::string limitsText(const Limits& limits) {
    return " least_size " + number(limits.least_size.near) + ' ' + number(limits.least_size.far) + " least_age " +
           number(limits.least_age) + " cooldown " + number(limits.cooldown) + " when \"" + limits.when.text() + "\"\n";
}

}  // namespace

std::string rulesText(const Rules& rules) {
    std::string text = "timezone " + rules.timezone + "\nmotion off_delay " + number(rules.off_delay) +
                       limitsText(rules.motion) + "stopped " + number(rules.stopped) + "\nscene lost_after " +
                       number(rules.lost_after) + " back_after " + number(rules.back_after) + " hold " +
                       number(rules.hold) + '\n';
    for (const ZoneRule& zone : rules.zones) {
        text += "zone " + zone.name;
        for (const Point& point : zone.points) text += ' ' + pair(point);
        text += " dwell " + number(zone.dwell) + " stopped " + number(zone.stopped) + limitsText(zone.limits);
    }
    for (const LineRule& line : rules.lines)
        text += "line " + line.name + ' ' + pair(line.from) + ' ' + pair(line.to) + limitsText(line.limits);
    return text;
}

std::string parametersHash(std::string_view text) {
    std::uint32_t hash = 2166136261U;
    for (const char c : text) hash = (hash ^ static_cast<unsigned char>(c)) * 16777619U;
    constexpr std::string_view kDigits = "0123456789abcdef";
    std::string digits;
    for (int shift = 28; shift >= 0; shift -= 4) digits += kDigits[hash >> static_cast<unsigned>(shift) & 15U];
    return digits;
}

std::int64_t nanoseconds(double seconds) {
    return std::llround(seconds * 1e9);
}

}  // namespace fleifeisa::host
