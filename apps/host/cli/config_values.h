// What is in force, value by value, and where each comes from: `run --print-config`, the page's state.
#pragma once

#include <vector>

#include "cli/config.h"

namespace fleifeisa::host {

/// What the files say, and behind it what they leave to a profile or a default and people ask for.
std::vector<ConfigValue> valuesInForce(const HostConfig& config);

}  // namespace fleifeisa::host
