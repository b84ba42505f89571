// A camera's outputs: opened, told, finished.
#include <sysexits.h>

#include <algorithm>

#include "camera/camera.h"
#include "camera/output_types.h"
#include "common/log.h"

namespace fleifeisa::host {

void Camera::openOutputs() {
    if (std::exchange(opened_, true)) return;
    for (const OutputChoice& wanted : config_.outputs) openOutput(wanted);
}

void Camera::openOutput(const OutputChoice& wanted) {
    OutputChoice choice = wanted;
    choice.policy.service = config_.service;
    try {
        owned_.push_back(makeOutput(choice, info()));
        sinks_.push_back({owned_.back().get(), choice});
    } catch (const OutputError& error) {
        if (!config_.service) throw;
        logError(config_.name, "output " + wanted.type + " is left out: " + error.what());
        exit_code_ = EX_CANTCREAT;
    }
}

/// A fresh analyzer: tracks and rules live on, unless a recording begins a new file, which must be able to tell all.
/// Afterwards outputs are open and rules there; tracks are not where they begin anew.
void Camera::beginTracks(const PictureMap& map) {
    if (tracks_ && freshAnalyzerWanted()) {
        endTracks(TrackEnd::kSource);
        finishRules("source");
        tracks_.reset();
    }
    if (!tracks_) {
        finishRules("back");  // what they made of a source without frames
        beginRules(map);
    }
    openOutputs();
}

void Camera::announce(const PictureMap& map) {
    beginTracks(map);
    const CameraInfo camera = info();
    callOutputs([&camera](Output& output) { output.started(camera); });
    for (const CameraEvent& event : std::exchange(early_, {}))
        callOutputs([&event](Output& output) { output.told(event); });
    if (tracks_)
        tracks_->analyzerRestarted();
    else
        tracks_.emplace(camera.tracks);
}

/// What the outputs are told of a frame. Ends what has to end before it.
FrameResult Camera::resultOf(const Request& request, const Reply& reply, const std::string& bytes) {
    if (!(request.map == rules_->map()))
        rules_->step({.kind = RuleStep::kMap, .time_ns = rules_->now(), .map = request.map});
    const bool back = tracks_->clockWentBack(request.time_ns) || request.clock_step_ns < 0;
    if (back) endTracks(TrackEnd::kClock);
    if (back || request.clock_step_ns != 0) {
        const std::int64_t before =
            request.clock_step_ns != 0 ? request.time_ns - request.clock_step_ns : rules_->now();
        logWarning(config_.name, "the clock was stepped");
        rules_->step({RuleStep::kClock, request.time_ns, before});
    }
    if (std::exchange(source_lost_, false)) rules_->step({RuleStep::kBack, request.time_ns});
    FrameResult result;
    result.camera = config_.name;
    result.sequence = request.sequence;
    result.time_ns = request.time_ns;
    result.live = feeder_.dates();
    result.realtime = feeder_.live() || config_.source.realtime;
    result.dropped = request.dropped + std::exchange(lost_untold_, 0);
    result.width = request.width;
    result.height = request.height;
    result.detection = reply.detection;
    result.objects = reply.objects;
    result.rgb = request.rgb;
    result.request = request.header;
    result.reply = bytes;
    result.tracks =
        tracks_->frame({request.time_ns, request.width, request.height, request.rgb, reply.detection, reply.objects},
                       why_.viewOf(request.sequence));
    return result;
}

void Camera::reopenWhereAsked() {
    if (reopen_.exchange(false)) callOutputs([](Output& output) { output.reopen(); });
}

bool Camera::freshAnalyzerWanted() const {
    return std::ranges::any_of(sinks_, [](const Sink& sink) { return sink.output->state().wants_fresh_analyzer; });
}

/// An output that fails is reported, once, and tries again by itself; the camera goes on.
void Camera::callOutputs(const std::function<void(Output&)>& call) {
    for (auto it = sinks_.begin(); it != sinks_.end();) {
        Sink& sink = *it;
        try {
            call(*sink.output);
        } catch (const OutputError& error) {
            if (!std::exchange(sink.failing, true))
                logError(config_.name, "output " + sink.choice.type + " fails, it is tried again: " + error.what());
        } catch (const std::exception& error) {
            logError(config_.name, "output " + sink.choice.type + " is given up: " + error.what());
            exit_code_ = EX_IOERR;
            ends_.push_back({sink.choice, {true, sink.output->state().lost}});
            it = sinks_.erase(it);
            continue;
        }
        if (sink.failing && !sink.output->state().failing) {
            sink.failing = false;
            logWarning(config_.name, "output " + sink.choice.type + " is written again, records lost until now: " +
                                         std::to_string(sink.output->state().lost));
        }
        ++it;
    }
}

void Camera::finishOutputs() {
    constexpr double kSettleSeconds = 30, kStopSeconds = 0.5;
    endTracks(TrackEnd::kSource);
    finishRules(replaced_ ? "configuration" : "source");
    why_.finish();
    if (recorder_) recorder_->finish();
    if (keeper_) {
        keeper_->finish();
        if (!desk_->store().settle(stopping_ ? kStopSeconds : kSettleSeconds))
            logWarning(config_.name, "the store is slow: outputs miss the last events");
        takePost();
    }
    callOutputs([](Output& output) { output.finish(); });
    for (const Sink& sink : sinks_) {
        const OutputState state = sink.output->state();
        if (exit_code_ == 0 && (sink.failing || state.failing || state.lost > 0)) exit_code_ = EX_IOERR;
        ends_.push_back({sink.choice, {sink.failing || state.failing, state.lost}});
    }
}

}  // namespace fleifeisa::host
