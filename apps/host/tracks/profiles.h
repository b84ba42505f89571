// Profiles: named sets of analyzer and filter parameters for what cameras usually look at. A table, and nothing else:
// whoever reads the configuration applies it, and what the user sets himself comes first.
#pragma once

#include <span>
#include <string_view>

#include "tracks/track_filter.h"

namespace fleifeisa::host {

struct Profile {
    std::string_view name;         ///< as in configuration and on the command line
    std::string_view description;  ///< one line for help texts
    int longest_side;              ///< pixels: larger frames are scaled down to it, smaller ones stay as they are
    int learning_frames;           ///< of the analyzer (bgframes)
    std::string_view low, high;    ///< its confidence thresholds, of colour or infrared as the profile is
    FilterSettings filter;
};

/// All of them, in the order in which they are listed to users.
std::span<const Profile> profiles();
/// nullptr where there is none of this name.
const Profile* findProfile(std::string_view name);

}  // namespace fleifeisa::host
