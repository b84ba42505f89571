// The directory that all runs of clips share, perhaps from several machines. Nothing but files:
//
//   results/NAME/    of one run (ClipRun::name), complete: made in parts/ and renamed. Whoever sees it sees all of it
//       summary.json     ClipSummary          run.json       ClipCost
//       tracks.jsonl     as the output        events.jsonl   as the output, without pictures and clips
//       pictures/        of events and tracks, clips/ of events, and the outputs of the configuration
//   failed/NAME.json ClipFailure; a result of that name makes it void
//   parts/           what is being made: NAME@HOST.PID
//   journal/         HOST.PID: a line for each run that ended in that process, for progress alone
//   lock             held while a machine works through the whole list
//
// A name holds a hash of all that a result depends on, so there is nothing to be compared or kept in step: a result is
// there, or it is to be made. Two processes that make the same one at the same time make the same bytes, and the
// second to be ready throws its own away.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "archive/clip.h"
#include "common/fd.h"

namespace fleifeisa::host {

/// A line of the journal.
struct JournalLine {
    std::string name;
    bool done = false;  ///< else failed
    std::int64_t ended_ns = 0, frames = 0;
    double weight = 0;  ///< Clip::weight()
    double seconds = 0, cpu_seconds = 0;
    std::int64_t peak_bytes = 0;
};

class Archive {
 public:
    /// Makes the directory where it is not there. @throws std::system_error with the path
    explicit Archive(const std::string& directory);

    const std::string& directory() const { return directory_; }
    std::string path(std::string_view below) const { return directory_ + '/' + std::string(below); }
    std::string resultOf(const std::string& name) const { return path("results/") + name; }
    /// Of a process of this machine.
    std::string partOf(const std::string& name, int pid) const;

    bool has(const std::string& name) const;
    /// Names of all results: one look at the directory, however many there are.
    std::set<std::string> results() const;
    /// Of runs without a result, by name.
    std::map<std::string, ClipFailure> failures() const;
    void noteFailure(const ClipFailure& failure) const;
    void forgetFailure(const std::string& name) const;

    /// Gives a part its name, once all of it is on disk. @returns false where another process was first: its own is
    /// removed. @throws std::runtime_error where the other one computed something else
    bool finish(const std::string& part, const std::string& name) const;

    ClipSummary summary(const std::string& name) const;
    ClipCost cost(const std::string& name) const;

    void note(const JournalLine& line);
    std::vector<JournalLine> journal() const;

    /// For one process that works through all runs. Nothing while another one does: `holder` says which.
    std::optional<Fd> lock(std::string& holder) const;
    /// Removes what processes of this machine that are gone were making.
    void removeLeftParts() const;
    /// Removes parts of which there is a result by now: their makers were lost, or come too late.
    void removeNeedlessParts() const;

 private:
    std::string directory_;
    Fd journal_;  ///< of this process, once it has a line
};

/// Name of this machine, of letters, digits, '-' and '.'.
std::string nodeName();

/// The whole of a file. @throws std::system_error with the path
std::string readFile(const std::string& path);
/// Written aside, synced, renamed. @throws std::system_error with the path
void writeFile(const std::string& path, std::string_view text);

}  // namespace fleifeisa::host
