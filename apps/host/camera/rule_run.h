// The rules of one camera at work, in a run as in its replay: feeds the engine, tells outputs what it was told and what
// it made of it, in one order.
#pragma once

#include <functional>

#include "events/rule_steps.h"
#include "outputs/output.h"

namespace fleifeisa::host {

class RuleRun {
 public:
    using Call = std::function<void(Output&)>;
    /// @param tell_outputs  calls every output  @param results  is told after the outputs, may be empty
    RuleRun(RuleSetup setup, std::function<void(const Call&)> tell_outputs,
            std::function<void(const RuleResults&)> results)
        : setup_(std::move(setup)),
          engine_(setup_.rules, setup_.start),
          tell_outputs_(std::move(tell_outputs)),
          results_(std::move(results)) {}

    /// Behind Output::frame.
    void frame(const TrackFrame& frame) {
        scene_ = frame.scene;
        give(engine_.frame(frame));
    }
    /// Behind Output::ended. The end of all tracks says nothing about the scene: what is held stays held.
    void ended(TrackFrame frame) {
        frame.scene = scene_;
        give(engine_.frame(frame));
    }
    void step(const RuleStep& step) {
        if (step.kind == RuleStep::kMap) setup_.start.map = step.map;
        if (step.kind == RuleStep::kParameters) setup_.start.parameters = step.change;
        if (step.kind == RuleStep::kRules) setup_.rules = step.rules;
        tell_outputs_([&step](Output& output) { output.stepped(step); });
        give(takeStep(engine_, step));
    }

    /// What would go on from here: with the number of the next event.
    RuleSetup setup() const {
        RuleSetup now = setup_;
        now.start.next_event = engine_.nextNumber();
        return now;
    }
    const PictureMap& map() const { return setup_.start.map; }
    std::int64_t nextNumber() const { return engine_.nextNumber(); }
    std::int64_t now() const { return engine_.now(); }

 private:
    void give(const RuleResults& results) {
        if (!results.events.empty() || !results.crossings.empty())
            tell_outputs_([&results](Output& output) { output.ruled(results); });
        if (results_) results_(results);
    }

    RuleSetup setup_;
    RuleEngine engine_;
    SceneState scene_ = SceneState::kLearning;
    const std::function<void(const Call&)> tell_outputs_;
    const std::function<void(const RuleResults&)> results_;
};

}  // namespace fleifeisa::host
