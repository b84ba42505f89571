// Zones, lines and rules as users write them: tables of the configuration file, and texts of the command line.
//
//   stopped = 10                                       # seconds of standing still, 0: never
//   [camera.motion]   off_delay, when, least_size, least_age, cooldown
//   [camera.scene]    lost_after, back_after, hold
//   [[camera.zone]]   name, title, points, dwell, stopped, when, least_size, least_age, cooldown
//   [[camera.line]]   name, title, points (two), when, least_size, least_age, cooldown
//
// `least_size` is a number, or {near = 0.4, far = 0.1}; `when` is told in the place's time zone.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>

#include <toml++/toml.h>

#include "events/rules.h"

namespace fleifeisa::host {

/// The keys of a [[camera]] table that readRules() reads.
inline constexpr const char* kRuleKeys[] = {"zone", "line", "motion", "scene", "stopped"};

/// Told for each fault: where it stands, its key ("camera[1].zone[2].points"), what is wrong.
using Complain =
    std::function<void(const toml::source_region& where, const std::string& key, const std::string& message)>;

/// The rules of one [[camera]] table. What is faulty is told and left out.
/// @param prefix  before all keys: "camera[1]."
Rules readRules(const toml::table& camera, const std::string& prefix, const std::shared_ptr<const TimeZone>& place,
                const Complain& complain);

/// "yard=0.1,0.5 0.9,0.5 0.9,1 0.1,1" (--zone). @throws ValueError
ZoneRule parseZone(const std::string& text);
/// "gate=0.5,0.2 0.5,0.9" (--line). @throws ValueError
LineRule parseLine(const std::string& text);
/// A rule for `events --what-if`: "zone:TEXT", "line:TEXT", or TEXT alone, which is a line where it has two points.
/// Added to the rules. @throws ValueError
void addRule(Rules& rules, const std::string& text);
/// Why the zones and lines of the command line do not go together (doubled names), "" where they do.
std::string rulesFault(const Rules& rules);

}  // namespace fleifeisa::host
