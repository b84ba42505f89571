// All that can be changed of a camera, as the interface gives it (Settings in openapi.json).
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>

#include "camera/camera.h"

namespace fleifeisa::host {

/// @param changed  what is laid over the configuration file of this camera, as overridesJson() has it
std::string settingsJson(const CameraConfig& config, const nlohmann::json& changed);

}  // namespace fleifeisa::host
