// The report's drawings along time: the tracks, and the foreground.
#include <algorithm>
#include <array>

#include "common/text.h"
#include "outputs/track_colours.h"
#include "report/report_data.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

// Units of the drawings, which the page stretches to its width.
constexpr std::int64_t kWidth = 1000, kLeft = 44, kRight = 12;
constexpr std::int64_t kPlot = kWidth - kLeft - kRight;

/// Horizontal place of a time, in tenths of a unit.
std::int64_t placeOf(const ReportData& data, std::int64_t time_ns) {
    const std::int64_t whole = std::max<std::int64_t>(1, data.duration_ns / 1000);  // microseconds, against overflow
    return kLeft * 10 + std::clamp<std::int64_t>(time_ns / 1000, 0, whole) * (kPlot * 10) / whole;
}

std::string tenths(std::int64_t value) {
    return value % 10 == 0 ? std::to_string(value / 10) : fixedPoint(value, 1);
}

/// Distance of the time labels: the least one that gives no more than ten.
std::int64_t timeStep(std::int64_t duration_ns) {
    static constexpr std::array<std::int64_t, 17> kSteps = {1,   2,    5,    10,   15,    30,    60,    120,  300,
                                                            600, 1800, 3600, 7200, 14400, 21600, 43200, 86400};
    for (const std::int64_t seconds : kSteps)
        if (duration_ns / kSecond / seconds <= 10) return seconds * kSecond;
    return (duration_ns / kSecond / 10 / 86400 + 1) * 86400 * kSecond;
}

std::string label(std::int64_t time_ns) {
    const std::string text = clockTime(time_ns);
    return text.substr(0, text.size() - 2);  // labels fall on whole seconds
}

std::string timeAxis(const ReportData& data, std::int64_t bottom) {
    std::string text = "<g class=\"axis\">\n";
    const std::int64_t step = timeStep(data.duration_ns);
    for (std::int64_t time = 0; time <= data.duration_ns; time += step) {
        const std::string x = tenths(placeOf(data, time));
        text += "<path d=\"M" + x + " 6V" + std::to_string(bottom) + "\"/><text x=\"" + x + "\" y=\"" +
                std::to_string(bottom + 16) + "\" text-anchor=\"middle\">" + label(time) + "</text>\n";
    }
    return text + "</g>\n";
}

/// Shades what was learnt, and marks fresh analyzers.
std::string eventsBehind(const ReportData& data, std::int64_t bottom) {
    std::string text;
    const std::string height = std::to_string(bottom - 6);
    for (std::size_t i = 0; i < data.spans.size();) {
        if (data.spans[i].learning == 0) {
            ++i;
            continue;
        }
        const std::int64_t from = placeOf(data, data.spans[i].start_ns);
        while (i < data.spans.size() && data.spans[i].learning > 0) ++i;
        const std::int64_t to = placeOf(data, data.spans[i - 1].end_ns);
        text += "<rect class=\"learning\" x=\"" + tenths(from) + "\" y=\"6\" width=\"" + tenths(to - from) +
                "\" height=\"" + height + "\"><title>The background is learnt</title></rect>\n";
        if (to - from >= 500)
            text += "<text x=\"" + tenths((from + to) / 2) + "\" y=\"" + std::to_string(bottom - 6) +
                    "\" text-anchor=\"middle\">learning</text>\n";
    }
    for (const std::int64_t time : data.restarts_ns)
        text += "<path class=\"restart\" d=\"M" + tenths(placeOf(data, time)) + " 6V" + std::to_string(bottom) +
                "\"><title>A fresh analyzer at " + clockTime(time) + "</title></path>\n";
    return text;
}

std::string openSvg(std::int64_t height, const std::string& id, const std::string& title) {
    return "<svg class=\"chart\" viewBox=\"0 0 " + std::to_string(kWidth) + " " + std::to_string(height) +
           "\" role=\"img\" aria-labelledby=\"" + id + "\"><title id=\"" + id + "\">" + title + "</title>\n";
}

struct Bar {
    const ReportTrack* track;
    std::int64_t from, to;  ///< tenths of a unit
    std::size_t lane;
};

/// Gives every bar the first lane that is free where it begins.
std::vector<Bar> layBars(const ReportData& data, bool brief, std::size_t& lanes) {
    constexpr std::int64_t kLeast = 30, kGap = 20;  // tenths of a unit
    std::vector<Bar> bars;
    std::vector<std::int64_t> ends;
    for (const ReportTrack& track : data.tracks) {
        if (track.brief() != brief) continue;
        const std::int64_t from = placeOf(data, track.start_ns);
        const std::int64_t to = std::max(placeOf(data, track.end_ns), from + kLeast);
        const auto lane =
            std::find_if(ends.begin(), ends.end(), [from](std::int64_t end) { return end + kGap <= from; });
        bars.push_back({&track, from, to, static_cast<std::size_t>(lane - ends.begin())});
        if (lane == ends.end())
            ends.push_back(to);
        else
            *lane = to;
    }
    lanes = ends.size();
    return bars;
}

