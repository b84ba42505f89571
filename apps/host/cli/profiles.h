// Named sets of parameters for common kinds of scenes.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "camera/camera.h"

namespace fleifeisa::host {

/// What a user said of the filter; the rest is the profile's, or the default.
struct FilterChoice {
    std::optional<double> least_area;
    std::optional<bool> shadow_test, split_people;
};

/// "" for none, else one of profileNames(). @throws ValueError with the names there are
std::string parseProfile(const std::string& name);
/// "people-outdoor, traffic, ..." for help texts.
std::string profileNames();

/// Sets what the profile (camera.profile, "" for none) says wherever nothing was said: `camera` holds what the user
/// wrote, with its optional values unset and size 0 where nothing was.
void applyProfile(CameraConfig& camera, const FilterChoice& said);

}  // namespace fleifeisa::host
