// The track filter on drawn frames: textured ground, textured things, a little noise.
#include <gtest/gtest.h>

#include <algorithm>
#include <climits>
#include <cmath>
#include <set>

#include "tracks/profiles.h"
#include "tracks/track_filter.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kSecond = 1'000'000'000;

std::uint32_t mixed(std::uint32_t a, std::uint32_t b, std::uint32_t c) {
    std::uint32_t h = a * 2654435761u ^ b * 2246822519u ^ c * 3266489917u;
    h ^= h >> 15;
    h *= 2654435761u;
    return h ^ h >> 13;
}

/// Draws frames, plays the analyzer (one object a thing), and keeps what the filter said.
class Stage {
 public:
    explicit Stage(double rate = 10, int wide = 160, int high = 120, FilterSettings settings = {})
        : width(wide), height(high), filter(settings, 20), step_(static_cast<std::int64_t>(1e9 / rate)) {}

    int width, height;
    int noise = 4;     // levels, peak to peak
    int texture = 30;  // levels of the ground
    double gain = 1;   // light on everything
    Box lit;           // a part that is lit by half more
    bool seen = true;  // the analyzer reports things
    int flat = -1;     // the whole picture has this level
    std::vector<Box> things;
    std::vector<AnalyzerObject> extra;
    TrackFilter filter;
    std::int64_t now = kSecond;
    SceneState scene = SceneState::kLearning;
    std::vector<Track> tracks, ended;  // of the latest frame; of all frames

    void frame(bool detection = true) {
        draw();
        std::vector<AnalyzerObject> objects = extra;
        for (std::size_t i = 0; seen && i < things.size(); ++i)
            objects.push_back(
                {1, 1, static_cast<int>(i), things[i].left, things[i].top, things[i].width, things[i].height, 80});
        if (lit.width > 0) objects.push_back({1, 1, 99, lit.left, lit.top, lit.width, lit.height, 80});
        take(filter.frame({now, width, height, rgb_, detection, objects}));
        now += step_;
        ++count_;
    }
    void learn(double seconds = 3) {
        each(
            seconds, [](double) {}, false);
    }
    void wait(double seconds) {
        each(seconds, [](double) {});
    }
    /// Calls `move` with the seconds since now before each frame.
    template <class Move>
    void each(double seconds, Move&& move, bool detection = true) {
        const std::int64_t begin = now;
        while (static_cast<double>(now - begin) / 1e9 < seconds - 1e-6) {
            move(static_cast<double>(now - begin) / 1e9);
            frame(detection);
        }
    }
    std::vector<Track> shown() const {
        std::vector<Track> result;
        for (const Track& track : tracks)
            if (track.state == TrackState::kConfirmed || track.state == TrackState::kStopped) result.push_back(track);
        return result;
    }
    void take(const TrackFrame& result) {
        scene = result.scene;
        tracks.clear();
        for (const Track& track : result.tracks) (track.state == TrackState::kEnded ? ended : tracks).push_back(track);
    }

