#include "cli/page_changes.h"

#include <algorithm>
#include <chrono>
#include <system_error>

#include "cli/camera_settings.h"
#include "cli/overrides.h"
#include "common/log.h"
#include "http/message.h"
#include "sources/source.h"

namespace fleifeisa::host {
namespace {

using nlohmann::json;

template <typename Names>
bool isOneOf(const Names& names, std::string_view key) {
    return std::ranges::find(names, key) != std::end(names);
}

/// "zone.yard" is kept under zone and yard; anything else under its own name.
std::pair<std::string, std::string> partsOf(const std::string& unit) {
    const std::size_t dot = unit.find('.');
    return dot == std::string::npos ? std::pair{unit, std::string()}
                                    : std::pair{unit.substr(0, dot), unit.substr(dot + 1)};
}

json valueOf(const json& camera, const std::string& unit) {
    const auto [key, name] = partsOf(unit);
    const auto found = camera.find(key);
    if (found == camera.end()) return nullptr;
    if (name.empty()) return *found;
    const auto inner = found->find(name);
    return inner == found->end() ? json() : *inner;
}

void set(json& camera, const std::string& unit, const json& value) {
    const auto [key, name] = partsOf(unit);
    const bool nothing = value.is_null() || (value.is_object() && value.empty());
    if (name.empty() && nothing) {
        camera.erase(key);
    } else if (name.empty()) {
        camera[key] = value;
    } else if (nothing) {
        if (camera.contains(key)) camera[key].erase(name);
        if (camera.contains(key) && camera[key].empty()) camera.erase(key);
    } else {
        camera[key][name] = value;
    }
}

json objectOf(const std::string& text) {
    json object = json::parse(text, nullptr, false);
    if (!object.is_object()) throw HttpError(400, "expected a JSON object");
    return object;
}

std::int64_t wallClock() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

CameraChange changeOf(const json& line) {
    return {line.value("change", std::int64_t{0}),
            line.value("time_ns", std::int64_t{0}),
            line.value("user", std::string()),
            line["units"].dump(),
            line.value("effect", std::string()),
            line.value("undoes", std::int64_t{0}),
            0};
}

}  // namespace

std::string effectOf(const CameraConfig& before, const CameraConfig& after) {
    if (before == after) return "nothing";
    if (!before.sameCamera(after)) return "restart";
    CameraConfig rules = before;
    rules.rules = after.rules;
    rules.notify_from_ns = after.notify_from_ns;
    if (rules == after) return "rules";
    return before.handsOver() && after.handsOver() ? "hand-over" : "learns";
}

PageChanges::PageChanges(const std::string& state, std::string path, std::function<void(std::function<void()>)> apply)
    : history_(state), path_(std::move(path)), apply_(std::move(apply)) {}

void PageChanges::inForce(const std::string& text, const HostConfig& config) {
    const std::lock_guard lock(mutex_);
    text_ = text;
    config_ = config;
}

const CameraConfig& PageChanges::cameraOf(const HostConfig& config, const std::string& camera) const {
    const auto found = std::ranges::find(config.cameras, camera, &CameraConfig::name);
    if (found == config.cameras.end()) throw HttpError(404, "there is no such camera");
    return *found;
}

json PageChanges::overrides() const {
    try {
        return history_.overrides();
    } catch (const std::invalid_argument& error) {
        throw HttpError(
            409,
            std::string("the file of changes is damaged, and nothing is changed before it is mended: ") + error.what());
    }
}

/// mutex_ is held.
HostConfig PageChanges::checked(const json& overrides) const {
    const OverridesFile file{history_.overridesPath(), overridesText(overrides)};
    std::vector<std::string> errors;
    HostConfig config = parseConfig(text_, path_, errors, ConfigCheck::kText, &file);
    if (errors.empty()) {
        for (CameraConfig& camera : config.cameras) {
            // Found and chosen when the host began.
            const CameraConfig& before = cameraOf(config_, camera.name);
            camera.analyzer.program = before.analyzer.program;
            camera.analyzer.explainer = before.analyzer.explainer;
            camera.explain_off = before.explain_off;
        }
        return config;
    }
    // "FILE:LINE: camera[1].zone[2].points: why": places in a file that nobody has written are no help.
    std::string text = errors.front();
    if (text.starts_with(file.path))
        if (const std::size_t space = text.find(": "); space != std::string::npos) text.erase(0, space + 2);
    if (text.starts_with("camera["))
        if (const std::size_t dot = text.find("]."); dot != std::string::npos) text.erase(0, dot + 2);
    throw HttpError(400, text);
}

/// What a change makes of the units that it touches. mutex_ is held.
PageChanges::Units PageChanges::unitsOf(const std::string& camera, const json& overrides,
                                        const std::string& change) const {
    const json now = overrides["camera"].value(camera, json::object());
    const CameraConfig& in_force = cameraOf(config_, camera);
    const auto there = [&in_force](const std::string& kind, const std::string& name) {
        return kind == "zone" ? std::ranges::count(in_force.rules.zones, name, &ZoneRule::name) > 0
                              : std::ranges::count(in_force.rules.lines, name, &LineRule::name) > 0;
    };
    Units units;
    const json wanted = objectOf(change);
    for (const auto& [key, value] : wanted.items()) {
        if (isOneOf(kOverrideNamed, key)) {
            if (!value.is_object()) throw HttpError(400, key + ": expected an object of names");
            for (const auto& [name, one] : value.items()) {
                const std::string unit = key + '.' + name;
                json merged = valueOf(now, unit);
                if (!one.is_null() && !one.is_object()) throw HttpError(400, unit + ": expected an object, or null");
                if (!isCameraName(name)) throw HttpError(400, unit + ": expected a name of letters, digits, _ and -");
                const bool gone = merged.is_object() && merged.value("removed", false);
                const bool added = (merged.is_object() && merged.value("added", false)) || (!there(key, name) && !gone);
                if (one.is_null() && merged.is_null()) throw HttpError(404, "there is no change of " + unit);
                if (merged.is_null() && added && one.value("removed", false))
                    throw HttpError(404, "there is no " + key + " of that name");
                if (merged.is_null() || gone) merged = json::object();
                merged.merge_patch(one);
                if (merged.is_object()) merged.erase("name");
                if (merged.is_object() && added) merged["added"] = true;
                units[unit] = added && merged.is_object() && merged.value("removed", false) ? json() : merged;
            }
        } else if (isOneOf(kOverrideTables, key)) {
            json merged = valueOf(now, key);
            merged.merge_patch(value);
            units[key] = merged;
        } else if (isOneOf(kOverrideKeys, key)) {
            units[key] = value;
        } else {
            throw HttpError(400, key + ": is not to be changed here, but in the configuration file");
        }
    }
    if (units.empty()) throw HttpError(400, "nothing is to be changed");
    return units;
}

/// mutex_ is held.
CameraChange PageChanges::make(const std::string& camera, const std::string& user, const Units& units,
                               std::int64_t undoes) {
    const CameraConfig before = cameraOf(config_, camera);
    json all = overrides();
    json& changed = all["camera"][camera];
    if (changed.is_null()) changed = json::object();
    json line = {{"units", json::object()}};
    for (const auto& [unit, value] : units) {
        line["units"][unit] = {{"before", valueOf(changed, unit)}, {"after", value}};
        set(changed, unit, value);
    }
    if (changed.empty()) all["camera"].erase(camera);
    const std::int64_t number = all["change"].get<std::int64_t>() + 1;
    all["change"] = number;
    HostConfig config = checked(all);
    line.update({{"change", number},
                 {"time_ns", wallClock()},
                 {"user", user},
                 {"camera", camera},
                 {"effect", effectOf(before, cameraOf(config, camera))}});
    if (undoes > 0) line["undoes"] = undoes;
    try {
        history_.commit(line, all);
    } catch (const std::system_error& error) {
        throw HttpError(503, std::string("the change cannot be kept: ") + error.what());
    }
    config_ = std::move(config);  // what comes next stands on it
    logInfo(camera, "changed on the page" + (user.empty() ? "" : " by " + user) + ": " + line["units"].dump());
    return changeOf(line);
}

void PageChanges::tell(CameraChange change, Done done) const {
    apply_([change = std::move(change), done = std::move(done)] { done(change); });
}

void PageChanges::change(const std::string& camera, const std::string& user, const std::string& change, Done done) {
    CameraChange made;
    {
        const std::lock_guard lock(mutex_);
        made = make(camera, user, unitsOf(camera, overrides(), change), 0);
    }
    tell(std::move(made), std::move(done));
}

void PageChanges::undo(const std::string& camera, const std::string& user, std::int64_t number, Done done) {
    CameraChange made;
    {
        const std::lock_guard lock(mutex_);
        cameraOf(config_, camera);
        const json all = overrides();
        const json now = all["camera"].value(camera, json::object());
        const std::vector<json> lines = history_.lines(all["change"].get<std::int64_t>());
        const auto found = std::ranges::find_if(lines, [&](const json& line) {
            return line.value("change", std::int64_t{0}) == number && line.value("camera", "") == camera;
        });
        if (found == lines.end()) throw HttpError(404, "there is no such change");
        Units units;
        for (const auto& [unit, both] : (*found)["units"].items()) {
            json after = both.value("after", json());
            if (after.is_object() && after.empty()) after = nullptr;
            if (valueOf(now, unit) != after)
                throw HttpError(409, unit + " was changed again since: take the later change back first");
            units[unit] = both.value("before", json());
        }
        made = make(camera, user, units, number);
    }
    tell(std::move(made), std::move(done));
}

std::vector<CameraChange> PageChanges::history(const std::string& camera) {
    const std::lock_guard lock(mutex_);
    cameraOf(config_, camera);
    std::vector<CameraChange> all;
    std::map<std::int64_t, std::int64_t> undone;
    for (const json& line : history_.lines(overrides()["change"].get<std::int64_t>())) {
        if (line.value("camera", "") != camera) continue;
        all.push_back(changeOf(line));
        if (all.back().undoes > 0) undone[all.back().undoes] = all.back().number;
    }
    // What was taken back, and came again because that was taken back, is in force.
    for (auto change = all.rbegin(); change != all.rend(); ++change)
        if (const auto by = undone.find(change->number); by != undone.end()) {
            const auto taker = std::ranges::find(all, by->second, &CameraChange::number);
            if (taker == all.end() || taker->undone_by == 0) change->undone_by = by->second;
        }
    std::ranges::reverse(all);
    return all;
}

CameraConfig PageChanges::configWith(const std::string& camera, const std::string& change) {
    const std::lock_guard lock(mutex_);
    json all = overrides();
    json& changed = all["camera"][camera];
    if (changed.is_null()) changed = json::object();
    if (!objectOf(change).empty())
        for (const auto& [unit, value] : unitsOf(camera, all, change)) set(changed, unit, value);
    return cameraOf(checked(all), camera);
}

Rules PageChanges::rulesWith(const std::string& camera, const std::string& change) {
    return configWith(camera, change).rules;
}

std::string PageChanges::settings(const std::string& camera) {
    const std::lock_guard lock(mutex_);
    const CameraConfig& config = cameraOf(config_, camera);
    return settingsJson(config, overrides()["camera"].value(camera, json::object()));
}

}  // namespace fleifeisa::host
