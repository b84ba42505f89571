#include "tune/tune_page.h"

#include <algorithm>
#include <cmath>

#include "common/text.h"
#include "report/report_data.h"

namespace fleifeisa::host {
namespace {

const char* const kStyle = R"css(
pre { margin: .5rem 0; padding: .75rem 1rem; overflow-x: auto; border: 1px solid var(--line); border-radius: 8px; background: var(--ground); }
.wide { overflow-x: auto; max-height: 40rem; overflow-y: auto; }
.left th, .left td { text-align: left; } .left td { white-space: normal; }
thead th { white-space: normal; position: sticky; top: 0; background: var(--card); }
tbody th { font-weight: 400; text-align: left; white-space: normal; min-width: 15rem; } thead th:first-child { text-align: left; }
th, td { padding: .3rem .45rem; } tr.best, tr.best th { font-weight: 650; } tr.present { background: var(--learning); }
.verdict { padding: 1rem; border-left: 4px solid var(--accent); background: var(--card); font-size: 1.05rem; }
.trade .dot { fill: var(--soft); fill-opacity: .45; } .trade .front { fill: none; stroke: var(--accent); stroke-width: 1.6; }
.trade .on { fill: var(--accent); fill-opacity: 1; } .trade .present { fill: none; stroke: #d0392a; stroke-width: 2.5; }
.trade .best { fill: none; stroke: var(--accent); stroke-width: 2.5; }
.trade text.name { fill: var(--ink); font-weight: 600; }
@media (max-width: 640px) {
  thead { display: table-header-group; } table { display: table; } tbody { display: table-row-group; }
  tr { display: table-row; } th, td { padding: .3rem .5rem; border-bottom: 1px solid var(--line); }
  th[scope=row]::before { content: ""; }
}
)css";

std::string number(std::int64_t value) {
    return std::to_string(value);
}

/// Lines stay lines.
std::string xmlLines(const std::string& text) {
    std::string all;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        all += xmlText(text.substr(begin, end - begin)) + '\n';
        begin = end + 1;
    }
    return all;
}

std::string perMinute(const Score& score) {
    return rounded(score.wrongAMinute(), 2);
}

double foundShare(const Score& score) {
    return score.things > 0 ? static_cast<double>(score.found) / static_cast<double>(score.things) : 1;
}

double seenShare(const Score& score) {
    return score.present > 0 ? static_cast<double>(score.seen) / static_cast<double>(score.present) : 0;
}

std::string percent(double share) {
    return rounded(100 * share, 0) + " %";
}

std::string figure(const std::string& value, const std::string& name, const std::string& more) {
    return "<div><dt>" + name + "</dt><dd>" + value + "<small>" + more + "</small></dd></div>\n";
}

/// "9 of 12 found, 0.40 wrong a minute".
std::string scoreText(const Score& score) {
    return number(score.found) + " of " + number(score.things) + " found, " + perMinute(score) + " wrong a minute";
}

std::string cells(std::initializer_list<std::string> values) {
    std::string text;
    for (const std::string& value : values) text += "<td>" + value + "</td>";
    return text;
}

std::string head(std::initializer_list<const char*> names) {
    std::string text = "<thead><tr>";
    for (const char* name : names) text += std::string("<th scope=\"col\">") + name + "</th>";
    return text + "</tr></thead>\n";
}

/// Wrong tracks a minute to the right, share of things found upwards.
std::string tradeChart(const TunePage& page) {
    constexpr std::int64_t kWidth = 1000, kHeight = 340, kLeft = 50, kRight = 20, kTop = 14, kBottom = 300;
    double most = 0;
    for (const TuneRow& row : page.rows) most = std::max(most, row.judged.score.wrongAMinute());
    const double scale = most > 0 ? most * 1.05 : 1;
    // A square root: what matters lies near nought, and a few candidates see things everywhere.
    const auto x = [&](const Score& score) {
        return kLeft + std::llround(std::sqrt(score.wrongAMinute() / scale) * (kWidth - kLeft - kRight));
    };
    const auto y = [&](const Score& score) {
        return kBottom - std::llround(foundShare(score) * static_cast<double>(kBottom - kTop));
    };
    std::string text =
        "<svg class=\"chart trade\" viewBox=\"0 0 " + number(kWidth) + " " + number(kHeight) +
        "\" role=\"img\" aria-label=\"Share of things found against wrong tracks a minute, a dot for each "
        "candidate\">\n<g class=\"axis\">\n";
    for (const int share : {0, 25, 50, 75, 100}) {
        const std::string at = number(kBottom - (kBottom - kTop) * share / 100);
        text += "<path d=\"M" + number(kLeft) + " " + at + "H" + number(kWidth - kRight) + "\"/><text x=\"" +
                number(kLeft - 6) + "\" y=\"" + at + "\" dy=\"4\" text-anchor=\"end\">" + number(share) + " %</text>\n";
    }
    for (const double part : {0.0, 0.0625, 0.25, 0.5625, 1.0}) {
        const std::string at = number(kLeft + std::llround(std::sqrt(part) * (kWidth - kLeft - kRight)));
        text += "<text x=\"" + at + "\" y=\"" + number(kBottom + 16) + "\" text-anchor=\"middle\">" +
                rounded(part * scale, 2) + "</text>\n";
    }
    text += "<text x=\"" + number(kWidth - kRight) + "\" y=\"" + number(kBottom + 32) +
            "\" text-anchor=\"end\">wrong tracks a minute</text></g>\n";
    const std::vector<std::size_t> on = tradeFront(page.rows);
    const auto dot = [&](std::size_t index, const char* kind, int radius) {
        const Judged& judged = page.rows[index].judged;
        text += std::string("<circle class=\"") + kind + "\" cx=\"" + number(x(judged.score)) + "\" cy=\"" +
                number(y(judged.score)) + "\" r=\"" + number(radius) + "\"><title>" +
                xmlText(candidateText(judged.candidate) + ": " + scoreText(judged.score)) + "</title></circle>\n";
    };
    for (std::size_t i = 0; i < page.rows.size(); ++i) dot(i, "dot", 4);
    std::string way;
    for (const std::size_t i : on)
        way += (way.empty() ? "M" : "L") + number(x(page.rows[i].judged.score)) + " " +
               number(y(page.rows[i].judged.score));
    text += "<path class=\"front\" d=\"" + way + "\"/>\n";
    for (const std::size_t i : on) dot(i, "dot on", 4);
    const auto named = [&](std::size_t index, const char* kind, const char* name, std::int64_t shift) {
        const Score& score = page.rows[index].judged.score;
        dot(index, kind, 8);
        const bool right = x(score) > kWidth * 3 / 4;
        text += "<text class=\"name\" x=\"" + number(x(score) + (right ? -13 : 13)) + "\" y=\"" +
                number(y(score) + shift) + (right ? "\" text-anchor=\"end" : "") + "\">" + name + "</text>\n";
    };
    if (page.present != 0) named(page.present, "present", "now", 18);
    named(0, "best", page.present == 0 ? "now, and the best" : "best", 4);
    return text + "</svg>\n";
}

std::string clipTable(const TunePage& page) {
    std::string text =
        "<section>\n<h2>Clips</h2>\n<div class=\"wide\" tabindex=\"0\"><table>\n" +
        head({"Clip", "Length", "Used", "Things", "Found now", "Found best", "Wrong now", "Wrong best"}) + "<tbody>\n";
    for (const TunedClip& clip : page.clips) {
        text += "<tr><th scope=\"row\">" + xmlText(clip.name) + "</th>" + cells({clockTime(clip.length_ns)});
        if (clip.use == TunedClip::Use::kNotJudged)
            text += "<td colspan=\"6\">not judged: " + xmlText(clip.why) + "</td></tr>\n";
        else
            text += cells({clip.use == TunedClip::Use::kHeldOut ? "held out" : "searched", number(clip.present.things),
                           number(clip.present.found), number(clip.best.found), number(clip.present.wrong),
                           number(clip.best.wrong)}) +
                    "</tr>\n";
    }
    return text + "</tbody>\n</table></div>\n</section>\n";
}

std::string candidateTable(const TunePage& page) {
    std::string text =
        "<section>\n<h2>Candidates</h2>\n<p>The best first. Processor: what a camera would take of one core, measured "
        "here.</p>\n"
        "<div class=\"wide\" tabindex=\"0\"><table>\n" +
        head({"Candidate", "Found", "Missed", "Wrong", "Wrong a minute", "Time seen", "Numbers more", "Processor",
              "Held out: found", "Held out: wrong a minute"}) +
        "<tbody>\n";
    for (std::size_t i = 0; i < page.rows.size(); ++i) {
        const TuneRow& row = page.rows[i];
        const Score& score = row.judged.score;
        const std::string kind = i == 0 ? " class=\"best\"" : i == page.present ? " class=\"present\"" : "";
        text += "<tr" + kind + "><th scope=\"row\">" + xmlText(candidateText(row.judged.candidate)) +
                (i == page.present ? " (now)" : "") + "</th>" +
                cells({number(score.found), number(score.missed()), number(score.wrong), perMinute(score),
                       percent(seenShare(score)), number(score.again), rounded(100 * row.judged.cost.share(), 1) + " %",
                       row.held_out_known ? number(row.held_out.found) + " of " + number(row.held_out.things) : "",
                       row.held_out_known ? perMinute(row.held_out) : ""}) +
                "</tr>\n";
    }
    return text + "</tbody>\n</table></div>\n</section>\n";
}

std::string notes(const TunePage& page) {
    return "<footer>\n<h2>How to read this page</h2>\n<ul>\n"
           "<li>Every candidate was run over every clip, frame by frame: <code>play</code> with its values makes the "
           "same "
           "tracks.</li>\n"
           "<li>Found: a track came by the place while the thing was there; where its boxes are known, a track lay on "
           "it for half "
           "of its time. Wrong: a track that is on nothing for most of its time. Numbers more: tracks of one thing "
           "beyond "
           "the first.</li>\n"
           "<li>Candidates are ordered by their mistakes, a miss weighing as much as " +
           rounded(page.weights.missed, 1) +
           " wrong tracks; then by how long things were seen, by numbers, by pixels a second.</li>\n"
           "<li>A third of the clips, chosen by their names alone, took no part in the search and was scored at its "
           "end. "
           "Where the best is no better there, it was luck.</li>\n"
           "<li>A clip is judged where it goes on for " +
           rounded(page.least_seconds, 0) + " s after learning (" + rounded(page.learning_seconds, 1) +
           " s here), which is as long for every candidate.</li>\n</ul>\n</footer>\n";
}

const Score& presentHeldOut(const TunePage& page) {
    return page.rows[page.present].held_out;
}

}  // namespace

