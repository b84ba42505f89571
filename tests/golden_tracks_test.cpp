// Whole streams through the analyzer and the camera host's track filter, with the tracks of every frame against
// committed hashes: tracks are the same bits with every compiler, at every kernel level and on every processor.
#include <gtest/gtest.h>

#include <cstdint>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "analyzer/reply.h"
#include "support/golden.h"
#include "support/scene.h"
#include "support/state_hash.h"
#include "tracks/track_filter.h"

namespace {

namespace host = fleifeisa::host;

struct TracksCase {
    const char* name;
    Scene scene;
    ReplayOptions options;
    host::FilterSettings settings;
    std::int64_t frame_ns;
    int least_tracks;  // confirmed over the whole stream: with fewer the hashes would say little
};

constexpr int kLearning = 20;
constexpr host::FilterSettings kColour{}, kInfrared{.infrared = true},
    kPeople{.shadow_test = false, .split_people = true};

const TracksCase kCases[] = {
    {"tracks-color-160x120", {160, 120, 160, 25, 3, 0, 21}, {COLOR, kLearning, {}}, kColour, 100'000'000, 3},
    {"tracks-people-129x97", {129, 97, 160, 25, 6, 0, 22}, {COLOR, kLearning, {}}, kPeople, 40'000'000, 3},
    {"tracks-ir-128x96", {128, 96, 160, 25, 4, 0, 23}, {IR, kLearning, {}}, kInfrared, 125'000'000, 3},
};

void PrintTo(const TracksCase& c, std::ostream* os) {
    *os << c.name;
}

void add(StateHash& hash, const host::Track& track) {
    hash.integer(static_cast<std::int32_t>(track.number));
    for (const int v : {static_cast<int>(track.state), static_cast<int>(track.ended), track.box.left, track.box.top,
                        track.box.width, track.box.height, track.area, track.frames, static_cast<int>(track.split_from),
                        static_cast<int>(track.merged_with)})
        hash.integer(v);
    for (const int object : track.objects) hash.integer(object);
    for (const double v : {track.centre.x, track.centre.y, track.velocity.x, track.velocity.y, track.path_px})
        hash.real(v);
}

// "<frame> <scene state> <number of tracks> <hash of all of them>"
std::string lineOf(int frame, const host::TrackFrame& tracks) {
    StateHash hash;
    for (const host::Track& track : tracks.tracks) add(hash, track);
    char text[64];
    std::snprintf(text, sizeof text, " %d %016llx", static_cast<int>(tracks.tracks.size()),
                  static_cast<unsigned long long>(hash.value));
    return std::to_string(frame) + ' ' + host::nameOf(tracks.scene) + text;
}

std::vector<std::string> paintedFrames(const Scene& scene) {
    std::vector<std::string> frames;
    paintScene(scene, [&](int, const std::string& pixels) { frames.push_back(pixels); });
    return frames;
}

class GoldenTracks : public testing::TestWithParam<TracksCase> {};

TEST_P(GoldenTracks, StateAfterEveryFrame) {
    const TracksCase& c = GetParam();
    const std::vector<std::string> frames = paintedFrames(c.scene);
    host::TrackFilter filter(c.settings, kLearning);
    std::vector<std::string> lines;
    replay(sceneStream(c.scene), c.options, [&](const ReplayedFrame& frame) {
        const std::size_t start = frame.reply.find("\r\n") == 0 ? 2 : 0;
        const host::Reply reply = host::parseReply(std::string_view(frame.reply).substr(start));
        const std::string& pixels = frames.at(static_cast<std::size_t>(frame.number) - 1);
        lines.push_back(lineOf(
            frame.number, filter.frame({.time_ns = frame.number * c.frame_ns,
                                        .width = c.scene.width,
                                        .height = c.scene.height,
                                        .rgb = {reinterpret_cast<const std::uint8_t*>(pixels.data()), pixels.size()},
                                        .detection = reply.detection,
                                        .objects = reply.objects})));
    });
    ASSERT_EQ(lines.size(), frames.size());
    EXPECT_GT(filter.nextNumber(), c.least_tracks);

    compareWithGolden(c.name, lines, [](const std::string&, const std::string&) { return "the tracks"; });
}

INSTANTIATE_TEST_SUITE_P(All, GoldenTracks, testing::ValuesIn(kCases), [](const auto& param) {
    std::string name = param.param.name;
    for (char& ch : name)
        if (ch == '-') ch = '_';
    return name;
});

}  // namespace
