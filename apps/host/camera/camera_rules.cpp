// A camera's tracks and rules: what they are told beside the frames, and who is told what they say.
#include <algorithm>

#include "camera/camera.h"
#include "common/log.h"
#include "common/text.h"

namespace fleifeisa::host {
namespace {

// Without frames rules are told the time: a second ago, so that a frame that is on its way is not older.
constexpr std::int64_t kTickNs = 1'000'000'000;
constexpr std::size_t kMostReason = 200;  // bytes of why an analyzer was restarted, in its event

}  // namespace

/// @param map  of the first frame
void Camera::beginRules(const PictureMap& map) {
    const bool dates = feeder_.dates();
    rules_.emplace(
        RuleSetup{config_.rules, {config_.name, next_.event, parameters_, map, dates}},
        [this](const RuleRun::Call& call) { callOutputs(call); },
        [this](const RuleResults& results) { ruled(results); });
}

void Camera::warnOfActiveTimes() const {
    const auto limited = [](const auto& rule) { return !rule.limits.when.always(); };
    const Rules& rules = config_.rules;
    const bool any = !rules.motion.when.always() || std::ranges::any_of(rules.zones, limited) ||
                     std::ranges::any_of(rules.lines, limited);
    if (any && !feeder_.dates()) logWarning(config_.name, "'when' is not applied: the file has no start time");
}

void Camera::applyRules() {
    {
        const std::lock_guard lock(mutex_);
        if (!new_rules_) return;
        config_.rules = *std::exchange(new_rules_, std::nullopt);
    }
    warnOfActiveTimes();
    rules_->step({.kind = RuleStep::kRules, .time_ns = rules_->now(), .rules = config_.rules});
    noteParameters();
    logInfo(config_.name, "new rules");
}

void Camera::finishRules(const std::string& reason) {
    if (!rules_) return;
    rules_->step({.kind = RuleStep::kFinish, .time_ns = rules_->now(), .change = reason});
    next_.event = rules_->nextNumber();
    rules_.reset();
}

/// With a store outputs hear of events when they are safe on disk.
void Camera::ruled(const RuleResults& results) {
    next_.event = rules_->nextNumber();
    if (desk_) desk_->store().numbers(config_.name, next_);
    if (!keeper_) {
        for (const CameraEvent& event : results.events) tellOutputs(event);
        return;
    }
    if (!results.events.empty() || !results.crossings.empty() || !results.near_misses.empty())
        desk_->store().results(config_.name, results);
    if (recorder_) recorder_->events(results);
    for (const CameraEvent& event : results.events)
        if (judged_ && why_.on() && event.state == EventState::kStart && event.width > 0)
            why_.began(event, *judged_, *tracks_, rulesText(config_.rules));
}

/// With its event, where there is a store.
CameraWhy::Keep Camera::keepsWhy() {
    if (!desk_) return nullptr;
    return [this](const CameraEvent& event, const std::string& json) {
        if (keeper_) desk_->pictures().why(event, json);
    };
}

void Camera::tellOutputs(const CameraEvent& event) {
    constexpr std::size_t kMostEarly = 1000;
    if (opened_) return callOutputs([&event](Output& output) { output.told(event); });
    if (early_.size() >= kMostEarly) early_.pop_front();
    early_.push_back(event);
}

void Camera::tellRules(EventKind kind, const std::string& change, const std::string& text) {
    if (!rules_) return;
    rules_->step({.kind = RuleStep::kTell,
                  .time_ns = now(),
                  .event = kind,
                  .change = change,
                  .text = cleanUtf8(
                      std::string_view(text).substr(0, kind == EventKind::kAnalyzer ? kMostReason : text.size()))});
}

void Camera::tickRules() {
    if (!feeder_.live() || stopping_) return;
    const bool idle = in_flight_.empty() && !held_ && !feeder_.holds();
    const std::int64_t time_ns = feeder_.now() - kTickNs;
    if ((idle || !analyzer_) && time_ns >= rules_->now() + kTickNs) rules_->step({RuleStep::kTick, time_ns});
}

/// What others have left for this camera.
void Camera::takePost() {
    for (const CameraEvent& event : post_->takeCommitted())
        if (event.number >= first_.event) tellOutputs(event);
    if (!rules_) return;
    for (const std::string& text : post_->takeSaid()) tellRules(EventKind::kExternal, "", text);
    if (!keeper_) return;
    if (const std::int64_t lost = desk_->store().takeLost(config_.name); lost > 0)
        rules_->step(
            {RuleStep::kTell, now(), 0, EventKind::kGap, static_cast<double>(lost), "events", "the disk was too slow"});
    std::string why;
    if (const std::int64_t lost = recorder_ ? desk_->recorder().takeLost(config_.name, why) : 0; lost > 0)
        rules_->step({RuleStep::kTell, now(), 0, EventKind::kGap, static_cast<double>(lost), "recording", why});
}

/// Tracks do not outlive the loss of a live source: what comes back later may be anything.
void Camera::noteSource() {
    if (feeder_.outages() == outages_ || !in_flight_.empty() || held_ || feeder_.holds()) return;
    outages_ = feeder_.outages();
    if (std::exchange(source_lost_, true)) return;
    endTracks(TrackEnd::kSource);
    rules_->step({RuleStep::kLost, now()});
    if (keeper_) keeper_->scene(now(), SceneState::kLost);
}

void Camera::endTracks(TrackEnd why) {
    if (!tracks_) return;
    const TrackFrame frame = tracks_->end(why);
    callOutputs([&frame, why](Output& output) { output.ended(frame, why); });
    next_.track = tracks_->settings().first_number;
    keepTracks(frame, false);
    rules_->ended(frame);
}

/// The analyzer's own ids begin again with each analyzer: nothing to keep.
void Camera::keepTracks(const TrackFrame& frame, bool seen) {
    if (keeper_ && !config_.raw_tracks) keeper_->frame(frame, rules_->map(), seen);
}

/// Live: by the clock. Else time goes with the frames.
std::int64_t Camera::now() const {
    if (feeder_.live()) return feeder_.now();
    return std::max(rules_ ? rules_->now() : 0, config_.source.start_time_ns.value_or(0));
}

/// All that tracks and events depend on, as events name it.
void Camera::noteParameters() {
    TrackSettings settings = trackSettings(1);
    const std::string text = rulesText(config_.rules) + settingsText(settings) + '\n' + controlText(config_.control);
    if (parametersHash(text) == parameters_) return;
    parameters_ = parametersHash(text);
    if (keeper_) desk_->store().parameters(parameters_, text, now());
    if (rules_) rules_->step({.kind = RuleStep::kParameters, .time_ns = rules_->now(), .change = parameters_});
}

}  // namespace fleifeisa::host
