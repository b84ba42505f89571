#include "web/arguments.h"

#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "sources/source.h"

namespace fleifeisa::host {
namespace {

[[noreturn]] void refuse(std::string_view name, const std::string& expected) {
    throw HttpError(400, std::string(name) + ": expected " + expected);
}

template <typename Number>
bool readAll(std::string_view text, Number& value) {
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    return !text.empty() && error == std::errc{} && end == text.data() + text.size();
}

/// Calls `each` for the parts of "a,b,c".
template <typename Each>
void split(std::string_view text, Each each) {
    while (!text.empty()) {
        const std::size_t end = std::min(text.find(','), text.size());
        each(std::string(text.substr(0, end)));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
}

std::string nameArgument(const HttpRequest& request, const char* name) {
    std::string text = request.argument(name);
    if (!text.empty() && !isCameraName(text)) refuse(name, "letters, digits, '_' and '-'");
    return text;
}

}  // namespace

std::int64_t parseInstant(std::string_view name, std::string_view text) {
    std::int64_t ns = 0;
    if (readAll(text, ns)) return ns;
    constexpr const char* kExpected = "a moment as 2026-11-21T08:15:02Z, or nanoseconds since 1970";
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0, used = 0;
    const std::string copy(text);
    if (std::sscanf(copy.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &year, &month, &day, &hour, &minute, &second, &used) < 6)
        refuse(name, kExpected);
    std::string_view rest = std::string_view(copy).substr(static_cast<std::size_t>(used));
    std::int64_t fraction = 0;
    if (rest.starts_with('.')) {
        rest.remove_prefix(1);
        std::int64_t unit = 100'000'000;
        for (; !rest.empty() && rest[0] >= '0' && rest[0] <= '9'; rest.remove_prefix(1), unit /= 10)
            fraction += (rest[0] - '0') * unit;
    }
    int sign = 0, offset_hours = 0, offset_minutes = 0;
    if (rest != "Z" && rest != "z") {
        // "+" in a query is a blank where it was not escaped.
        if (rest.size() != 6 || rest[3] != ':' || !readAll(rest.substr(1, 2), offset_hours) ||
            !readAll(rest.substr(4), offset_minutes))
            refuse(name, kExpected);
        sign = rest[0] == '-' ? -1 : rest[0] == '+' || rest[0] == ' ' ? 1 : 0;
        if (sign == 0) refuse(name, kExpected);
    }
    const std::chrono::year_month_day date{std::chrono::year(year), std::chrono::month(static_cast<unsigned>(month)),
                                           std::chrono::day(static_cast<unsigned>(day))};
    constexpr int kFirstYear = 1970, kLastYear = 2261;  // nanoseconds in 64 bits
    if (!date.ok() || year < kFirstYear || year > kLastYear || hour < 0 || hour > 23 || minute < 0 || minute > 59 ||
        second < 0 || second > 60)
        refuse(name, kExpected);
    const std::int64_t days = std::chrono::sys_days(date).time_since_epoch().count();
    const std::int64_t seconds = ((days * 24 + hour) * 60 + minute) * 60 + second -
                                 sign * (offset_hours * 60 + offset_minutes) * std::int64_t{60};
    return seconds * 1'000'000'000 + fraction;
}

std::int64_t numberArgument(const HttpRequest& request, std::string_view name, std::int64_t fallback, std::int64_t low,
                            std::int64_t high) {
    const std::string text = request.argument(name);
    std::int64_t value = fallback;
    if (!text.empty() && (!readAll(text, value) || value < low || value > high))
        refuse(name, "a whole number from " + std::to_string(low) + " to " + std::to_string(high));
    return value;
}

std::optional<bool> flagArgument(const HttpRequest& request, std::string_view name) {
    const std::string text = request.argument(name);
    if (text.empty()) return std::nullopt;
    if (text != "true" && text != "false") refuse(name, "true or false");
    return text == "true";
}

std::pair<std::int64_t, std::int64_t> spanArgument(const HttpRequest& request, std::int64_t since, std::int64_t until) {
    if (const std::string text = request.argument("until"); !text.empty()) until = parseInstant("until", text);
    if (const std::string text = request.argument("since"); !text.empty()) since = parseInstant("since", text);
    return {since, until};
}

EventQuery queryOf(const HttpRequest& request, const Account& account) {
    EventQuery query;
    query.user = account.name;
    query.cameras = account.cameras;
    if (const std::string text = request.argument("camera"); !text.empty()) {
        std::set<std::string> wanted;
        split(text, [&](const std::string& name) {
            if (!isCameraName(name)) refuse("camera", "names of cameras");
            if (account.sees(name)) wanted.insert(name);
        });
        query.cameras = wanted;
    }
    split(request.argument("kind"), [&](const std::string& name) {
        const auto kind = eventKindOf(name);
        if (!kind) refuse("kind", "motion, zone, line, stopped, removed, scene, analyzer, gap, clock or external");
        query.kinds.insert(*kind);
    });
    query.rule = nameArgument(request, "rule");
    std::tie(query.since_ns, query.until_ns) = spanArgument(request, INT64_MIN, INT64_MAX);
    if (const std::string text = request.argument("area"); !text.empty()) {
        std::vector<double> sides;
        split(text, [&](const std::string& side) {
            double value = 0;
            if (!readAll(std::string_view(side), value) || !(value >= 0) || value > 1) value = NAN;
            sides.push_back(value);
        });
        if (sides.size() != 4 || !(sides[0] <= sides[2]) || !(sides[1] <= sides[3]))
            refuse("area", "left,top,right,bottom from 0 to 1");
        query.area = {sides[0], sides[1], sides[2], sides[3]};
    }
    query.reviewed = flagArgument(request, "reviewed");
    query.held = flagArgument(request, "held");
    query.keep = flagArgument(request, "keep");
    if (const std::string mark = request.argument("mark"); !mark.empty()) {
        if (mark != "right" && mark != "wrong" && mark != "none") refuse("mark", "right, wrong or none");
        query.mark = mark;
    }
    query.visit = request.argument("visit");
    if (const auto parts = eventIdParts(query.visit);
        !query.visit.empty() && (!parts || !isCameraName(parts->first) || !account.sees(parts->first)))
        refuse("visit", "the id of a visit, such as gate-1041");
    if (const std::string text = request.argument("before"); !text.empty()) {
        const std::size_t dot = text.find('.');
        std::pair<std::int64_t, std::int64_t> at;
        if (dot == std::string::npos || !readAll(std::string_view(text).substr(0, dot), at.first) ||
            !readAll(std::string_view(text).substr(dot + 1), at.second))
            refuse("before", "what `next` of the page before said");
        query.before = at;
    }
    constexpr int kUsual = 100, kMost = 500;
    query.limit = static_cast<int>(numberArgument(request, "limit", kUsual, 1, kMost));
    return query;
}

}  // namespace fleifeisa::host
