// Two runs of a clip laid upon each other, and the files that runs are read from. Results are made up.
#include <gtest/gtest.h>

#include <algorithm>
#include <fstream>

#include "common/private_root.h"
#include "compare/compare_page.h"
#include "compare/match.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kStep = 100'000'000;  // ten frames a second

/// A thing that walks to the right: shown in frames `from` to `to`.
struct Walker {
    std::int64_t track;
    int from, to;
    double left = 0.1, top = 0.2, size = 0.2;
};

CameraEvent event(std::int64_t number, EventKind kind, double start, double end, std::string rule = "") {
    CameraEvent made;
    made.number = number;
    made.kind = kind;
    made.rule = std::move(rule);
    made.start_ns = static_cast<std::int64_t>(start * 1e9);
    if (end >= 0) made.end_ns = static_cast<std::int64_t>(end * 1e9);
    return made;
}

/// A hundred frames with these in them. @param every  of the frames, the others are missing
ClipResult run(const std::vector<Walker>& walkers, int every = 1, std::vector<CameraEvent> events = {}) {
    ClipResult result{320, 240, {}, std::move(events)};
    for (int index = 0; index < 100; index += every) {
        ResultFrame frame{index * kStep, index >= 10, {}};
        for (const Walker& one : walkers) {
            if (index < one.from || index > one.to) continue;
            const double left = one.left + 0.002 * index;
            frame.shown.push_back({one.track, {left, one.top, left + one.size, one.top + 2 * one.size}});
        }
        result.frames.push_back(std::move(frame));
    }
    return result;
}

TimeSpan frames(int from, int to) {
    return {from * kStep, to * kStep};
}

TEST(Compare, Tracks) {
    const std::vector<Walker> one = {{1, 20, 60}};
    struct Case {
        const char* name;
        ClipResult a, b;
        std::vector<Match> expected;  ///< without likeness and look
        std::int64_t parting;         ///< frame, -1: none
        bool identical = false;
    };
    const auto match = [](Difference difference, std::int64_t a, std::int64_t b, TimeSpan in_a, TimeSpan in_b) {
        return Match{difference, a, b, in_a, in_b, 0, 0};
    };
    const auto both = [&](TimeSpan a, TimeSpan b, Difference difference = Difference::kNone) {
        return match(difference, 1, 1, a, b);
    };
    const std::vector<Case> cases = {
        {"the same", run(one), run(one), {both(frames(20, 60), frames(20, 60))}, -1, true},
        {"nothing at all", run({}), run({}), {}, -1, true},
        {"only in A", run(one), run({}), {match(Difference::kOnlyA, 1, 0, frames(20, 60), {})}, 20},
        {"only in B", run({}), run(one), {match(Difference::kOnlyB, 0, 1, {}, frames(20, 60))}, 20},
        {"another number",
         run(one),
         run({{7, 20, 60}}),
         {match(Difference::kNone, 1, 7, frames(20, 60), frames(20, 60))},
         -1},
        {"begins a frame later: the same moment",
         run(one),
         run({{1, 21, 60}}),
         {both(frames(20, 60), frames(21, 60))},
         20},
        {"begins two frames later",
         run(one),
         run({{1, 22, 60}}),
         {both(frames(20, 60), frames(22, 60), Difference::kTimes)},
         20},
        {"ends earlier", run(one), run({{1, 20, 50}}), {both(frames(20, 60), frames(20, 50), Difference::kTimes)}, 51},
        {"a little beside", run(one), run({{1, 20, 60, 0.12}}), {both(frames(20, 60), frames(20, 60))}, -1},
        {"elsewhere",
         run(one),
         run({{1, 20, 60, 0.5}}),
         {match(Difference::kOnlyA, 1, 0, frames(20, 60), {}), match(Difference::kOnlyB, 0, 1, {}, frames(20, 60))},
         20},
        {"at another time",
         run({{1, 20, 40}}),
         run({{1, 41, 60}}),
         {match(Difference::kOnlyA, 1, 0, frames(20, 40), {}), match(Difference::kOnlyB, 0, 1, {}, frames(41, 60))},
         20},
        {"in two pieces: the longer one is the partner",
         run(one),
         run({{1, 20, 34}, {2, 36, 60}}),
         {match(Difference::kOnlyB, 0, 1, {}, frames(20, 34)),
          match(Difference::kTimes, 1, 2, frames(20, 60), frames(36, 60))},
         35},
        {"two that are one in B",
         run({{1, 20, 60}, {2, 20, 60, 0.15}}),
         run(one),
         {both(frames(20, 60), frames(20, 60)), match(Difference::kOnlyA, 2, 0, frames(20, 60), {})},
         -1},
        {"half of the frames", run(one), run(one, 2), {both(frames(20, 60), frames(20, 60))}, -1},
        {"a third of the frames, the ends between them",
         run({{1, 20, 61}}),
         run({{1, 20, 61}}, 3),
         {both(frames(20, 61), frames(21, 60))},
         -1},
    };
    for (const Case& test : cases) {
        ClipComparison result = compareResults(test.a, test.b);
        for (Match& one_match : result.tracks) one_match.likeness = 0, one_match.look_ns = 0;
        EXPECT_EQ(result.tracks.size(), test.expected.size()) << test.name;
        auto expected = test.expected;
        for (const Match& found : result.tracks)
            EXPECT_EQ(std::erase(expected, found), 1u) << test.name << found.a << ',' << found.b;
        EXPECT_EQ(result.parting ? result.parting->time_ns / kStep : -1, test.parting) << test.name;
        EXPECT_EQ(result.identical, test.identical) << test.name;
        EXPECT_EQ(result.differs(),
                  std::ranges::any_of(test.expected,
                                      [](const Match& one_match) { return one_match.difference != Difference::kNone; }))
            << test.name;
    }
}

