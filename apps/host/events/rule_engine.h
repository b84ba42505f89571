// From tracks to events: the rules of one camera.
//
// A function of what it is told, in the order in which it is told: frames, and what happens between them, each with its
// time. No clock, no file, no thread. Deadlines (off-delay, dwell, standing still, lost, hold) are exact: they are
// dealt with when anything later than them comes in, and their events carry the deadline's time, so it does not matter
// how often tick() is called. Times never fall but by clockStepped().
//
// Held back: while the scene is changed or blind, events of tracks are marked `held`. When that ends, or has lasted for
// Rules::hold, the events of tracks that are alive are sent once more as starts that are not held; all later events of
// the same state of the scene are told at once. Crossings count when they are told.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "events/event.h"
#include "events/rules.h"
#include "events/watches.h"
#include "tracks/track.h"

namespace fleifeisa::host {

/// One foot over one line, for the counts.
struct Crossing {
    std::string line;
    bool forward = true;
    std::int64_t time_ns = 0;
};

/// What one call came to.
struct RuleResults {
    std::vector<CameraEvent> events;  ///< messages in order
    std::vector<Crossing> crossings;
    std::vector<NearMiss> near_misses;
};

struct EngineStart {
    std::string camera;
    std::int64_t next_event = 1;  ///< number of the first event
    std::string parameters;       ///< hash of the parameters in force
    PictureMap map;
    bool wall_clock = true;  ///< times are nanoseconds since 1970; else `when` is not applied
};

class RuleEngine {
 public:
    RuleEngine(Rules rules, EngineStart start);

    // All results are valid until the next call.

    /// A track that is not in the frame goes on as it was; only kEnded ends one.
    const RuleResults& frame(const TrackFrame& frame);
    /// Nothing happened until then. Only makes events of deadlines come in time; needed where no frames come.
    const RuleResults& tick(std::int64_t time_ns);
    /// No picture comes, and comes again. A blip that is shorter than the rules' values is no event.
    const RuleResults& sourceLost(std::int64_t time_ns);
    const RuleResults& sourceBack(std::int64_t time_ns);
    /// Another part of the source picture from the next frame on.
    void setMap(const PictureMap& map) { start_.map = map; }
    /// Hash of the parameters that are in force for all events from now on.
    void setParameters(const std::string& hash) { start_.parameters = hash; }
    /// An event of one moment: kAnalyzer (change: restarted, given-up), kGap (video, recording, events), kExternal.
    const RuleResults& tell(EventKind kind, const std::string& change, const std::string& text, std::int64_t time_ns,
                            std::optional<double> value = std::nullopt);
    /// Backward: all that runs ends at `from_ns` (reason clock) and time begins anew.
    const RuleResults& clockStepped(std::int64_t from_ns, std::int64_t to_ns);
    /// Other rules from now on: all that runs ends (reason configuration), and begins anew with what the next frame
    /// shows. A source that is lost stays lost.
    const RuleResults& setRules(Rules rules, std::int64_t time_ns);
    /// All that runs ends: "source" at the end of a source, "configuration" where other rules take over.
    const RuleResults& finish(std::int64_t time_ns, const std::string& reason);

    std::int64_t nextNumber() const { return next_event_; }
    /// Latest time that it was told, 0 before any.
    std::int64_t now() const { return now_; }
    bool holding() const { return hold_since_.has_value() && !hold_over_; }

 private:
    /// A track that lives.
    struct Follow {
        Track track;
        Sighting sighting;
        bool fresh = true;         ///< in its first frame
        bool present = false;      ///< moves, or is expected to: keeps a visit up
        std::int64_t stopped = 0;  ///< its running `stopped` event
        bool stood = false;        ///< had a `stopped` event
        std::vector<ZoneWatch> zones;
        std::vector<LineWatch> lines;
    };
    struct Deadline;

    void begin(std::int64_t time_ns);
    void advance(std::int64_t time_ns);
    void fire(const Deadline& deadline);
    void findDeadline();
    void see(const Track& track, const TrackFrame& frame);
    Sighting sightingOf(const Track& track, const Box& box, const TrackFrame& frame) const;
    void beginLines(Follow& follow, const TrackFrame& frame);
    void seeScene(SceneState scene);
    void seeMotion();
    void seeZone(std::size_t index, Follow& follow);
    void enterZone(std::size_t index, Follow& follow);
    void leaveZone(std::size_t index, Follow& follow, const std::string& reason);
    void seeLine(std::size_t index, Follow& follow, int direction);
    void seeStanding(Follow& follow);
    void endTrack(Follow& follow, const std::string& reason);
    void endMotion(const std::string& reason);
    void endScene(const std::string& reason);
    void releaseHeld();
    void endAll(const std::string& reason);
    LimitResult test(const Limits& limits, const Sighting& sighting, const std::string& rule) const;
    void miss(NearMiss miss, const std::string& rule, std::int64_t track);

    CameraEvent& start(EventKind kind, const std::string& rule, const std::string& change, const Follow* follow);
    void send(CameraEvent& event);
    void update(std::int64_t number, const std::string& change, std::optional<double> value, const Follow* follow);
    void end(std::int64_t& number, const std::string& change, const std::string& reason, std::optional<double> value,
             const Follow* follow);
    void endAtOnce(CameraEvent& event, std::optional<double> value);

    void prepareRules();

    Rules rules_;
    std::vector<Polygon> polygons_;  ///< of the zones
    EngineStart start_;
    std::int64_t next_event_;
    RuleResults results_;

    std::int64_t now_ = 0;
    bool began_ = false;
    int width_ = 0, height_ = 0;                      ///< of the latest frame
    std::map<std::int64_t, Follow> follows_;          ///< by number
    std::map<std::int64_t, CameraEvent> events_;      ///< that run, and held ones whose track lives
    std::map<std::string, std::int64_t> last_start_;  ///< of a zone or line (their names differ), for the cooldown
    std::vector<std::int64_t> forward_, backward_;    ///< crossings so far, by line

    std::int64_t visit_ = 0;         ///< running motion event, 0: none
    std::int64_t last_present_ = 0;  ///< when the latest of its tracks was there
    std::int64_t scene_event_ = 0;   ///< running changed or blind
    SceneState scene_ = SceneState::kLearning;
    std::optional<std::int64_t> hold_since_;         ///< while the scene is changed or blind
    bool hold_over_ = false;                         ///< it has lasted too long for holding
    std::optional<std::int64_t> lost_ns_, back_ns_;  ///< no picture since; a picture again since
    std::int64_t lost_event_ = 0;
    std::optional<std::int64_t> next_deadline_;
};

}  // namespace fleifeisa::host
