// The part of a replay that makes tracks, and outputs of them: what a camera does behind its analyzer.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "camera/rule_run.h"
#include "outputs/output.h"
#include "outputs/recording.h"
#include "sources/recording_source.h"
#include "tracks/track_maker.h"

namespace fleifeisa::host {

/// Called in the order of the recording's messages. What an output throws goes on to the caller.
class ReplayedTracks {
 public:
    /// @throws OutputError where an output cannot be made
    ReplayedTracks(std::string recording, const std::vector<OutputChoice>& outputs);

    /// A fresh analyzer begins with the next frame: device, analyzer number and type are those of `camera`.
    void start(const CameraInfo& camera);
    /// Values of the messages of these names. @throws SourceError where they are malformed
    void noteCamera(const std::string& value);
    void noteFilter(const std::string& value);
    /// Returns how many of the frames that follow are given to warmUp().
    std::int64_t noteHandOver(const std::string& value);
    void noteTracks(const std::string& value);
    void noteEnded(const std::string& value);
    void noteRules(const std::string& value);
    void noteStep(const std::string& value);
    void noteEvents(const std::string& value);
    /// New text of the control file.
    void control(const std::string& text);
    void frame(const RecordedMessage& message, const std::string& reply);
    /// A frame that a new analyzer was given before it took over.
    void warmUp(const RecordedMessage& message, const std::string& reply);
    void finish();

    std::int64_t compared() const { return compared_; }
    std::int64_t different() const { return different_; }
    /// Of the frame whose tracks differ first.
    std::int64_t firstDifferent() const { return first_different_; }
    std::int64_t eventsCompared() const { return events_compared_; }
    std::int64_t eventsDifferent() const { return events_different_; }
    /// The frame behind which events differ first.
    std::int64_t firstEventsDifferent() const { return first_events_different_; }

 private:
    void begin();
    void beginHandedOver();
    void beginRules();
    void end(TrackEnd why);
    void ruled(const RuleResults& results);
    void eventsDiffer();
    void compare(const std::string& value);
    template <class Call>
    void tell(const Call& call) {
        for (const auto& output : outputs_) call(*output);
    }

    const std::string recording_;
    std::vector<OutputChoice> choices_;
    std::vector<std::unique_ptr<Output>> outputs_;
    CameraInfo camera_;
    bool pending_ = false;                   ///< the outputs have not heard of this analyzer
    std::optional<TrackSettings> settings_;  ///< tracks begin anew with it
    std::optional<TrackMaker> tracks_;
    std::optional<RecordedHandOver> hand_over_;  ///< of the analyzer that begins
    struct WarmUp {
        RecordedMessage message;
        std::string reply;
    };
    std::vector<WarmUp> warm_ups_;
    std::optional<RuleSetup> setup_;  ///< rules begin anew with it
    std::optional<RuleRun> rules_;
    std::string events_;   ///< what Recording-Events would say of the latest events, until that comes
    bool hashed_ = false;  ///< the recording holds hashes of what goes on
    std::int64_t events_compared_ = 0, events_different_ = 0, first_events_different_ = 0;
    std::string latest_;  ///< what Recording-Tracks would say of the latest frame, or of the end
    bool ended_ = false, rules_finished_ = false, finished_ = false;
    std::int64_t sequence_ = 0, compared_ = 0, different_ = 0, first_different_ = 0;
};

}  // namespace fleifeisa::host