TEST(Compare, NothingIsComparedUntilBothHaveLearned) {
    const ClipResult a = run({{1, 15, 30}, {2, 15, 70}, {3, 60, 80}}, 1,
                             {event(1, EventKind::kLine, 2, 2, "gate"), event(2, EventKind::kZone, 2, 7, "yard")});
    ClipResult b = run({{1, 43, 70}, {2, 60, 80}}, 1, {event(1, EventKind::kZone, 4.3, 7, "yard")});
    for (int index = 0; index < 40; ++index) b.frames[static_cast<std::size_t>(index)].detection = false;
    for (const bool turned : {false, true}) {
        const ClipComparison result = turned ? compareResults(b, a) : compareResults(a, b);
        EXPECT_EQ(result.from_ns, 50 * kStep);  // and a second more
        EXPECT_EQ(ClipComparison::count(result.tracks, Difference::kEarly), 1);
        EXPECT_EQ(ClipComparison::count(result.tracks, Difference::kNone), 2);
        EXPECT_EQ(ClipComparison::count(result.events, Difference::kEarly), 1);
        EXPECT_EQ(ClipComparison::count(result.events, Difference::kNone), 1);
        EXPECT_FALSE(result.differs());
        EXPECT_FALSE(result.parting);
    }
}

TEST(Compare, APictureIsTakenWhereItSaysMost) {
    // In both: in the middle of what only one of them shows. Alone: where it is largest.
    const auto look = [](const ClipResult& a, const ClipResult& b) {
        return compareResults(a, b).tracks.at(0).look_ns;
    };
    EXPECT_EQ(look(run({{1, 20, 60}}), run({{1, 40, 60}})), 30 * kStep);
    EXPECT_EQ(look(run({{1, 20, 60}}), run({{1, 20, 40}})), 50 * kStep);
    ClipResult growing = run({{1, 20, 60}});
    growing.frames[33].shown[0].box.bottom += 0.1;
    EXPECT_EQ(look(growing, run({})), 33 * kStep);
    EXPECT_EQ(look(run({}), growing), 33 * kStep);
    const ClipComparison comparison = compareResults(growing, run({{1, 20, 60}}));
    EXPECT_GT(comparison.tracks.at(0).likeness, 0.99);
    EXPECT_LT(comparison.tracks.at(0).likeness, 1.0);
}

