// The list of an archive: which runs of clips it is to have. Written by `batch`, read by everything else, on any
// machine.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "archive/archive.h"

namespace fleifeisa::host {

struct Plan {
    std::vector<ClipRun> runs;                  ///< by camera, start and file
    std::map<std::string, std::string> titles;  ///< of cameras
    std::string timezone = "UTC";               ///< of what people read

    /// Takes the place of an earlier list; results stay. @throws std::system_error
    void save(const Archive& archive) const;
    /// @throws std::runtime_error where the directory holds no archive or the list is none
    static Plan load(const Archive& archive);
};

/// How far an archive is, whoever works on it.
struct ArchiveStatus {
    std::int64_t runs = 0, done = 0, failed = 0, running = 0;
    double frames_per_second = 0;  ///< of all that run now
    double seconds_left = -1;      ///< at the pace of what runs now, -1: not known
    double cpu_seconds = 0;        ///< so far
    std::int64_t frames = 0;       ///< so far
    std::vector<ClipFailure> failures;
};
ArchiveStatus archiveStatus(const Archive& archive, const Plan& plan);

/// What a run writes into its part every few seconds while it is at work.
struct PartProgress {
    static constexpr const char* kFile = "progress";
    std::int64_t frames = 0, expected = 0;
    double seconds = 0;
};
void notePart(const std::string& part, const PartProgress& progress);

}  // namespace fleifeisa::host
