// "Not again": what is suggested removes the event, and its price is counted.
#include "events/suggestions.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace fleifeisa::host {
namespace {

using Mark = JudgedEvent::Mark;
constexpr std::int64_t kSecond = 1'000'000'000, kHour = 3600 * kSecond;

/// A thing of that height that goes from x to x + way within so many seconds, seen first a second before.
JudgedEvent event(std::int64_t number, Mark mark, double x, double way, double height, double lasts, int hour = 12) {
    const std::int64_t start = (hour + 24 * number) * kHour, end = start + static_cast<std::int64_t>(lasts * kSecond);
    PastTrack track{number, 0, TrackEnd::kLeft, start - kSecond, end, {}};
    track.path = {{start - kSecond, {x, 0.5}, 0.05, height}, {end, {x + way, 0.5}, 0.05, height}};
    return {number, false, start, end, mark, {track}};
}

const Suggestion* find(const std::vector<Suggestion>& all, auto has) {
    const auto found = std::ranges::find_if(all, has);
    return found == all.end() ? nullptr : &*found;
}
const auto kMask = [](const Suggestion& one) { return !one.mask.empty(); };
const auto kSize = [](const Suggestion& one) { return one.least_size.has_value(); };
const auto kAge = [](const Suggestion& one) { return one.least_age.has_value(); };
const auto kWhen = [](const Suggestion& one) { return !one.when.empty(); };

TEST(Suggestions, RemoveTheEventAndCountWhatElseGoes) {
    const TimeZone utc("UTC");
    const std::vector<JudgedEvent> events = {
        event(1, Mark::kWrong, 0.1, 0.05, 0.1, 3, 2),    // a branch, at night
        event(2, Mark::kWrong, 0.12, 0.02, 0.08, 2, 3),  // the same
        event(3, Mark::kRight, 0.0, 0.9, 0.3, 20),       // somebody walks through
        event(4, Mark::kRight, 0.5, 0.1, 0.09, 9, 4),    // somebody far away
        event(5, Mark::kNone, 0.1, 0.03, 0.05, 0.5, 2),
    };
    const std::vector<Suggestion> all = suggestions(events[0], {}, events, utc);
    ASSERT_TRUE(find(all, kMask) && find(all, kSize) && find(all, kAge) && find(all, kWhen));
    EXPECT_EQ(find(all, kMask)->removes, (Removed{0, 2, 1}));
    EXPECT_EQ(find(all, kSize)->removes, (Removed{1, 2, 1}));
    EXPECT_DOUBLE_EQ(find(all, kSize)->least_size->near, 0.102);
    EXPECT_EQ(find(all, kAge)->removes, (Removed{0, 2, 1}));
    EXPECT_DOUBLE_EQ(*find(all, kAge)->least_age, 4.5);
    // Both nights' hours, but not the one in which somebody right came.
    EXPECT_EQ(find(all, kWhen)->when, "04:00-02:00");
    EXPECT_EQ(find(all, kWhen)->removes, (Removed{0, 2, 1}));
    EXPECT_TRUE(kSize(all.back())) << "what costs a right one comes last";
}

TEST(Suggestions, KeepToWhatLeavesEnough) {
    const TimeZone berlin("Europe/Berlin");
    Limits limits;
    limits.least_size = {0.4, 0.1};
    limits.when = Schedule("22:00-06:00", std::make_shared<const TimeZone>(berlin));
    const JudgedEvent large = event(1, Mark::kWrong, 0.0, 1.0, 0.7, 40);
    EXPECT_TRUE(suggestions(large, limits, {large}, berlin).empty()) << "all over the picture, large, for long";
    // In perspective: the height asked for grows with what there is, at 0.5: 0.25.
    const JudgedEvent cat = event(1, Mark::kWrong, 0.2, 0.1, 0.3, 3);
    const auto all = suggestions(cat, limits, {cat}, berlin);
    ASSERT_TRUE(find(all, kSize));
    EXPECT_NEAR(find(all, kSize)->least_size->near, 0.4 * 1.2 * 1.02, 0.002);
    EXPECT_NEAR(find(all, kSize)->least_size->far, 0.1 * 1.2 * 1.02, 0.002);
    EXPECT_FALSE(find(all, kWhen)) << "there are active times already";
    // Without its track nothing is known of an event.
    JudgedEvent unknown = cat;
    unknown.tracks.clear();
    EXPECT_TRUE(suggestions(unknown, {}, {unknown}, berlin).empty());
    EXPECT_TRUE(wouldCome(unknown, {{0, 0}, {1, 0}, {1, 1}, {0, 1}}, {}));
}

TEST(Suggestions, AVisitGoesWithTheLastOfItsTracks) {
    JudgedEvent visit = event(1, Mark::kWrong, 0.1, 0.0, 0.1, 3);
    visit.tracks.push_back(event(1, Mark::kWrong, 0.7, 0.0, 0.1, 3).tracks[0]);
    const std::vector<Point> left = {{0, 0}, {0.4, 0}, {0.4, 1}, {0, 1}}, whole = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    EXPECT_TRUE(wouldCome(visit, left, {}));
    EXPECT_FALSE(wouldCome(visit, whole, {}));
    // A line counts at its moment alone.
    JudgedEvent crossing = event(1, Mark::kWrong, 0.1, 0.0, 0.1, 3);
    crossing.moment = true;
    Limits limits;
    limits.least_age = 2;
    EXPECT_FALSE(wouldCome(crossing, {}, limits));
    crossing.moment = false;
    EXPECT_TRUE(wouldCome(crossing, {}, limits));
}

}  // namespace
}  // namespace fleifeisa::host
