// Synthetic scenes: the same bytes for ever, truth that fits the picture, descriptions that are refused.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <set>
#include <stdexcept>

#include "scenes/scene.h"

namespace fleifeisa::scenes {
namespace {

std::uint64_t hashOf(std::span<const std::uint8_t> bytes, std::uint64_t hash) {
    for (const std::uint8_t byte : bytes) hash = (hash ^ byte) * 1099511628211u;
    return hash;
}

std::vector<std::uint8_t> frameOf(Scene& scene, std::int64_t number) {
    std::vector<std::uint8_t> rgb(static_cast<std::size_t>(scene.description().width) *
                                  static_cast<std::size_t>(scene.description().height) * 3);
    scene.render(number, rgb);
    return rgb;
}

// Recordings and benchmark figures refer to scenes by name: their bytes must never change.
TEST(Scenes, BytesAreFixed) {
    const struct {
        const char* description;
        std::uint64_t hash;
    } rows[] = {
        {"street?seed=3&size=96x64", 0x4bfaafdb374aca99}, {"walkers?size=64x64", 0x31559fc279db161a},
        {"crowd?seed=2&size=50x41", 0xc70972edaa0e8c9d},  {"static?size=33x20", 0xf241b1d4d596790e},
        {"lights?size=40x40", 0x291acaf4927bcfbd},        {"night-ir?seed=9&size=64x48", 0xa9bca045d0fd485d},
        {"lamp?size=40x40", 0xeeccda4cf3c8515e},          {"dusk?size=40x40", 0x0831a22f5c6f2a63},
        {"covered?size=40x40", 0x5447e84cd2aaff67},
    };
    for (const auto& row : rows) {
        Scene scene(parseScene(row.description));
        std::uint64_t hash = 14695981039346656037u;
        for (const std::int64_t number : {0, 61, 200, 333, 100000}) hash = hashOf(frameOf(scene, number), hash);
        EXPECT_EQ(hash, row.hash) << row.description << std::hex << " gives 0x" << hash;
    }
}

TEST(Scenes, FramesDependOnTheirNumberAlone) {
    Scene one(parseScene("street?size=80x60"));
    Scene other(parseScene("street?size=80x60"));
    const auto late = frameOf(one, 250);
    frameOf(other, 17);
    std::srand(5);
    static_cast<void>(random());
    EXPECT_EQ(frameOf(other, 250), late);
    Scene frozen(parseScene("covered?size=80x60"));
    EXPECT_EQ(frameOf(frozen, 361), frameOf(frozen, 1200));
    EXPECT_NE(frameOf(frozen, 361), frameOf(frozen, 1300));
}

TEST(Scenes, TruthShowsInThePicture) {
    // Without noise and light, a frame differs from the empty scene inside the truth boxes and (shadows) just around.
    Scene scene(parseScene("street?size=160x120&noise=0"));
    Scene empty(parseScene("static?size=160x120&noise=0"));
    std::set<int> ids;
    for (std::int64_t number = 0; number < 500; number += 20) {
        const auto boxes = scene.truth(number);
        const auto rgb = frameOf(scene, number);
        const auto ground = frameOf(empty, number);
        if (number < 60) {
            EXPECT_TRUE(boxes.empty());
            EXPECT_EQ(rgb, ground);
        }
        for (const TruthBox& box : boxes) {
            ids.insert(box.id);
            ASSERT_TRUE(box.left >= 0 && box.top >= 0 && box.width > 0 && box.height > 0);
            ASSERT_TRUE(box.left + box.width <= 160 && box.top + box.height <= 120);
            int changed = 0;
            for (int y = box.top; y < box.top + box.height; ++y)
                for (int x = box.left; x < box.left + box.width; ++x)
                    changed += rgb[static_cast<std::size_t>(y * 160 + x) * 3] !=
                               ground[static_cast<std::size_t>(y * 160 + x) * 3];
            EXPECT_GT(changed * 4, box.width * box.height - 16) << "frame " << number << " object " << box.id;
        }
    }
    EXPECT_GE(ids.size(), 12u);
}

// At night nothing casts a shadow, and every 800th frame has the light of the empty first one. Legs swing out sideways.
TEST(Scenes, TruthFitsToThePixel) {
    Scene scene(parseScene("night-ir?size=320x240&noise=0"));
    const auto ground = frameOf(scene, 0);
    int seen = 0, exact_left = 0, exact_right = 0;
    for (std::int64_t number = 800; number < 80000; number += 800) {
        const auto boxes = scene.truth(number);
        const auto rgb = frameOf(scene, number);
        for (const TruthBox& box : boxes) {
            const int right = box.left + box.width, bottom = box.top + box.height, margin = box.width / 6 + 2;
            const int x0 = box.left - margin, x1 = right + margin, y0 = box.top - 2, y1 = bottom + 2;
            const auto near = [&](const TruthBox& other) {
                return other.left - margin < x1 && other.left + other.width + margin > x0 && other.top < y1 &&
                       other.top + other.height > y0;
            };
            if (x0 < 0 || y0 < 0 || x1 > 320 || y1 > 240 || std::ranges::count_if(boxes, near) > 1) continue;
            int first_x = x1, last_x = x0, first_y = y1, last_y = y0;
            for (int y = y0; y < y1; ++y)
                for (int x = x0; x < x1; ++x) {
                    const auto at = static_cast<std::size_t>(y * 320 + x) * 3;
                    if (rgb[at] == ground[at]) continue;
                    first_x = std::min(first_x, x), last_x = std::max(last_x, x);
                    first_y = std::min(first_y, y), last_y = std::max(last_y, y);
                }
            EXPECT_EQ(std::pair(first_y, last_y), std::pair(box.top, bottom - 1)) << number;
            EXPECT_TRUE(first_x <= box.left && last_x >= right - 1) << number;
            exact_left += first_x == box.left;
            exact_right += last_x == right - 1;
            ++seen;
        }
    }
    EXPECT_TRUE(seen > 5 && exact_left > 0 && exact_right > 0) << seen << " " << exact_left << " " << exact_right;
}

TEST(Scenes, BadDescriptionsAreRefusedByName) {
    const struct {
        const char* description;
        const char* named;
    } rows[] = {
        {"", "there is no scene ''"},    {"plaza", "walkers"},           {"street?size=320", "size"},
        {"street?size=0x4", "size"},     {"street?size=9000x4", "size"}, {"street?seed=-1", "seed"},
        {"street?frames=12x", "frames"}, {"street?rate=0", "rate"},      {"street?fps=3", "fps"},
        {"street?noise", "noise"},       {"street?quiet=", "quiet"},
    };
    for (const auto& row : rows) {
        try {
            parseScene(row.description);
            ADD_FAILURE() << row.description << " was accepted";
        } catch (const std::invalid_argument& error) {
            EXPECT_NE(std::string(error.what()).find(row.named), std::string::npos)
                << row.description << ": " << error.what();
        }
    }
    const SceneDescription description = parseScene("scene:crowd?seed=7&size=12x8&frames=0&rate=25&noise=0&quiet=3");
    EXPECT_EQ(description.name, "crowd");
    EXPECT_EQ(description.seed, 7u);
    EXPECT_EQ(description.width * 100 + description.height, 1208);
    EXPECT_EQ(description.frames + description.rate + description.noise + description.quiet, 28);
}

}  // namespace
}  // namespace fleifeisa::scenes
