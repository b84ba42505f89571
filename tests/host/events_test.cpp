// Rules: tables from tracks to events. A script is fed line by line, and what the engine tells is written the same way.
#include <gtest/gtest.h>

#include <cmath>
#include <functional>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "cli/rules_config.h"
#include "cli/values.h"
#include "events/rule_engine.h"
#include "events/rule_steps.h"
#include "events/what_if.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

std::int64_t at(double seconds) {
    return std::llround(seconds * 1e9);
}

/// Plays scripts. One line is one input; lines of tracks with the same time are one frame:
///   TIME NUMBER X Y [h=HEIGHT] [from=NUMBER] [start=TIME] [birth=X,Y,HEIGHT] [still=SINCE] [unseen]   a track, its
///   foot in shares TIME NUMBER left|lost|stopped|removed                                its end TIME scene STATE |
///   lost | back | tick | tell TEXT | clock TO | rules ZONE | finish
class Player {
 public:
    Player(const Rules& rules, const EngineStart& start) : engine_(rules, start) {}

    std::string play(const std::string& script) {
        std::istringstream lines(script);
        for (std::string line; std::getline(lines, line, ';');) {
            std::istringstream in(line);
            std::string word;
            double time = 0;
            if (!(in >> time >> word)) continue;
            if (time != time_ || std::isalpha(static_cast<unsigned char>(word[0]))) flush();
            time_ = time;
            if (std::isdigit(static_cast<unsigned char>(word[0])))
                track(std::stoll(word), in);
            else
                input(word, in);
        }
        flush();
        return told_;
    }
    const RuleEngine& engine() const { return engine_; }
    std::string json, counts, misses;
    std::vector<CameraEvent> messages;

 private:
    static Box boxOf(double x, double y, double height) {
        const int tall = static_cast<int>(std::lround(height * 1000));
        return {static_cast<int>(std::lround(x * 1000)) - 50, static_cast<int>(std::lround(y * 1000)) - tall, 100,
                tall};
    }
    void track(std::int64_t number, std::istream& in) {
        Track& track = known_[number];
        const bool first = track.number == 0;
        track.number = number;
        if (first) track.start_ns = at(time_);
        track.state = TrackState::kConfirmed;
        track.seen_ns = at(time_);
        track.stopped_ns = 0;
        std::vector<double> place;
        double height = 0.2;
        for (std::string word; in >> word;) {
            if (word.starts_with("h=")) {
                height = std::stod(word.substr(2));
            } else if (word.starts_with("from=")) {
                track.split_from = std::stoll(word.substr(5));
            } else if (word.starts_with("start=")) {
                track.start_ns = at(std::stod(word.substr(6)));
            } else if (word.starts_with("birth=")) {
                std::replace(word.begin(), word.end(), ',', ' ');
                std::istringstream numbers(word.substr(6));
                double x = 0, y = 0, tall = 0;
                numbers >> x >> y >> tall;
                track.birth = boxOf(x, y, tall);
            } else if (word.starts_with("still=")) {
                track.state = TrackState::kStopped;
                track.stopped_ns = at(std::stod(word.substr(6)));
            } else if (word == "unseen") {
                track.state = TrackState::kCoasting;
                track.seen_ns = at(time_) - 1;
            } else if (std::isalpha(static_cast<unsigned char>(word[0]))) {
                track.state = TrackState::kEnded;
                track.removed = word == "removed";
                track.ended = word == "left" ? TrackEnd::kLeft : word == "lost" ? TrackEnd::kLost : TrackEnd::kStopped;
            } else {
                place.push_back(std::stod(word));
            }
        }
        if (place.size() == 2) track.box = boxOf(place[0], place[1], height);
        frame_.push_back(track);
    }
    void input(const std::string& word, std::istream& in) {
        std::string rest;
        in >> rest;
        const std::int64_t time = at(time_);
        if (word == "scene") {
            for (const SceneState state :
                 {SceneState::kLearning, SceneState::kWatching, SceneState::kChanged, SceneState::kBlind})
                if (rest == nameOf(state)) scene_ = state;
            take(engine_.frame({time, 1000, 1000, scene_, {}, 0}));
        }
        if (word == "lost") take(engine_.sourceLost(time));
        if (word == "back") take(engine_.sourceBack(time));
        if (word == "tick") take(engine_.tick(time));
        if (word == "tell") take(engine_.tell(EventKind::kExternal, "", rest, time));
        if (word == "clock") take(engine_.clockStepped(time, at(std::stod(rest))));
        if (word == "rules") {
            Rules other;
            other.zones.push_back({rest, "", {{0.4, 0.2}, {0.9, 0.2}, {0.9, 0.8}, {0.4, 0.8}}, {}, 0, 0});
            take(takeStep(engine_, *parseStep(stepText({.kind = RuleStep::kRules, .time_ns = time, .rules = other}))));
        }
        if (word == "finish") take(engine_.finish(time, "source"));
    }
    void flush() {
        if (frame_.empty()) return;
        take(engine_.frame({at(time_), 1000, 1000, scene_, frame_, 0}));
        for (const Track& track : frame_)
            if (track.state == TrackState::kEnded) known_.erase(track.number);
        frame_.clear();
    }
    void take(const RuleResults& results) {
        for (const CameraEvent& event : results.events) {
            messages.push_back(event);
            json += eventJson(event) + '\n';
            std::string line = valueText(static_cast<double>(event.time_ns) / 1e9) + ' ' + nameOf(event.kind);
            for (const std::string& word : {event.rule, event.change, std::string(nameOf(event.state)), event.reason})
                if (!word.empty()) line += ' ' + word;
            if (event.track > 0) line += " #" + std::to_string(event.track);
            if (event.value) line += " =" + valueText(*event.value);
            if (event.held) line += " held";
            told_ += line + '\n';
        }
        for (const Crossing& crossing : results.crossings) counts += crossing.forward ? '>' : '<';
        for (const NearMiss& miss : results.near_misses)
            misses += miss.rule + ' ' + miss.value_name + ' ' + valueText(miss.value) + '/' + valueText(miss.limit) +
                      " #" + std::to_string(miss.track) + '\n';
    }

