// Is a component a thing at all? Two things that are none: the place that something left (a ghost), and light.
#pragma once

#include "tracks/foreground.h"

namespace fleifeisa::host {

/// The component's outline is in the background and not in the frame.
bool isGhost(SmoothFrame& frame, const Background& background, const Foreground& foreground, const Component& one);

/// The background's texture shows through: only the light on it changed.
bool isLight(SmoothFrame& frame, const Background& background, const Foreground& foreground, const Component& one,
             int least_pixels);

}  // namespace fleifeisa::host