TEST(Compare, Events) {
    using enum EventKind;
    const auto with = [](std::vector<CameraEvent> events) { return run({}, 1, std::move(events)); };
    struct Case {
        const char* name;
        std::vector<CameraEvent> a, b;
        std::string expected;  ///< of each match: '=', 't', 'A', 'B'
    };
    const std::vector<Case> cases = {
        {"the same", {event(1, kZone, 2, 4, "yard")}, {event(9, kZone, 2, 4, "yard")}, "="},
        {"a frame later", {event(1, kZone, 2, 4, "yard")}, {event(1, kZone, 2.1, 4, "yard")}, "="},
        {"three seconds later", {event(1, kLine, 2, 2, "gate")}, {event(1, kLine, 5, 5, "gate")}, "t"},
        {"six seconds later", {event(1, kLine, 2, 2, "gate")}, {event(1, kLine, 8, 8, "gate")}, "AB"},
        {"six seconds later, while it lasts", {event(1, kZone, 2, 9, "yard")}, {event(1, kZone, 8.2, 9, "yard")}, "t"},
        {"never ends", {event(1, kMotion, 2, -1)}, {event(1, kMotion, 2, -1)}, "="},
        {"another rule", {event(1, kZone, 2, 4, "yard")}, {event(1, kZone, 2, 4, "door")}, "AB"},
        {"another kind", {event(1, kZone, 2, 4, "yard")}, {event(1, kStopped, 2, 4, "yard")}, "AB"},
        {"the nearest is the partner",
         {event(1, kLine, 3, 3, "gate")},
         {event(1, kLine, 1, 1, "gate"), event(2, kLine, 3, 3, "gate")},
         "B="},
        {"one more",
         {event(1, kLine, 3, 3, "gate"), event(2, kLine, 3, 3, "gate")},
         {event(1, kLine, 3, 3, "gate")},
         "=A"},
    };
    for (const Case& test : cases) {
        std::string found;
        for (const Match& match : compareResults(with(test.a), with(test.b)).events)
            found += "=tAB"[static_cast<int>(match.difference)];
        EXPECT_EQ(found, test.expected) << test.name;
    }
}

/// What `play` writes, with one thing made wrong in each case.
TEST(Compare, ReadsWhatRunsWrite) {
    const auto frame = [](int number, bool detection) {
        return "{\"camera\":\"gate\",\"sequence\":" + std::to_string(number) +
               ",\"time_ns\":" + std::to_string(number * kStep) +
               ",\"width\":100,\"height\":50,\"detection\":" + (detection ? "true" : "false") + ",\"objects\":[]}\n";
    };
    const std::string frames = frame(1, false) + frame(2, true) + frame(4, true);
    const std::string boxes = "2,5,11,6,20,10,1,-1,-1,-1\n4,5,1,1,100,50,1,-1,-1,-1\n";
    const std::string begin =
        R"({"event":"gate-7","kind":"zone","rule":"yard","change":"enter","state":"start",)"
        R"("track":5,"start_ns":200000000,"time_ns":200000000,"end_ns":null,"value":null,"held":false})";
    const std::string end =
        R"({"event":"gate-7","kind":"zone","rule":"yard","change":"leave","state":"end","reason":"out",)"
        R"("track":5,"start_ns":200000000,"time_ns":400000000,"end_ns":400000000,"value":1.5,"held":false})";
    struct Case {
        std::string frames, boxes, events, fault;
    };
    const std::vector<Case> cases = {
        {frames, boxes, begin + "\n" + end + "\n", ""},
        {frames, "", "", ""},
        {"", boxes, "", "frames.jsonl: there is no frame in it"},
        {"{}\n", boxes, "", "frames.jsonl:1: not a line of this kind of file"},
        {frames + "nonsense\n", boxes, "", "frames.jsonl:4: not a line"},
        {frame(2, true) + frame(1, true), boxes, "", "frames.jsonl:2: times do not rise"},
        {frames, "2,5,11,6,20\n", "", "mot.csv:1: expected frame,id"},
        {frames, "3,5,11,6,20,10,1\n", "", "mot.csv:1: frame 3 is not in frames.jsonl"},
        {frames, "4,5,1,1,1,1,1\n2,5,1,1,1,1,1\n", "", "mot.csv:2: frame 2 is not in frames.jsonl, or out of order"},
        {frames, boxes, "{\"event\":7}\n", "events.jsonl:1: not a line"},
    };
    for (const Case& test : cases) {
        const PrivateRoot root;
        EXPECT_FALSE(holdsResult(root.path()));
        const auto write = [&root](const char* name, const std::string& text) {
            std::ofstream(root.path() + "/" + name) << text;
        };
        write("frames.jsonl", test.frames);
        write("mot.csv", test.boxes);
        if (!test.events.empty()) write("events.jsonl", test.events);
        EXPECT_TRUE(holdsResult(root.path()));
        try {
            const ClipResult result = readResult(root.path());
            EXPECT_EQ(test.fault, "");
            EXPECT_EQ(result.frames.size(), 3u);
            EXPECT_EQ(result.lengthNs(), 5 * kStep);  // the usual distance is two frames
            EXPECT_EQ(result.learningNs(), kStep);
            if (test.boxes.empty()) continue;
            EXPECT_EQ(result.frames[1].shown, (std::vector<ShownTrack>{{5, {0.1, 0.1, 0.3, 0.3}}}));
            EXPECT_EQ(result.frames[2].shown, (std::vector<ShownTrack>{{5, {0, 0, 1, 1}}}));
            ASSERT_EQ(result.events.size(), 1u);
            EXPECT_EQ(result.events[0].change, "enter");
            EXPECT_EQ(result.events[0].end_ns, 4 * kStep);
            EXPECT_EQ(result.events[0].value, 1.5);
        } catch (const ResultError& error) {
            EXPECT_FALSE(test.fault.empty()) << error.what();
            EXPECT_NE(std::string(error.what()).find(root.path() + "/" + test.fault), std::string::npos)
                << error.what();
        }
    }
}