std::vector<std::size_t> tradeFront(const std::vector<TuneRow>& rows) {
    std::vector<std::size_t> order(rows.size());
    for (std::size_t i = 0; i < order.size(); ++i) order[i] = i;
    std::ranges::stable_sort(order, [&rows](std::size_t a, std::size_t b) {
        const Score &one = rows[a].judged.score, &other = rows[b].judged.score;
        return one.wrong != other.wrong ? one.wrong < other.wrong : one.found > other.found;
    });
    std::vector<std::size_t> chosen;
    std::int64_t most = -1;
    for (const std::size_t index : order) {
        if (rows[index].judged.score.found <= most) continue;
        most = rows[index].judged.score.found;
        chosen.push_back(index);
    }
    return chosen;
}

HeldOutVerdict verdictOf(const TunePage& page) {
    if (page.present == 0) return HeldOutVerdict::kPresentIsBest;
    if (!page.best().held_out_known || page.best().held_out.judged_ns == 0) return HeldOutVerdict::kNothingHeldOut;
    const double best = loss(page.best().held_out, page.weights), present = loss(presentHeldOut(page), page.weights);
    return best < present ? HeldOutVerdict::kBetter : best > present ? HeldOutVerdict::kWorse : HeldOutVerdict::kSame;
}

std::string verdictText(const TunePage& page) {
    const auto held_out = [&page] {
        return scoreText(page.best().held_out) + ", against " + scoreText(presentHeldOut(page)) + " now";
    };
    switch (verdictOf(page)) {
        case HeldOutVerdict::kPresentIsBest:
            return "Nothing that was tried is better than what is set now.";
        case HeldOutVerdict::kNothingHeldOut:
            return "Too few clips are judged to hold any out (three are needed): how much of this is luck is not "
                   "known.";
        case HeldOutVerdict::kBetter:
            return "The best is better on the clips that were held out, too: " + held_out() + ".";
        case HeldOutVerdict::kSame:
            return "On the clips that were held out the best is no better than what is set now: " + held_out() + ".";
        case HeldOutVerdict::kWorse:
            break;
    }
    return "On the clips that were held out the best is WORSE than what is set now: " + held_out() +
           ". Keep what there is, or add clips.";
}

