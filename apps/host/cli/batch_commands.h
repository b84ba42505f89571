// The verbs of archives: `batch` and what belongs to it.
#pragma once

#include <string>
#include <vector>

namespace fleifeisa::host {

struct BatchOptions {
    std::vector<std::string> clips;  ///< files, directories, lists (clip_list.h)
    std::string config;              ///< "": all is as usual
    std::string out = "archive";     ///< the archive's directory
    int jobs = 0;                    ///< processes, 0: one for each processor
    bool retry = false;              ///< also what failed because of its clip
    bool quiet = false;
    std::string analyzer;
    std::string version;  ///< of this program
};
/// All clips into results.
int batchCommand(const BatchOptions& options);

/// A child of the pool: one run, as standard input says (archive/clip_worker.h).
int clipRunCommand(const std::string& archive, const std::string& analyzer);

}  // namespace fleifeisa::host
