#include "compare/compare_page.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "common/text.h"
#include "report/report_data.h"

namespace fleifeisa::host {
namespace {

const char* const kStyle = R"css(
.looks { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(100%, 30rem), 1fr)); gap: 1rem; margin-top: 1rem; }
.looks.first { grid-template-columns: minmax(0, 56rem); }
figure { margin: 0; }
figcaption { margin-bottom: .3rem; } figcaption small { display: block; color: var(--soft); }
.plain thead th { white-space: normal; } .plain th, .plain td { padding: .3rem .45rem; }
.pair { display: grid; grid-template-columns: 1fr 1fr; gap: .4rem; }
.pair div { position: relative; } .pair img { display: block; width: 100%; border-radius: 6px; }
.pair b { position: absolute; left: .4rem; bottom: .4rem; padding: 0 .45rem; border-radius: 4px; color: #fff; background: #000a; font-size: .85rem; }
.left th, .left td { text-align: left; } .left td { white-space: normal; overflow-wrap: anywhere; }
.wide { overflow-x: auto; }
.change { font-weight: 650; } .calm { color: var(--soft); }
.bars rect { rx: 2px; } .bars .same { fill: #2a803c; } .bars .times { fill: #c58a00; } .bars .alone { fill: #d0392a; } .bars .early { fill: var(--soft); fill-opacity: .35; }
.bars .parting { stroke: var(--ink); stroke-dasharray: 3 3; }
.bars text { fill: var(--soft); font-size: 11px; }
.key { display: inline-block; width: .8em; height: .8em; border-radius: 2px; vertical-align: -.05em; }
.key.same { background: #2a803c; } .key.times { background: #c58a00; } .key.alone { background: #d0392a; } .key.early { background: var(--soft); opacity: .35; }
@media (max-width: 640px) {
  .plain thead { display: table-header-group; } .plain table { display: table; } .plain tbody { display: table-row-group; }
  .plain tr { display: table-row; } .plain th, .plain td { padding: .3rem .5rem; border-bottom: 1px solid var(--line); }
  .plain th[scope=row]::before { content: ""; } .bars { min-width: 0; } .bars text { font-size: 24px; }
}
)css";

std::string number(std::int64_t value) {
    return std::to_string(value);
}

std::string counted(std::int64_t count, const std::string& noun) {
    return number(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string figure(const std::string& value, const std::string& name, const std::string& more) {
    return "<div><dt>" + name + "</dt><dd>" + value + "<small>" + more + "</small></dd></div>\n";
}

/// "0:12.3 to 0:15.0".
std::string spanText(const TimeSpan& span) {
    return clockTime(span.from_ns) + " to " + clockTime(span.to_ns);
}

/// Of tracks or events over all clips.
std::int64_t total(const ComparePage& page, std::vector<Match> ClipComparison::*kind, Difference difference) {
    std::int64_t sum = 0;
    for (const ComparedClip& clip : page.clips) sum += ClipComparison::count(clip.comparison.*kind, difference);
    return sum;
}

std::string figures(const ComparePage& page) {
    const auto identical = std::ranges::count_if(
        page.clips, [](const ComparedClip& clip) { return clip.fault.empty() && clip.comparison.identical; });
    const auto both = [&page](Difference difference) {
        return std::pair(number(total(page, &ClipComparison::tracks, difference)),
                         counted(total(page, &ClipComparison::events, difference), "event"));
    };
    std::string text = "<dl class=\"figures\">\n";
    text += figure(number(static_cast<std::int64_t>(page.clips.size())), "Clips",
                   number(identical) + " of them alike to the last byte");
    for (const auto& [difference, name] :
         {std::pair(Difference::kNone, "Tracks in both"), std::pair(Difference::kTimes, "At other times"),
          std::pair(Difference::kOnlyA, "Only in A"), std::pair(Difference::kOnlyB, "Only in B")}) {
        const auto [tracks, events] = both(difference);
        text += figure(tracks, name, "and " + events);
    }
    return text + "</dl>\n";
}

/// A heading of columns, of which the first names the row.
std::string tableHead(std::initializer_list<const char*> names) {
    std::string text = "<thead><tr>";
    for (const char* name : names) text += std::string("<th scope=\"col\">") + name + "</th>";
    return text + "</tr></thead>\n";
}

std::string cells(std::initializer_list<std::string> values) {
    std::string text;
    for (const std::string& value : values) text += "<td>" + value + "</td>";
    return text;
}

/// "12, only A 2, only B 1" in cells.
std::string countCells(const std::vector<Match>& matches) {
    std::string text;
    for (const Difference difference :
         {Difference::kNone, Difference::kTimes, Difference::kOnlyA, Difference::kOnlyB}) {
        const std::int64_t count = ClipComparison::count(matches, difference);
        text += difference == Difference::kNone ? "<td>" : count > 0 ? "<td class=\"change\">" : "<td class=\"calm\">";
        text += number(count) + "</td>";
    }
    return text;
}

std::string clipTable(const ComparePage& page) {
    std::string text = "<section class=\"plain\">\n<h2>Clips</h2>\n<div class=\"wide\" tabindex=\"0\">\n<table>\n";
    text += tableHead({"Clip", "Tracks in both", "other times", "only A", "only B", "Events in both", "other times",
                       "only A", "only B", "Frames A, B", "Work A, B"});
    text += "<tbody>\n";
    for (std::size_t i = 0; i < page.clips.size(); ++i) {
        const ComparedClip& clip = page.clips[i];
        text += "<tr><th scope=\"row\"><a href=\"#c" + std::to_string(i + 1) + "\">" + xmlText(clip.name) + "</a></th>";
        if (!clip.fault.empty()) {
            text += "<td colspan=\"10\" class=\"change\">" + xmlText(clip.fault) + "</td></tr>\n";
            continue;
        }
        text += countCells(clip.comparison.tracks) + countCells(clip.comparison.events);
        text += cells({number(clip.a.frames) + ", " + number(clip.b.frames),
                       rounded(clip.a.work(), 2) + ", " + rounded(clip.b.work(), 2)});
        text += "</tr>\n";
    }
    return text + "</tbody>\n</table>\n</div>\n</section>\n";
}

std::string differencesTable(const ComparePage& page) {
    if (page.differences.empty()) return "";
    std::string text =
        "<section class=\"plain\">\n<h2>What the configurations say otherwise</h2>\n<div class=\"wide\" "
        "tabindex=\"0\">\n<table class=\"left\">\n" +
        tableHead({"Key", "A", "B"}) + "<tbody>\n";
    for (const ComparePage::Line& line : page.differences)
        text += "<tr><th scope=\"row\">" + xmlText(line.key) + "</th>" + cells({xmlText(line.a), xmlText(line.b)}) +
                "</tr>\n";
    return text + "</tbody>\n</table>\n</div>\n</section>\n";
}

const char* classOf(Difference difference) {
    return difference == Difference::kNone    ? "same"
           : difference == Difference::kTimes ? "times"
           : difference == Difference::kEarly ? "early"
                                              : "alone";
}

/// Tracks along time: A's above the line, B's below it; each at the lowest place that is free.
std::string bars(const ComparedClip& clip) {
    constexpr std::int64_t kWidth = 1000, kLeft = 24, kPlot = kWidth - kLeft - 12, kPitch = 9, kBar = 7;
    constexpr std::size_t kMostLanes = 24;
    const std::int64_t whole = std::max<std::int64_t>(1, std::max(clip.a.length_ns, clip.b.length_ns) / 1000);
    const auto place = [whole](std::int64_t time_ns) {
        return kLeft * 10 + std::clamp<std::int64_t>(time_ns / 1000, 0, whole) * (kPlot * 10) / whole;
    };
    struct Bar {
        std::int64_t from, to;
        std::size_t lane;
        const Match* match;
    };
    const auto lay = [&](bool of_a, std::size_t& lanes) {
        std::vector<Bar> laid;
        std::vector<std::int64_t> ends;
        for (const Match& match : clip.comparison.tracks) {
            if ((of_a ? match.a : match.b) == 0) continue;
            const TimeSpan& span = of_a ? match.in_a : match.in_b;
            const std::int64_t from = place(span.from_ns), to = std::max(from + 20, place(span.to_ns));
            std::size_t lane = 0;
            while (lane < ends.size() && ends[lane] > from) ++lane;
            if (lane == kMostLanes) continue;
            if (lane == ends.size()) ends.push_back(0);
            ends[lane] = to + 10;
            laid.push_back({from, to, lane, &match});
        }
        lanes = std::max<std::size_t>(1, ends.size());
        return laid;
    };
    std::size_t lanes_a = 0, lanes_b = 0;
    const std::vector<Bar> above = lay(true, lanes_a), below = lay(false, lanes_b);
    const std::int64_t middle = 6 + kPitch * static_cast<std::int64_t>(lanes_a) + 4;
    const std::int64_t bottom = middle + 4 + kPitch * static_cast<std::int64_t>(lanes_b) + 4;
    const auto tenths = [](std::int64_t value) { return fixedPoint(value, 1); };
    std::string text =
        "<svg class=\"chart bars\" viewBox=\"0 0 " + number(kWidth) + " " + number(bottom + 18) +
        "\" role=\"img\" aria-label=\"Tracks over time: those of A above the line, those of B below\">\n";
    text += "<g class=\"axis\"><path d=\"M" + number(kLeft) + " " + number(middle) + "H" + number(kWidth - 12) +
            "\"/></g><text x=\"6\" y=\"" + number(middle - 4) + "\">A</text><text x=\"6\" y=\"" + number(middle + 13) +
            "\">B</text>\n";
    const auto draw = [&](const Bar& bar, bool of_a) {
        const std::int64_t lane = static_cast<std::int64_t>(bar.lane);
        const std::int64_t top = of_a ? middle - 4 - kPitch * (lane + 1) + 2 : middle + 4 + kPitch * lane;
        const Match& match = *bar.match;
        text += std::string("<rect class=\"") + classOf(match.difference) + "\" x=\"" + tenths(bar.from) + "\" y=\"" +
                number(top) + "\" width=\"" + tenths(bar.to - bar.from) + "\" height=\"" + number(kBar) +
                "\"><title>track " + number(of_a ? match.a : match.b) + ", " +
                spanText(of_a ? match.in_a : match.in_b) + "</title></rect>\n";
    };
    for (const Bar& bar : above) draw(bar, true);
    for (const Bar& bar : below) draw(bar, false);
    if (clip.comparison.parting) {
        const std::string x = tenths(place(clip.comparison.parting->time_ns));
        text +=
            "<path class=\"parting\" d=\"M" + x + " 2V" + number(bottom) + "\"><title>They part here</title></path>\n";
    }
    text += "<text x=\"" + number(kLeft) + "\" y=\"" + number(bottom + 13) + "\">0:00</text><text x=\"" +
            number(kWidth - 12) + "\" y=\"" + number(bottom + 13) + "\" text-anchor=\"end\">" +
            clockTime(whole * 1000) + "</text>\n";
    return text + "</svg>\n";
}

std::string lookFigure(const LookPair& look) {
    const auto picture = [](const char* name, const std::string& jpeg) {
        return std::string("<div>") +
               (jpeg.empty() ? "" : "<img alt=\"\" src=\"data:image/jpeg;base64," + base64(jpeg) + "\">") + "<b>" +
               name + "</b></div>";
    };
    return "<figure><figcaption>" + xmlText(look.title) + " <small>" + xmlText(look.note) +
           "</small></figcaption><div class=\"pair\">" + picture("A", look.a) + picture("B", look.b) +
           "</div></figure>\n";
}

const CameraEvent* eventOf(const std::vector<CameraEvent>& events, std::int64_t event) {
    const auto found = std::ranges::find(events, event, &CameraEvent::number);
    return found == events.end() ? nullptr : &*found;
}

const char* nameOfDifference(Difference difference) {
    return difference == Difference::kTimes   ? "other times"
           : difference == Difference::kOnlyA ? "only A"
           : difference == Difference::kOnlyB ? "only B"
                                              : "both";
}

std::string eventTable(const ComparedClip& clip) {
    std::string rows;
    for (const Match& match : clip.comparison.events) {
        if (match.difference == Difference::kNone || match.difference == Difference::kEarly) continue;
        const CameraEvent* event = match.a > 0 ? eventOf(clip.events_a, match.a) : eventOf(clip.events_b, match.b);
        if (event == nullptr) continue;
        const std::string what = std::string(nameOf(event->kind)) + (event->rule.empty() ? "" : " " + event->rule) +
                                 (event->change.empty() ? "" : ", " + event->change);
        rows += "<tr><th scope=\"row\">" + xmlText(what) + "</th>" +
                cells({nameOfDifference(match.difference), match.a > 0 ? spanText(match.in_a) : "",
                       match.b > 0 ? spanText(match.in_b) : ""}) +
                "</tr>\n";
    }
    if (rows.empty()) return "";
    return "<h3>Events that differ</h3>\n<div class=\"wide plain\" tabindex=\"0\"><table class=\"left\">\n" +
           tableHead({"Event", "In", "A", "B"}) + "<tbody>\n" + rows + "</tbody>\n</table></div>\n";
}

std::string verdict(const ComparedClip& clip) {
    const ClipComparison& comparison = clip.comparison;
    if (comparison.identical) return "The same frames, tracks and events, to the last byte.";
    std::string text = comparison.differs() ? "" : "The same tracks and events; boxes are drawn a little differently. ";
    if (comparison.from_ns > 0)
        text = "They learn for different times and are compared from " + clockTime(comparison.from_ns) + " on. " + text;
    if (!comparison.parting) return text.empty() ? "Nothing stands alone in any frame." : text;
    const Parting& parting = *comparison.parting;
    return text + "They part at " + clockTime(parting.time_ns) + ", where " +
           (parting.a > 0 ? "A shows track " + number(parting.a) + " and B nothing there."
                          : "B shows track " + number(parting.b) + " and A nothing there.");
}

std::string clipSection(const ComparedClip& clip, std::size_t index) {
    std::string text = "<section id=\"c" + std::to_string(index + 1) + "\">\n<h2>" + xmlText(clip.name) + "</h2>\n";
    if (!clip.fault.empty()) return text + "<p class=\"change\">" + xmlText(clip.fault) + "</p>\n</section>\n";
    text += "<p>" + verdict(clip) + "</p>\n";
    if (clip.comparison.identical) return text + "</section>\n";
    text += "<div class=\"scroll\" tabindex=\"0\" role=\"group\" aria-label=\"Tracks over time\">" + bars(clip) +
            "</div>\n";
    if (!clip.no_looks.empty()) text += "<p>" + xmlText(clip.no_looks) + "</p>\n";
    auto look = clip.looks.begin();
    if (look != clip.looks.end() && clip.comparison.parting)
        text += "<div class=\"looks first\">\n" + lookFigure(*look++) + "</div>\n";
    if (look != clip.looks.end()) {
        text += "<div class=\"looks\">\n";
        for (; look != clip.looks.end(); ++look) text += lookFigure(*look);
        text += "</div>\n";
    }
    if (clip.looks_left_out > 0)
        text += "<p>" + counted(clip.looks_left_out, "more difference") + " without a picture.</p>\n";
    return text + eventTable(clip) + "</section>\n";
}

const char* const kNotes = R"(<footer>
<h2>How to read this page</h2>
<ul>
<li><span class="key same"></span> in both from and to the same moments (within one frame), <span class="key times"></span> in both, but
seen earlier, later or longer, <span class="key alone"></span> in one of the two alone, <span class="key early"></span> over before
the other had learned: nothing is compared until both have. On pictures boxes have the same colours.</li>
<li>A track is in both where its boxes lie on each other, by three tenths of their common area on average, for half of the time of the
briefer one. Where one run has a thing in pieces, the piece that fits longest is its partner, and the others stand alone.</li>
<li>An event is in both where rule and kind are the same and it starts within 5 seconds, or while the other lasts.</li>
<li>Work: megapixels that are analyzed for each second of video. Processor time follows it. What was measured is no two runs' the same
and therefore stands in <code>cost.txt</code> beside this page.</li>
</ul>
</footer>
)";

}  // namespace

bool ComparePage::differs() const {
    return std::ranges::any_of(
        clips, [](const ComparedClip& clip) { return !clip.fault.empty() || clip.comparison.differs(); });
}

std::string comparePage(const ComparePage& page) {
    std::string text =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<meta name=\"viewport\" "
        "content=\"width=device-width, initial-scale=1\">\n<title>" +
        xmlText(page.a) + " against " + xmlText(page.b) + "</title>\n<style>\n" + kReportStyle + kStyle +
        "</style>\n</head>\n<body>\n<header>\n<h1>" + xmlText(page.a) + " against " + xmlText(page.b) +
        "</h1>\n<p>A is " + xmlText(page.a) + ", B is " + xmlText(page.b) + ".</p>\n" + figures(page) + "</header>\n";
    if (!page.differs()) text += "<p class=\"nothing\">No track and no event differs.</p>\n";
    text += differencesTable(page) + clipTable(page);
    for (std::size_t i = 0; i < page.clips.size(); ++i) text += clipSection(page.clips[i], i);
    return text + kNotes + "</body>\n</html>\n";
}

std::string compareText(const ComparePage& page) {
    std::string text;
    for (const ComparedClip& clip : page.clips) {
        text += clip.name + ": ";
        if (!clip.fault.empty()) {
            text += clip.fault + "\n";
            continue;
        }
        const auto& [tracks, events, parting, from_ns, identical] = clip.comparison;
        const auto part = [](const std::vector<Match>& matches, const char* noun) {
            return counted(ClipComparison::count(matches, Difference::kNone), noun) + " in both, " +
                   number(ClipComparison::count(matches, Difference::kTimes)) + " at other times, " +
                   number(ClipComparison::count(matches, Difference::kOnlyA)) + " only in A, " +
                   number(ClipComparison::count(matches, Difference::kOnlyB)) + " only in B";
        };
        text += identical ? "alike" : part(tracks, "track") + "; " + part(events, "event");
        if (parting) text += "; they part at " + clockTime(parting->time_ns);
        text += "\n";
    }
    return text;
}

}  // namespace fleifeisa::host
