#include "cli/values.h"

#include <arpa/inet.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>

#include "events/geometry.h"

namespace fleifeisa::host {
namespace {

constexpr int kLargest = 16384;

/// Takes a number from the front of the text.
int takeNumber(std::string_view& text, int low, const char* expected) {
    int value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || value < low || value > kLargest) throw ValueError(expected);
    text.remove_prefix(static_cast<std::size_t>(end - text.data()));
    return value;
}

void takeSign(std::string_view& text, char sign, const char* expected) {
    if (!text.starts_with(sign)) throw ValueError(expected);
    text.remove_prefix(1);
}

std::string lower(std::string text) {
    for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return text;
}

}  // namespace

void parseSize(const std::string& text, SourceOptions& source) {
    constexpr const char* kExpected =
        "expected WIDTHxHEIGHT in pixels, such as 320x240, or the longest side, such as 384, or full";
    std::string_view rest = text;
    int width = 0, height = 0, longest_side = kLargest;
    if (text != "full") {
        constexpr int kLeastSide = 16;
        const int first = takeNumber(rest, 1, kExpected);
        if (rest.empty()) {
            longest_side = first;
            if (first < kLeastSide) throw ValueError(kExpected);
        } else {
            takeSign(rest, 'x', kExpected);
            width = first;
            height = takeNumber(rest, 1, kExpected);
            if (!rest.empty()) throw ValueError(kExpected);
            longest_side = 0;
        }
    }
    source.width = width;
    source.height = height;
    source.longest_side = longest_side;
}

Region parseRegion(const std::string& text) {
    constexpr const char* kExpected = "expected WIDTHxHEIGHT+LEFT+TOP in pixels, such as 160x120+40+20";
    std::string_view rest = text;
    Region region{};
    region.width = takeNumber(rest, 1, kExpected);
    takeSign(rest, 'x', kExpected);
    region.height = takeNumber(rest, 1, kExpected);
    takeSign(rest, '+', kExpected);
    region.left = takeNumber(rest, 0, kExpected);
    takeSign(rest, '+', kExpected);
    region.top = takeNumber(rest, 0, kExpected);
    if (!rest.empty()) throw ValueError(kExpected);
    return region;
}

ImageType parseImageType(const std::string& text) {
    const std::string value = lower(text);
    if (value == "auto") return ImageType::kByPicture;
    if (value != "ir" && value != "color") throw ValueError("expected color, ir or auto");
    return value == "ir" ? ImageType::kInfrared : ImageType::kColor;
}

Matrix parseMatrix(const std::string& text) {
    const std::string value = lower(text);
    if (value == "bt601") return Matrix::kBt601;
    if (value == "bt709") return Matrix::kBt709;
    if (value == "bt2020") return Matrix::kBt2020;
    throw ValueError("expected bt601, bt709 or bt2020");
}

bool parseFullRange(const std::string& text) {
    const std::string value = lower(text);
    if (value != "full" && value != "limited") throw ValueError("expected full or limited");
    return value == "full";
}

std::string maskFault(const Mask& mask) {
    std::vector<Point> points;
    for (const SharePoint& point : mask) points.push_back({point.x, point.y});
    return polygonFault(points);
}

Mask parseMask(const std::string& text) {
    constexpr const char* kExpected = "expected corners in shares of the picture, such as 0,0 1,0 1,0.2 0,0.2";
    Mask mask;
    const char* at = text.data();
    const char* const last = at + text.size();
    const auto take = [&](double& value, char behind) {
        const auto [end, error] = std::from_chars(at, last, value);
        if (error != std::errc() || (end != last && *end != behind) || (end == last && behind == ','))
            throw ValueError(kExpected);
        at = end == last ? end : end + 1;
    };
    while (at != last) {
        SharePoint point;
        take(point.x, ',');
        take(point.y, ' ');
        mask.push_back(point);
        while (at != last && *at == ' ') ++at;
    }
    if (const std::string fault = maskFault(mask); !fault.empty()) throw ValueError(fault);
    return mask;
}

bool parseRawTracks(const std::string& text) {
    if (text != "raw" && text != "filtered") throw ValueError("expected filtered or raw");
    return text == "raw";
}

