// Candidates at work on one clip. The clip is decoded once for all of them; candidates that differ only in what is made
// of the analyzer's replies share an analyzer. Each comes to the very tracks that `play` makes with its values.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "camera/camera.h"
#include "tune/parameter_set.h"

namespace fleifeisa::host {

/// The camera with the candidate's values in place of its own.
CameraConfig withCandidate(CameraConfig camera, const ParameterSet& candidate);
/// What the camera has.
ParameterSet candidateOf(const CameraConfig& camera);

/// What candidates are tried on, and how.
struct TrialOrder {
    bool present = false;                  ///< the camera as it is, whatever the candidate says; one candidate only
    std::vector<ParameterSet> candidates;  ///< of one size and rate
    std::int64_t learned_ns = 0;           ///< nothing before that is judged
    Truth truth;
};

/// What the clip is.
struct ClipFacts {
    int width = 0, height = 0;  ///< cut out, before scaling, pixels
    std::int64_t frames = 0;    ///< at the rate of the trial
    std::int64_t length_ns = 0;
    std::int64_t step_ns = 0;  ///< usual distance of the trial's frames

    bool operator==(const ClipFacts&) const = default;
};

struct TrialResult {
    Score score;
    TrialCost cost;
};

struct TrialResults {
    ClipFacts facts;
    std::vector<TrialResult> results;  ///< one a candidate
};

/// Sees what a candidate's tracks were in a frame, for tests.
using TrialWatcher = std::function<void(std::size_t candidate, std::int64_t time_ns, const TrackFrame& tracks)>;

/// @param camera  with the analyzer's program and the clip as its source; its outputs are not looked at
/// @param progress  told of frames done and expected (0: unknown), may be empty
/// @throws SourceError, AnalyzerError, std::runtime_error
TrialResults runTrial(const CameraConfig& camera, const TrialOrder& order,
                      const std::function<void(std::int64_t, std::int64_t)>& progress,
                      const TrialWatcher& watcher = {});

/// The order and its results as text, for the process that does it.
std::string toJson(const TrialOrder& order);
std::string toJson(const TrialResults& results);
/// @throws std::runtime_error where the text is none
TrialOrder trialOrderOf(const std::string& text);
TrialResults trialResultsOf(const std::string& text);

}  // namespace fleifeisa::host
