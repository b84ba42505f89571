// The whole program but its command line: reads frames, runs the tracker, writes pictures, files and the page.
#pragma once

#include <stdexcept>
#include <string>
#include <vector>

#include "inspect/frames.h"
#include "inspect/session.h"

namespace fleifeisa::inspect {

/// Exit statuses, as in <sysexits.h>.
enum ExitStatus {
    kOk = 0,
    kUsage = 64,
    kBadData = 65,
    kNoInput = 66,
    kSoftware = 70,
    kSystem = 71,
    kCannotCreate = 73
};

/// What ends the program early: a text for the user and the status.
class Failure : public std::runtime_error {
 public:
    Failure(ExitStatus exit_status, const std::string& what) : std::runtime_error(what), status(exit_status) {}
    ExitStatus status;
};

struct Options {
    std::vector<std::string> inputs;    ///< one request stream ("-": standard input), or image files
    std::string list, prefix;           ///< a file with names of images, and what stands before each name
    std::string directory = "inspect";  ///< created where it is missing
    FrameRanges frames;                 ///< empty: every `every`-th detection frame, from the first one on
    int every = 100;
    int scale = 0;  ///< pixels of a picture for each of the frame; 0: chosen from the frame's width
    bool xml = false, dumps = false, trace = false, quiet = false;
    Settings settings;
};

/// Runs to the last frame asked for or the end of the input; messages go to standard error. Throws Failure.
void inspect(const Options& options);

/// The command line: options, help, version; returns the exit status.
int inspectMain(int argc, const char* const* argv);

}  // namespace fleifeisa::inspect
