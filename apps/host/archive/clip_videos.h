// What a browser can play of a clip's visits.
#pragma once

#include <string>

#include "archive/clip.h"
#include "common/fd.h"

namespace fleifeisa::host {

/// Does every usual browser play this file itself (H.264, VP8, VP9 or AV1 in MP4 or WebM)? As ffprobe says.
bool isPlayable(const std::string& file);

/// For each visit (motion event) of `part`/events.jsonl an MP4 `part`/clips/NUMBER.mp4, with H.264 of 4:2:0, out of the
/// clip's file; at most kLongestVisit seconds of it. @throws ClipError
void makeVisits(const std::string& part, const Clip& clip, const Event& stop);
constexpr double kLongestVisit = 300;

}  // namespace fleifeisa::host
