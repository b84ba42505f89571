// Which clips take no part in a search.
#pragma once

#include <string>
#include <vector>

namespace fleifeisa::host {

struct HeldOutClip {
    std::string name;
    bool with_things = false;
};

/// A third of the clips, by their names alone and whatever their order: of those with things and of those without one
/// in three each, as far as that comes out. Of fewer than three none.
/// @returns one flag a clip
std::vector<bool> heldOut(const std::vector<HeldOutClip>& clips);

}  // namespace fleifeisa::host
