// The configuration file of `run`: TOML, one [[camera]] table a camera.
#pragma once

#include <string>
#include <vector>

#include "camera/camera.h"

namespace fleifeisa::host {

struct HostConfig {
    std::string analyzer;  ///< path, "" where the file names none
    std::vector<CameraConfig> cameras;
};

/// Reads and checks the whole file. Every fault gives one line "FILE:LINE: KEY: what is wrong" in `errors`; relative
/// paths are taken from the file's directory.
HostConfig loadConfig(const std::string& path, std::vector<std::string>& errors);

}  // namespace fleifeisa::host
