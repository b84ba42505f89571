#include "inspect/page.h"

#include <cmath>
#include <cstdio>
#include <fstream>
#include <stdexcept>

#include "common/text.h"
#include "inspect/colours.h"

namespace fleifeisa::inspect {

namespace {

constexpr char kStyle[] = R"(
:root { color-scheme: light dark; --ink: #1b1f24; --dim: #59636e; --paper: #ffffff; --card: #f4f6f8; --line: #d5dbe1;
  --accent: #0b5cad; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #e4e8ec; --dim: #9aa5b1; --paper: #14171b; --card: #1d2228; --line: #363e47; --accent: #7db7f2; } }
* { box-sizing: border-box; }
body { margin: 0 auto; padding: 1rem; max-width: 110rem; font: 1rem/1.45 system-ui, sans-serif; color: var(--ink);
  background: var(--paper); }
h1 { font-size: 1.4rem; margin: 0 0 .25rem; overflow-wrap: anywhere; }
h2 { font-size: 1.2rem; margin: 0 0 .5rem; }
h2 small { font-weight: normal; color: var(--dim); }
a { color: var(--accent); }
p { margin: .25rem 0 .75rem; }
.dim { color: var(--dim); overflow-wrap: anywhere; }
nav { display: flex; flex-wrap: wrap; gap: .25rem .75rem; margin: .5rem 0; }
section { border-top: 1px solid var(--line); margin-top: 1.25rem; padding-top: 1rem; }
dl { display: grid; grid-template-columns: repeat(auto-fill, minmax(8.5rem, 1fr)); gap: .5rem; margin: 0 0 1rem; }
dl div { background: var(--card); border: 1px solid var(--line); border-radius: .4rem; padding: .35rem .6rem; }
dt { font-size: .8rem; color: var(--dim); }
dd { margin: 0; font-variant-numeric: tabular-nums; overflow-wrap: anywhere; }
.pictures { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(100%, 24rem), 1fr)); gap: 1rem; }
figure { margin: 0; }
@media (min-width: 56rem) { .pictures figure:first-child { grid-column: span 2; grid-row: span 2; } }
figure img { display: block; width: 100%; height: auto; border: 1px solid var(--line); border-radius: .3rem; }
figcaption { font-size: .875rem; color: var(--dim); margin-top: .3rem; }
figcaption strong { color: var(--ink); }
.scroll { overflow-x: auto; margin-bottom: 1rem; }
table { border-collapse: collapse; font-variant-numeric: tabular-nums; }
th, td { text-align: right; padding: .25rem .7rem; border-bottom: 1px solid var(--line); white-space: nowrap; }
th { font-size: .8rem; color: var(--dim); font-weight: 600; }
.swatch { display: inline-block; width: .8em; height: .8em; border-radius: .2em; margin-right: .4em; }
)";

std::string text(double v, int digits) {
    char text[64];
    std::snprintf(text, sizeof text, "%.*f", digits, v);
    return text;
}

std::string number(const char* name, const std::string& value) {
    return std::string("<div><dt>") + name + "</dt><dd>" + xmlText(value) + "</dd></div>\n";
}
std::string number(const char* name, int value) {
    return number(name, std::to_string(value));
}

std::string numbers(const FrameFacts& f, bool clusters) {
    std::string html = "<dl>\n";
    if (f.phase == Phase::kDetection) {
        html += number("Threshold clt", text(f.clt, 1)) + number("Threshold cht", text(f.cht, 1)) +
                number("Difference, mean", text(f.mean, 1)) + number("Difference, greatest", text(f.greatest, 0)) +
                number("Foreground cells", f.foreground) + number("Components", f.components) +
                number("Records", static_cast<int>(f.objects.size())) + number("Records in the table", f.table);
    }
    html += number("Cells", std::to_string(f.cells) + " (" + std::to_string(f.main_cells) + " + " +
                                std::to_string(f.cells - f.main_cells) + ")");
    if (clusters) html += number("Clusters per cell", text(f.clusters, 2));
    html += number("Frame size", std::to_string(f.width) + " x " + std::to_string(f.height));
    return html + "</dl>\n";
}

std::string swatch(int number) {
    const Rgb c = distinct(number);
    char text[96];
    std::snprintf(text, sizeof text, "<span class=\"swatch\" style=\"background:#%02x%02x%02x\"></span>", c.red,
                  c.green, c.blue);
    return text;
}

std::string table(const std::vector<ObjectFacts>& objects) {
    if (objects.empty()) return "<p>No component became a record in this frame.</p>\n";
    std::string html =
        "<div class=\"scroll\"><table>\n<thead><tr><th>Id</th><th>Label</th><th>X</th><th>Y</th>"
        "<th>Width</th><th>Height</th><th>Area</th><th>Density</th><th>Centre x, y</th><th>Cells</th><th>Frames</th>"
        "<th>Points</th><th>Corners</th><th>Came from</th>"
        "</tr></thead>\n<tbody>\n";
    const auto cell = [](const std::string& text) { return "<td>" + text + "</td>"; };
    for (const ObjectFacts& o : objects) {
        html += "<tr>" + cell(swatch(o.id) + std::to_string(o.id)) + cell(std::to_string(o.label));
        for (const int v : {o.x, o.y, o.width, o.height, o.area}) html += cell(std::to_string(v));
        html += cell(std::to_string(o.density) + " %") + cell(std::to_string(o.column) + ", " + std::to_string(o.row)) +
                cell(std::to_string(o.cells)) + cell(std::to_string(o.frames)) +
                cell(std::to_string(o.contour.size())) + cell(std::to_string(o.corners())) +
                cell(o.parents.empty() ? "new" : o.parents) + "</tr>\n";
    }
    return html + "</tbody></table></div>\n";
}

