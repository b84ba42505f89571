// What really happens in scene "stage": who enters which zone when, who crosses a line, who stands still. Told from the
// ways of those who act, not from pictures.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "scenes/scene.h"

namespace fleifeisa::scenes {

/// In shares of the picture.
struct Spot {
    double x, y;
};

/// What the acts are made for: a yard before a wall, and a gate through which its left and its right meet.
std::vector<Spot> stageYard();
/// Drawn from its first spot to its second, downwards: from right to left is forward.
std::vector<Spot> stageGate();

/// Nearer than this to an edge nothing is certain: a way that does not get farther behind it decides nothing.
constexpr double kUncertain = 0.025;
/// Who stands for so long, stands still.
constexpr int kStandFrames = 50;

struct TrueEvent {
    std::string what;  ///< "enter", "leave", "forward", "backward", "stands", "unwell" (light, nothing to be seen)
    int who;           ///< TruthBox::id, 0: nobody
    /// Frames between which it happens: from the edge until it is certain; "unwell": from its beginning to its end.
    std::int64_t first, last;
    bool certain = true;  ///< false: it happens, and nobody can tell from the picture
};

/// By their first frames. Who comes with another is one with him until their feet are a tenth apart: what happens to
/// both of them until then is certain for the one, who was joined; the other's crossings happen, but are not certain,
/// and a stay in which they part is the one's.
/// @pre description.name is "stage"
std::vector<TrueEvent> eventTruth(const SceneDescription& description);

}  // namespace fleifeisa::scenes