    RuleEngine engine_;
    std::map<std::int64_t, Track> known_;
    std::vector<Track> frame_;
    SceneState scene_ = SceneState::kWatching;
    double time_ = -1;
    std::string told_;
};

/// A yard in the lower half, a gate that is drawn from the top to the bottom.
Rules yardAndGate() {
    Rules rules;
    rules.zones.push_back({"yard", "", {{0.1, 0.5}, {0.9, 0.5}, {0.9, 1}, {0.1, 1}}, {}, 0, 0});
    rules.lines.push_back({"gate", "", {0.5, 0.1}, {0.5, 0.4}, {}});
    return rules;
}

/// Without the lines of the visit, which all would repeat.
std::string withoutVisits(const std::string& told) {
    std::string kept;
    std::istringstream lines(told);
    for (std::string line; std::getline(lines, line);)
        if (line.find(" motion ") == std::string::npos) kept += line + '\n';
    return kept;
}

struct RuleCase {
    const char* name;
    std::function<void(Rules&)> change;
    const char *script, *expected, *counts = "", *misses = "";
};

const auto kAsIs = [](Rules&) {};

const std::vector<RuleCase> kCases = {
    {"in and out", kAsIs, "0 1 .5 .3; 1 1 .5 .6; 3 1 .5 .4; 4 1 lost",
     "1 zone yard enter start #1\n3 zone yard leave end out #1 =2\n"},
    {"the lower border of the picture is no edge", kAsIs, "0 1 .5 1; 2 1 .5 1.05; 3 1 left",
     "0 zone yard enter start #1\n3 zone yard leave end out #1 =3\n"},
    {"jitter on the edge, from outside and from inside", kAsIs,
     "0 1 .5 .48; 1 1 .5 .51; 2 1 .5 .49; 3 1 .5 .515; 4 1 .5 .6; 5 1 .5 .49; 6 1 .5 .51; 7 1 .5 .485; 8 1 lost",
     "4 zone yard enter start #1\n8 zone yard leave end lost #1 =4\n"},
    {"unseen positions decide nothing", kAsIs, "0 1 .5 .3; 1 1 .5 .6 unseen; 2 1 .5 .3; 3 1 lost", ""},
    {"a split inside, its parent has the event", kAsIs,
     "0 1 .5 .3; 1 1 .5 .6; 2 1 .5 .6; 2 2 .6 .6 from=1; 3 2 .6 .7; 4 2 .6 .4; 5 2 .6 .7; 6 2 lost",
     "1 zone yard enter start #1\n5 zone yard enter start #2\n6 zone yard leave end lost #2 =1\n"},
    {"a split outside goes in", kAsIs, "0 1 .5 .3; 1 1 .5 .3; 1 2 .6 .3 from=1; 2 2 .6 .6",
     "2 zone yard enter start #2\n"},
    {"over the line and back, jitter on it, around its end", kAsIs,
     "0 1 .6 .3; 1 1 .4 .3; 2 1 .6 .3; 3 1 .49 .3; 4 1 .51 .3; 5 1 .49 .3; 6 1 .55 .3; 7 1 .55 .45; 8 1 .45 .45; 9 1 "
     ".45 .3;"
     "10 1 .5 .3; 11 1 .55 .3",
     "1 line gate forward start #1 =1\n2 line gate backward start #1 =1\n11 line gate backward start #1 =2\n", "><<"},
    {"a split on the line", kAsIs,
     "0 1 .3 .3; 1 1 .47 .3; 2 1 .47 .3; 2 2 .505 .3 from=1; 3 2 .495 .3; 4 2 .46 .3; 5 2 .6 .3",
     "5 line gate backward start #2 =1\n", "<"},
    {"a split whose part comes out behind the line, where all of it was before", kAsIs,
     "0 1 .7 .3; 1 1 .7 .3; 2 1 .55 .3; 3 1 .54 .3; 4 2 .4 .3 from=1 start=2.5; 5 1 .6 .3;"
     "6 3 .46 .3 from=2; 7 4 .54 .3 from=3; 8 4 .46 .3",
     "4 line gate forward start #2 =1\n8 line gate forward start #4 =2\n", ">>"},
    {"who stands behind, in the box of two who are one, has crossed nothing",
     [](Rules& rules) {
         rules.lines[0] = {"gate", "", {0, 0.5}, {1, 0.5}, {}};
     },
     "0 1 .2 .45 h=.4; 1 1 .2 .53 h=.4; 2 1 .2 .56 h=.4; 3 2 .2 .4 from=1 start=2.5",
     "1 zone yard enter start #1\n1 line gate forward start #1 =1\n", ">"},
    {"over the line before it is believed; a head that became a person is no way", kAsIs,
     "0 1 .4 .3 birth=.6,.3,.2; 1 2 .45 .3 birth=.6,.3,.1; 2 3 .4 .3 birth=.51,.3,.2; 3 4 .4 .45 birth=.6,.45,.2",
     "0 line gate forward start #1 =1\n", ">"},
    {"other rules: all begins anew, the source stays lost", kAsIs,
     "0 1 .5 .6; 1 rules door; 2 1 .5 .7; 3 1 .3 .7; 4 lost; 15 rules door; 25 back; 31 tick",
     "0 zone yard enter start #1\n1 zone yard leave end configuration #1 =1\n2 zone door enter start #1\n"
     "3 zone door leave end out #1 =1\n14 scene lost start\n15 scene lost end configuration\n15 scene lost start\n"
     "30 scene lost end back =21\n"},
    {"out of the picture before it is clear of the line", kAsIs, "0 1 .55 .3; 1 1 .49 .3; 2 1 left",
     "2 line gate forward start #1 =1\n", ">"},
    {"lost beside the line is no crossing", kAsIs, "0 1 .55 .3; 1 1 .49 .3; 2 1 lost", ""},
    {"least size with perspective, and what was nearly enough",
     [](Rules& rules) {
         rules.zones[0].limits.least_size = {0.4, 0.1};
     },
     "0 1 .5 .6 h=.25; 1 1 .5 .6 h=.29; 2 1 .5 .6 h=.2; 3 1 lost; 4 2 .5 .6 h=.29; 5 2 .5 .6 h=.28; 6 2 lost",
     "1 zone yard enter start #1\n3 zone yard leave end lost #1 =2\n4 zone yard enter start #2\n"
     "6 zone yard leave end lost #2 =2\n"},
    {"too small, too young",
     [](Rules& rules) {
         rules.zones[0].limits.least_size = {0.3, 0.3};
         rules.lines[0].limits.least_age = 3;
     },
     "0 1 .6 .3; 1 1 .4 .3; 2 1 .4 .6; 2.5 1 .4 .6 h=.25; 3 1 .4 .3; 4 1 .6 .3", "4 line gate backward start #1 =1\n",
     "<", "gate least_age 1/3 #1\nyard least_size 0.25/0.3 #1\n"},
    {"cooldown silences a rule; crossings count",
     [](Rules& rules) {
         rules.lines[0].limits.cooldown = 10;
         rules.zones[0].limits.cooldown = 10;
     },
     "0 1 .6 .3; 1 1 .4 .3; 2 1 .6 .3; 3 1 .6 .6; 4 2 .3 .6; 14 2 .3 .6; 15 1 .6 .3; 16 1 .4 .3",
     "1 line gate forward start #1 =1\n3 zone yard enter start #1\n14 zone yard enter start #2\n"
     "15 zone yard leave end out #1 =12\n16 line gate forward start #1 =2\n",
     "><>", "gate cooldown 1/10 #1\n"},
    {"dwell is exact, and told once", [](Rules& rules) { rules.zones[0].dwell = 5; },
     "0 1 .5 .6; 4 1 .5 .6 unseen; 7 1 .5 .6; 20 1 .5 .6; 21 1 .5 .3; 22 1 .5 .6; 24 1 left",
     "0 zone yard enter start #1\n5 zone yard dwell update #1 =5\n21 zone yard leave end out #1 =21\n"
     "22 zone yard enter start #1\n24 zone yard leave end out #1 =2\n",
     "", "yard dwell 2/5 #1\n"},
    {"stands still, is taken away", [](Rules& rules) { rules.zones[0].stopped = 8; },
     "0 1 .5 .6; 5 1 .5 .6 still=2; 30 1 removed",
     "0 zone yard enter start #1\n7 stopped start #1 =5\n10 stopped yard start #1 =8\n30 stopped yard end stopped #1 "
     "=8\n"
     "30 zone yard leave end stopped #1 =30\n30 stopped end removed #1 =5\n30 removed start #1\n"},
    {"stands still, found late, moves on", kAsIs, "0 1 .5 .3; 9 1 .5 .3 still=2; 12 1 .5 .35; 13 1 removed",
     "9 stopped start #1 =7\n12 stopped end moved #1 =7\n13 removed start #1\n"},
    {"light: held, told when it is over if it lives", kAsIs,
     "0 1 .6 .3; 1 scene changed; 2 1 .4 .3; 3 1 .4 .6; 3 2 .7 .6; 4 2 lost; 5 3 .3 .6; 6 3 .3 .3; 7 scene watching; 8 "
     "1 .4 .3",
     "1 scene changed start\n2 line gate forward start #1 =1 held\n3 zone yard enter start #1 held\n"
     "3 zone yard enter start #2 held\n4 zone yard leave end lost #2 =1 held\n5 zone yard enter start #3 held\n"
     "6 zone yard leave end out #3 =1 held\n7 scene changed end\n7 line gate forward start #1 =1\n"
     "7 zone yard enter start #1\n7 zone yard leave start out #3 =1\n8 zone yard leave end out #1 =5\n",
     ">"},
    {"what was told before is told to its end", kAsIs, "0 1 .5 .6; 1 scene blind; 2 1 .5 .3",
     "0 zone yard enter start #1\n1 scene blind start\n2 zone yard leave end out #1 =2\n"},
    {"a hold lasts a minute, from one bad state to the next", kAsIs,
     "0 1 .5 .3; 1 scene changed; 2 1 .5 .6; 20 scene blind; 70 2 .6 .6; 71 scene watching",
     "1 scene changed start\n2 zone yard enter start #1 held\n20 scene changed end\n20 scene blind start\n"
     "61 zone yard enter start #1\n70 zone yard enter start #2\n71 scene blind end\n"},
    {"no picture: blips are none", kAsIs,
     "0 lost; 9 back; 20 lost; 32 back; 34 lost; 36 back; 50 tick; 60 lost; 65 finish",
     "30 scene lost start\n41 scene lost end back =16\n"},
    {"the clock is set back: all begins anew", [](Rules& rules) { rules.zones[0].limits.cooldown = 100; },
     "10 1 .5 .6; 20 clock 5; 6 2 .5 .6; 7 clock 30; 31 2 lost",
     "10 zone yard enter start #1\n20 zone yard leave end clock #1 =10\n5 clock start =-15\n6 zone yard enter start "
     "#2\n"
     "30 clock start =23\n31 zone yard leave end lost #2 =25\n"},
    {"the source ends", kAsIs, "0 1 .5 .6; 1 tell bell; 2 finish",
     "0 zone yard enter start #1\n1 external start\n2 zone yard leave end source #1 =2\n"},
};

