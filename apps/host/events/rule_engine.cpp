#include "events/rule_engine.h"

#include <algorithm>
#include <utility>

namespace fleifeisa::host {
namespace {

bool isHeldKind(EventKind kind) {
    return kind == EventKind::kMotion || kind == EventKind::kZone || kind == EventKind::kLine ||
           kind == EventKind::kStopped || kind == EventKind::kRemoved;
}

/// Why a stay ended with its track.
std::string leaveReason(TrackEnd ended) {
    return ended == TrackEnd::kLeft ? "out" : nameOf(ended);
}

double seconds(std::int64_t ns) {
    return static_cast<double>(ns) / 1e9;
}

}  // namespace

RuleEngine::RuleEngine(Rules rules, EngineStart start)
    : rules_(std::move(rules)), start_(std::move(start)), next_event_(start_.next_event) {
    prepareRules();
}

void RuleEngine::prepareRules() {
    polygons_.clear();
    for (const ZoneRule& zone : rules_.zones) polygons_.emplace_back(zone.points);
    forward_.assign(rules_.lines.size(), 0);
    backward_.assign(rules_.lines.size(), 0);
    last_start_.clear();
}

// ---- What comes in ----

void RuleEngine::begin(std::int64_t time_ns) {
    results_ = {};
    if (!began_) now_ = time_ns;
    began_ = true;
    advance(time_ns);
    now_ = std::max(now_, time_ns);
}

const RuleResults& RuleEngine::frame(const TrackFrame& frame) {
    begin(frame.time_ns);
    width_ = frame.width;
    height_ = frame.height;
    seeScene(frame.scene);
    for (const Track& track : frame.tracks)
        if (track.state != TrackState::kTentative) see(track, frame);
    seeMotion();
    // Zone by zone for all tracks: a track that split must find its parent as it was seen in the same frame.
    for (std::size_t zone = 0; zone < rules_.zones.size(); ++zone)
        for (const Track& track : frame.tracks)
            if (const auto found = follows_.find(track.number); found != follows_.end()) seeZone(zone, found->second);
    for (const Track& track : frame.tracks) {
        const auto found = follows_.find(track.number);
        if (found == follows_.end()) continue;
        Follow& follow = found->second;
        if (track.seen_ns == frame.time_ns && track.state != TrackState::kEnded)
            for (std::size_t line = 0; line < rules_.lines.size(); ++line)
                if (const int direction =
                        follow.lines[line].see(rules_.lines[line], follow.sighting, track.split_from > 0, now_);
                    direction != 0)
                    seeLine(line, follow, direction);
        seeStanding(follow);
        follow.fresh = false;
        if (track.state == TrackState::kEnded) endTrack(follow, leaveReason(track.ended));
    }
    advance(now_);
    return results_;
}

const RuleResults& RuleEngine::tick(std::int64_t time_ns) {
    begin(time_ns);
    return results_;
}

const RuleResults& RuleEngine::sourceLost(std::int64_t time_ns) {
    begin(time_ns);
    if (!lost_ns_) lost_ns_ = now_;
    back_ns_.reset();
    findDeadline();
    return results_;
}

const RuleResults& RuleEngine::sourceBack(std::int64_t time_ns) {
    begin(time_ns);
    if (lost_event_ == 0)
        lost_ns_.reset();  // a blip
    else if (!back_ns_)
        back_ns_ = now_;
    findDeadline();
    return results_;
}

const RuleResults& RuleEngine::tell(EventKind kind, const std::string& change, const std::string& text,
                                    std::int64_t time_ns, std::optional<double> value) {
    begin(time_ns);
    CameraEvent& event = start(kind, "", change, nullptr);
    event.text = text;
    endAtOnce(event, value);
    return results_;
}

const RuleResults& RuleEngine::clockStepped(std::int64_t from_ns, std::int64_t to_ns) {
    begin(from_ns);
    if (to_ns < now_) {
        endAll("clock");
        last_start_.clear();
        now_ = to_ns;
    } else {
        advance(to_ns);
        now_ = to_ns;
    }
    endAtOnce(start(EventKind::kClock, "", "", nullptr), seconds(to_ns - from_ns));
    findDeadline();
    return results_;
}

const RuleResults& RuleEngine::setRules(Rules rules, std::int64_t time_ns) {
    begin(time_ns);
    const auto lost = lost_ns_, back = back_ns_;
    endAll("configuration");
    rules_ = std::move(rules);
    prepareRules();
    lost_ns_ = lost;
    if (!lost || !back) return results_;
    lost_ns_.reset();  // it was on its way back, which is over with the event
    return results_;
}

const RuleResults& RuleEngine::finish(std::int64_t time_ns, const std::string& reason) {
    begin(time_ns);
    endAll(reason);
    return results_;
}

void RuleEngine::endAll(const std::string& reason) {
    while (!follows_.empty()) endTrack(follows_.begin()->second, reason);
    endMotion(reason);
    endScene(reason);
    end(lost_event_, "lost", reason, std::nullopt, nullptr);
    lost_ns_.reset();
    back_ns_.reset();
    hold_since_.reset();
    hold_over_ = false;
    scene_ = SceneState::kLearning;
    events_.clear();
    next_deadline_.reset();
}

// ---- Deadlines ----

struct RuleEngine::Deadline {
    enum What { kHold, kLost, kBack, kStopped, kZoneStopped, kDwell, kMotion } what;
    std::int64_t time_ns;
    Follow* follow = nullptr;
    std::size_t zone = 0;
};

void RuleEngine::findDeadline() {
    next_deadline_.reset();
    advance(INT64_MIN);
}

/// Fires all deadlines up to that time, the earliest first; of those of the same time in the order in which they are
/// looked at here.
void RuleEngine::advance(std::int64_t time_ns) {
    if (next_deadline_ && *next_deadline_ > time_ns) return;
    while (true) {
        std::optional<Deadline> next;
        const auto consider = [&next](const Deadline& deadline) {
            if (!next || deadline.time_ns < next->time_ns) next = deadline;
        };
        if (holding()) consider({Deadline::kHold, *hold_since_ + nanoseconds(rules_.hold)});
        if (lost_ns_ && lost_event_ == 0) consider({Deadline::kLost, *lost_ns_ + nanoseconds(rules_.lost_after)});
        if (back_ns_) consider({Deadline::kBack, *back_ns_ + nanoseconds(rules_.back_after)});
        bool present = false;
        for (auto& [number, follow] : follows_) {
            present = present || follow.present;
            const std::int64_t since = follow.track.stopped_ns;
            const bool stands = follow.track.state == TrackState::kStopped && since > 0;
            if (stands && follow.stopped == 0 && rules_.stopped > 0)
                consider({Deadline::kStopped, since + nanoseconds(rules_.stopped), &follow});
            for (std::size_t i = 0; i < rules_.zones.size(); ++i) {
                const ZoneWatch& watch = follow.zones[i];
                const ZoneRule& zone = rules_.zones[i];
                if (stands && watch.event > 0 && watch.stopped == 0 && zone.stopped > 0)
                    consider({Deadline::kZoneStopped, since + nanoseconds(zone.stopped), &follow, i});
                if (watch.event > 0 && !watch.dwelled)
                    consider({Deadline::kDwell, watch.inside_ns + nanoseconds(zone.dwell), &follow, i});
            }
        }
        if (visit_ > 0 && !present) consider({Deadline::kMotion, last_present_ + nanoseconds(rules_.off_delay)});
        if (next)
            next_deadline_ = next->time_ns;
        else
            next_deadline_ = INT64_MAX;
        if (!next || next->time_ns > time_ns) return;
        now_ = std::max(now_, next->time_ns);  // standing still is found later than it began
        fire(*next);
    }
}

void RuleEngine::fire(const Deadline& deadline) {
    switch (deadline.what) {
        case Deadline::kHold:
            hold_over_ = true;
            releaseHeld();
            break;
        case Deadline::kLost: {
            CameraEvent& event = start(EventKind::kScene, "", nameOf(SceneState::kLost), nullptr);
            event.start_ns = *lost_ns_;
            lost_event_ = event.number;
            send(event);
            break;
        }
        case Deadline::kBack: {
            const std::int64_t back = *back_ns_;
            CameraEvent& event = events_.at(lost_event_);
            event.end_ns = back;
            end(lost_event_, event.change, "back", seconds(back - *lost_ns_), nullptr);
            lost_ns_.reset();
            back_ns_.reset();
            break;
        }
        case Deadline::kStopped:
        case Deadline::kZoneStopped: {
            Follow& follow = *deadline.follow;
            const bool in_zone = deadline.what == Deadline::kZoneStopped;
            CameraEvent& event =
                start(EventKind::kStopped, in_zone ? rules_.zones[deadline.zone].name : "", "", &follow);
            event.value = seconds(now_ - follow.track.stopped_ns);
            (in_zone ? follow.zones[deadline.zone].stopped : follow.stopped) = event.number;
            follow.stood = true;
            send(event);
            break;
        }
        case Deadline::kDwell: {
            ZoneWatch& watch = deadline.follow->zones[deadline.zone];
            watch.dwelled = true;
            update(watch.event, "dwell", seconds(now_ - watch.inside_ns), deadline.follow);
            break;
        }
        case Deadline::kMotion:
            endMotion("");
            break;
    }
}

// ---- The scene ----

void RuleEngine::seeScene(SceneState scene) {
    if (scene == scene_) return;
    endScene("");
    scene_ = scene;
    if (scene != SceneState::kChanged && scene != SceneState::kBlind) {
        if (holding()) releaseHeld();
        hold_since_.reset();
        hold_over_ = false;
        return;
    }
    if (!hold_since_) hold_since_ = now_;
    next_deadline_.reset();
    CameraEvent& event = start(EventKind::kScene, "", nameOf(scene), nullptr);
    scene_event_ = event.number;
    send(event);
}

void RuleEngine::endScene(const std::string& reason) {
    if (scene_event_ > 0) end(scene_event_, nameOf(scene_), reason, std::nullopt, nullptr);
}

void RuleEngine::releaseHeld() {
    const bool present = std::ranges::any_of(follows_, [](const auto& item) { return item.second.present; });
    for (auto item = events_.begin(); item != events_.end();) {
        CameraEvent& event = item->second;
        const bool release = event.held && (event.kind == EventKind::kMotion ? present : true);
        if (release) {
            event.held = false;
            event.state = EventState::kStart;
            send(event);
            if (event.kind == EventKind::kLine)
                results_.crossings.push_back({event.rule, event.change == "forward", now_});
        }
        item = release && event.end_ns ? events_.erase(item) : std::next(item);
    }
}

// ---- Tracks ----

void RuleEngine::see(const Track& track, const TrackFrame& frame) {
    auto found = follows_.find(track.number);
    if (found == follows_.end()) {
        if (track.state == TrackState::kEnded) return;
        found = follows_.try_emplace(track.number).first;
        found->second.zones.resize(rules_.zones.size());
        found->second.lines.resize(rules_.lines.size());
    }
    Follow& follow = found->second;
    follow.track = track;
    follow.present = track.state == TrackState::kConfirmed || track.state == TrackState::kCoasting;
    if (track.seen_ns != frame.time_ns && !follow.fresh) return;
    follow.sighting = sightingOf(track, track.box, frame);
    if (follow.fresh) beginLines(follow, frame);
}

Sighting RuleEngine::sightingOf(const Track& track, const Box& box, const TrackFrame& frame) const {
    Sighting sighting;
    sighting.foot = start_.map.shareOf(footOf(box), frame.width, frame.height);
    sighting.width = static_cast<double>(box.width) / frame.width * start_.map.width;
    sighting.height = static_cast<double>(box.height) / frame.height * start_.map.height;
    sighting.age_s = seconds(frame.time_ns - track.start_ns);
    return sighting;
}

/// The way of a new track begins where it came from, not where it was believed: a line may lie between the two.
void RuleEngine::beginLines(Follow& follow, const TrackFrame& frame) {
    const Track& track = follow.track;
    const auto parent = follows_.find(track.split_from);
    for (std::size_t i = 0; i < rules_.lines.size(); ++i) {
        if (parent != follows_.end() && follow.lines[i].beginAs(parent->second.lines[i], track.start_ns)) continue;
        if (track.birth.width > 0)
            follow.lines[i].begin(rules_.lines[i], sightingOf(track, track.birth, frame), follow.sighting);
    }
}

void RuleEngine::seeMotion() {
    const Follow* first = nullptr;
    for (const auto& [number, follow] : follows_) {
        if (!follow.present) continue;
        last_present_ = now_;
        if (!first && test(rules_.motion, follow.sighting, "").passed) first = &follow;
    }
    if (visit_ > 0) {
        CameraEvent& visit = events_.at(visit_);
        if (!visit.held || holding() || !first) return;
        visit.held = false;  // it began while the scene was unwell; what comes now is real
        visit.state = EventState::kStart;
        send(visit);
        return;
    }
    if (!first) return;
    CameraEvent& event = start(EventKind::kMotion, "", "", first);
    event.track = 0;
    visit_ = event.number;
    last_start_[""] = now_;
    send(event);
}

void RuleEngine::endMotion(const std::string& reason) {
    end(visit_, "", reason, std::nullopt, nullptr);
}

void RuleEngine::seeZone(std::size_t index, Follow& follow) {
    ZoneWatch& watch = follow.zones[index];
    const Track& track = follow.track;
    if (track.state == TrackState::kEnded || (track.seen_ns != now_ && !follow.fresh)) return;
    const Polygon& polygon = polygons_[index];
    if (follow.fresh && track.split_from > 0) {
        const auto parent = follows_.find(track.split_from);
        watch.suppressed = parent != follows_.end() && parent->second.zones[index].inside &&
                           polygon.depth(follow.sighting.foot) > -follow.sighting.margin();
    }
    switch (watch.see(polygon, follow.sighting)) {
        case ZoneWatch::Change::kIn:
            watch.inside_ns = now_;
            break;
        case ZoneWatch::Change::kOut:
            leaveZone(index, follow, "out");
            break;
        case ZoneWatch::Change::kNone:
            break;
    }
    // It came out beside the zone after all.
    if (!watch.inside && polygon.depth(follow.sighting.foot) <= -follow.sighting.margin()) watch.suppressed = false;
    if (watch.inside && watch.event == 0 && !watch.suppressed) enterZone(index, follow);
}

void RuleEngine::enterZone(std::size_t index, Follow& follow) {
    const ZoneRule& zone = rules_.zones[index];
    ZoneWatch& watch = follow.zones[index];
    const LimitResult result = test(zone.limits, follow.sighting, zone.name);
    if (result.only_failure) watch.nearlyPassed(*result.only_failure);
    if (!result.passed) return;
    CameraEvent& event = start(EventKind::kZone, zone.name, "enter", &follow);
    watch.event = event.number;
    watch.inside_ns = now_;
    watch.dwelled = zone.dwell <= 0;
    watch.nearly.reset();
    last_start_[zone.name] = now_;
    next_deadline_.reset();
    send(event);
}

void RuleEngine::leaveZone(std::size_t index, Follow& follow, const std::string& reason) {
    const ZoneRule& zone = rules_.zones[index];
    ZoneWatch& watch = follow.zones[index];
    const double stay = seconds(now_ - watch.inside_ns);
    if (watch.event > 0 && zone.dwell > 0 && !watch.dwelled)
        miss({"", "dwell", stay, zone.dwell, 0, now_}, zone.name, follow.track.number);
    if (watch.event == 0 && watch.nearly) miss(*watch.nearly, zone.name, follow.track.number);
    watch.nearly.reset();
    end(watch.stopped, "", reason, std::nullopt, &follow);
    end(watch.event, "leave", reason, stay, &follow);
}

void RuleEngine::seeLine(std::size_t index, Follow& follow, int direction) {
    const LineRule& line = rules_.lines[index];
    const LimitResult result = test(line.limits, follow.sighting, line.name);
    if (result.only_failure) miss(*result.only_failure, line.name, follow.track.number);
    if (!result.counts) return;
    const bool forward = direction > 0;
    const std::int64_t count = ++(forward ? forward_ : backward_)[index];
    if (!holding() || !result.passed) results_.crossings.push_back({line.name, forward, now_});
    if (!result.passed) return;  // the cooldown silences, it does not uncount
    last_start_[line.name] = now_;
    endAtOnce(start(EventKind::kLine, line.name, forward ? "forward" : "backward", &follow),
              static_cast<double>(count));
}

/// Ends `stopped` events of what moves again. They start by their deadline.
void RuleEngine::seeStanding(Follow& follow) {
    next_deadline_.reset();
    if (follow.track.state == TrackState::kStopped || follow.track.state == TrackState::kEnded) return;
    end(follow.stopped, "", "moved", std::nullopt, &follow);
    for (ZoneWatch& watch : follow.zones) end(watch.stopped, "", "moved", std::nullopt, &follow);
}

void RuleEngine::endTrack(Follow& follow, const std::string& reason) {
    const Track& track = follow.track;
    if (track.ended == TrackEnd::kLeft)
        for (std::size_t i = 0; i < rules_.lines.size(); ++i)
            if (const int direction = follow.lines[i].left(); direction != 0) seeLine(i, follow, direction);
    for (std::size_t i = 0; i < rules_.zones.size(); ++i) leaveZone(i, follow, reason);
    end(follow.stopped, "", track.removed ? "removed" : reason, std::nullopt, &follow);
    if (track.removed && follow.stood) endAtOnce(start(EventKind::kRemoved, "", "", &follow), std::nullopt);
    const std::int64_t number = track.number;
    follows_.erase(number);  // `follow` and `track` are gone
    std::erase_if(events_, [number](const auto& item) { return item.second.track == number && item.second.end_ns; });
    next_deadline_.reset();
}

LimitResult RuleEngine::test(const Limits& limits, const Sighting& sighting, const std::string& rule) const {
    const auto last = last_start_.find(rule);
    return testLimits(limits, sighting, now_, start_.wall_clock,
                      last == last_start_.end() ? std::nullopt : std::optional(now_ - last->second));
}

void RuleEngine::miss(NearMiss miss, const std::string& rule, std::int64_t track) {
    miss.rule = rule;
    miss.track = track;
    results_.near_misses.push_back(std::move(miss));
}

// ---- Events ----

CameraEvent& RuleEngine::start(EventKind kind, const std::string& rule, const std::string& change,
                               const Follow* follow) {
    CameraEvent event;
    event.camera = start_.camera;
    event.number = next_event_++;
    event.kind = kind;
    event.rule = rule;
    event.change = change;
    event.visit = visit_;
    event.start_ns = now_;
    event.held = isHeldKind(kind) && holding();
    event.parameters = start_.parameters;
    if (follow) {
        event.track = follow->track.number;
        event.width = width_;
        event.height = height_;
        event.box = follow->track.box;
        event.objects = follow->track.objects;
    }
    return events_[event.number] = std::move(event);
}

void RuleEngine::send(CameraEvent& event) {
    event.time_ns = now_;
    results_.events.push_back(event);
}

void RuleEngine::update(std::int64_t number, const std::string& change, std::optional<double> value,
                        const Follow* follow) {
    CameraEvent& event = events_.at(number);
    event.state = EventState::kUpdate;
    event.change = change;
    event.value = value;
    if (follow) {
        event.box = follow->track.box;
        event.width = width_;
        event.height = height_;
        event.objects = follow->track.objects;
    }
    send(event);
}

/// Ends the event of that number, which becomes 0. Nothing where there is none. An end that was set before stays.
void RuleEngine::end(std::int64_t& number, const std::string& change, const std::string& reason,
                     std::optional<double> value, const Follow* follow) {
    if (number == 0) return;
    const auto found = events_.find(number);
    CameraEvent& event = found->second;
    if (!event.end_ns) event.end_ns = now_;
    event.reason = reason;
    if (!value) value = event.value;
    update(number, change, value, follow);
    results_.events.back().state = event.state = EventState::kEnd;
    // What is held stays, in case that its track lives on when the scene is well again.
    if (!event.held || !follow) events_.erase(found);
    number = 0;
    next_deadline_.reset();
}

void RuleEngine::endAtOnce(CameraEvent& event, std::optional<double> value) {
    event.end_ns = now_;
    event.value = value;
    send(event);
    if (!event.held) events_.erase(event.number);
}

}  // namespace fleifeisa::host
