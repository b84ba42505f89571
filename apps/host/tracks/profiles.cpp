#include "tracks/profiles.h"

#include <algorithm>
#include <array>

namespace fleifeisa::host {
namespace {

// At about 384 pixels people 10 m away are some 60 high; more size costs time and finds leaves. The thresholds gate:
// what they let pass is looked at again. Each filter is least area, shadow test, split, infrared.
constexpr std::array<Profile, 4> kProfiles{{
    // Sun throws shadows, and people walk side by side.
    {"people-outdoor", "people on roads, yards and squares", 384, 300, "1.0", "2.0", {5e-4, true, true, false}},
    // A car is larger than a person, and what is smaller is a branch or a far road.
    {"traffic", "cars on roads and junctions", 384, 300, "1.0", "2.0", {1.5e-3, true, false, false}},
    // Lamps throw soft shadows; dark clothes before dark walls must not be taken for them.
    {"indoor", "people in rooms and halls", 384, 300, "1.0", "2.0", {5e-4, false, false, false}},
    // One channel. Animals are small and warm.
    {"thermal", "long-wave infrared, people and animals", 384, 100, "1.0", "2.0", {5e-4, false, false, true}},
}};

}  // namespace

std::span<const Profile> profiles() {
    return kProfiles;
}

const Profile* findProfile(std::string_view name) {
    const auto found =
        std::find_if(kProfiles.begin(), kProfiles.end(), [&](const Profile& one) { return one.name == name; });
    return found == kProfiles.end() ? nullptr : &*found;
}

}  // namespace fleifeisa::host
