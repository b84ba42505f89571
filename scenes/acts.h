// The acts of scene "stage": a few people on written ways, a zone and a line to watch them by. For testing rules.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "scenes/actors.h"

namespace fleifeisa::scenes {

/// A place in thousandths of the picture's width and height, and how long somebody stands there.
struct Mark {
    int x, y;
    int hold = 0;  ///< frames
};

struct Part {
    int start;              ///< frame, from the first after `quiet`
    int across;             ///< frames that the whole width would take
    std::vector<Mark> way;  ///< from where it comes to where it goes; -100 and 1100 are outside
    bool person = true;
    int with = -1;  ///< index of whom it comes with, so close that the two look as one; -1: alone
};

/// The light of some frames, in 1/1024; under 100 nothing is to be seen.
struct Light {
    std::int64_t from, to;  ///< after `quiet`, `to` excluded
    int level;
};

struct Act {
    std::string_view name, summary;
    std::vector<Part> parts;
    std::vector<Light> lights;
    std::int64_t frames;  ///< after which nothing more happens, without `quiet`
};

/// Brightness of all acts outside of their lights.
constexpr int kStageLight = 700;

std::span<const Act> acts();
/// Null where there is none of that name.
const Act* findAct(std::string_view name);
/// Those who are on stage in an act, all of them with their ways.
std::vector<Actor> castOf(const SceneDescription& description);

}  // namespace fleifeisa::scenes
