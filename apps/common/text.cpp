#include "common/text.h"

#include <array>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace fleifeisa {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;
constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

struct Date {
    std::int64_t year;
    int month, day;
};

/// Gregorian date of a day counted from 1970-01-01. Years are counted from March, so that the leap day is the last one.
Date dateOfDay(std::int64_t day) {
    constexpr std::int64_t kDaysOf400Years = 146097;
    day += 719468;  // days from 0000-03-01 to 1970-01-01
    const std::int64_t era = (day >= 0 ? day : day - (kDaysOf400Years - 1)) / kDaysOf400Years;
    const std::int64_t of_era = day - era * kDaysOf400Years;
    const std::int64_t year = (of_era - of_era / 1460 + of_era / 36524 - of_era / 146096) / 365;
    const std::int64_t of_year = of_era - (365 * year + year / 4 - year / 100);
    const int from_march = static_cast<int>((5 * of_year + 2) / 153);
    const int month = from_march < 10 ? from_march + 3 : from_march - 9;
    return {era * 400 + year + (month <= 2 ? 1 : 0), month, static_cast<int>(of_year - (153 * from_march + 2) / 5 + 1)};
}

/// Length of the well-formed UTF-8 character at the front, 0 where there is none.
std::size_t utf8Length(std::string_view text) {
    const auto at = [text](std::size_t i) { return i < text.size() ? static_cast<unsigned char>(text[i]) : 0u; };
    const auto follows = [&at](std::size_t i) { return (at(i) & 0xC0u) == 0x80u; };
    const unsigned lead = at(0);
    if (lead < 0x80) return 1;
    if (lead >= 0xC2 && lead <= 0xDF) return follows(1) ? 2 : 0;
    if (lead >= 0xE0 && lead <= 0xEF) {
        const bool overlong = lead == 0xE0 && at(1) < 0xA0;
        const bool surrogate = lead == 0xED && at(1) > 0x9F;
        return follows(1) && follows(2) && !overlong && !surrogate ? 3 : 0;
    }
    if (lead >= 0xF0 && lead <= 0xF4) {
        const bool outside = (lead == 0xF0 && at(1) < 0x90) || (lead == 0xF4 && at(1) > 0x8F);
        return follows(1) && follows(2) && follows(3) && !outside ? 4 : 0;
    }
    return 0;
}

}  // namespace

std::string fixedPoint(std::int64_t value, int decimals) {
    const auto bits = static_cast<std::uint64_t>(value);
    std::string digits = std::to_string(value < 0 ? 0 - bits : bits);
    const auto places = static_cast<std::size_t>(decimals);
    if (digits.size() <= places) digits.insert(0, places + 1 - digits.size(), '0');
    if (places > 0) digits.insert(digits.size() - places, 1, '.');
    return value < 0 ? "-" + digits : digits;
}

std::string rounded(double value, int decimals) {
    double scale = 1;
    for (int i = 0; i < decimals; ++i) scale *= 10;
    return fixedPoint(std::llround(value * scale), decimals);
}

std::string rfc3339(std::int64_t time_ns) {
    const bool before = time_ns % kSecond < 0;  // rounds down, also before 1970
    const std::int64_t whole = time_ns / kSecond - before;
    const std::int64_t day = (whole >= 0 ? whole : whole - 86399) / 86400;
    const int second = static_cast<int>(whole - day * 86400);
    const Date date = dateOfDay(day);
    char text[64];
    std::snprintf(text, sizeof text, "%04lld-%02d-%02dT%02d:%02d:%02d.%09lldZ", static_cast<long long>(date.year),
                  date.month, date.day, second / 3600, second / 60 % 60, second % 60,
                  static_cast<long long>(time_ns % kSecond + before * kSecond));
    return text;
}

std::string clockTime(std::int64_t duration_ns) {
    const std::int64_t tenths = (duration_ns < 0 ? 0 : duration_ns) / (kSecond / 10);
    const auto hours = static_cast<long long>(tenths / 36000);
    const int minute = static_cast<int>(tenths / 600 % 60), tenth = static_cast<int>(tenths % 600);
    char text[64];
    if (hours > 0)
        std::snprintf(text, sizeof text, "%lld:%02d:%02d.%d", hours, minute, tenth / 10, tenth % 10);
    else
        std::snprintf(text, sizeof text, "%d:%02d.%d", minute, tenth / 10, tenth % 10);
    return text;
}

std::string cleanUtf8(std::string_view text) {
    std::string result;
    while (!text.empty()) {
        const std::size_t length = utf8Length(text);
        const auto first = static_cast<unsigned char>(text.front());
        const bool control = first < 0x20 || first == 0x7F;
        result += length == 0 || control ? kReplacement : text.substr(0, length);
        text.remove_prefix(length == 0 ? 1 : length);
    }
    return result;
}

std::string jsonString(std::string_view text) {
    std::string result = "\"";
    for (const char c : cleanUtf8(text)) {
        if (c == '"' || c == '\\') result += '\\';
        result += c;
    }
    return result + "\"";
}

std::string xmlText(std::string_view text) {
    std::string result;
    for (const char c : cleanUtf8(text)) {
        switch (c) {
            case '&':
                result += "&amp;";
                break;
            case '<':
                result += "&lt;";
                break;
            case '>':
                result += "&gt;";
                break;
            case '"':
                result += "&quot;";
                break;
            case '\'':
                result += "&#39;";
                break;
            default:
                result += c;
        }
    }
    return result;
}

std::string base64(std::string_view bytes) {
    static constexpr std::string_view kDigits = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string result;
    result.reserve((bytes.size() + 2) / 3 * 4);
    for (std::size_t at = 0; at < bytes.size(); at += 3) {
        unsigned group = 0;
        const std::size_t count = std::min<std::size_t>(3, bytes.size() - at);
        for (std::size_t i = 0; i < 3; ++i)
            group = group << 8 | (i < count ? static_cast<unsigned char>(bytes[at + i]) : 0u);
        for (std::size_t i = 0; i < 4; ++i) result += i <= count ? kDigits[group >> (18 - 6 * i) & 63u] : '=';
    }
    return result;
}

}  // namespace fleifeisa
