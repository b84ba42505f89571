#include "compare/compare_runs.h"

#include <algorithm>
#include <set>

#include "common/text.h"
#include "compare/looks.h"

namespace fleifeisa::host {
namespace {

constexpr std::size_t kMostLooks = 12;  // a clip, beside that of the parting: some 50 kB each

RunFigures figuresOf(const ClipResult& run) {
    std::set<std::int64_t> tracks;
    for (const ResultFrame& frame : run.frames)
        for (const ShownTrack& shown : frame.shown) tracks.insert(shown.track);
    return {static_cast<std::int64_t>(run.frames.size()),
            run.learningNs(),
            run.lengthNs(),
            run.width,
            run.height,
            static_cast<std::int64_t>(tracks.size()),
            static_cast<std::int64_t>(run.events.size())};
}

std::string titleOf(const Match& match) {
    switch (match.difference) {
        case Difference::kOnlyA:
            return "Only in A: track " + std::to_string(match.a);
        case Difference::kOnlyB:
            return "Only in B: track " + std::to_string(match.b);
        default:
            return "At other times: track " + std::to_string(match.a) + " in A, " + std::to_string(match.b) + " in B";
    }
}

std::string noteOf(const Match& match) {
    const auto span = [](const char* name, const TimeSpan& of) {
        return std::string(name) + clockTime(of.from_ns) + " to " + clockTime(of.to_ns);
    };
    if (match.difference == Difference::kOnlyA) return span("", match.in_a);
    if (match.difference == Difference::kOnlyB) return span("", match.in_b);
    return span("", match.in_a) + ", " + span("", match.in_b);
}

/// The part of the source's picture that a run sees: places of runs with different regions are compared there.
struct ShownCut {
    ShareBox part = {0, 0, 1, 1};

    ShareBox toSource(const ShareBox& box) const {
        const double width = part.right - part.left, height = part.bottom - part.top;
        return {part.left + box.left * width, part.top + box.top * height, part.left + box.right * width,
                part.top + box.bottom * height};
    }
    ShareBox fromSource(const ShareBox& box) const {
        const double width = part.right - part.left, height = part.bottom - part.top;
        return {(box.left - part.left) / width, (box.top - part.top) / height, (box.right - part.left) / width,
                (box.bottom - part.top) / height};
    }
};

ShownCut cutOf(const SourceOptions& source, std::pair<int, int> size) {
    if (!source.region) return {};
    const Region& region = *source.region;
    const double width = size.first, height = size.second;
    return {{region.left / width, region.top / height, (region.left + region.width) / width,
             (region.top + region.height) / height}};
}

void moveToSource(ClipResult& run, const ShownCut& cut) {
    for (ResultFrame& frame : run.frames)
        for (ShownTrack& shown : frame.shown) shown.box = cut.toSource(shown.box);
}

/// A picture of one run at a moment, with its boxes as they stand to the other run's.
class Illustrator {
 public:
    Illustrator(const ClipResult& run, const ShownCut& cut, const ClipComparison& comparison, bool is_a)
        : run_(run), cut_(cut) {
        for (const Match& match : comparison.tracks)
            marks_[is_a ? match.a : match.b] = match.difference == Difference::kNone    ? Mark::kBoth
                                               : match.difference == Difference::kTimes ? Mark::kOtherTimes
                                                                                        : Mark::kAlone;
    }

    /// @param meant  the track that it is about
    std::string draw(const Look& look, std::int64_t meant) const {
        const std::int64_t time = run_.frames.front().time_ns + look.time_ns;
        const auto frame = std::ranges::lower_bound(run_.frames, time, {}, &ResultFrame::time_ns);
        std::vector<MarkedBox> boxes;
        if (frame != run_.frames.end() && frame->time_ns == time)
            for (const ShownTrack& shown : frame->shown)
                boxes.push_back(
                    {shown.track, cut_.fromSource(shown.box), marks_.at(shown.track), shown.track == meant});
        return drawnLook(look.picture, boxes);
    }

 private:
    const ClipResult& run_;
    const ShownCut& cut_;
    std::map<std::int64_t, Mark> marks_;  ///< by track
};

void addLooks(ComparedClip& clip, const ClipResult& a, const ClipResult& b, const SourceOptions& source_a,
              const SourceOptions& source_b, const ShownCut& cut_a, const ShownCut& cut_b) {
    std::vector<LookPair> wanted;
    std::vector<std::pair<std::int64_t, std::int64_t>> meant;
    if (const auto& parting = clip.comparison.parting) {
        meant.emplace_back(parting->a, parting->b);
        wanted.push_back({"They part here", clockTime(parting->time_ns), parting->time_ns, "", ""});
    }
    for (const Match& match : clip.comparison.tracks) {
        if (match.difference == Difference::kNone || match.difference == Difference::kEarly) continue;
        if (wanted.size() > kMostLooks) {
            ++clip.looks_left_out;
            continue;
        }
        meant.emplace_back(match.a, match.b);
        wanted.push_back({titleOf(match), noteOf(match), match.look_ns, "", ""});
    }
    std::set<std::int64_t> moments;
    for (const LookPair& look : wanted) moments.insert(look.time_ns);
    const auto looks_a = looksAt(source_a, moments);
    const auto looks_b = source_a == source_b ? looks_a : looksAt(source_b, moments);
    const Illustrator of_a(a, cut_a, clip.comparison, true), of_b(b, cut_b, clip.comparison, false);
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        wanted[i].a = of_a.draw(looks_a.at(wanted[i].time_ns), meant[i].first);
        wanted[i].b = of_b.draw(looks_b.at(wanted[i].time_ns), meant[i].second);
    }
    clip.looks = std::move(wanted);
}

}  // namespace

ComparedClip compareRuns(const std::string& name, const StoredRun& a, const StoredRun& b) {
    ComparedClip clip;
    clip.name = name;
    try {
        ClipResult in_a = readResult(a.directory), in_b = readResult(b.directory);
        ShownCut cut_a, cut_b;
        if (a.source && b.source && a.source->region != b.source->region) {
            const std::pair<int, int> size = pictureSize(*a.source);
            cut_a = cutOf(*a.source, size);
            cut_b = cutOf(*b.source, size);
            moveToSource(in_a, cut_a);
            moveToSource(in_b, cut_b);
        }
        clip.a = figuresOf(in_a);
        clip.b = figuresOf(in_b);
        clip.comparison = compareResults(in_a, in_b);
        clip.events_a = in_a.events;
        clip.events_b = in_b.events;
        if (!clip.comparison.differs() && !clip.comparison.parting) return clip;
        const auto& source_a = a.source ? a.source : b.source;
        const auto& source_b = b.source ? b.source : a.source;
        if (!source_a) {
            clip.no_looks = "No pictures: the clip itself is not at hand.";
            return clip;
        }
        try {
            addLooks(clip, in_a, in_b, *source_a, *source_b, cut_a, cut_b);
        } catch (const std::exception& error) {
            clip.no_looks = std::string("No pictures: ") + error.what();
        }
    } catch (const std::exception& error) {
        clip.fault = error.what();
    }
    return clip;
}

}  // namespace fleifeisa::host