TEST(Compare, ThePageSaysWhatWasFound) {
    ComparePage page{"day <1>", "night", {{"least_area", "0.0005", "0.001"}}, {}};
    ComparedClip clip{"gate.mp4", "", {}, {}, {}, {}, {}, {}, "", 0};
    const ClipResult a = run({{1, 20, 60}}, 1, {event(1, EventKind::kLine, 3, 3, "gate")}), b = run({});
    clip.comparison = compareResults(a, b);
    clip.events_a = a.events;
    clip.looks = {{"Only in A: track 1", "0:02.0 to 0:06.0", 0, "jpeg", ""}};
    page.clips = {clip, {"broken.mp4", "there is no frame in it", {}, {}, {}, {}, {}, {}, "", 0}};
    const std::string text = comparePage(page);
    for (const char* expected :
         {"<h1>day &lt;1&gt; against night</h1>", "<th scope=\"row\">least_area</th><td>0.0005</td><td>0.001</td>",
          "<dt>Only in A</dt><dd>1<small>and 1 event</small>", "They part at 0:02.0, where A shows track 1",
          "Only in A: track 1 <small>0:02.0 to 0:06.0</small>", "data:image/jpeg;base64,anBlZw==",
          "<th scope=\"row\">line gate</th><td>only A</td><td>0:03.0 to 0:03.0</td>", "there is no frame in it"})
        EXPECT_NE(text.find(expected), std::string::npos) << expected;
    EXPECT_TRUE(page.differs());
    EXPECT_EQ(compareText(page),
              "gate.mp4: 0 tracks in both, 0 at other times, 1 only in A, 0 only in B; 0 events in both, 0 at other "
              "times, 1 only in A, 0 only in B; they part at 0:02.0\nbroken.mp4: there is no frame in it\n");
    page.clips.pop_back();
    page.clips[0].comparison = compareResults(a, a);
    EXPECT_FALSE(page.differs());
    EXPECT_NE(comparePage(page).find("No track and no event differs."), std::string::npos);
    EXPECT_EQ(compareText(page), "gate.mp4: alike\n");
}

}  // namespace
}  // namespace fleifeisa::host
