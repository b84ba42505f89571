// An archive by a Slurm cluster: what is missing becomes one array of jobs and a merge behind it. Which machine does
// what and when, and what happens when one fails, is Slurm's business; nothing of ours runs but its jobs, and the
// archive's directory is all that they share.
//
//   slurm/jobs        ids of what was submitted, one a line
//   slurm/N.chunks    runs of each task of the Nth array, a line a task: names, by blanks
//   slurm/ID_TASK.log what a task wrote
#pragma once

#include <set>
#include <span>
#include <stdexcept>
#include <string>
#include <vector>

#include "archive/plan.h"
#include "common/fd.h"

namespace fleifeisa::host {

/// What Slurm refused, or that it is not there.
struct SlurmError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

/// What a run of a clip takes, as measured.
struct RunCost {
    double seconds_per_weight = 0;  ///< Clip::weight()
    std::int64_t peak_bytes = 0;
};
/// Of what was run in an archive so far, nothing where nothing was.
std::optional<RunCost> measuredCost(const Archive& archive);

/// How an array is cut out.
struct ArrayShape {
    std::vector<std::vector<std::string>> chunks;  ///< names of runs, by task
    std::int64_t memory_mb = 0;                    ///< limit of a task
    std::int64_t minutes = 0;                      ///< limit of a task
};
constexpr double kTaskSeconds = 300;
/// Tasks of about so many seconds, more where the array may not have so many tasks; limits with room to spare.
ArrayShape shapeOf(std::span<const ClipRun* const> runs, const RunCost& cost, std::size_t most_tasks,
                   double task_seconds = kTaskSeconds);

struct SlurmSettings {
    std::string analyzer;             ///< "": found
    std::string exclude;              ///< nodes that are to do nothing, by commas, "": none
    std::vector<std::string> sbatch;  ///< further options of sbatch, such as a partition
    bool merge = true;                ///< a job behind the array
};
/// @returns id of the array  @throws SlurmError, std::system_error
std::string submit(const Archive& archive, const ArrayShape& shape, const SlurmSettings& settings);

/// Names of the runs of a task. @throws std::runtime_error where there is no such task
std::vector<std::string> runsOfTask(const std::string& chunks, std::size_t task);

/// Names of the cluster's nodes. @throws SlurmError
std::set<std::string> clusterNodes();
/// Tasks that an array may have. @throws SlurmError
std::size_t mostTasks();
/// Waits until Slurm knows no job of these ids any more that is not over. False where the stop came first.
/// @throws SlurmError where it cannot be asked for minutes
bool waitForJobs(std::span<const std::string> ids, const Event& stop);
/// Cancels all that was submitted for the archive. @returns ids  @throws SlurmError
std::vector<std::string> cancelJobs(const Archive& archive);

}  // namespace fleifeisa::host
