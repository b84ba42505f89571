// A process that tries candidates on one clip, and nothing else: a child of the pool of archives (archive/clip_pool.h).
#pragma once

#include <string>

#include "archive/archive.h"
#include "camera/camera.h"

namespace fleifeisa::host {

/// The file of a trial's result that holds TrialResults.
constexpr const char* kTrialFile = "trial.json";

/// As makeResult(), for a run with a trial: its result holds kTrialFile, and no outputs.
/// @throws SourceError, AnalyzerError, std::runtime_error
int makeTrial(const Archive& archive, const ClipRun& run, CameraConfig camera);

}  // namespace fleifeisa::host