TEST(Rules, TracksToEvents) {
    for (const RuleCase& row : kCases) {
        SCOPED_TRACE(row.name);
        Rules rules = yardAndGate();
        row.change(rules);
        Player player(rules, {"gate", 1, "", {}, true});
        EXPECT_EQ(withoutVisits(player.play(row.script)), row.expected);
        EXPECT_EQ(player.counts, row.counts);
        EXPECT_EQ(player.misses, row.misses);
        Player again(rules, {"gate", 1, "", {}, true});
        again.play(row.script);
        EXPECT_EQ(again.json, player.json);
    }
}

TEST(Rules, AVisitHoldsWhatHappensInIt) {
    Rules rules = yardAndGate();
    Player player(rules, {"gate", 1041, "8f1ee629", {}, true});
    EXPECT_EQ(player.play(
                  "0 1 .5 .3; 1 1 .5 .6; 9 1 left; 20 2 .1 .1; 25 2 lost; 30 3 .5 .6 still=30; 60 tell bell; 70 tick"),
              "0 motion start\n1 zone yard enter start #1\n9 zone yard leave end out #1 =8\n"
              "30 zone yard enter start #3\n35 stopped start #3 =5\n50 motion end\n60 external start\n");
    EXPECT_EQ(player.engine().nextNumber(), 1046);
    std::istringstream lines(player.json);
    std::string line;
    for (int i = 0; i < 2; ++i) std::getline(lines, line);
    EXPECT_EQ(line,
              R"({"event":"gate-1042","camera":"gate","kind":"zone","rule":"yard","change":"enter","state":"start",)"
              R"("track":1,"visit":"gate-1041","start":"1970-01-01T00:00:01.000000000Z","start_ns":1000000000,)"
              R"("time":"1970-01-01T00:00:01.000000000Z","time_ns":1000000000,"end_ns":null,"size":[1000,1000],)"
              R"("box":[450,400,100,200],"value":null,"held":false,"parameters":"8f1ee629"})");
    for (int i = 0; i < 2; ++i) std::getline(lines, line);
    EXPECT_NE(line.find("\"visit\":\"gate-1041\""), std::string::npos);  // in the off-delay
    while (std::getline(lines, line) && line.find("external") == std::string::npos) continue;
    EXPECT_NE(line.find("\"text\":\"bell\",\"track\":null,\"visit\":null"), std::string::npos) << line;
}