// The track filter's numbers, and one row for each track.
std::string tracks(const FrameFacts& f) {
    std::string html = "<dl>\n" + number("Scene", f.scene) + number("Blobs", f.blobs) +
                       number("Components dropped", f.dropped) + number("Tracks", static_cast<int>(f.tracks.size())) +
                       number("Least area", text(f.least_pixels, 1)) + "</dl>\n";
    if (f.tracks.empty()) return html + "<p>The track filter follows nothing in this frame.</p>\n";
    html +=
        "<div class=\"scroll\"><table>\n<thead><tr><th>Track</th><th>State</th><th>X</th><th>Y</th><th>Width</th>"
        "<th>Height</th><th>Frames</th><th>Missed, s</th><th>Age, s</th><th>Unsupported, s</th><th>Area</th>"
        "<th>Largest</th><th>Group of</th><th>Why</th></tr></thead>\n<tbody>\n";
    const auto cell = [](const std::string& text) { return "<td>" + text + "</td>"; };
    for (const TrackFacts& t : f.tracks) {
        const int colour = static_cast<int>(t.number % 100'000);
        html += "<tr>" + cell(t.number == 0 ? "-" : swatch(colour) + std::to_string(t.number)) + cell(t.state);
        for (const int v : {t.x, t.y, t.width, t.height, t.frames}) html += cell(std::to_string(v));
        for (const double v : {t.missed, t.age, t.unsupported}) html += cell(text(v, 2));
        html += cell(std::to_string(t.area)) + cell(std::to_string(t.largest)) +
                cell(t.group == 0 ? "" : std::to_string(t.group)) + cell(xmlText(t.why)) + "</tr>\n";
    }
    return html + "</tbody></table></div>\n";
}

std::string settingsLine(const Settings& s) {
    const control& c = s.parameters;
    const auto factor = [](float v) { return text(static_cast<double>(v), 3); };
    std::string text = s.type == COLOR ? "COLOR" : "IR";
    text += s.background == SINGLE ? ", single-image background" : ", background of clusters";
    text += ", " + std::to_string(c.bg_frames) + " learning frames, ";
    text += s.type == COLOR ? "color_low " + factor(c.color_low) + ", color_high " + factor(c.color_high)
                            : "ir_low " + factor(c.ir_low) + ", ir_high " + factor(c.ir_high);
    return text;
}

}  // namespace

void Page::add(const FrameFacts& f, const std::vector<Figure>& figures, const std::vector<Link>& files) {
    frames_++;
    const std::string number = std::to_string(f.number);
    nav_ += "<a href=\"#frame-" + number + "\">" + number + "</a>\n";
    body_ += "<section id=\"frame-" + number + "\">\n<h2>Frame " + number + " <small>" + phaseName(f.phase) +
             "</small></h2>\n";
    if (!f.name.empty()) body_ += "<p class=\"dim\">" + xmlText(f.name) + "</p>\n";
    if (!f.timestamp.empty() || f.sequence != 0)
        body_ += "<p class=\"dim\">Sequence number " + std::to_string(f.sequence) + ", timestamp" +
                 (f.timestamp.starts_with(' ') ? "" : " ") + xmlText(f.timestamp) + "</p>\n";
    if (f.phase == Phase::kNoPixels) {
        body_ += "<p>This frame had no pixels; the tracker was left alone.</p>\n</section>\n";
        return;
    }
    body_ += numbers(f, settings_.background == MULTIPLE);
    if (f.phase == Phase::kDetection) body_ += table(f.objects);
    if (!f.scene.empty()) body_ += tracks(f);
    body_ += "<div class=\"pictures\">\n";
    for (const Figure& p : figures)
        body_ += "<figure><a href=\"" + xmlText(p.file) + "\"><img src=\"" + xmlText(p.file) + "\" width=\"" +
                 std::to_string(p.width) + "\" height=\"" + std::to_string(p.height) + "\" alt=\"" + xmlText(p.title) +
                 " of frame " + number + "\" loading=\"lazy\"></a><figcaption><strong>" + xmlText(p.title) +
                 ".</strong> " + xmlText(p.caption) + "</figcaption></figure>\n";
    body_ += "</div>\n";
    if (!files.empty()) {
        body_ += "<p class=\"dim\">Files:";
        for (const Link& l : files) body_ += " <a href=\"" + xmlText(l.file) + "\">" + xmlText(l.text) + "</a>";
        body_ += "</p>\n";
    }
    body_ += "</section>\n";
}

void Page::write(const std::string& path) const {
    std::ofstream out(path, std::ios::binary);
    out << "<!doctype html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n"
           "<meta name=\"viewport\" content=\"width=device-width, initial-scale=1\">\n<title>Inspection of "
        << xmlText(input_) << "</title>\n<style>" << kStyle << "</style>\n</head>\n<body>\n<h1>Inspection of "
        << xmlText(input_) << "</h1>\n<p class=\"dim\">" << xmlText(settingsLine(settings_)) << "</p>\n";
    if (frames_ > 1) out << "<nav aria-label=\"Frames\">\n" << nav_ << "</nav>\n";
    out << body_ << "</body>\n</html>\n";
    out.close();
    if (!out) throw std::runtime_error(path + ": cannot be written");
}

}  // namespace fleifeisa::inspect