std::string tunePage(const TunePage& page) {
    const Judged &best = page.best().judged, &present = page.rows[page.present].judged;
    std::string text =
        "<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<meta name=\"viewport\" "
        "content=\"width=device-width, initial-scale=1\">\n<title>Search for parameters</title>\n<style>\n" +
        std::string(kReportStyle) + kStyle + "</style>\n</head>\n<body>\n<header>\n<h1>Search for parameters</h1>\n" +
        "<dl class=\"figures\">\n" +
        figure(number(static_cast<std::int64_t>(page.rows.size())), "Candidates",
               rounded(page.cpu_seconds, 0) + " s of processor time") +
        figure(number(best.score.found) + " of " + number(best.score.things), "Found by the best",
               number(present.score.found) + " now") +
        figure(perMinute(best.score), "Wrong a minute", perMinute(present.score) + " now") +
        figure(rounded(100 * best.cost.share(), 1) + " %", "Of one core",
               rounded(100 * present.cost.share(), 1) + " % now") +
        "</dl>\n</header>\n<p class=\"verdict\">" + xmlText(verdictText(page)) + "</p>\n";
    text += "<section>\n<h2>Lines to copy</h2>\n<p>Into the camera's table" +
            std::string(page.compare.empty()
                            ? ""
                            : "; <a href=\"" + xmlText(page.compare) + "\">what they change on these clips</a>") +
            ".</p>\n<pre>" + xmlLines(candidateToml(best.candidate, page.infrared, page.over_rate)) +
            "</pre>\n</section>\n";
    text +=
        "<section>\n<h2>Found against wrong</h2>\n<div class=\"scroll\" tabindex=\"0\" role=\"group\" "
        "aria-label=\"Trade\">" +
        tradeChart(page) +
        "</div>\n<p>A dot is a candidate; those on the line are the ones to choose from.</p>\n</section>\n";
    return text + clipTable(page) + candidateTable(page) + notes(page) + "</body>\n</html>\n";
}

