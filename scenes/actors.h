// Who moves in a scene, and where to.
#pragma once

#include <cstdint>
#include <vector>

#include "scenes/scene.h"

namespace fleifeisa::scenes {

/// 1/256 pixel.
using Sub = std::int64_t;
constexpr Sub kSub = 256;

struct Colour {
    std::uint8_t r, g, b;
};

/// A corner of somebody's way: the middle of the feet (of the tyres), and how long to stand there.
struct Waypoint {
    Sub x, y;
    int hold;  ///< frames
};

/// One person or car from coming to leaving.
struct Actor {
    int id = 0;
    bool person = true;
    std::int64_t start = 0;  ///< first frame
    Sub speed = kSub;        ///< per frame
    int width = 1;           ///< pixels
    int height = 1;          ///< pixels
    Colour top{}, bottom{};  ///< jacket and trousers; car body and glass
    std::vector<Waypoint> way;
};

/// Where an actor is in one frame.
struct Pose {
    int x, y;      ///< pixels: middle and lowest row
    bool walking;  ///< legs move
    bool leftward;
    int step;  ///< 0 to 3: phase of the walk
};

/// Everyone who is about in frame `number`, far ones first. `number` counts from 0.
struct Present {
    Actor actor;
    Pose pose;
};
std::vector<Present> presentIn(const SceneDescription& description, std::int64_t number);

/// Rows of the picture at which things stand, pixels.
struct Layout {
    int wall_end;    ///< the wall behind the far pavement ends
    int road_begin;  ///< far pavement ends
    int road_end;    ///< near pavement begins
};
Layout layoutOf(const SceneDescription& description);

}  // namespace fleifeisa::scenes
