#include "cli/profiles.h"

#include <algorithm>
#include <array>

#include "cli/values.h"

namespace fleifeisa::host {
namespace {

struct Profile {
    std::string_view name;
    int width;             ///< pixels; larger pictures are scaled down to it, their height in proportion
    const char* bgframes;  ///< frames of learning
    const char *color_low, *color_high, *ir_low, *ir_high;
    double least_area;  ///< of the frame
    bool shadow_test, split_people;
};

// docs/profiles.md tells them, with the reasons.
constexpr auto kProfiles = std::to_array<Profile>({
    {"people-outdoor", 384, "200", "1", "2", "1", "2", 5e-4, true, true},
    {"traffic", 384, "200", "1", "2", "1", "2", 5e-4, true, false},
    {"indoor", 384, "200", "1", "2", "1", "2", 2e-3, true, false},
    {"thermal", 384, "150", "1", "2", "1", "2", 1e-3, false, false},
});

const Profile* find(std::string_view name) {
    const auto* const found = std::ranges::find(kProfiles, name, &Profile::name);
    return found == kProfiles.end() ? nullptr : found;
}

}  // namespace

std::string profileNames() {
    std::string names;
    for (const Profile& profile : kProfiles) names += (names.empty() ? "" : ", ") + std::string(profile.name);
    return names;
}

std::string parseProfile(const std::string& name) {
    if (!name.empty() && find(name) == nullptr) throw ValueError("expected one of " + profileNames());
    return name;
}

void applyProfile(CameraConfig& camera, const FilterChoice& said) {
    const auto set = [](auto& field, const auto& value) {
        if (value) field = *value;
    };
    const auto where = [](std::optional<std::string>& field, const char* value) {
        if (!field) field = value;
    };
    if (const Profile* profile = find(camera.profile)) {
        if (camera.source.width == 0) camera.source.fit_width = profile->width;
        ControlParameters& control = camera.control;
        where(control.bgframes, profile->bgframes);
        where(control.color_low, profile->color_low);
        where(control.color_high, profile->color_high);
        where(control.ir_low, profile->ir_low);
        where(control.ir_high, profile->ir_high);
        camera.filter.least_area = profile->least_area;
        camera.filter.shadow_test = profile->shadow_test;
        camera.filter.split_people = profile->split_people;
    }
    set(camera.filter.least_area, said.least_area);
    set(camera.filter.shadow_test, said.shadow_test);
    set(camera.filter.split_people, said.split_people);
}

}  // namespace fleifeisa::host
