#include "commands.h"
namespace fleifeisa::host {
int runCommand(const RunOptions&) {
    return 70;
}
}  // namespace fleifeisa::host
