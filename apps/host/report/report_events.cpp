// The report's events: lines with their counts, and a table of what the rules told.
#include <algorithm>

#include "common/text.h"
#include "report/report_data.h"

namespace fleifeisa::host {
namespace {

std::string cell(const std::string& text) {
    return "<td>" + text + "</td>";
}

std::string countTable(const ReportData& data) {
    std::string text =
        "<table>\n<caption class=\"hidden\">Crossings of each line</caption>\n<thead><tr><th scope=\"col\">Line</th>"
        "<th scope=\"col\">Forward</th><th scope=\"col\">Backward</th></tr></thead>\n<tbody>\n";
    for (const ReportShape& shape : data.shapes)
        if (shape.line)
            text += "<tr><th scope=\"row\">" + xmlText(shape.name) + "</th>" + cell(std::to_string(shape.forward)) +
                    cell(std::to_string(shape.backward)) + "</tr>\n";
    return text + "</tbody>\n</table>\n";
}

std::string row(const ReportData& data, const ReportEvent& event) {
    const auto track = std::ranges::find(data.tracks, event.track, &ReportTrack::number);
    const bool shown = event.track > 0 && track != data.tracks.end();
    const std::string number = std::to_string(event.track);
    std::string text = "<tr><td class=\"thumb\">";
    if (shown) text += "<img alt=\"\" src=\"data:image/jpeg;base64," + base64(track->thumbnail) + "\">";
    text += "</td><th scope=\"row\">" + std::to_string(event.number) + "</th>" + cell(clockTime(event.start_ns)) +
            cell(event.end_ns < 0 ? "runs" : clockTime(event.end_ns - event.start_ns));
    text += cell(event.kind) + cell(xmlText(event.rule)) + cell(xmlText(event.changes) + (event.held ? " (held)" : ""));
    text += cell(event.track == 0 ? "" : shown ? "<a href=\"#m" + number + "\">" + number + "</a>" : number);
    return text + cell(event.value) + cell(xmlText(event.reason)) + "</tr>\n";
}

}  // namespace

std::string eventsSection(const ReportData& data) {
    if (data.events.empty() && data.shapes.empty()) return "";
    std::string text = "<section>\n<h2>Events</h2>\n";
    if (std::ranges::any_of(data.shapes, &ReportShape::line)) text += countTable(data);
    if (data.events.empty()) return text + "<p>Nothing was told.</p>\n</section>\n";
    text += "<table>\n<caption class=\"hidden\">All events, in their order</caption>\n<thead><tr><td></td>";
    for (const char* name : {"Event", "Start", "Length", "Kind", "Rule", "Changes", "Track", "Value", "Reason"})
        text += std::string("<th scope=\"col\">") + name + "</th>";
    text += "</tr></thead>\n<tbody>\n";
    for (const ReportEvent& event : data.events) text += row(data, event);
    text += "</tbody>\n</table>\n";
    if (data.events_left_out > 0)
        text += "<p>" + std::to_string(data.events_left_out) + " later events are not shown.</p>\n";
    return text + "</section>\n";
}

}  // namespace fleifeisa::host
