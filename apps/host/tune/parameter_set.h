// A set of the parameters that are searched, and how good it turned out to be.
#pragma once

#include <string>

#include "tune/score.h"

namespace fleifeisa::host {

/// Thresholds of either image type; of infrared images the shadow test says nothing.
struct ParameterSet {
    double low = 0.25, high = 0.5;  ///< of the analyzer, three significant digits
    int longest_side = kFull;       ///< pixels of the analyzed picture, at most
    double rate = 0;                ///< frames a second, at most; 0: all
    int learning_frames = 50;       ///< of the analyzer: as long in seconds whatever the rate is
    double least_area = 5e-4;       ///< share of the picture, two significant digits
    bool shadow_test = true;
    bool split_people = false;

    static constexpr int kFull = 16384;  ///< no picture is larger

    bool operator==(const ParameterSet&) const = default;
    auto operator<=>(const ParameterSet&) const = default;  // NOLINT(modernize-use-nullptr): there is no pointer
};

/// "1/2 384 px 10/s area 0.0005 shadow split": on one line, and another for every other candidate.
std::string candidateText(const ParameterSet& candidate);

/// The lines of a [[camera]] table that say the same; the control table comes last.
/// @param over_rate  the table has a rate that must not stay
std::string candidateToml(const ParameterSet& candidate, bool infrared, bool over_rate);

/// Processor seconds for a second of video, in three parts.
struct TrialCost {
    double decoder = 0, analyzer = 0, filter = 0;  ///< seconds
    double video = 0;                              ///< seconds of video they were spent on

    double share() const { return video > 0 ? (decoder + analyzer + filter) / video : 0; }
    TrialCost& operator+=(const TrialCost& other);
};

struct Judged {
    ParameterSet candidate;
    Score score;  ///< over the clips that are searched with
    TrialCost cost;
};

/// What a miss weighs: as much as so many wrong tracks.
struct Weights {
    double missed = 2;
};
double loss(const Score& score, const Weights& weights);

}  // namespace fleifeisa::host
