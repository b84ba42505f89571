// Questions to the past, before anything is changed: what a rule would have told, what would keep an event from coming.
#include <algorithm>
#include <chrono>

#include "common/text.h"
#include "events/suggestions.h"
#include "web/json_body.h"
#include "web/web_server.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kMostTracks = 50'000;  ///< that are looked at: some 150 MB, half a second
constexpr int kMostShown = 24;                ///< events with their pictures
constexpr std::int64_t kDayNs = 24 * kHourNs;

std::int64_t wallClock() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

/// One rule of them all. @throws HttpError
Rules only(const Rules& rules, const std::string& name) {
    Rules one;
    one.timezone = rules.timezone;
    std::ranges::copy_if(rules.zones, std::back_inserter(one.zones),
                         [&name](const ZoneRule& zone) { return zone.name == name; });
    std::ranges::copy_if(rules.lines, std::back_inserter(one.lines),
                         [&name](const LineRule& line) { return line.name == name; });
    return one;
}

/// Each event once, as it began.
std::vector<CameraEvent> starts(std::vector<CameraEvent> events) {
    std::erase_if(events, [](const CameraEvent& event) { return event.state != EventState::kStart; });
    return events;
}

const Limits* limitsOf(const Rules& rules, const CameraEvent& event) {
    if (event.kind == EventKind::kMotion) return &rules.motion;
    for (const ZoneRule& zone : rules.zones)
        if (event.kind == EventKind::kZone && zone.name == event.rule) return &zone.limits;
    for (const LineRule& line : rules.lines)
        if (event.kind == EventKind::kLine && line.name == event.rule) return &line.limits;
    return nullptr;
}

JudgedEvent judged(const CameraEvent& event, std::int64_t mark, const std::vector<PastTrack>& tracks) {
    JudgedEvent one{event.number,
                    event.kind == EventKind::kLine,
                    event.start_ns,
                    event.end_ns.value_or(wallClock()),
                    static_cast<JudgedEvent::Mark>(mark),
                    {}};
    for (const PastTrack& track : tracks) {
        const bool visit =
            event.kind == EventKind::kMotion && track.start_ns <= one.end_ns && track.end_ns >= one.start_ns;
        if (visit || track.number == event.track) one.tracks.push_back(track);
    }
    return one;
}

std::string sizeJson(const LeastSize& size) {
    return "{\"near\":" + rounded(size.near, 3) + ",\"far\":" + rounded(size.far, 3) + '}';
}

/// Of a rule's limits, as PATCH .../settings takes it.
std::string limitChange(const CameraEvent& event, const std::string& value) {
    if (event.kind == EventKind::kMotion) return "{\"motion\":{" + value + "}}";
    const std::string kind = event.kind == EventKind::kLine ? "line" : "zone";
    return "{\"" + kind + "\":{" + jsonString(event.rule) + ":{" + value + "}}}";
}

std::string polygonJson(const auto& points) {
    std::string json;
    for (const auto& point : points)
        json += (json.empty() ? "[" : ",[") + rounded(point.x, 4) + ',' + rounded(point.y, 4) + ']';
    return '[' + json + ']';
}

std::string suggestionJson(const Suggestion& one, const CameraEvent& event, const std::vector<Mask>& masks) {
    std::string kind, change;
    if (!one.mask.empty()) {
        std::string all;
        for (const Mask& mask : masks) all += polygonJson(mask) + ',';
        kind = "mask";
        change = "{\"masks\":[" + all + polygonJson(one.mask) + "]}";
    } else if (one.least_size) {
        kind = "least_size";
        change = limitChange(event, "\"least_size\":" + sizeJson(*one.least_size));
    } else if (one.least_age) {
        kind = "least_age";
        change = limitChange(event, "\"least_age\":" + rounded(*one.least_age, 1));
    } else {
        kind = "when";
        change = limitChange(event, "\"when\":" + jsonString(one.when));
    }
    return "{\"kind\":\"" + kind + "\",\"change\":" + change +
           ",\"removes\":{\"right\":" + std::to_string(one.removes.right) +
           ",\"wrong\":" + std::to_string(one.removes.wrong) + ",\"unmarked\":" + std::to_string(one.removes.unmarked) +
           "}}";
}

}  // namespace

/// Whoever asks anew does not wait for what they asked before.
std::shared_ptr<std::atomic<bool>> WebServer::beginStudy(const Call& call) {
    const std::lock_guard lock(mutex_);
    auto& study = studies_[call.identity->user + '\n' + call.camera()];
    if (study) *study = true;
    return study = std::make_shared<std::atomic<bool>>(false);
}

void WebServer::endStudies(const Call& call) {
    const std::lock_guard lock(mutex_);
    if (const auto found = studies_.find(call.identity->user + '\n' + call.camera()); found != studies_.end()) {
        *found->second = true;
        studies_.erase(found);
    }
}

