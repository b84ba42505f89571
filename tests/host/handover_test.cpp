// Changes of a running camera: a new analyzer learns beside the old one and takes over. With real analyzers on
// synthetic scenes.
#include "host/handover_runs.h"

#include <algorithm>

#include "analyzer/reply.h"
#include "outputs/recording.h"
#include "scenes/scene.h"
#include "sources/recording_source.h"

namespace fleifeisa::host {
namespace {

TEST_F(Handover, NoFrameIsLearnedAndTracksLiveOn) {
    CameraConfig config = camera("walkers?size=160x120&frames=900");
    config.outputs = {{"recording", recording()}};
    Witness alone, changed;
    CameraConfig quiet = config;
    quiet.outputs.clear();
    run(quiet, alone);
    const std::function<void(CameraConfig&)> changes[] = {
        [](CameraConfig& c) { c.control.color_low = "0.2501"; },  // early: it waits for the ring
        [](CameraConfig& c) { c.control.color_low = "0.2502"; },
        [](CameraConfig& c) { c.filter.least_area = 6e-4; },
        [](CameraConfig& c) {
            c.source.masks = {{{0.0, 0.0}, {0.2, 0.0}, {0.2, 0.2}}};
        },
        [](CameraConfig& c) { c.source.masks.clear(); },
    };
    CameraConfig now = config;
    run(config, changed, [&](Camera& one) {
        for (std::int64_t at = 40; const auto& change : changes) {
            changed.at[at] = [&now, &one, &change] {
                change(now);
                EXPECT_TRUE(one.config().sameCamera(now));
                one.change(now);
            };
            at += at == 40 ? 360 : 100;
        }
    });
    EXPECT_EQ(changed.frames, 900);
    EXPECT_TRUE(changed.in_order);
    EXPECT_EQ(changed.learned.size(), alone.learned.size()) << "learned once, at the start";
    ASSERT_EQ(changed.taken.size(), std::size(changes));
    EXPECT_GE(changed.taken[0].after, 190) << "twenty seconds of the picture have to be known";
    for (const Witness::Taken& taken : changed.taken) {
        EXPECT_GE(taken.warm_ups, 20u);
        // Whoever was seen before is there afterwards, under the same number, unless it was on its way out.
        const auto& after = changed.living[static_cast<std::size_t>(taken.after + 2)];
        for (const std::int64_t track : changed.seen[static_cast<std::size_t>(taken.after - 1)])
            EXPECT_TRUE(after.contains(track) || changed.left.contains(track)) << taken.why << ' ' << taken.after;
    }
    EXPECT_EQ(changed.living.back().empty() ? 0 : *changed.living.back().rbegin(),
              alone.living.back().empty() ? 0 : *alone.living.back().rbegin());
    EXPECT_EQ(replayed(), 0);
    // As a source it shows every frame once.
    RecordingSource source(recording());
    RawFrame frame;
    std::int64_t frames = 0, latest = -1;
    for (; source.next(frame); ++frames) {
        EXPECT_GT(frame.time_ns, latest);
        latest = frame.time_ns;
    }
    EXPECT_EQ(frames, 900);
}

TEST(FrameRing, KeepsSecondsWithinItsMemory) {
    const auto frame = [](std::int64_t time_ns, int width, std::size_t bytes) {
        const auto kept = std::make_shared<KeptFrame>();
        kept->time_ns = time_ns;
        kept->width = width;
        kept->bytes.resize(bytes);
        return kept;
    };
    FrameRing ring(5);
    std::vector<int> due;
    for (int i = 0; i < 60; ++i)
        if (ring.due(i * 100'000'000LL)) due.push_back(i);
    EXPECT_EQ(due, (std::vector<int>{0, 10, 20, 30, 40, 50}));
    EXPECT_TRUE(ring.due(0)) << "the clock was set back";
    for (int i = 0; i < 7; ++i) {
        EXPECT_EQ(ring.full(), i >= 5);
        ring.add(frame(i, 8, 100));
    }
    EXPECT_EQ(ring.frames().front()->time_ns, 2);
    ring.forgetBefore(5);
    EXPECT_EQ(ring.frames().size(), 2u);
    EXPECT_FALSE(ring.full());
    ring.add(frame(9, 16, FrameRing::kMostBytes / 3));  // another size, too large for five
    ring.add(frame(10, 16, FrameRing::kMostBytes / 3));
    ring.add(frame(11, 16, FrameRing::kMostBytes / 3));
    ring.add(frame(12, 16, FrameRing::kMostBytes / 3));
    EXPECT_EQ(ring.capacity(), 3u);
    EXPECT_EQ(ring.frames().front()->time_ns, 10);
}

/// Planes or picture: what is kept gives the picture that the analyzer gets, under the masks of then.
TEST(FrameRing, GivesTheSamePictureAgain) {
    for (const auto& [format, size] : {std::pair{"yuv420p", 0}, {"yuv420p", 8}, {"rgb24", 0}, {"rgb24", 8}}) {
        RawFrame frame;
        frame.layout = {*findFormat(format), 32, 16};
        frame.bytes.resize(frameBytes(frame.layout));
        for (std::size_t i = 0; i < frame.bytes.size(); ++i) frame.bytes[i] = static_cast<std::uint8_t>(7 * i + i / 32);
        SourceOptions options;
        options.width = options.height = size;
        options.region = Region{4, 2, 24, 12};
        options.masks = {{{0, 0}, {0.5, 0}, {0.5, 0.5}}};
        SourceOptions others = options;
        others.masks = {{{1, 1}, {0.4, 1}, {0.4, 0.4}}};
        std::vector<std::uint8_t> spare;
        RawFrame again = frame, other = frame;
        std::shared_ptr<KeptFrame> kept;
        const RgbFrame picture = toRgbFrame(frame, options, spare, &kept);
        EXPECT_EQ(picture.rgb, toRgbFrame(again, options, spare).rgb);
        EXPECT_EQ(kept->picture(options).rgb, picture.rgb);
        EXPECT_EQ(kept->picture(others).rgb, toRgbFrame(other, others, spare).rgb);
        EXPECT_LE(kept->bytes.size(), picture.rgb.size());
    }
}

TEST(NightWatch, ChangesItsMindOnlyForWhatLasts) {
    NightWatch watch(false);
    std::vector<std::pair<int, int>> turns;  // at, since
    for (int second = 0; second < 200; ++second) {
        const bool moment = second >= 20 && second < 28, night = second >= 40 && second < 120;
        std::vector<std::uint8_t> rgb(64 * 64 * 3, 90);
        // What lies between the limits changes nothing: every 50th sample.
        for (std::size_t i = 0; i < rgb.size(); i += 3)
            if ((!moment && !night && second < 160) ||
                (second >= 90 && second < 110 && i / 3 % 64 == 2 && i / 192 % 12 == 2))
                rgb[i + (second < 100 ? 0 : 2)] = 200;  // first red, then blue
        if (const auto since = watch.update(rgb, 64, 64, second * 1'000'000'000LL))
            turns.emplace_back(second, static_cast<int>(*since / 1'000'000'000));
    }
    EXPECT_EQ(turns, (std::vector<std::pair<int, int>>{{50, 40}, {130, 120}, {170, 160}}));
}

TEST(Recording, AHandOverIsReadAsItWasWritten) {
    TrackSettings settings{false, {.least_area = 0.25, .by_picture = true}, 30, 812};
    const RecordedHandOver what{-5, 31, true, "night", settings};
    const auto read = parseRecordedHandOver(recordedHandOver(what));
    ASSERT_TRUE(read);
    EXPECT_EQ(recordedHandOver(*read), recordedHandOver(what));
    EXPECT_EQ(read->tracks, settings);
    for (const char* text : {"", "1 2 new night", "1 -2 new night filtered", "1 2 newer night filtered least-area=1"})
        EXPECT_FALSE(parseRecordedHandOver(text)) << text;
    EXPECT_FALSE(parseRecordedHandOver("1 99999999 new night " + settingsText(settings)))
        << "it would be kept in memory";
}

/// Of those who really are there when it begins (and large enough), how many the analyzer's answers show in these
/// frames.
double shareFound(const std::string& description, const Witness& witness, std::int64_t from, std::int64_t to) {
    const scenes::Scene scene(scenes::parseScene(description));
    std::set<int> those;
    for (const scenes::TruthBox& box : scene.truth(from)) those.insert(box.id);
    int there = 0, found = 0;
    for (std::int64_t frame = from; frame < to; ++frame) {
        for (const scenes::TruthBox& box : scene.truth(frame)) {
            if (!those.contains(box.id) || box.width < 6 || box.height < 12) continue;
            ++there;
            const Box truth{box.left, box.top, box.width, box.height};
            found += std::ranges::any_of(witness.objects[static_cast<std::size_t>(frame)], [&](const auto& o) {
                const Box both{std::max(truth.left, o.left), std::max(truth.top, o.top),
                               std::min(truth.right(), o.left + o.width) - std::max(truth.left, o.left),
                               std::min(truth.bottom(), o.top + o.height) - std::max(truth.top, o.top)};
                return both.width > 0 && both.height > 0 && 3 * both.width * both.height > truth.width * truth.height;
            });
        }
    }
    return there == 0 ? 1 : static_cast<double>(found) / there;
}

/// Relearning in place leaves about every second thing that is there when it ends out of the answers until it leaves.
TEST_F(Handover, WhoIsThereStaysInTheAnswers) {
    const std::string scene = "walkers?size=160x120&frames=620";
    double share[3];
    for (const int way : {0, 1, 2}) {  // no change, by hand-over, in place
        CameraConfig config = camera(scene);
        if (way == 2) config.seamless = false;
        Witness witness;
        run(config, witness, [&](Camera& one) {
            if (way == 0) return;
            witness.at[500] = [&one, config]() mutable {
                config.control.color_high = "0.5001";
                one.change(config);
            };
        });
        share[way] = shareFound(scene, witness, 535, 620);
        EXPECT_EQ(witness.taken.size(), way == 1 ? 1u : 0u);
    }
    EXPECT_GT(share[0], 0.8) << "else the scene shows nothing";
    EXPECT_GT(share[1], share[0] - 0.05);
    EXPECT_LT(share[2], share[0] - 0.1) << "if relearning in place does as well, hand-overs can go";
}

/// The whole evening and morning of a camera with a night mode, which it tries once before it is dark enough.
TEST_F(Handover, TheTypeFollowsThePicture) {
    CameraConfig config = camera("dusk?size=160x120&frames=2300&seed=2");
    config.type_by_picture = true;
    config.outputs = {{"recording", recording()}};
    Witness first, second;
    run(config, first);
    config.outputs.clear();
    run(config, second);
    std::vector<bool> types;
    for (const Witness::Taken& taken : first.taken)
        if (taken.why != "light") types.push_back(taken.infrared);
    EXPECT_EQ(types, (std::vector<bool>{true, false}));
    EXPECT_EQ(first.frames, 2300);
    EXPECT_EQ(first.learned.back(), 60);
    EXPECT_TRUE(std::ranges::none_of(first.events, [](const CameraEvent& event) {
        return event.kind == EventKind::kScene || event.kind == EventKind::kAnalyzer;
    })) << "a night mode is no event";
    EXPECT_EQ(first.hashes, second.hashes);
    EXPECT_EQ(replayed(), 0);
}

}  // namespace
}  // namespace fleifeisa::host
