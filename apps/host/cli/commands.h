// The verbs of fleifeisa-host. Each returns an exit status after sysexits.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "camera/camera.h"
#include "cli/profile_choice.h"

namespace fleifeisa::host {

struct PlayOptions {
    CameraConfig camera;
    FilterChoice filter;
    std::string analyzer;              ///< path of the analyzer, "": found
    std::string out = "out";           ///< directory for outputs without a path of their own
    Rotation rotation;                 ///< of outputs that grow
    std::vector<std::string> outputs;  ///< "type" or "type=path"; empty: the usual ones
    std::string state;                 ///< state directory of the store, "": no store
    bool quiet = false;                ///< no table, no progress
};
/// One source through one analyzer.
int playCommand(PlayOptions options);

struct RunOptions {
    std::string config;
    bool check_only = false;
    bool print_only = false;  ///< what is in force, and where each value comes from
    std::string analyzer;
    std::string version;  ///< of this program
};
/// All cameras of a configuration file.
int runCommand(const RunOptions& options);

struct ReplayOptions {
    std::string recording;
    bool verify = false;
    std::string replies;               ///< file for the replies' exact bytes, "": none
    std::string out = "out";           ///< directory for outputs without a path of their own
    std::vector<std::string> outputs;  ///< "type" or "type=path"
    std::string analyzer;
};
/// The exact requests of a recording, against the analyzer of today.
int replayCommand(const ReplayOptions& options);

/// Tells the running host of that state directory what happened at a camera ("": $STATE_DIRECTORY).
int tellCommand(const std::string& state, const std::string& camera, const std::string& text);

int scenesCommand();

/// How long clips of the last events are waited for: all of them where the sources have ended by themselves.
constexpr double kFinishSeconds = 3600, kStopSeconds = 0.3;

/// What the verb returns, or the exit status that fits the exception it ends with, which is logged.
int statusOf(const std::function<int()>& verb);

/// "type" or "type=path" as the command line takes them. @throws SourceError where the type is unknown
OutputChoice parseOutputChoice(const std::string& text, const std::string& directory);
/// Creates the directory. @throws SourceError
void makeDirectory(const std::string& path);

/// The analyzer's path: as wanted, or beside this program, or in PATH. @throws SourceError
std::string foundAnalyzer(const std::string& wanted);
/// Logs the first of them; returns the status of a faulty configuration.
int tellFaults(const std::vector<std::string>& faults);

}  // namespace fleifeisa::host
