// Video made by rule: an ordinary street, a chosen number of moving objects, and the contents that cost the most.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "bench/compare/clip.h"

namespace bench {

// Number of frames the background of a scene is shown before anything happens, and of the frames after that.
struct SceneLength {
    size_t learning = 64;
    size_t detection = 24;
};

// An ordinary street with people and cars: stands in for footage where there is none.
Clip streetScene(int width, int height, SceneLength length);

// A plain wall with `objects` boxes on it, large ones drifting, from the first detection frame on. Short scenes only:
// the boxes come back to where others have been, and the wall is then learnt with them.
Clip manyObjects(int width, int height, size_t objects, SceneLength length);

struct WorstScene {
    std::string name;
    std::string what;  // one line for the reader of the table
    Clip (*make)(int width, int height, SceneLength length);
};

// The worst contents. The event begins a few frames into the detection frames and lasts to the end.
const std::vector<WorstScene>& worstScenes();

}  // namespace bench
