// Which frames of a quiet camera are analyzed.
#include "camera/idle_rate.h"

#include <gtest/gtest.h>

#include <functional>
#include <numeric>

namespace fleifeisa::host {
namespace {

using Indices = std::vector<std::int64_t>;
constexpr std::int64_t kTenth = 100'000'000;

/// A source of ten frames a second; `quiet` says what the reply to a frame would be. Answers come as late as they may,
/// or at once.
Indices wantedOf(IdleRate& idle, int frames, bool late, const std::function<bool(std::int64_t)>& quiet) {
    Indices wanted;
    std::size_t answered = 0;
    for (std::int64_t index = 0; index < frames; ++index) {
        while (answered < wanted.size() && (!late || !idle.decidable())) idle.answered(quiet(wanted[answered++]));
        EXPECT_TRUE(idle.decidable());
        if (idle.wants(index * kTenth)) wanted.push_back(index);
    }
    return wanted;
}

Indices fromTo(std::int64_t first, std::int64_t last, std::int64_t step = 1) {
    Indices result;
    for (; first <= last; first += step) result.push_back(first);
    return result;
}

Indices joined(const std::vector<Indices>& parts) {
    Indices result;
    for (const Indices& part : parts) result.insert(result.end(), part.begin(), part.end());
    return result;
}

TEST(IdleRate, FewFramesUntilSomethingIsThere) {
    const struct {
        const char* name;
        double rate;
        int frames;
        std::function<bool(std::int64_t)> quiet;
        Indices expected;
    } rows[] = {
        {"off", 0, 300, [](auto) { return true; }, fromTo(0, 299)},
        {"never quiet", 2, 300, [](auto) { return false; }, fromTo(0, 299)},
        {"no faster than the source", 20, 300, [](auto) { return true; }, fromTo(0, 299)},
        // The first reply counts as something: five seconds, then every fifth frame.
        {"always quiet", 2, 120, [](auto) { return true; }, joined({fromTo(0, 50), fromTo(54, 119, 5)})},
        {"learning first", 1, 200, [](auto i) { return i >= 60; }, joined({fromTo(0, 109), fromTo(117, 199, 10)})},
        // Somebody comes with 203, is seen on 204, and from the second frame after that on all are wanted; he is gone
        // with 231.
        {"a visit", 2, 400, [](auto i) { return i < 203 || i > 230; },
         joined({fromTo(0, 50), fromTo(54, 204, 5), fromTo(206, 280), fromTo(284, 399, 5)})},
        // Both fall between two frames that were wanted.
        {"too short a visit", 2, 300, [](auto i) { return i < 205 || i > 208; },
         joined({fromTo(0, 50), fromTo(54, 299, 5)})},
    };
    for (const auto& row : rows)
        for (const bool late : {false, true}) {
            IdleRate idle(row.rate);
            EXPECT_EQ(wantedOf(idle, row.frames, late, row.quiet), row.expected) << row.name << " late " << late;
        }
}

TEST(IdleRate, NothingIsThereWithoutObjectsAndTracks) {
    Track standing;
    standing.state = TrackState::kStopped;
    const struct {
        bool detection;
        std::size_t objects;
        std::span<const Track> tracks;
        SceneState scene;
        bool nothing;
    } rows[] = {
        {true, 0, {}, SceneState::kWatching, true},
        {true, 0, {}, SceneState::kBlind, true},
        {false, 0, {}, SceneState::kWatching, false},
        {true, 1, {}, SceneState::kWatching, false},
        {true, 0, {&standing, 1}, SceneState::kWatching, false},
        {true, 0, {}, SceneState::kChanged, false},
        {true, 0, {}, SceneState::kLearning, false},
    };
    for (const auto& row : rows) {
        Reply reply;
        reply.detection = row.detection;
        reply.objects.resize(row.objects);
        TrackFrame frame;
        frame.tracks = row.tracks;
        frame.scene = row.scene;
        EXPECT_EQ(showsNothing(reply, frame), row.nothing) << &row - rows;
    }
}

TEST(IdleRate, AllFramesAfterWhatCannotBeKnown) {
    const auto always = [](auto) { return true; };
    for (const bool lost : {false, true}) {
        IdleRate idle(1);
        wantedOf(idle, 98, false, always);
        ASSERT_TRUE(idle.wants(98 * kTenth));
        idle.answered(!lost);
        if (!lost) idle.wake();  // an analyzer that learns
        EXPECT_EQ(idle.wants(99 * kTenth), !lost);
        EXPECT_TRUE(idle.wants(100 * kTenth)) << lost;
    }
    // A clock that was set back by a minute costs five seconds of all frames, not a minute.
    IdleRate idle(1);
    wantedOf(idle, 1000, false, always);
    int wanted = 0;
    for (int i = 0; i < 100; ++i)
        if (idle.wants((400 + i) * kTenth)) {
            idle.answered(true);
            ++wanted;
        }
    EXPECT_EQ(wanted, 51 + 5);
}

}  // namespace
}  // namespace fleifeisa::host
