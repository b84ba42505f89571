#include "cli/replayed_tracks.h"

#include <sysexits.h>

#include <cstdlib>
#include <utility>

#include "analyzer/reply.h"
#include "camera/output_types.h"

namespace fleifeisa::host {
namespace {

std::optional<TrackEnd> endNamed(std::string_view name) {
    for (const TrackEnd end : {TrackEnd::kLost, TrackEnd::kSource, TrackEnd::kClock})
        if (name == nameOf(end)) return end;
    return std::nullopt;
}

FilterInput filterInput(const RecordedMessage& message, const Reply& reply) {
    return {message.time_ns, message.width, message.height, message.body, reply.detection, reply.objects};
}

}  // namespace

ReplayedTracks::ReplayedTracks(std::string recording, const std::vector<OutputChoice>& outputs)
    : recording_(std::move(recording)), choices_(outputs) {}

void ReplayedTracks::start(const CameraInfo& camera) {
    const CameraInfo before = std::exchange(camera_, camera);
    camera_.source = recording_;
    camera_.name = before.name.empty() ? baseName(recording_) : before.name;
    camera_.live = before.live;
    camera_.rate = before.rate;
    camera_.region = before.region;
    pending_ = true;
    settings_.reset();
    setup_.reset();
    hand_over_.reset();
    warm_ups_.clear();
}

void ReplayedTracks::noteCamera(const std::string& value) {
    if (!parseRecordedCamera(value, camera_))
        throw SourceError(EX_DATAERR, recording_ + ": malformed Recording-Camera");
}

void ReplayedTracks::noteFilter(const std::string& value) {
    settings_ = parseSettings(value);
    if (!settings_)
        throw SourceError(EX_DATAERR, recording_ + ": its track settings are not those of this version: " + value);
}

std::int64_t ReplayedTracks::noteHandOver(const std::string& value) {
    hand_over_ = parseRecordedHandOver(value);
    if (!hand_over_) throw SourceError(EX_DATAERR, recording_ + ": malformed Recording-HandOver");
    return hand_over_->frames;
}

void ReplayedTracks::warmUp(const RecordedMessage& message, const std::string& reply) {
    warm_ups_.push_back({message, reply});
}

void ReplayedTracks::control(const std::string& text) {
    camera_.control = text;
    if (!pending_) tell([&text](Output& output) { output.controlChanged(text); });
}

/// Recordings that know no rules are given the usual ones.
void ReplayedTracks::beginRules() {
    if (rules_ && !rules_finished_)
        rules_->step({.kind = RuleStep::kFinish, .time_ns = rules_->now(), .change = "source"});
    if (!setup_) {
        setup_.emplace();
        setup_->start.wall_clock = camera_.live;
    }
    setup_->start.camera = camera_.name;
    hashed_ = false;
    events_.clear();
    rules_.emplace(
        *setup_, [this](const RuleRun::Call& call) { tell(call); },
        [this](const RuleResults& results) { ruled(results); });
}

void ReplayedTracks::ruled(const RuleResults& results) {
    for (const CameraEvent& event : results.events) tell([&event](Output& output) { output.told(event); });
    if (!events_.empty() && hashed_) eventsDiffer();  // the recorded run had none there
    events_ = results.events.empty() && results.crossings.empty() ? "" : recordedEvents(results);
}

void ReplayedTracks::eventsDiffer() {
    if (events_different_++ == 0) first_events_different_ = sequence_;
}

/// With the first thing that happens behind Recording-Start: all that is noted of it is known then.
void ReplayedTracks::begin() {
    if (!std::exchange(pending_, false)) return;
    if (outputs_.empty())
        for (const OutputChoice& choice : choices_) outputs_.push_back(makeOutput(choice, camera_));
    if (settings_ && tracks_) end(TrackEnd::kSource);  // frames of before are missing
    if (!settings_ && !tracks_) {                      // a recording that knows no tracks
        settings_.emplace();
        settings_->filter.infrared = camera_.infrared;
    }
    if (settings_) beginRules();
    camera_.fresh_tracks = settings_.has_value();
    camera_.rules = rules_->setup();
    camera_.tracks = settings_ ? *settings_ : tracks_->settings();
    if (settings_) tracks_.emplace(*settings_);
    if (hand_over_) return beginHandedOver();
    tell([this](Output& output) { output.started(camera_); });
    if (!settings_) tracks_->analyzerRestarted();
}

/// As Camera::takeOver().
void ReplayedTracks::beginHandedOver() {
    camera_.tracks = hand_over_->tracks;
    std::vector<WarmUpFrame> frames;
    for (const WarmUp& one : warm_ups_) frames.push_back({one.message.header, one.message.body, one.reply});
    const HandedOver what{hand_over_->time_ns, hand_over_->why, hand_over_->new_picture, frames};
    tell([&](Output& output) { output.handedOver(camera_, what); });
    tracks_->handOver(hand_over_->tracks, hand_over_->new_picture);
    for (const WarmUp& one : warm_ups_) {
        const Reply reply = parseReply(one.reply);
        tracks_->warmUp(filterInput(one.message, reply));
    }
    warm_ups_.clear();
}

void ReplayedTracks::frame(const RecordedMessage& message, const std::string& reply) {
    begin();
    const Reply parsed = parseReply(reply);
    FrameResult result;
    result.camera = camera_.name;
    result.sequence = sequence_ = message.sequence;
    result.time_ns = message.time_ns;
    result.live = camera_.live;
    result.width = message.width;
    result.height = message.height;
    result.detection = parsed.detection;
    result.objects = parsed.objects;
    result.rgb = message.body;
    result.request = message.header;
    result.reply = reply;
    result.tracks = tracks_->frame(filterInput(message, parsed));
    latest_ = recordedTracks(result.tracks);
    ended_ = rules_finished_ = false;
    tell([&result](Output& output) { output.frame(result); });
    rules_->frame(result.tracks);
}

void ReplayedTracks::compare(const std::string& value) {
    ++compared_;
    if (value == latest_) return;
    if (different_++ == 0) first_different_ = sequence_;
}

void ReplayedTracks::noteTracks(const std::string& value) {
    hashed_ = true;
    compare(value);
}

void ReplayedTracks::end(TrackEnd why) {
    const TrackFrame frame = tracks_->end(why);
    latest_ = recordedTracks(frame);
    ended_ = true;
    tell([&frame, why](Output& output) { output.ended(frame, why); });
    rules_->ended(frame);
}

void ReplayedTracks::noteEnded(const std::string& value) {
    const std::size_t blank = value.find(' ');
    const std::optional<TrackEnd> why = endNamed(std::string_view(value).substr(0, blank));
    if (!why) throw SourceError(EX_DATAERR, recording_ + ": malformed Recording-Ended");
    begin();
    if (!tracks_) return;
    end(*why);
    if (blank != std::string::npos) compare(value.substr(blank + 1));
}

void ReplayedTracks::noteRules(const std::string& value) {
    setup_ = parseSetup(readRecordedText(value));
    if (!setup_) throw SourceError(EX_DATAERR, recording_ + ": its rules are not those of this version");
}

void ReplayedTracks::noteStep(const std::string& value) {
    const std::optional<RuleStep> step = parseStep(readRecordedText(value));
    if (!step) throw SourceError(EX_DATAERR, recording_ + ": malformed Recording-Step");
    begin();
    if (rules_) rules_->step(*step);
    rules_finished_ = step->kind == RuleStep::kFinish;
}

void ReplayedTracks::noteEvents(const std::string& value) {
    ++events_compared_;
    if (value != std::exchange(events_, "")) eventsDiffer();
}

void ReplayedTracks::finish() {
    if (std::exchange(finished_, true)) return;
    // Where a recording was cut off.
    if (tracks_ && !ended_) end(TrackEnd::kSource);
    if (rules_ && !rules_finished_)
        rules_->step({.kind = RuleStep::kFinish, .time_ns = rules_->now(), .change = "source"});
    tell([](Output& output) { output.finish(); });
}

}  // namespace fleifeisa::host