TEST(Rules, HowOftenTimeIsToldDoesNotMatter) {
    Rules rules = yardAndGate();
    rules.zones[0].dwell = 3.5;
    const std::string rare = "0 1 .5 .6; 2 scene blind; 4 lost; 90 back; 120 finish";
    std::string often;
    std::istringstream lines(rare);
    double time = 0;
    for (std::string line; std::getline(lines, line, ';'); often += line + ';') {
        const double until = std::stod(line);
        while (time < until) {
            often += std::to_string(time) + " tick;";
            time += 0.7;
        }
    }
    Player first(rules, {"gate", 1, "", {}, true}), second(rules, {"gate", 1, "", {}, true});
    EXPECT_NE(first.play(rare).find("3.5 zone yard dwell"), std::string::npos);
    second.play(often);
    EXPECT_EQ(first.json, second.json);
}

TEST(Rules, EveryEventHasOneStartAndOneEnd) {
    Rules rules = yardAndGate();
    rules.zones[0].dwell = 2;
    rules.zones[0].stopped = 1;
    rules.off_delay = 3;
    rules.hold = 4;
    for (unsigned seed = 1; seed <= 100; ++seed) {
        SCOPED_TRACE(seed);
        std::mt19937 random(seed);
        std::string script;
        std::set<unsigned> living;
        for (unsigned step = 1; step < 300; ++step) {
            const std::string time = std::to_string(step * 0.3) + ' ';
            const unsigned number = 1 + static_cast<unsigned>(random() % 4) + step / 50 * 4;
            const char* const inputs[] = {"scene changed", "scene watching", "scene blind",
                                          "lost",          "back",           "tell bell"};
            const char* const ends[] = {" left", " lost", " stopped", " removed"};
            if (random() % 8 == 0) {
                script += time + inputs[random() % 6] + ';';
            } else if (living.contains(number) && random() % 8 == 0) {
                script += time + std::to_string(number) + ends[random() % 4] + ';';
                living.erase(number);
            } else if (living.insert(number).second || random() % 4 > 0) {
                script += time + std::to_string(number) + " 0." + std::to_string(1 + random() % 9) + " 0." +
                          std::to_string(1 + random() % 9) + " from=" + std::to_string(number - 1) + ';';
            } else {
                script += time + std::to_string(number) + " still=" + time + ';';
            }
        }
        Player player(rules, {"gate", 1, "", {}, true});
        player.play(script + "91 finish");
        std::map<std::int64_t, CameraEvent> latest;
        for (const CameraEvent& event : player.messages) {
            const auto before = latest.find(event.number);
            if (before == latest.end()) {
                EXPECT_EQ(event.state, EventState::kStart);
            } else if (event.state == EventState::kStart || before->second.end_ns) {
                EXPECT_TRUE(before->second.held && !event.held && event.state == EventState::kStart);  // released
            }
            EXPECT_TRUE(event.end_ns || event.state != EventState::kEnd);
            latest[event.number] = event;
        }
        EXPECT_EQ(static_cast<std::int64_t>(latest.size()), player.engine().nextNumber() - 1);
        for (const auto& [number, event] : latest) EXPECT_TRUE(event.end_ns) << eventJson(event);
    }
}

