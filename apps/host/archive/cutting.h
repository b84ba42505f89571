// Long files in parts.
#pragma once

#include <string>
#include <vector>

#include "archive/archive.h"

namespace fleifeisa::host {

struct CutSettings {
    std::int64_t length_ns = 0;  ///< of a part, 0: files are not cut
    std::int64_t warm_up_ns = 120'000'000'000;
    std::int64_t tail_ns = 60'000'000'000;
};

/// Each clip that is at least one and a half times as long as a part becomes parts of that length, the last of which
/// takes the rest; others stay as they are. Lengths are asked of ffprobe, once for each file: the archive remembers.
/// A file whose length nobody knows stays whole.
std::vector<Clip> cutClips(const Archive& archive, const std::vector<Clip>& clips, const CutSettings& settings);

/// The parts of a clip of this length.
std::vector<Clip> partsOf(const Clip& clip, std::int64_t duration_ns, const CutSettings& settings);

}  // namespace fleifeisa::host
