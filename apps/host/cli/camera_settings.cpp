#include "cli/camera_settings.h"

#include <algorithm>
#include <charconv>
#include <nlohmann/json.hpp>

#include "cli/overrides.h"

namespace fleifeisa::host {
namespace {

using nlohmann::json;

bool isNamed(const std::string& key) {
    return std::ranges::find(kOverrideNamed, key) != std::end(kOverrideNamed);
}

json pointsJson(const auto& points) {
    json list = json::array();
    for (const auto& point : points) list.push_back({point.x, point.y});
    return list;
}

json polygonsJson(const std::vector<Mask>& masks) {
    json list = json::array();
    for (const Mask& mask : masks) list.push_back(pointsJson(mask));
    return list;
}

json limitsJson(const Limits& limits) {
    return {{"least_size", {{"near", limits.least_size.near}, {"far", limits.least_size.far}}},
            {"least_age", limits.least_age},
            {"cooldown", limits.cooldown},
            {"when", limits.when.text()}};
}

json numberOf(const std::optional<std::string>& text) {
    double value = 0;
    if (!text || std::from_chars(text->data(), text->data() + text->size(), value).ec != std::errc()) return nullptr;
    return value;
}

}  // namespace

std::string settingsJson(const CameraConfig& config, const json& changed) {
    json zones = json::array(), lines = json::array(), removed = json::array(), units = json::array();
    const auto origin = [&changed](const char* kind, const std::string& name) {
        if (!changed.contains(kind) || !changed[kind].contains(name)) return "file";
        return changed[kind][name].value("added", false) ? "page" : "changed";
    };
    for (const ZoneRule& zone : config.rules.zones) {
        json one = limitsJson(zone.limits);
        one.update({{"name", zone.name},
                    {"title", zone.title},
                    {"points", pointsJson(zone.points)},
                    {"dwell", zone.dwell},
                    {"stopped", zone.stopped},
                    {"origin", origin("zone", zone.name)}});
        zones.push_back(std::move(one));
    }
    for (const LineRule& line : config.rules.lines) {
        json one = limitsJson(line.limits);
        one.update({{"name", line.name},
                    {"title", line.title},
                    {"points", pointsJson(std::array{line.from, line.to})},
                    {"origin", origin("line", line.name)}});
        lines.push_back(std::move(one));
    }
    for (const auto& [key, value] : changed.items()) {
        if (!isNamed(key)) units.push_back(key);
        if (isNamed(key))
            for (const auto& [name, one] : value.items()) {
                units.push_back(key + '.' + name);
                if (one.value("removed", false)) removed.push_back(key + '.' + name);
            }
    }
    const ControlParameters& control = config.control;
    const auto or_null = [](bool there, json value) { return there ? std::move(value) : json(); };
    const json all = {{"camera", config.name},
                      {"zones", std::move(zones)},
                      {"lines", std::move(lines)},
                      {"masks", polygonsJson(config.source.masks)},
                      {"private", polygonsJson(config.source.private_areas)},
                      {"tuning",
                       {{"profile", or_null(!config.profile.empty(), config.profile)},
                        {"rate", or_null(config.source.rate > 0, config.source.rate)},
                        {"size", or_null(config.source.width > 0, std::to_string(config.source.width) + 'x' +
                                                                      std::to_string(config.source.height))},
                        {"longest_side", or_null(config.source.longest_side > 0, config.source.longest_side)},
                        {"least_area", config.filter.least_area},
                        {"shadow_test", config.filter.shadow_test},
                        {"split_people", config.filter.split_people},
                        {"stopped", config.rules.stopped},
                        {"learning", numberOf(control.bgframes)},
                        {"low", numberOf(config.analyzer.infrared ? control.ir_low : control.color_low)},
                        {"high", numberOf(config.analyzer.infrared ? control.ir_high : control.color_high)},
                        {"infrared", config.analyzer.infrared}}},
                      {"motion", limitsJson(config.rules.motion)},
                      {"hands_over", config.handsOver()},
                      {"changed", std::move(units)},
                      {"removed", std::move(removed)}};
    return all.dump(-1, ' ', false, json::error_handler_t::replace);
}

}  // namespace fleifeisa::host