std::string WebServer::whatIf(const Call& call, const std::atomic<bool>& over) {
    const JsonBody body(call.request->body);
    constexpr std::int64_t kMostDays = 366;
    const std::int64_t days = body.integer("days", 1, kMostDays).value_or(7);
    const std::string rule = body.needText("rule"), change = body.object("change");
    const auto stopped = [this, &over] { return over || stopping_; };
    const auto check = [&stopped] {
        if (stopped()) throw HttpError(409, "something else was asked meanwhile");
    };
    const Rules rules = only(changes().rulesWith(call.camera(), change.empty() ? "{}" : change), rule);
    if (rules.zones.empty() && rules.lines.empty()) throw HttpError(404, "there is no zone or line of that name");
    Rules present;
    if (const auto found = known(call.camera())) {
        present.timezone = rules.timezone;
        present.zones = found->status.zones;
        present.lines = found->status.lines;
        present = only(present, rule);
    }
    check();
    EventQueries store(parts_.state);
    const std::int64_t now = wallClock();
    const EventQueries::Past past = store.past(call.camera(), now - days * kDayNs, kMostTracks);
    check();
    const auto events = starts(eventsOfThePast(rules, call.camera(), past.tracks, past.scenes, true, stopped));
    const bool had = !present.zones.empty() || !present.lines.empty();
    const auto before =
        had ? starts(eventsOfThePast(present, call.camera(), past.tracks, past.scenes, true, stopped)).size() : 0;
    check();
    std::string shown;
    for (std::size_t i = 0; i < std::min<std::size_t>(events.size(), kMostShown); ++i) {
        const CameraEvent& event = events[events.size() - 1 - i];
        const std::string picture = store.pictured(call.camera(), event.track, event.start_ns);
        shown += (shown.empty() ? "{" : ",{") + ("\"start\":\"" + rfc3339(event.start_ns)) +
                 "\",\"start_ns\":" + std::to_string(event.start_ns) + ",\"track\":" + std::to_string(event.track) +
                 ",\"change\":" + jsonString(event.change) +
                 ",\"event\":" + (picture.empty() ? "null" : jsonString(picture)) + '}';
    }
    return "{\"rule\":" + jsonString(rule) + ",\"days\":" + std::to_string(days) + ",\"since\":\"" +
           rfc3339(past.since_ns) + "\",\"tracks\":" + std::to_string(past.tracks.size()) +
           ",\"events\":" + std::to_string(events.size()) + ",\"before\":" + (had ? std::to_string(before) : "null") +
           ",\"shown\":[" + shown + "]}";
}

std::string WebServer::notAgain(const Call& call, const std::atomic<bool>& over) {
    constexpr int kMostEvents = 2000;
    const auto found = known(call.camera());
    EventQueries store(parts_.state);
    const auto event = store.event(call.camera(), call.number(), call.identity->user);
    if (!found || !event) throw HttpError(404, "there is no such event");
    const CameraEvent& wrong = event->stored.event;
    const Rules rules = changes().rulesWith(call.camera(), "{}");
    const Limits* limits = limitsOf(rules, wrong);
    const auto all = limits ? store.marked(call.camera(), wrong.kind, wrong.rule, kMostEvents)
                            : std::vector<std::pair<StoredEvent, std::int64_t>>();
    std::int64_t since = wrong.start_ns;
    for (const auto& [stored, mark] : all) since = std::min(since, stored.event.start_ns);
    const EventQueries::Past past = store.past(call.camera(), std::min(since, wrong.start_ns), kMostTracks);
    std::vector<JudgedEvent> events;
    int right = 0, marked_wrong = 0;
    for (const auto& [stored, mark] : all) {
        if (over || stopping_) throw HttpError(409, "something else was asked meanwhile");
        right += mark == 1;
        marked_wrong += mark == 2;
        events.push_back(judged(stored.event, mark, past.tracks));
    }
    const JudgedEvent one = judged(wrong, 2, past.tracks);
    std::string json;
    if (limits)
        for (const Suggestion& each : suggestions(one, *limits, events, TimeZone(rules.timezone)))
            json += (json.empty() ? "" : ",") + suggestionJson(each, wrong, found->status.masks);
    return "{\"event\":" + jsonString(eventId(wrong.camera, wrong.number)) + ",\"rule\":" + jsonString(wrong.rule) +
           ",\"judged\":" + std::to_string(events.size()) + ",\"right\":" + std::to_string(right) +
           ",\"wrong\":" + std::to_string(marked_wrong) + ",\"suggestions\":[" + json + "]}";
}

void WebServer::addStudyRoutes() {
    const auto study = [this](const char* method, const char* pattern,
                              std::string (WebServer::*answer)(const Call&, const std::atomic<bool>&)) {
        routes_.push_back({method, pattern, Need::kAdmin, Place::kNow, [this, answer](Call& call) {
                               queriesAreThere();
                               changes();
                               onWorker(*study_worker_, std::make_shared<Call>(call),
                                        [this, answer, over = beginStudy(call)](Call& asked) {
                                            return jsonResponse((this->*answer)(asked, *over));
                                        });
                               return std::nullopt;
                           }});
    };
    study("POST", "cameras/{camera}/what-if", &WebServer::whatIf);
    study("GET", "cameras/{camera}/events/{number}/not-again", &WebServer::notAgain);
    routes_.push_back({"DELETE", "cameras/{camera}/what-if", Need::kAdmin, Place::kNow, [this](Call& call) {
                           endStudies(call);
                           return noContent();
                       }});
}

}  // namespace fleifeisa::host