 private:
    void draw() {
        rgb_.resize(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
        std::size_t at = 0;
        for (int y = 0; y < height; ++y)
            for (int x = 0; x < width; ++x, at += 3) {
                // 8 pixel squares of ground; things are darker, with squares of their own that go with them.
                auto cell = [](int a) { return static_cast<std::uint32_t>((a + 4096) / 8); };
                int level = 110 + static_cast<int>(mixed(cell(x), cell(y), 1) % static_cast<std::uint32_t>(texture));
                for (std::size_t i = 0; i < things.size(); ++i) {
                    const Box& box = things[i];
                    if (x < box.left || y < box.top || x >= box.right() || y >= box.bottom()) continue;
                    level = 20 + static_cast<int>(mixed(cell(x - box.left), cell(y - box.top), 7) % 40);
                }
                const bool in_light = x >= lit.left && x < lit.right() && y >= lit.top && y < lit.bottom();
                double value = level * gain * (in_light ? 1.5 : 1);
                if (flat >= 0) value = flat;
                if (noise > 0)
                    value += mixed(static_cast<std::uint32_t>(at), count_, 3) % static_cast<std::uint32_t>(noise);
                const auto byte = static_cast<std::uint8_t>(std::clamp(value, 0.0, 255.0));
                rgb_[at] = rgb_[at + 1] = rgb_[at + 2] = byte;
            }
    }

    std::int64_t step_;
    std::uint32_t count_ = 0;
    std::vector<std::uint8_t> rgb_;
};

Box at(double x, double y, int width = 14, int height = 30) {
    return {static_cast<int>(x), static_cast<int>(y), width, height};
}

double overlapOf(const Box& a, const Box& b) {
    const int w = std::min(a.right(), b.right()) - std::max(a.left, b.left);
    const int h = std::min(a.bottom(), b.bottom()) - std::max(a.top, b.top);
    const double both = std::max(0, w) * static_cast<double>(std::max(0, h));
    return both / (a.width * a.height + b.width * b.height - both);
}

// Born after 0.3 s and three sightings, followed closely, shown a moment longer, kept 2 s: at any rate and size.
TEST(Tracks, BornFollowedAndLost) {
    const struct {
        double rate;
        int width, height;
    } cases[] = {{5, 160, 120}, {10, 160, 120}, {30, 160, 120}, {10, 640, 480}};
    for (const auto& one : cases) {
        SCOPED_TRACE(testing::Message() << one.rate << " frames a second, " << one.width);
        Stage stage(one.rate, one.width, one.height);
        stage.learn();
        EXPECT_EQ(stage.scene, SceneState::kLearning);
        const double scale = one.width / 160.0;
        double born = -1;
        stage.each(4, [&](double t) {
            if (born < 0 && !stage.shown().empty()) born = t;
            stage.things = {
                at((30 + 12 * t) * scale, 40 * scale, static_cast<int>(14 * scale), static_cast<int>(30 * scale))};
        });
        EXPECT_GE(born, 0.29);
        EXPECT_LE(born, 0.3 + 3 / one.rate + 0.01);
        ASSERT_EQ(stage.shown().size(), 1u);
        const Track track = stage.shown()[0];
        EXPECT_EQ(track.number, 1);
        EXPECT_GT(overlapOf(track.box, stage.things[0]), 0.6);
        EXPECT_NEAR(track.velocity.x, 12 * scale, 4 * scale);
        EXPECT_EQ(track.objects, std::vector<int>{0});
        stage.things.clear();
        double gone = -1, ended = -1;
        stage.each(4, [&](double t) {
            if (gone < 0 && stage.shown().empty()) gone = t;
            if (ended < 0 && !stage.ended.empty()) ended = t;
        });
        EXPECT_LE(gone, 0.2 + 3 / one.rate);
        EXPECT_NEAR(ended, 2, 0.1 + 3 / one.rate);
        ASSERT_EQ(stage.ended.size(), 1u);
        EXPECT_EQ(stage.ended[0].ended, TrackEnd::kLost);
    }
}

TEST(Tracks, WhatIsBriefOrSmallIsNone) {
    const struct {
        const char* name;
        double seconds;
        Box box;
    } cases[] = {{"two frames", 0.2, at(60, 40)}, {"four by four pixels", 2, at(60, 40, 4, 4)}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        FilterSettings settings;
        settings.least_area = 2e-3;  // 38 pixels
        Stage stage(10, 160, 120, settings);
        stage.learn();
        stage.things = {one.box};
        stage.wait(one.seconds);
        stage.things.clear();
        stage.wait(1);
        EXPECT_EQ(stage.filter.nextNumber(), 1);
    }
}

TEST(Tracks, LeavesOverTheEdge) {
    Stage stage;
    stage.learn();
    stage.each(6, [&](double t) { stage.things = {at(100 + 20 * t, 40)}; });
    ASSERT_EQ(stage.ended.size(), 1u);
    EXPECT_EQ(stage.ended[0].ended, TrackEnd::kLeft);
}

// Two meet, are one blob, and part: both keep their numbers, and each follows its own way.
TEST(Tracks, GroupsKeepTheirMembers) {
    Stage stage(25);
    stage.learn();
    std::set<std::int64_t> merged;
    stage.each(5, [&](double t) {
        stage.things = {at(10 + 25 * t, 40), at(136 - 25 * t, 44)};
        for (const Track& track : stage.tracks)
            if (track.merged_with != 0) merged.insert(track.number);
    });
    EXPECT_EQ(merged, (std::set<std::int64_t>{1, 2}));
    ASSERT_EQ(stage.shown().size(), 2u);
    EXPECT_EQ(stage.filter.nextNumber(), 3);
    EXPECT_GT(overlapOf(stage.shown()[0].box, stage.things[0]), 0.5);
    EXPECT_GT(overlapOf(stage.shown()[1].box, stage.things[1]), 0.5);
}

// Put down and left behind: the bag's track came out of its carrier's.
TEST(Tracks, TellsWhatATrackCameOutOf) {
    Stage stage;
    stage.learn();
    stage.each(5, [&](double t) {
        stage.things = {at(40 + 20 * t, 40)};
        stage.things.push_back(at(std::min(40 + 20 * t, 80.0) - 10, 58, 12, 12));
    });
    ASSERT_EQ(stage.shown().size(), 2u);
    EXPECT_EQ(stage.shown()[0].split_from, 0);
    EXPECT_EQ(stage.shown()[1].split_from, 1);
}

// Legs and upper body are found apart, each by itself, at once or one after the other, and then as a whole: one track
// remains, and its box is the whole at once. So it is where a head is all that could be seen at first.
TEST(Tracks, PiecesBecomeOne) {
    const struct { double rate, legs_from, whole_from; } cases[] = {{10, 0, 0.6}, {10, 1, 3}, {25, 1, 3}, {10, 9, 2}};
    for (const auto& one : cases) {
        SCOPED_TRACE(testing::Message() << one.rate << ", " << one.legs_from << ", " << one.whole_from);
        Stage stage(one.rate);
        stage.learn();
        stage.each(one.whole_from + 0.5, [&](double t) {
            const double x = 10 + 12 * t;
            stage.things = {at(x, 30, 16, 14)};
            if (t >= one.whole_from)
                stage.things.push_back(at(x, 30, 16, 42));
            else if (t >= one.legs_from)
                stage.things.push_back(at(x, 56, 16, 16));
        });
        ASSERT_EQ(stage.shown().size(), 1u);
        EXPECT_EQ(stage.shown()[0].number, 1);
        EXPECT_GT(overlapOf(stage.shown()[0].box, stage.things[1]), 0.7);
    }
}

// People on the far side, two cars, a person on the near side: for seconds they stand in one column.
TEST(Tracks, WhoStandsAboveOneAnotherStaysApart) {
    Stage stage;
    stage.learn();
    stage.each(9, [&](double t) {
        const double there = std::min(t, 3.0) + std::max(0.0, t - 7);  // they wait for each other from 3 to 7 s
        stage.things = {at(10 + 20 * there, 6, 14, 30), at(110 - 16 * there, 38, 36, 16),
                        at(14 + 16 * there, 57, 36, 16), at(110 - 12 * there, 76, 14, 30)};
    });
    EXPECT_TRUE(stage.ended.empty());
    ASSERT_EQ(stage.shown().size(), 4u);
    for (const Track& track : stage.shown()) {
        EXPECT_LE(track.number, 4);
        double best = 0;
        for (const Box& thing : stage.things) best = std::max(best, overlapOf(track.box, thing));
        EXPECT_GT(best, 0.6) << track.number;
    }
}

TEST(Tracks, StoppedUntilTheThingIsGone) {
    Stage stage;
    stage.learn();
    stage.each(3, [&](double t) { stage.things = {at(20 + 20 * t, 40)}; });
    stage.wait(5);
    ASSERT_EQ(stage.shown().size(), 1u);
    EXPECT_EQ(stage.shown()[0].state, TrackState::kStopped);
    EXPECT_GT(stage.shown()[0].stopped_ns, 3 * kSecond);
    // It melts into everybody's background, and the light fades a little.
    stage.seen = false;
    stage.each(240, [&](double t) { stage.gain = 1 - std::min(0.1, t / 1000); });
    ASSERT_EQ(stage.shown().size(), 1u);
    EXPECT_EQ(stage.shown()[0].state, TrackState::kStopped);
    EXPECT_EQ(stage.shown()[0].number, 1);
    stage.things.clear();
    stage.wait(4);
    ASSERT_EQ(stage.ended.size(), 1u);
    EXPECT_TRUE(stage.ended[0].removed);
    EXPECT_EQ(stage.ended[0].ended, TrackEnd::kStopped);
    EXPECT_TRUE(stage.shown().empty());
}

// Places are watched for a day, and 32 at most: beyond that the oldest is followed only as long as it is seen.
TEST(Tracks, StoppedPlacesAreBounded) {
    Stage day(10, 80, 60);
    day.learn();
    day.each(3, [&](double t) { day.things = {at(5 + 15 * t, 15)}; });
    day.wait(5);
    ASSERT_EQ(day.shown().size(), 1u);
    ASSERT_EQ(day.shown()[0].state, TrackState::kStopped);
    const std::int64_t since = day.now;
    while (day.ended.empty() && day.now - since < 25 * 3600 * kSecond) {
        day.now += 9 * kSecond;
        day.frame();
    }
    ASSERT_EQ(day.ended.size(), 1u);
    EXPECT_EQ(day.ended[0].ended, TrackEnd::kStopped);
    EXPECT_FALSE(day.ended[0].removed);
    EXPECT_NEAR(static_cast<double>(day.now - since) / 1e9, 24 * 3600.0, 60);

    Stage many(10, 320, 240);
    many.learn();
    many.each(3, [&](double t) {
        many.things.clear();
        for (int row = 0; row < 3; ++row)
            for (int i = 0; i < 11; ++i) many.things.push_back(at(8 + i * 28 + 0.1, row * 78 + 15 * t, 14, 26));
    });
    many.wait(4);
    std::set<std::int64_t> since_when;
    for (int look = 0; look < 3; ++look, many.frame()) {
        ASSERT_EQ(many.shown().size(), 33u);
        for (const Track& track : many.shown())
            EXPECT_EQ(track.state, track.number == 1 ? TrackState::kConfirmed : TrackState::kStopped) << track.number;
        since_when.insert(many.shown()[1].stopped_ns);
    }
    EXPECT_EQ(since_when.size(), 1u) << "they do not push each other out in turns";
}

// What stood there while learning leaves a ghost; light is no thing; both heal.
TEST(Tracks, GhostsAndLightAreNone) {
    for (const int texture : {30, 60}) {
        SCOPED_TRACE(texture);
        Stage ghost;
        ghost.texture = texture;
        ghost.things = {at(60, 40, 20, 40)};
        ghost.learn();
        ghost.extra = {{1, 1, 5, 60, 40, 20, 40, 90}};
        ghost.things.clear();
        ghost.wait(6);
        EXPECT_EQ(ghost.filter.nextNumber(), 1);
        ghost.things = {at(60, 40, 20, 40)};  // and the place is seen again
        ghost.wait(1);
        EXPECT_EQ(ghost.filter.nextNumber(), 2);

        Stage light;
        light.texture = texture;
        light.learn();
        light.lit = {40, 30, 60, 50};
        light.wait(6);
        EXPECT_EQ(light.filter.nextNumber(), 1);
    }
}

TEST(Tracks, ALampChangesTheSceneAndNothingElse) {
    for (const double gain : {1.5, 0.5}) {
        SCOPED_TRACE(gain);
        Stage stage;
        stage.learn();
        stage.each(2, [&](double t) { stage.things = {at(20 + 10 * t, 40)}; });
        ASSERT_EQ(stage.shown().size(), 1u);
        stage.gain = gain;
        stage.extra = {{1, 1, 7, 0, 0, 160, 120, 90}};
        stage.frame();
        EXPECT_EQ(stage.scene, SceneState::kChanged);
        ASSERT_EQ(stage.shown().size(), 1u) << "frozen";
        EXPECT_EQ(stage.shown()[0].objects, std::vector<int>{0});
        stage.filter.analyzerRestarted();
        stage.frame();
        ASSERT_EQ(stage.shown().size(), 1u);
        EXPECT_TRUE(stage.shown()[0].objects.empty()) << "its numbers begin anew";
        stage.wait(3);
        EXPECT_EQ(stage.scene, SceneState::kWatching);
        stage.extra.clear();
        stage.wait(1);
        EXPECT_LE(stage.filter.nextNumber(), 3);
        // A thing near the camera covers as much for the analyzer, and changes nothing.
        stage.things = {at(0, 0, 70, 120)};
        stage.wait(2);
        EXPECT_EQ(stage.scene, SceneState::kWatching);
    }
}

// In an empty room and a busy one, at any strength, whether the analyzer covers the picture with boxes or has learned
// both lights: each switch that is strong enough to make foreground is told, and nothing is born of it by itself.
TEST(Tracks, EverySwitchOfALampIsTold) {
    for (const bool busy : {false, true})
        for (const double gain : {1.3, 1.6, 1.9, 0.7, 0.4}) {
            SCOPED_TRACE(testing::Message() << gain << (busy ? " busy" : " empty"));
            Stage stage(20);
            stage.learn();
            for (int turn = 0; turn < 5; ++turn) {
                stage.gain = turn % 2 ? gain : 1;
                int changed = 0;
                stage.each(2, [&](double t) {
                    stage.things.clear();
                    const double way = 2 * turn + t;
                    if (busy) stage.things = {at(5 + 12 * way, 40), at(140 - 12 * way, 4), at(5 + 6 * way, 80)};
                    changed += stage.scene == SceneState::kChanged;
                });
                EXPECT_EQ(changed > 0, turn > 0) << turn;
                EXPECT_EQ(stage.scene, SceneState::kWatching) << turn;
            }
            if (!busy) {
                EXPECT_EQ(stage.filter.nextNumber(), 1);
            }
        }
}

TEST(Tracks, Blind) {
    const struct {
        const char* name;
        int flat, noise, noise_before;
        double seconds;
        SceneState expected;
    } cases[] = {{"black", 5, 4, 4, 3, SceneState::kBlind},
                 {"white", 252, 3, 4, 3, SceneState::kBlind},
                 {"a grey cloth", 120, 3, 4, 3, SceneState::kBlind},
                 {"not long enough", 5, 4, 4, 0.5, SceneState::kWatching},
                 {"frozen", -1, 0, 4, 62, SceneState::kBlind},
                 {"not yet frozen", -1, 0, 4, 50, SceneState::kWatching},
                 {"never had noise", -1, 0, 0, 70, SceneState::kWatching}};
    for (const auto& one : cases) {
        SCOPED_TRACE(one.name);
        Stage stage;
        stage.noise = one.noise_before;
        stage.learn();
        stage.each(6, [&](double t) { stage.things = {at(20 + 10 * t, 40)}; });  // a change, no noise
        stage.things.clear();
        stage.flat = one.flat;
        stage.noise = one.noise;
        stage.wait(one.seconds);
        EXPECT_EQ(stage.scene, one.expected);
        stage.flat = -1;
        stage.noise = 4;
        stage.wait(3);
        EXPECT_EQ(stage.scene, SceneState::kWatching);
    }
}

TEST(Tracks, EndsForAReasonAndNumbersGoOn) {
    for (const TrackEnd why : {TrackEnd::kSource, TrackEnd::kClock}) {
        Stage stage;
        stage.learn();
        stage.things = {at(60, 40)};
        stage.wait(1);
        stage.take(stage.filter.end(why));
        ASSERT_EQ(stage.ended.size(), 1u);
        EXPECT_EQ(stage.ended[0].ended, why);
        stage.take(stage.filter.end(why));
        EXPECT_EQ(stage.ended.size(), 1u) << "told once";
        stage.wait(1);
        ASSERT_EQ(stage.shown().size(), 1u);
        EXPECT_EQ(stage.shown()[0].number, 2);
    }
}

// Anything may stand in a reply, and sizes and times may jump. Twice the same input, twice the same tracks.
TEST(Tracks, HostileInput) {
    const auto run = [] {
        Stage stage;
        std::uint64_t hash = 1469598103934665603u;
        for (const auto& [width, height] : {std::pair{160, 120}, {1, 1}, {5, 3}, {64, 4}, {161, 119}}) {
            stage.width = width;
            stage.height = height;
            stage.extra.clear();
            stage.learn(1);
            for (int i = 0; i < 5000; ++i) {
                const auto any = [&](std::uint32_t k) {
                    return static_cast<int>(mixed(static_cast<std::uint32_t>(i), k, 11));
                };
                stage.extra.push_back({1, 1, i, any(1), any(2), any(3), any(4), 50});
                if (i % 2)
                    stage.extra.back() = {
                        1, 1, i, any(1) % 200, any(2) % 200, std::abs(any(3) % 40), std::abs(any(4) % 40), 50};
            }
            stage.extra.push_back({1, 1, 0, INT_MAX, INT_MIN, INT_MAX, INT_MAX, 50});
            for (const std::int64_t jump : {std::int64_t{0}, -3 * kSecond, 100000 * kSecond, std::int64_t{1}}) {
                stage.now += jump;
                stage.noise = stage.noise == 4 ? 250 : 4;
                stage.wait(0.5);
                EXPECT_LE(stage.tracks.size(), 256u);
                for (const Track& track : stage.tracks)
                    for (const int value : {track.box.left, track.box.top, track.box.width, track.box.height})
                        hash = (hash ^ static_cast<std::uint32_t>(value)) * 1099511628211u;
            }
        }
        const std::uint8_t few[3] = {};
        EXPECT_TRUE(stage.filter.frame({stage.now, 100, 100, few, true, {}}).tracks.empty());
        return hash;
    };
    EXPECT_EQ(run(), run());
}

TEST(Tracks, Profiles) {
    for (const Profile& profile : profiles()) EXPECT_EQ(findProfile(profile.name), &profile);
    EXPECT_EQ(findProfile("Indoor"), nullptr);
}

}  // namespace
}  // namespace fleifeisa::host