// New rules, or a clock that is set back, while a lost source is on its way back: its event ends, once.
TEST(Rules, WhatComesBetweenASourceThatComesBack) {
    Rules rules = yardAndGate();
    rules.lost_after = 2;
    rules.back_after = 3;
    for (const char* script :
         {"1 lost; 5 back; 6 clock 4; 20 tick; 30 finish", "1 lost; 5 back; 6 rules other; 20 tick; 30 finish"}) {
        Player player(rules, {"gate", 1, "", {}, true});
        const std::string told = player.play(script);
        EXPECT_TRUE(told.starts_with("3 scene lost start\n6 scene lost end ")) << told;
        EXPECT_EQ(told.find("scene", 30), std::string::npos) << told;
    }
}

TEST(Rules, ZonesAreDrawnOnTheWholePicture) {
    Rules rules = yardAndGate();
    // The right lower quarter was analyzed: a foot in its middle stands at 0.75, 0.75.
    Player player(rules, {"gate", 1, "", PictureMap::ofRegion(320, 240, 320, 240, 640, 480), true});
    EXPECT_EQ(withoutVisits(player.play("0 1 .9 .1; 1 1 .7 .1; 2 1 .7 .01")), "1 zone yard enter start #1\n");
}

TEST(Rules, ActiveTimesAreThoseOfThePlace) {
    const auto berlin = std::make_shared<TimeZone>("Europe/Berlin");
    struct Row {
        const char* when;
        std::int64_t utc;
        bool active;
    };
    const Row rows[] = {
        // In 2026 clocks go forward on March 29 at 01:00 UTC and back on October 25 at 01:00 UTC.
        {"02:00-03:00", 1774745999, false},  // 01:59:59
        {"02:00-03:00", 1774746000, false},  // 03:00:00, the hour does not exist
        {"03:00-04:00", 1774746000, true},
        {"22:00-06:00 sa", 1774756799, true},   // Sunday 05:59:59, begun on Saturday
        {"22:00-06:00 sa", 1774756800, false},  // 06:00:00
        {"22:00-06:00 su", 1774756799, false},
        {"02:00-03:00 su", 1792885500, false},  // 01:45 in summer time
        {"02:00-03:00 su", 1792887000, true},   // 02:10, the first time
        {"02:00-03:00 su", 1792890600, true},   // 02:10, the second time
        {"02:00-03:00 su", 1792893600, false},  // 03:00
        {"fr-mo", 1792887000, true},
        {"tu,we-th", 1792887000, false},
        {"08:00-09:00 mo; 02:00-24:00 su", 1792887000, true},
        {"00:00-24:00", -1, true},  // 1970-01-01 00:59:59, a Thursday
        {"00:00-24:00 th", -1, true},
    };
    for (const Row& row : rows)
        EXPECT_EQ(Schedule(row.when, berlin).active(row.utc * kSecond), row.active) << row.when << ' ' << row.utc;
    for (const char* text : {"", "22:00", "22:00-25:00", "10:00-10:00", "mo-xx", "22:00-06:00 mo tu", "mo 22:00-06:00",
                             "22:00-06:00;", "24:00-06:00", "2:00-06:00", "22:60-23:00"})
        EXPECT_THROW(Schedule(text, berlin), std::invalid_argument) << text;
    EXPECT_THROW(TimeZone("Europe/Nowhere"), std::invalid_argument);

    // A rule that becomes active while somebody is there; without a wall clock it always is.
    Rules rules = yardAndGate();
    rules.zones[0].limits.when = Schedule("03:00-04:00", berlin);
    const std::string night = "1774745998 1 .5 .6; 1774746000 1 .5 .6";
    EXPECT_EQ(withoutVisits(Player(rules, {"gate", 1, "", {}, true}).play(night)),
              "1774746000 zone yard enter start #1\n");
    EXPECT_EQ(withoutVisits(Player(rules, {"gate", 1, "", {}, false}).play(night)),
              "1774745998 zone yard enter start #1\n");
}

