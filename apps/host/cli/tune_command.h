// The verb `tune`: searches for the parameters that find most and are wrong least, on clips of which the truth is
// known.
#pragma once

#include <string>
#include <vector>

#include "tune/parameter_set.h"

namespace CLI {  // NOLINT(readability-identifier-naming): the library's
class App;
}

namespace fleifeisa::host {

struct TuneOptions {
    std::vector<std::string> clips;  ///< files, directories, lists (clip_list.h)
    std::string truth;               ///< one file for all clips, "": a file beside each
    std::string config;              ///< what is set now, "": all is as usual
    std::string camera;              ///< of the configuration, "": its only one
    std::string out = "tune";        ///< directory of the page and of what is kept for the next time
    int candidates = 200;
    double least_seconds = 60;  ///< that a clip must have behind its learning
    Weights weights;
    int jobs = 0;  ///< processes, 0: one for each processor
    bool quiet = false;
    std::string analyzer;
    std::string version;  ///< of this program
};

int tuneCommand(const TuneOptions& options);
void addTune(CLI::App& app, int& code, const std::string& version);

}  // namespace fleifeisa::host
