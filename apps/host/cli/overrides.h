// What people change on the page, beside the configuration file: overrides.toml in the state directory.
//
//   change = 12                  # number of the latest change, in the history
//   [[camera]]
//   name = "gate"                # a camera of the configuration file
//   rate = 5
//   masks = [[[0,0],[1,0],[1,0.2]]]
//   [[camera.zone]]
//   name = "yard"                # of the file: only these of its keys are others
//   dwell = 30
//   [[camera.zone]]
//   name = "door"
//   added = true                 # is in this file alone
//   points = [[0.1,0.5],[0.9,0.5],[0.9,1]]
//   [[camera.line]]
//   name = "gate"
//   removed = true               # of the file, but not watched
//
// It holds only what a page may decide: never commands, paths, sources, options. The configuration file itself is never
// written.
#pragma once

#include <nlohmann/json_fwd.hpp>
#include <string>
#include <vector>

#include <toml++/toml.h>

#include "cli/rules_config.h"

namespace fleifeisa::host {

/// Keys of a camera that are replaced whole, and those that are tables of single values. Zones and lines go by name.
inline constexpr const char* kOverrideKeys[] = {"title",   "rate",       "size",        "profile",      "masks",
                                                "private", "least_area", "shadow_test", "split_people", "stopped"};
inline constexpr const char* kOverrideTables[] = {"control", "motion", "scene"};
inline constexpr const char* kOverrideNamed[] = {"zone", "line"};

/// Lays the changes over the configuration. Values keep the place where they stand. A camera, zone or line that is gone
/// from the configuration is a warning, and what was said of it is left out; what may not stand in such a file is a
/// fault.
void mergeOverrides(toml::table& config, toml::table&& changes, std::vector<std::string>& warnings,
                    const Complain& complain);

/// The changes as JSON, which is easier to change: {"change":12,"camera":{"gate":{"rate":5,"zone":{"yard":{...}}}}}.
/// @throws std::invalid_argument with a sentence where the text is damaged
nlohmann::json overridesJson(const std::string& text, const std::string& path);
/// And back. Nothing is lost on the way.
std::string overridesText(const nlohmann::json& changes);

}  // namespace fleifeisa::host
