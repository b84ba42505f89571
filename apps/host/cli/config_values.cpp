#include "cli/config_values.h"

#include <algorithm>
#include <cstdio>
#include <set>

namespace fleifeisa::host {
namespace {

std::string numberText(double value) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%g", value);
    return text.data();
}

std::string flagText(bool value) {
    return value ? "true" : "false";
}

/// Adds what nobody said.
class Unsaid {
 public:
    explicit Unsaid(std::vector<ConfigValue>& values) : values_(values) {
        for (const ConfigValue& value : values) said_.insert(value.key);
    }

    void camera(const CameraConfig& camera) {
        prefix_ = "camera." + camera.name + '.';
        const std::string profile = camera.profile.empty() ? "default" : "profile " + camera.profile;
        const SourceOptions& source = camera.source;
        add("rate", source.rate > 0 ? numberText(source.rate) : "\"as the source sends\"", "default");
        add("idle_rate", source.idle_rate > 0 ? numberText(source.idle_rate) : "\"as ever\"", "default");
        if (source.width == 0)
            add("size",
                source.longest_side > 0 ? "\"longest side " + std::to_string(source.longest_side) + '"'
                                        : "\"as the source sends\"",
                profile);
        add("least_area", numberText(camera.filter.least_area), profile);
        add("shadow_test", flagText(camera.filter.shadow_test), profile);
        add("split_people", flagText(camera.filter.split_people), profile);
        const ControlParameters& control = camera.control;
        for (const auto& [key, value, usual] :
             {std::tuple{"bgframes", &control.bgframes, "300"}, std::tuple{"color_low", &control.color_low, "0.25"},
              std::tuple{"color_high", &control.color_high, "0.5"}, std::tuple{"ir_low", &control.ir_low, "1.0"},
              std::tuple{"ir_high", &control.ir_high, "2.0"}}) {
            // With a control file of its own the analyzer's values may be whatever stands there.
            if (*value)
                add(std::string("control.") + key, **value, profile);
            else if (control.any())
                add(std::string("control.") + key, usual, "default");
        }
        add("stopped", numberText(camera.rules.stopped), "default");
        add("motion.off_delay", numberText(camera.rules.off_delay), "default");
    }

 private:
    void add(const std::string& key, const std::string& value, const std::string& origin) {
        const std::string name = prefix_ + key;
        const bool inside =
            std::ranges::any_of(said_, [&](const std::string& one) { return name.starts_with(one + '.'); });
        if (!said_.contains(name) && !inside) values_.push_back({name, value, origin});
    }

    std::vector<ConfigValue>& values_;
    std::set<std::string> said_;
    std::string prefix_;
};

}  // namespace

std::vector<ConfigValue> valuesInForce(const HostConfig& config) {
    std::vector<ConfigValue> values = config.values;
    Unsaid unsaid(values);
    for (const CameraConfig& camera : config.cameras) unsaid.camera(camera);
    return values;
}

}  // namespace fleifeisa::host