TEST(Rules, PolygonsThatAreNone) {
    const std::pair<std::vector<Point>, const char*> rows[] = {
        {{{0, 0}, {1, 0}}, "at least 3"},
        {{{0, 0}, {1, 1}, {1, 0}, {0, 1}}, "cross"},
        {{{0, 0}, {1, 0}, {0.5, 0}}, "cross"},
        {{{0, 0}, {1, 0}, {1, 0}, {0, 1}}, "same"},
        {{{0, 0}, {1.01, 0}, {0, 1}}, "0 to 1"},
        {{{0, 0}, {NAN, 0}, {0, 1}}, "0 to 1"},
        {{{0.2, 0.2}, {0.8, 0.2}, {0.8, 0.8}, {0.5, 0.2}, {0.2, 0.8}}, "cross"},  // a corner on another edge
        {{{0, 0}, {0.5, 0.4}, {1, 0}, {0.5, 1}}, ""},
    };
    for (const auto& [points, fault] : rows) {
        const std::string found = polygonFault(points);
        EXPECT_TRUE(*fault == 0 ? found.empty() : found.find(fault) != std::string::npos) << fault << ": " << found;
    }
}

/// A way of 100 to 400 frames with turns, jitter and stops, and what is kept of it.
std::vector<FootPoint> wander(std::mt19937& random, std::int64_t start_ns) {
    std::vector<FootPoint> way;
    std::normal_distribution<double> turn(0, 0.4), jitter(0, 0.001);
    Point place{static_cast<double>(random() % 100) / 100, static_cast<double>(random() % 100) / 100};
    double heading = turn(random) * 8, speed = 0.004;
    for (int i = 0, count = 100 + static_cast<int>(random() % 300); i < count; ++i) {
        if (random() % 20 == 0) heading += turn(random) * 3;
        if (random() % 60 == 0) speed = random() % 3 == 0 ? 0 : 0.001 * static_cast<double>(1 + random() % 6);
        place = {place.x + speed * std::cos(heading), place.y + speed * std::sin(heading)};
        if (place.x < 0 || place.x > 1 || place.y < 0 || place.y > 1) break;
        way.push_back({start_ns + i * kSecond / 10, {place.x + jitter(random), place.y + jitter(random)}, 0.05, 0.1});
    }
    return way;
}

TEST(Paths, FewPointsNearAllSightings) {
    std::mt19937 random(5);
    for (int round = 0; round < 200; ++round) {
        SCOPED_TRACE(round);
        std::vector<FootPoint> way = wander(random, at(1));
        if (way.empty()) continue;
        if (round % 4 == 3)  // around and around
            for (int i = 0; i < 4000; ++i)
                way.push_back({way.back().time_ns + kSecond,
                               {0.5 + 0.3 * std::sin(i * 0.3), 0.5 + 0.3 * std::cos(i * 0.3)},
                               0.1,
                               0.1});
        FootPath path;
        for (const FootPoint& point : way) path.add(point);
        const std::vector<FootPoint> kept = decodePath(encodePath(path.points()));
        ASSERT_LE(kept.size(), FootPath::kMaxPoints);
        EXPECT_EQ(kept.front().time_ns, way.front().time_ns);
        EXPECT_EQ(kept.back().time_ns, way.back().time_ns);
        if (round % 4 != 3) {
            EXPECT_EQ(path.error(), FootPath::kTolerance);
        }
        for (const FootPoint& point : way) {
            const Point foot = pointAt(kept, point.time_ns).foot;
            ASSERT_LE(std::max(std::abs(foot.x - point.foot.x), std::abs(foot.y - point.foot.y)), path.error() + 1e-4);
        }
    }
    EXPECT_THROW(decodePath("short"), std::runtime_error);
    EXPECT_THROW(decodePath(std::string(32, 'x')), std::runtime_error);  // time stands still
}

/// "enter yard #3 12.5", without the time where `times` is not set.
std::map<std::string, int> summary(const std::vector<CameraEvent>& events) {
    std::map<std::string, int> lines;
    for (const CameraEvent& event : events)
        ++lines[event.rule + ' ' + event.change + ' ' + event.reason + " #" + std::to_string(event.track)];
    return lines;
}

