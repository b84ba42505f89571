#include "cli/profile_choice.h"

#include "cli/values.h"
#include "tracks/profiles.h"

namespace fleifeisa::host {

std::string profileNames() {
    std::string names;
    for (const Profile& profile : profiles()) names += (names.empty() ? "" : ", ") + std::string(profile.name);
    return names;
}

std::string parseProfile(const std::string& name) {
    if (findProfile(name) == nullptr) throw ValueError("expected one of " + profileNames());
    return name;
}

void applyProfile(CameraConfig& camera, const FilterChoice& said) {
    const auto set = [](auto& field, const auto& value) {
        if (value) field = *value;
    };
    const auto complete = [](std::optional<std::string>& field, std::string_view value) {
        if (!field) field = value;
    };
    if (const Profile* profile = findProfile(camera.profile)) {
        if (camera.source.width == 0 && camera.source.longest_side == 0)
            camera.source.longest_side = profile->longest_side;
        if (!said.type) camera.analyzer.infrared = profile->filter.infrared;
        ControlParameters& control = camera.control;
        complete(control.bgframes, std::to_string(profile->learning_frames));
        complete(camera.analyzer.infrared ? control.ir_low : control.color_low, profile->low);
        complete(camera.analyzer.infrared ? control.ir_high : control.color_high, profile->high);
        camera.filter = profile->filter;
        camera.filter.infrared = false;  // the analyzer's type decides
    }
    set(camera.filter.least_area, said.least_area);
    set(camera.filter.shadow_test, said.shadow_test);
    set(camera.filter.split_people, said.split_people);
}

}  // namespace fleifeisa::host
