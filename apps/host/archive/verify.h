// A share of an archive, run again: what a result says is a function of its clip, so another machine must say the same.
#pragma once

#include <functional>
#include <map>
#include <string>
#include <vector>

#include "archive/plan.h"

namespace fleifeisa::host {

/// Who computed what of one clip.
struct Witness {
    std::string node, hashes;
};

/// What became of one clip that was run again.
struct VerifiedClip {
    const ClipRun* run = nullptr;
    std::vector<Witness> witnesses;  ///< the result's own first
    std::string failure;             ///< of the second run, ""

    bool agrees() const;
    /// Nodes that say something else than most. Empty where two say two things: nobody knows who is wrong.
    std::vector<std::string> wrongNodes() const;
    /// Which of the four hashes differ: "frames", "replies" ...
    std::string differences() const;
};

/// The runs to be repeated: of each node `share` of what it made (0 to 1, at least one), the same each time.
std::vector<const ClipRun*> chosenRuns(const Archive& archive, const Plan& plan, double share);

/// Runs `runs` anew into the archive at the second place; false where a stop came first.
using RunAgain = std::function<bool(Archive& again, const std::vector<const ClipRun*>& runs,
                                    const std::map<std::string, std::vector<std::string>>& nodes_by_run)>;

/// Each chosen run once more, and where it differs a third time, so that the odd one is known. Repetitions lie in
/// verify/1 and verify/2 of the archive while that goes on. @throws what `again` throws
std::vector<VerifiedClip> verifyRuns(const Archive& archive, const Plan& plan, double share, const RunAgain& again);

}  // namespace fleifeisa::host
