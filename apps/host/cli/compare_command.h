// The verb `compare`: two configurations, or two earlier results, on the same clips.
#pragma once

#include <string>
#include <vector>

#include "archive/archive.h"
#include "compare/compare_page.h"

namespace CLI {  // NOLINT(readability-identifier-naming): the library's
class App;
}

namespace fleifeisa::host {

struct CompareOptions {
    std::string a, b;                ///< each a configuration (a file), or a directory of results
    std::vector<std::string> clips;  ///< files, directories, lists (clip_list.h), for configurations
    std::string out = "compare";     ///< directory of the page and of what is kept for the next time
    int jobs = 0;                    ///< processes, 0: one for each processor
    bool fail_on_change = false;
    bool quiet = false;
    std::string analyzer;
    std::string version;  ///< of this program
};

/// Status where something differs and the user asked to be told so.
constexpr int kChanged = 1;

int compareCommand(const CompareOptions& options);
void addCompare(CLI::App& app, int& code, const std::string& version);

}  // namespace fleifeisa::host
