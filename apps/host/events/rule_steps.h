// What a rule engine depends on besides tracks, as values with a text: what it begins with, and what happens between
// frames. Recordings hold these texts, and a replay gives them to an engine of its own.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "events/rule_engine.h"

namespace fleifeisa::host {

/// With the number of the first event.
struct RuleSetup {
    Rules rules;
    EngineStart start;
};

/// All of it but titles and the camera's name.
std::string setupText(const RuleSetup& setup);
/// Nothing where the text is none of these.
std::optional<RuleSetup> parseSetup(std::string_view text);

/// One thing that an engine is told between two frames.
struct RuleStep {
    enum Kind { kTick, kLost, kBack, kTell, kClock, kFinish, kMap, kParameters, kRules };
    Kind kind = kTick;
    std::int64_t time_ns = 0;
    std::int64_t from_ns = 0;                    ///< kClock: the time as it would have been without the step
    EventKind event = EventKind::kExternal;      ///< kTell
    std::optional<double> value = std::nullopt;  ///< kTell
    std::string change = {};                     ///< kTell; kFinish: the reason, kParameters: the hash
    std::string text = {};                       ///< kTell
    PictureMap map = {};                         ///< kMap
    Rules rules = {};                            ///< kRules
};

std::string stepText(const RuleStep& step);
/// Nothing where the text is none of these.
std::optional<RuleStep> parseStep(std::string_view text);

/// The result is valid until the engine's next call.
const RuleResults& takeStep(RuleEngine& engine, const RuleStep& step);

/// Every bit of what was told, in a fixed form: the same results give the same text.
std::string resultsText(const RuleResults& results);

}  // namespace fleifeisa::host
