// `batch` on the command line.
#pragma once

#include <string>

namespace CLI {  // NOLINT(readability-identifier-naming): the library's
class App;
}

namespace fleifeisa::host {

/// Adds the verb, and the one of its child processes; `code` becomes their exit status.
void addBatch(CLI::App& app, int& code, const std::string& version);

}  // namespace fleifeisa::host
