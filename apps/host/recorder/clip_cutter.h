// Cuts a clip out of segments: an MP4 with the packets as they came, and the list of its frames' times.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "common/fd.h"
#include "recorder/segment.h"
#include "recorder/transcoder.h"

namespace fleifeisa::host {

struct ClipOrder {
    std::vector<std::string> segments;    ///< files, of one run, in order; one that is missing is a gap
    std::int64_t from_ns = 0, to_ns = 0;  ///< wanted; since 1970
    std::string file, times;              ///< where the clip and its list of times go
    bool sound = false;
};

struct ClipMade {
    std::int64_t start_ns = 0, end_ns = 0;  ///< of its first and last frame
    std::int64_t bytes = 0, times_bytes = 0;
    int width = 0, height = 0;
    std::string codec;  ///< "h264", "hevc"
    bool gaps = false;  ///< segments are missing
    std::size_t frames = 0;
};

/// The clip begins with the latest picture that can be decoded and shows nothing later than `from_ns`, or with the
/// first there is; it ends with the last frame up to `to_ns` (and those few that have to be decoded before it).
/// Pictures that come before its first one and cannot be decoded without what is cut off are left out. Both files get
/// their names when they are whole and on disk.
///
/// The list, in JSON: {"codec":"h264","timescale":90000,"lead_ns":N,"pts":[...],"time_ns":[...]}. `pts` counts from the
/// clip's start, in order; `time_ns` is the moment at which the camera saw that frame, null where it was not decoded.
/// `lead_ns`: so much earlier than wanted the clip begins, negative where it begins later.
/// @throws ClipError
ClipMade cutClip(const ClipOrder& order, const Event& stop);

/// A copy that every browser plays: H.264, 8 bits, 4:2:0. Takes about as long as the clip lasts on a small machine.
/// @returns its bytes  @throws ClipError
std::int64_t makePlayable(const std::string& clip, const std::string& file, const Event& stop);

}  // namespace fleifeisa::host