std::string barText(const Bar& bar, std::int64_t top, std::int64_t height) {
    const ReportTrack& track = *bar.track;
    const std::string number = std::to_string(track.number);
    std::string text = "<g class=\"bar c" + std::to_string(trackColourIndex(track.number)) + "\" data-t=\"" + number +
                       "\"><title>Track " + number + ": " + clockTime(track.start_ns) + " to " +
                       clockTime(track.end_ns) + "</title><rect x=\"" + tenths(bar.from) + "\" y=\"" +
                       std::to_string(top) + "\" width=\"" + tenths(bar.to - bar.from) + "\" height=\"" +
                       std::to_string(height) + "\" rx=\"2\"/>";
    const auto needed = static_cast<std::int64_t>(number.size()) * 70 + 60;
    if (!track.brief() && bar.to - bar.from >= needed)
        text += "<text x=\"" + tenths(bar.from + 40) + "\" y=\"" + std::to_string(top + height - 4) + "\">" + number +
                "</text>";
    return text + "</g>\n";
}

/// A round share at or above the highest one, in millionths.
std::int64_t topOfScale(std::int64_t highest) {
    for (const std::int64_t top :
         {1000, 2000, 5000, 10'000, 20'000, 30'000, 50'000, 100'000, 200'000, 300'000, 500'000})
        if (highest <= top) return top;
    return 1'000'000;
}

std::string percentText(std::int64_t millionths) {
    const int decimals = millionths % 10'000 == 0 ? 0 : millionths % 1000 == 0 ? 1 : 2;
    return fixedPoint(millionths / (decimals == 0 ? 10'000 : decimals == 1 ? 1000 : 100), decimals) + " %";
}

}  // namespace

std::string timeline(const ReportData& data, bool brief) {
    const std::int64_t pitch = brief ? 7 : 18, bar = brief ? 5 : 15;
    std::size_t lanes = 0;
    const std::vector<Bar> bars = layBars(data, brief, lanes);
    const std::int64_t bottom = 12 + pitch * static_cast<std::int64_t>(std::max<std::size_t>(1, lanes));
    std::string text = openSvg(bottom + 22, brief ? "brief-time-title" : "time-title",
                               "When each of " + std::to_string(bars.size()) + (brief ? " brief" : "") +
                                   " tracks was seen. The table below lists the same times.");
    text += eventsBehind(data, bottom) + timeAxis(data, bottom);
    for (const Bar& item : bars) text += barText(item, 10 + pitch * static_cast<std::int64_t>(item.lane), bar);
    return text + "</svg>\n";
}

std::string shareChart(const ReportData& data) {
    constexpr std::int64_t kTop = 10, kBottom = 150, kHeight = kBottom - kTop;
    std::int64_t highest = 0;
    for (const ReportSpan& span : data.spans) highest = std::max(highest, span.share_max);
    const std::int64_t top = topOfScale(highest);
    const auto place = [top](std::int64_t share) { return tenths(kBottom * 10 - share * kHeight * 10 / top); };
    std::string text = openSvg(kBottom + 22, "share-title", "Part of the picture that is foreground, over time.");
    text += eventsBehind(data, kBottom) + timeAxis(data, kBottom) + "<g class=\"axis\">\n";
    for (const std::int64_t share : {std::int64_t{0}, top / 2, top})
        text += "<path d=\"M" + std::to_string(kLeft) + " " + place(share) + "H" + std::to_string(kWidth - kRight) +
                "\"/><text x=\"" + std::to_string(kLeft - 6) + "\" y=\"" + place(share) +
                "\" dy=\"4\" text-anchor=\"end\">" + percentText(share) + "</text>\n";
    text += "</g>\n";
    std::string mean, peak;
    bool drawing = false;
    for (const ReportSpan& span : data.spans) {
        if (span.frames == 0) {
            drawing = false;
            continue;
        }
        const std::string from = tenths(placeOf(data, span.start_ns)), to = tenths(placeOf(data, span.end_ns));
        mean += (drawing ? "L" : "M") + from + " " + place(span.share_sum / span.frames) + "H" + to;
        peak += "M" + from + " " + std::to_string(kBottom) + "V" + place(span.share_max) + "H" + to + "V" +
                std::to_string(kBottom) + "Z";
        drawing = true;
    }
    text += "<path class=\"peak\" d=\"" + peak + "\"/><path class=\"mean\" d=\"" + mean + "\"/>\n";
    return text + "</svg>\n";
}

}  // namespace fleifeisa::host