TEST(Paths, RulesOverThePastAsInAReplay) {
    Rules rules = yardAndGate();
    rules.zones[0].dwell = 4;
    std::mt19937 random(11);
    std::vector<std::vector<FootPoint>> ways;
    std::vector<PastTrack> tracks;
    std::map<std::int64_t, std::vector<Track>> frames;
    for (int number = 1; number <= 300; ++number) {
        const std::vector<FootPoint> way = wander(random, at(number * 7));
        if (way.size() < 2) continue;
        FootPath path;
        Track track;
        track.number = number;
        track.start_ns = way.front().time_ns;
        track.state = TrackState::kConfirmed;
        for (const FootPoint& point : way) {
            path.add(point);
            track.seen_ns = point.time_ns;
            const int x = static_cast<int>(std::lround(point.foot.x * 8192)),
                      y = static_cast<int>(std::lround(point.foot.y * 8192));
            track.box = {x - 205, y - 819, 410, 819};
            frames[point.time_ns].push_back(track);
        }
        track.state = TrackState::kEnded;
        track.ended = TrackEnd::kLost;
        const std::int64_t end = way.back().time_ns + kSecond;
        frames[end].push_back(track);
        tracks.push_back({number, 0, TrackEnd::kLost, way.front().time_ns, end, decodePath(encodePath(path.points()))});
    }
    const std::vector<PastScene> scenes = {{at(500), SceneState::kBlind}, {at(520), SceneState::kWatching}};
    RuleEngine engine(rules, {"gate", 1, "", {}, true});
    std::vector<CameraEvent> live;
    for (const auto& [time, list] : frames) {
        const SceneState scene = time >= at(500) && time < at(520) ? SceneState::kBlind : SceneState::kWatching;
        for (const CameraEvent& event : engine.frame({time, 8192, 8192, scene, list, 0}).events)
            if (event.kind == EventKind::kZone || event.kind == EventKind::kLine) live.push_back(event);
    }
    const std::vector<CameraEvent> past = eventsOfThePast(rules, "gate", tracks, scenes);
    const auto expected = summary(live), found = summary(past);
    int all = 0, different = 0;
    for (const auto& [line, count] : expected) {
        all += count;
        different += std::abs(count - (found.contains(line) ? found.at(line) : 0));
    }
    for (const auto& [line, count] : found) different += expected.contains(line) ? 0 : count;
    // Feet that pass an edge by less than the path's error may differ, and only those: few.
    EXPECT_GT(all, 300);
    EXPECT_LE(different * 100, all * 3) << different << " of " << all;
    std::map<std::string, std::int64_t> first_times;
    for (const CameraEvent& event : live)
        first_times.try_emplace(event.change + std::to_string(event.track), event.time_ns);
    int late = 0;
    for (const CameraEvent& event : past) {
        const auto same = first_times.find(event.change + std::to_string(event.track));
        if (same == first_times.end()) continue;
        if (std::abs(event.time_ns - same->second) > 3 * kSecond) ++late;
        first_times.erase(same);
    }
    EXPECT_LE(late * 100, all * 5);
}

TEST(RuleTexts, FaultsHaveLineAndKey) {
    const auto utc = std::make_shared<TimeZone>("UTC");
    const auto read = [&utc](const std::string& text, Rules& rules) {
        std::string faults;
        rules = readRules(toml::parse(text), "camera[1].", utc,
                          [&faults](const auto& where, const auto& key, const auto& message) {
                              faults += std::to_string(where.begin.line) + ": " + key + ": " + message + '\n';
                          });
        return faults;
    };
    Rules rules;
    EXPECT_EQ(read(R"(stopped = 12
motion = {off_delay = 20, when = "22:00-06:00", least_age = 1}
scene = {lost_after = 3, back_after = 1, hold = 5}
[[zone]]
name = "yard"
title = "Hof"
points = [[0.1,0.5],[0.9,0.5],[0.9,1],[0.1,1]]
dwell = 20
stopped = 30
least_size = {near = 0.4, far = 0.1}
cooldown = 60
[[line]]
name = "gate"
points = [[0.5,0.2],[0.5,0.9]]
least_size = 0.2
)",
                   rules),
              "");
    EXPECT_EQ(
        rulesText(rules),
        "timezone UTC\nmotion off_delay 20 least_size 0 0 least_age 1 cooldown 0 when \"22:00-06:00\"\nstopped 12\n"
        "scene lost_after 3 back_after 1 hold 5\n"
        "zone yard 0.1,0.5 0.9,0.5 0.9,1 0.1,1 dwell 20 stopped 30 least_size 0.4 0.1 least_age 0 cooldown 60 when "
        "\"\"\n"
        "line gate 0.5,0.2 0.5,0.9 least_size 0.2 0.2 least_age 0 cooldown 0 when \"\"\n");
    EXPECT_EQ(read(R"(stopped = "no"
motion = 3
[[zone]]
name = "a b"
points = [[0.1,0.5],[0.9,0.5]]
dwel = 3
[[zone]]
name = "yard"
points = [[0,0],[1,1],[1,0],[0,1]]
when = "soon"
[[line]]
name = "yard"
points = [[0.5,0.2],[0.5,"x"]]
least_size = {near = 2}
)",
                   rules),
              "1: camera[1].stopped: expected a number from 0 to 86400\n"
              "2: camera[1].motion: expected a table\n"
              "6: camera[1].zone[1].dwel: unknown key\n"
              "4: camera[1].zone[1].name: expected a name of 1 to 64 letters, digits, _ and -\n"
              "5: camera[1].zone[1].points: expected at least 3 points\n"
              "10: camera[1].zone[2].when: expected HH:MM-HH:MM and days, such as \"22:00-06:00 mo-fr\", parts by "
              "semicolons\n"
              "9: camera[1].zone[2].points: its edges cross each other\n"
              "12: camera[1].line[1].name: another zone or line has the name 'yard'\n"
              "14: camera[1].line[1].least_size.far: near and far go together\n"
              "14: camera[1].line[1].least_size.near: expected a number from 0 to 1\n"
              "13: camera[1].line[1].points: expected a list of points, such as [[0.1,0.5],[0.9,0.5],[0.9,1.0]]\n"
              "13: camera[1].line[1].points: expected 2 points\n");
    EXPECT_EQ(parseZone("yard=0.1,0.5 0.9,0.5 0.9,1 0.1,1").points.size(), 4u);
    EXPECT_EQ(parseLine("gate=0.5,0.2 0.5,0.9").to.y, 0.9);
    addRule(rules = {}, "a=0,0 1,0 1,1");
    addRule(rules, "b=0,0 1,0");
    EXPECT_TRUE(rules.zones.size() == 1 && rules.lines.size() == 1);
    for (const char* text : {"a=0,0 0,1", "line:c=0,0 1,0 1,1", "zone:c=0,0 1,0", "c", "=0,0 1,0", "c=0;0 1;0",
                             "c=0,0 1,0x", "c=0,0 2,0", "c=0,0 0,0", "c=0,0 1,nan"})
        EXPECT_THROW(addRule(rules, text), ValueError) << text;
}

