// Which profile (tracks/profiles.h) a camera has, and what the user said himself.
#pragma once

#include <optional>
#include <string>

#include "camera/camera.h"

namespace fleifeisa::host {

/// What the user said; the rest is the profile's, or the default.
struct FilterChoice {
    std::optional<double> least_area;
    std::optional<bool> shadow_test, split_people;
    bool type = false;  ///< of the images, which is in the camera's configuration
};

/// The name of a profile. @throws ValueError with the names there are
std::string parseProfile(const std::string& name);
/// "people-outdoor, traffic, ..."
std::string profileNames();

/// Sets what the profile (camera.profile, "" for none) says wherever nothing was said: `camera` holds what the user
/// wrote, with its optional values unset and size 0 where nothing was.
void applyProfile(CameraConfig& camera, const FilterChoice& said);

}  // namespace fleifeisa::host
