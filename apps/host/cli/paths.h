// What the files of a run must not have in common.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "camera/camera.h"

namespace fleifeisa::host {

/// Outputs that would write over one another, or over what a camera reads: a sentence for each.
std::vector<std::string> pathFaults(std::span<const CameraConfig> cameras);

}  // namespace fleifeisa::host
