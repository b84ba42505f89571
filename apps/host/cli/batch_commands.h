// The verbs of archives: `batch` and what belongs to it.
#pragma once

#include <string>
#include <vector>

#include "archive/cutting.h"
#include "archive/plan.h"

namespace fleifeisa::host {

struct BatchOptions {
    std::vector<std::string> clips;  ///< files, directories, lists (clip_list.h)
    std::string config;              ///< "": all is as usual
    std::string out = "archive";     ///< the archive's directory
    int jobs = 0;                    ///< processes, 0: one for each processor
    int nice = 10;                   ///< of the processes
    CutSettings cut;
    bool retry = false;                      ///< also what failed because of its clip
    bool merge = true;                       ///< behind the clips
    bool slurm = false;                      ///< by a cluster: submits what is missing, and returns
    std::vector<std::string> sbatch;         ///< further options of sbatch
    std::int64_t task_ns = 300'000'000'000;  ///< that a task of an array should take
    bool quiet = false;
    std::string analyzer;
    std::string version;  ///< of this program
};
/// All clips into results, and these into a page and a database.
int batchCommand(const BatchOptions& options);

/// How far an archive is. @param watch  goes on until all is done
int batchStatusCommand(const std::string& directory, bool watch);
int batchMergeCommand(const std::string& directory, bool quiet);

/// Runs `share` per cent of the clips again and compares.
struct VerifyOptions {
    std::string directory;
    double share = 2;  ///< per cent
    bool slurm = false;
    std::vector<std::string> sbatch;
    int jobs = 0;
    std::string analyzer;
    bool quiet = false;
};
int batchVerifyCommand(const VerifyOptions& options);
/// Cancels what was submitted for an archive.
int batchCancelCommand(const std::string& directory);
/// One task of an array ($SLURM_ARRAY_TASK_ID) of a file of chunks (archive/slurm.h).
int batchTaskCommand(const std::string& directory, const std::string& chunks, const std::string& analyzer);

/// An archive that is there. @throws SourceError
Archive existingArchive(const std::string& directory);
/// Submits the runs of the plan that have no result. Measures what they cost first, where nothing is known of it.
int submitMissing(Archive& archive, const Plan& plan, const BatchOptions& options);

/// A child of the pool: one run, as standard input says (archive/clip_worker.h).
int clipRunCommand(const std::string& archive, const std::string& analyzer);

}  // namespace fleifeisa::host