std::string tuneTable(const TunePage& page) {
    std::string text =
        "low,high,longest_side,rate,learning_frames,least_area,shadow_test,split_people,found,missed,wrong,wrong_a_"
        "minute,"
        "seen,more_numbers,processor,held_out_found,held_out_missed,held_out_wrong_a_minute\n";
    for (const TuneRow& row : page.rows) {
        const ParameterSet& set = row.judged.candidate;
        const Score& score = row.judged.score;
        text += rounded(set.low, 4) + "," + rounded(set.high, 4) + "," + number(set.longest_side) + "," +
                rounded(set.rate, 3) + "," + number(set.learning_frames) + "," + rounded(set.least_area, 6) + "," +
                number(set.shadow_test ? 1 : 0) + "," + number(set.split_people ? 1 : 0) + "," + number(score.found) +
                "," + number(score.missed()) + "," + number(score.wrong) + "," + rounded(score.wrongAMinute(), 3) +
                "," + rounded(seenShare(score), 3) + "," + number(score.again) + "," +
                rounded(row.judged.cost.share(), 4);
        text += row.held_out_known ? "," + number(row.held_out.found) + "," + number(row.held_out.missed()) + "," +
                                         rounded(row.held_out.wrongAMinute(), 3) + "\n"
                                   : ",,,\n";
    }
    return text;
}

std::string tuneText(const TunePage& page) {
    std::string text;
    for (const TunedClip& clip : page.clips)
        if (clip.use == TunedClip::Use::kNotJudged) text += clip.name + ": not judged: " + clip.why + "\n";
    const Judged &best = page.best().judged, &present = page.rows[page.present].judged;
    text += number(static_cast<std::int64_t>(page.rows.size())) + " candidates. Now: " + scoreText(present.score) +
            ". Best: " + scoreText(best.score) + ".\n" + verdictText(page) + "\n\n" +
            candidateToml(best.candidate, page.infrared, page.over_rate);
    return text;
}

}  // namespace fleifeisa::host
