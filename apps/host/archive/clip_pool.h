// Runs of clips by child processes of this machine: what `batch`, comparisons and searches for parameters stand on.
//
//   Archive archive("out");
//   std::vector<ClipRun> runs;      // clipRun(clip, clipConfiguration(...), version) for every clip
//   const Interrupts interrupts;
//   const PoolEnd end = runClips(archive, runs, {}, interrupts.stop(), showPool);
//   archive.resultOf(runs[0].name)  // tracks.jsonl, events.jsonl, summary.json, outputs of the configuration
//
// What has a result already is not run again; so the same call goes on where an earlier one was, however that ended.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <thread>
#include <vector>

#include "archive/archive.h"
#include "common/fd.h"

namespace fleifeisa::host {

struct PoolSettings {
    /// Processes at a time, 0: one for each processor that this process may use. They share so many processors and
    /// take no more, whatever decoders and analyzers they start.
    int jobs = 0;
    int nice = 10;               ///< added to the priority: what lives on this machine comes first
    std::string program;         ///< path of fleifeisa-host, "": this program
    std::string analyzer;        ///< path of the analyzer, "": found
    bool retry_lasting = false;  ///< also what failed because of its clip; other failures are always tried again
};

struct PoolProgress {
    std::int64_t runs = 0, done = 0, failed = 0, running = 0;  ///< runs: all; done: also those that were done before
    std::int64_t frames = 0;                                   ///< by this call
    double frames_per_second = 0;                              ///< of the last seconds
    double seconds_left = -1;                                  ///< -1: not known yet
};

struct PoolEnd {
    std::int64_t made = 0;    ///< by this call
    std::int64_t done = 0;    ///< results there are, of these runs
    std::int64_t failed = 0;  ///< runs without a result whose failure is noted (Archive::failures)
    bool stopped = false;
};

/// @param stop  once it is set children end, what they were making is thrown away, and the call returns
/// @param tick  called a few times a second and at the end, may be empty
/// @throws std::system_error where the archive or a child process is out of reach
PoolEnd runClips(Archive& archive, std::span<const ClipRun> runs, const PoolSettings& settings, const Event& stop,
                 const std::function<void(const PoolProgress&)>& tick);

/// A line for a terminal: "12 of 60 clips, 1 failed, 2 running, 310 frames/s, 4 min left".
std::string progressText(const PoolProgress& progress);

/// "40 s", "12 min", "30 h", "9 days".
std::string durationText(double seconds);

/// Path of the running program.
std::string thisProgram();

/// Processors that this process may use.
int processors();

/// Takes SIGINT and SIGTERM as long as it lives (blockSignals() came before): the first sets stop(), a second one ends
/// the process and its children at once.
class Interrupts {
 public:
    Interrupts();
    ~Interrupts();
    Interrupts(const Interrupts&) = delete;
    Interrupts& operator=(const Interrupts&) = delete;
    const Event& stop() const { return stop_; }
    bool stopped() const;

 private:
    Event stop_, over_;
    Fd signals_;
    std::thread thread_;
};

}  // namespace fleifeisa::host
