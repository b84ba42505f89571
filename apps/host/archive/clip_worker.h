// A process that makes the result of one clip, and nothing else: a crash costs one clip.
#pragma once

#include <string>

#include "archive/archive.h"
#include "camera/camera.h"

namespace fleifeisa::host {

/// To be called once in a process, before it has other threads. The process reads its order from standard input, which
/// stays open as long as it is wanted: at its end the process throws away what it was making and ends at once. To
/// standard output it writes "frames N OF" (0: not known) a few times a second.
///
/// @param camera  of run.configuration, with the analyzer's program
/// @returns a sysexits status; 0 where the result is in the archive. What went wrong stands in the log
int makeResult(const Archive& archive, const ClipRun& run, CameraConfig camera);

/// For such a process: ends it, and all that it started, at the end of standard input. Call before other threads.
void endWithParent();
/// Archive::finish(), which the end of standard input waits for.
void nameResult(const Archive& archive, const std::string& part, const std::string& name);
/// What this process and its children have used.
ClipCost costSince(Clock::time_point begin);

}  // namespace fleifeisa::host
