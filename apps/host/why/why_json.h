// What is answered to "why?": the analyzer's numbers beside the track filter's reasons, as JSON (docs/explain.md).
#pragma once

#include <span>
#include <string>

#include "analyzer/reply.h"
#include "events/event.h"
#include "tracks/track.h"

namespace fleifeisa::host {

struct FilterView;

/// A frame as far as answers tell of it.
struct WhyFrame {
    std::int64_t sequence = 0, time_ns = 0;
    int width = 0, height = 0;
    SceneState scene = SceneState::kLearning;
    double foreground = 0;  ///< share of the picture
};

/// What the filter saw, and why each track is what it is. `track`: only that one and what belongs to no track, 0: all.
std::string filterJson(const FilterView& view, std::int64_t time_ns, std::int64_t track = 0);

/// @param analyzer  its answer, "": there is none  @param filter  filterJson(), "": there is none
std::string whyJson(const std::string& camera, const WhyFrame& frame, const std::string& analyzer,
                    const std::string& filter);

/// The same for an event, at the frame that began it: with the rule's values and the analyzer's objects.
/// @param rule_values  the rule in force, as rulesText() has it
std::string eventWhyJson(const CameraEvent& event, const WhyFrame& frame, const std::string& rule_values,
                         std::span<const AnalyzerObject> objects, const std::string& analyzer,
                         const std::string& filter);

/// The line of rulesText() that the event's rule has, or the one for the camera as a whole; "": none.
std::string ruleValues(const CameraEvent& event, const std::string& rules_text);

}  // namespace fleifeisa::host
