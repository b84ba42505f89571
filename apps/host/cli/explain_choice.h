// Which cameras' analyzers answer questions.
#pragma once

#include <cstdint>
#include <optional>

#include "camera/camera.h"

namespace fleifeisa::host {

/// Sets the camera's explainer, or why it has none. Its analyzer is known.
/// @param page  somebody can ask  @param memory_left  bytes, nothing: not known
void chooseExplain(CameraConfig& camera, bool page, std::optional<std::int64_t> memory_left);

}  // namespace fleifeisa::host
