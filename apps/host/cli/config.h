// The configuration file of `run`: TOML, one [[camera]] table a camera.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "camera/camera.h"
#include "camera/event_desk.h"
#include "web/web_server.h"

namespace fleifeisa::host {

struct HostConfig {
    std::string analyzer;  ///< path, "" where the file names none
    DeskSettings desk;
    WebSettings web;
    std::string timezone = "UTC";
    std::vector<CameraConfig> cameras;
    std::vector<ConfigValue> values;    ///< what the files say, without secrets, with the lines
    std::vector<std::string> warnings;  ///< changes of things that are gone
};

/// What people changed on the page (cli/overrides.h): `path` names it in messages.
struct OverridesFile {
    std::string path, text;
};

/// How closely a configuration is looked at.
enum class ConfigCheck {
    kText,   ///< what stands in the file: enough to run, where each camera fails for itself
    kWorld,  ///< also whether the sources are there and every camera has an output
    kClips,  ///< cameras whose videos are files: without a source, a device or paths of outputs
};

/// Reads and checks the whole file. Every fault gives one line "FILE:LINE: KEY: what is wrong" in `errors`; relative
/// paths are taken from the file's directory.
HostConfig loadConfig(const std::string& path, std::vector<std::string>& errors,
                      ConfigCheck check = ConfigCheck::kText);

/// The same for a text that is at hand; `path` names it, and gives the directory. The changes are laid over it; their
/// faults come behind the text's own.
HostConfig parseConfig(std::string_view text, const std::string& path, std::vector<std::string>& errors,
                       ConfigCheck check = ConfigCheck::kText, const OverridesFile* overrides = nullptr);

/// The text of such a file. Nothing where it cannot be read or is too large, which is an error.
std::optional<std::string> readConfig(const std::string& path, std::vector<std::string>& errors);

}  // namespace fleifeisa::host