// ---- Texts of recordings ----

TEST(RuleSteps, TextsReadBackAndNothingElseDoes) {
    RuleSetup setup;
    setup.start = {"", 41, "8f1ee629", {0.1, 0.25, 1.0 / 3, 0.5}, false};
    setup.rules.timezone = "Europe/Berlin";
    setup.rules.hold = 1e-7;
    const auto place = std::make_shared<const TimeZone>("Europe/Berlin");
    setup.rules.motion.when = Schedule("22:00-06:00 mo-fr; sa,su", place);
    setup.rules.zones.push_back({"yard", "Hof", {{0.1, 0.5}, {0.9, 0.5}, {1, 1}}, {{0.4, 0.1}, 2, 3, {}}, 20, 7});
    setup.rules.lines.push_back({"zone", "", {0, 1.0 / 7}, {1, 0.2}, {}});
    const std::string text = setupText(setup);
    const auto read = parseSetup(text);
    ASSERT_TRUE(read);
    EXPECT_EQ(setupText(*read), text);
    for (std::size_t cut = 1; cut < text.size(); ++cut) {
        const auto part = parseSetup(text.substr(0, cut));
        EXPECT_TRUE(!part || setupText(*part) != text) << cut;
    }
    EXPECT_FALSE(parseSetup(text + "x"));

    const RuleStep steps[] = {
        {RuleStep::kTick, 5},
        {RuleStep::kLost, -5},
        {RuleStep::kBack, 1'795'248'902'100'000'000},
        {RuleStep::kTell, 7, 0, EventKind::kExternal, std::nullopt, "", " two words\n\xC3\xA4 "},
        {RuleStep::kTell, 7, 0, EventKind::kGap, 0.1, "events", ""},
        {RuleStep::kClock, 9, -3'000'000'000},
        {RuleStep::kFinish, 9, 0, EventKind::kExternal, std::nullopt, "configuration"},
        {RuleStep::kMap, 9, 0, EventKind::kExternal, std::nullopt, "", "", {0.1, 0.2, 0.3, 0.7}},
        {.kind = RuleStep::kRules, .time_ns = 9, .rules = setup.rules},
        {RuleStep::kParameters, 9, 0, EventKind::kExternal, std::nullopt, "0123abcd"},
    };
    for (const RuleStep& step : steps) {
        const auto again = parseStep(stepText(step));
        ASSERT_TRUE(again) << stepText(step);
        EXPECT_EQ(again->kind, step.kind);
        EXPECT_EQ(again->time_ns, step.time_ns);
        EXPECT_EQ(again->from_ns, step.from_ns);
        EXPECT_EQ(again->event, step.event);
        EXPECT_EQ(again->value, step.value);
        EXPECT_EQ(again->change, step.change);
        EXPECT_EQ(again->text, step.text);
        EXPECT_EQ(again->map, step.map);
        EXPECT_EQ(again->rules, step.rules);
    }
    for (const char* bad : {"", "tick", "tock 5", "tick x", "clock 5", "map 5 1 2 3", "tell 5 nobody - - x"})
        EXPECT_FALSE(parseStep(bad)) << bad;
}

}  // namespace
}  // namespace fleifeisa::host
