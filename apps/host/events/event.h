// What a rule says happened, and how it is written. An event starts, may be updated, and ends; each of these is one
// message, which holds the whole event as it is then.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "tracks/track.h"

namespace fleifeisa::host {

enum class EventKind {
    kMotion,    ///< the visit: from the first track until none was there for the off-delay
    kZone,      ///< a track's stay in a zone
    kLine,      ///< a track's foot crossed a line
    kStopped,   ///< a track stands still
    kRemoved,   ///< what stood still is gone: its place looks again as before
    kScene,     ///< the picture cannot be trusted: changed, blind, lost
    kAnalyzer,  ///< restarted or given up
    kGap,       ///< video, recording or events are missing
    kClock,     ///< the clock was stepped; value: seconds, positive forward
    kExternal,  ///< somebody else's sensor
};
constexpr int kEventKinds = 10;

enum class EventState { kStart, kUpdate, kEnd };

/// Of a moving picture, states of an event's clip; attached by the store.
enum class ClipState { kNone, kRecording, kReady, kExpired, kFailed };

/// "motion", "start", "ready" ... as in files and interfaces.
const char* nameOf(EventKind kind);
const char* nameOf(EventState state);
const char* nameOf(ClipState state);
std::optional<EventKind> eventKindOf(std::string_view name);
std::optional<EventState> eventStateOf(std::string_view name);

struct CameraEvent {
    std::string camera;
    std::int64_t number = 0;  ///< of its camera; "gate-1042" is camera and number
    EventKind kind = EventKind::kMotion;
    std::string rule;    ///< name of the zone or line, "": the camera as a whole
    std::string change;  ///< enter, dwell, leave; forward, backward; changed, blind, lost ...; "": nothing to add
    std::string reason;  ///< why it ended: out, lost, stopped, source, clock ...; "" while it lasts
    std::string text;    ///< what somebody else told (kExternal), or a reason in words
    /// An event of one moment is one message with state kStart and an end.
    EventState state = EventState::kStart;
    std::int64_t track = 0;  ///< 0: none
    std::int64_t visit = 0;  ///< number of the motion event of its time, 0: none
    std::int64_t start_ns = 0;
    std::int64_t time_ns = 0;  ///< of this message
    std::optional<std::int64_t> end_ns;
    int width = 0, height = 0;  ///< of the analyzed frame, to which the box belongs; 0: no picture belongs to it
    std::optional<Box> box;
    std::optional<double> value;  ///< crossings so far, seconds of stay or of standing ...; written to a thousandth
    bool held = false;            ///< stored, told to nobody (yet)
    std::string parameters;       ///< hash of the parameters in force, see parametersHash()
    /// Evidence (kept by the store, not part of the message): the analyzer's objects of that frame.
    std::vector<int> objects;

    bool operator==(const CameraEvent&) const = default;
};

/// "gate-1042".
std::string eventId(std::string_view camera, std::int64_t number);

/// The camera and number of "gate-1042", nothing where it is none.
std::optional<std::pair<std::string, std::int64_t>> parseEventId(const std::string& id);

/// One line of JSON without its end. `pictures` and `clip` are the store's and stand last; a replayed event has
/// neither (pictures < 0). "reason" and "text" are written only where there is one.
std::string eventJson(const CameraEvent& event, int pictures = -1, ClipState clip = ClipState::kNone);

/// A number of value: whole without decimals, else as many as are needed, at most three.
std::string valueText(double value);

}  // namespace fleifeisa::host
