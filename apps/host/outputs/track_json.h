// A track as files, interface and broker have it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tracks/track.h"

namespace fleifeisa::host {

/// `{"camera":...,"frames":57` without the closing brace, so that more can follow. `time_ns` is that of the frame it is
/// told for, `width` and `height` are that frame's size, `region` is what was cut out of the source picture.
std::string trackJson(std::string_view camera, const Track& track, std::int64_t time_ns, int width, int height,
                      const std::optional<Box>& region);

}  // namespace fleifeisa::host
