// The report's page: heading, figures, drawings, table, explanations.
#include <algorithm>
#include <cmath>

#include "common/text.h"
#include "report/report_data.h"

namespace fleifeisa::host {
namespace {

/// "1 track", "3 tracks".
std::string counted(std::int64_t count, const std::string& noun) {
    return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string percent(std::int64_t millionths) {
    return fixedPoint((millionths + 500) / 1000, 1) + " %";
}

std::string figure(const std::string& value, const std::string& name, const std::string& more) {
    return "<div><dt>" + name + "</dt><dd>" + value + "<small>" + more + "</small></dd></div>\n";
}

std::string figures(const ReportData& data) {
    std::int64_t most = 0, highest = 0, sum = 0;
    for (const ReportSpan& span : data.spans) {
        most = std::max(most, span.tracks_max);
        highest = std::max(highest, span.share_max);
        sum += span.share_sum;
    }
    const auto brief = std::count_if(data.tracks.begin(), data.tracks.end(), [](const auto& t) { return t.brief(); });
    const auto all = static_cast<std::int64_t>(data.tracks.size());
    // The rate that was really seen: live frames may have been dropped.
    const std::string rate =
        data.duration_ns > 0
            ? fixedPoint(std::llround(1e10 * static_cast<double>(data.frames) / static_cast<double>(data.duration_ns)),
                         1) +
                  " a second"
            : "one picture";
    std::string text = "<dl class=\"figures\">\n";
    text += figure(clockTime(data.duration_ns), "Length", counted(data.frames, "frame") + ", " + rate);
    text += figure(std::to_string(all - brief), "Tracks",
                   "and " + std::to_string(brief + data.tracks_left_out) + " brief ones");
    text += figure(std::to_string(most), "Most at once", "in one frame, brief ones included");
    text += figure(percent(data.detected > 0 ? sum / data.detected : 0), "Foreground on average",
                   "of the picture; " + percent(highest) + " at most");
    if (data.dropped > 0) text += figure(std::to_string(data.dropped), "Frames dropped", "the newest one went first");
    if (data.restarts > 0)
        text += figure(std::to_string(data.restarts), "Analyzer restarts", "each learns the background anew");
    return text + "</dl>\n";
}

std::string heading(const ReportData& data) {
    std::string text = "<header>\n<h1>" + xmlText(data.camera) + "</h1>\n<p>";
    text += "<span class=\"source\">" + xmlText(data.source) + "</span> · " + std::to_string(data.width) + " × " +
            std::to_string(data.height) + (data.infrared ? " · infrared" : "");
    if (data.live) text += " · from " + rfc3339(data.first_ns).substr(0, 19) + " UTC";
    return text + "</p>\n" + figures(data) + "</header>\n";
}

/// A cell whose number the table can be sorted by.
std::string cell(const char* name, std::int64_t order, const std::string& shown) {
    return std::string("<td data-l=\"") + name + "\" data-v=\"" + std::to_string(order) + "\">" + shown + "</td>";
}

std::string row(const ReportTrack& track) {
    const std::string number = std::to_string(track.number);
    const std::int64_t length = std::llround(track.path.length());
    const std::int64_t milliseconds = (track.end_ns - track.start_ns) / 1'000'000;
    std::string text = "<tr data-t=\"" + number + (track.brief() ? "\" class=\"brief\">" : "\">");
    text += "<td class=\"thumb\"><img alt=\"\" src=\"data:image/jpeg;base64," + base64(track.thumbnail) + "\"></td>";
    text += "<th scope=\"row\" data-v=\"" + number + "\"><a href=\"#m" + number + "\">" + number + "</a></th>";
    text += cell("First seen", track.start_ns / 1'000'000, clockTime(track.start_ns));
    text += cell("Last seen", track.end_ns / 1'000'000, clockTime(track.end_ns));
    text += cell("Time between", milliseconds, clockTime(track.end_ns - track.start_ns));
    text += cell("Frames", track.path.sightings(), std::to_string(track.path.sightings()));
    text += cell("Path", length, std::to_string(length) + " px");
    text += cell("Largest box", std::int64_t{track.box_width} * track.box_height,
                 std::to_string(track.box_width) + " × " + std::to_string(track.box_height));
    return text + "</tr>\n";
}

std::string table(const ReportData& data) {
    std::string text =
        "<table>\n<caption class=\"hidden\">All tracks, in the order of their appearance</caption>\n<thead><tr>"
        "<td></td>";
    for (const char* name : {"Track", "First seen", "Last seen", "Time between", "Frames", "Path", "Largest box"})
        text += std::string("<th scope=\"col\">") + name + "</th>";
    text += "</tr></thead>\n<tbody>\n";
    for (const ReportTrack& track : data.tracks) text += row(track);
    return text + "</tbody>\n</table>\n";
}

std::string notes(const ReportData& data) {
    std::string text = "<footer>\n<h2>How to read this page</h2>\n<ul>\n";
    text +=
        data.raw
            ? "<li>A track is what the analyzer followed under one number, as it came. Where people or cars overlap in "
              "the picture, one track may stand for several of them, and one of them may have several tracks.</li>\n"
            : "<li>A track is one thing over time, from its confirmation (it was seen for 0.3 seconds) to its end; one "
              "that stands still goes on. Where people or cars overlap for long, numbers may be exchanged.</li>\n";
    text +=
        "<li>A ring marks where a track begins, an arrow where it ends; both are the middle of its box. Brief "
        "tracks were seen in fewer than " +
        std::to_string(kBriefFrames) + " frames.</li>\n";
    text += "<li>The map's background is the median of " +
            counted(static_cast<std::int64_t>(data.background_samples), "frame") +
            " spread over the run, not the analyzer's own model. Thumbnails show the moment with the most foreground "
            "in the box.</li>\n";
    text += data.raw
                ? "<li>Foreground is counted inside of the reported boxes: their size times their density.</li>\n"
                : "<li>Foreground is what differs from the empty scene after shadow and noise were left out.</li>\n";
    if (data.loose_objects > 0)
        text += "<li>" + counted(data.loose_objects, "sighting") +
                " carried no track number and appear in the foreground share only.</li>\n";
    if (data.tracks_left_out > 0)
        text += "<li>There were too many tracks for one page: the briefest " + std::to_string(data.tracks_left_out) +
                " are not shown.</li>\n";
    if (data.size_changed)
        text += "<li>The picture changed its size during the run. Positions are shown in the first size.</li>\n";
    return text + "</ul>\n</footer>\n";
}

/// A drawing that scrolls sideways where the window is narrow, by keyboard, too. On phones it shows whole.
std::string scrolled(const std::string& name, const std::string& drawing) {
    return "<div class=\"scroll\" tabindex=\"0\" role=\"group\" aria-label=\"" + name + "\">" + drawing + "</div>\n";
}

std::string drawings(const ReportData& data) {
    const auto brief = std::count_if(data.tracks.begin(), data.tracks.end(), [](const auto& t) { return t.brief(); });
    std::string text = "<section>\n<h2>Where</h2>\n" + trackMap(data) + "</section>\n";
    text += "<section>\n<h2>When</h2>\n" + scrolled("Tracks over time", timeline(data, false));
    if (brief > 0)
        text += "<div class=\"brief\">" + scrolled("Brief tracks over time", timeline(data, true)) + "</div>";
    text +=
        "</section>\n<section>\n<h2>How much</h2>\n<p>Foreground in per cent of the picture: mean (line) and peak "
        "(area).</p>\n" +
        scrolled("Foreground over time", shareChart(data)) + "</section>\n";
    return text;
}

}  // namespace

std::string reportPage(const ReportData& data) {
    const auto brief = std::count_if(data.tracks.begin(), data.tracks.end(), [](const auto& t) { return t.brief(); });
    std::string text =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
        "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n"
        "<meta name=\"color-scheme\" content=\"light dark\">\n"
        // The page asks for nothing from anywhere, and says so.
        "<meta http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; img-src data:; "
        "style-src 'unsafe-inline'; script-src 'unsafe-inline'\">\n";
    text +=
        "<title>" + xmlText(data.camera) + ": tracks</title>\n<style>\n" + kReportStyle + "</style>\n</head>\n<body>\n";
    text += heading(data) + "<main>\n";
    if (data.tracks.empty())
        text += std::string("<p class=\"nothing\">") +
                (data.detected == 0 ? "The background was still being learnt when the input ended: nothing was looked "
                                      "for yet. Detection begins once enough frames were seen."
                                    : "Nothing was tracked.") +
                "</p>\n";
    if (brief > 0)
        text += std::string("<label class=\"switch\"><input type=\"checkbox\" id=\"show-brief\"") +
                (brief == static_cast<std::int64_t>(data.tracks.size()) ? " checked" : "") + "> Show " +
                counted(brief, "brief track") + "</label>\n";
    text += drawings(data);
    text += eventsSection(data);
    if (!data.tracks.empty()) text += "<section>\n<h2>Tracks</h2>\n" + table(data) + "</section>\n";
    text += "</main>\n" + notes(data) + "<script>\n" + kReportScript + "</script>\n</body>\n</html>\n";
    return text;
}

}  // namespace fleifeisa::host