std::int64_t parseMoment(const std::string& text) {
    constexpr const char* kExpected =
        "expected a date and time such as 2026-03-01T12:00:00Z or 2026-03-01T12:00:00.5+01:00";
    std::string_view rest = text;
    const auto number = [&rest](std::size_t digits, int low, int high) {
        int value = 0;
        const auto [end, error] = std::from_chars(rest.data(), rest.data() + std::min(digits, rest.size()), value);
        if (error != std::errc() || end != rest.data() + digits || value < low || value > high)
            throw ValueError(kExpected);
        rest.remove_prefix(digits);
        return value;
    };
    const auto sign = [&rest](std::string_view allowed) {
        if (rest.empty() || allowed.find(rest.front()) == std::string_view::npos) throw ValueError(kExpected);
        const char found = rest.front();
        rest.remove_prefix(1);
        return found;
    };
    namespace chrono = std::chrono;
    const chrono::year year(number(4, 1970, 2200));
    sign("-");
    const chrono::month month(static_cast<unsigned>(number(2, 1, 12)));
    sign("-");
    const chrono::year_month_day date(year, month, chrono::day(static_cast<unsigned>(number(2, 1, 31))));
    if (!date.ok()) throw ValueError(kExpected);
    sign("Tt ");
    std::int64_t second = number(2, 0, 23) * 3600;
    sign(":");
    second += number(2, 0, 59) * 60;
    sign(":");
    second += number(2, 0, 59);
    std::int64_t fraction = 0;
    if (rest.starts_with('.')) {
        rest.remove_prefix(1);
        std::int64_t unit = 100'000'000;
        fraction = number(1, 0, 9) * unit;
        while (!rest.empty() && rest.front() >= '0' && rest.front() <= '9') fraction += number(1, 0, 9) * (unit /= 10);
    }
    const char zone = sign("Zz+-");
    if (zone == '+' || zone == '-') {
        int offset = number(2, 0, 23) * 3600;
        sign(":");
        offset += number(2, 0, 59) * 60;
        second -= zone == '+' ? offset : -offset;
    }
    if (!rest.empty()) throw ValueError(kExpected);
    return (chrono::sys_days(date).time_since_epoch().count() * 86400LL + second) * 1'000'000'000 + fraction;
}

std::string parseThreshold(const std::string& text) {
    double value = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
    if (error != std::errc() || end != text.data() + text.size() || !std::isfinite(value) || value < 0 || value > 1e6)
        throw ValueError("expected a number from 0, such as 0.25");
    return text;
}

std::uint64_t parseBytes(const std::string& text) {
    constexpr const char* kExpected = "expected a size, such as 100 MB";
    std::uint64_t value = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, value);
    if (error != std::errc()) throw ValueError(kExpected);
    std::string unit = lower(std::string(end, last));
    while (unit.starts_with(' ')) unit.erase(0, 1);
    constexpr std::uint64_t kMost = 1'000'000'000'000'000;
    for (const char* known : {"", "kb", "mb", "gb", "tb"}) {
        if (value == 0 || value > kMost) throw ValueError(kExpected);
        if (unit == known || (unit == "b" && *known == '\0')) return value;
        value *= 1000;
    }
    throw ValueError(kExpected);
}

std::pair<std::string, int> parseListen(const std::string& text) {
    constexpr int kUsualPort = 8480, kLastPort = 65535;
    std::string_view address = text, port;
    if (const std::size_t end = text.rfind(']'); text.starts_with('[') && end != std::string::npos) {
        address = std::string_view(text).substr(1, end - 1);
        port = std::string_view(text).substr(end + 1);
    } else if (const std::size_t colon = text.find(':'); colon != std::string::npos && colon == text.rfind(':')) {
        address = std::string_view(text).substr(0, colon);
        port = std::string_view(text).substr(colon);
    }
    int number = kUsualPort;
    if (!port.empty()) {
        const auto [end, error] = std::from_chars(port.data() + 1, port.data() + port.size(), number);
        if (port[0] != ':' || error != std::errc() || end != port.data() + port.size() || number < 0 ||
            number > kLastPort)
            number = -1;
    }
    in6_addr parsed{};  // large enough for both
    const std::string numeric(address);
    if (number < 0 ||
        (::inet_pton(AF_INET, numeric.c_str(), &parsed) != 1 && ::inet_pton(AF_INET6, numeric.c_str(), &parsed) != 1))
        throw ValueError("expected an address and a port, such as \"127.0.0.1:8480\" or \"[::1]:8480\"");
    return {numeric, number};
}

double parseDuration(const std::string& text) {
    constexpr const char* kExpected = "expected a duration, such as 24 h";
    constexpr double kYear = 366 * 86400.0;
    double value = 0;
    const char* const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data(), last, value);
    if (error != std::errc() || !(value >= 0)) throw ValueError(kExpected);
    std::string unit = lower(std::string(end, last));
    while (unit.starts_with(' ')) unit.erase(0, 1);
    constexpr std::array<std::pair<const char*, double>, 5> kUnits = {
        {{"s", 1}, {"min", 60}, {"h", 3600}, {"days", 86400}, {"day", 86400}}};
    for (const auto& [known, length] : kUnits)
        if (unit == known && value * length <= kYear) return value * length;
    throw ValueError(kExpected);
}

}  // namespace fleifeisa::host
