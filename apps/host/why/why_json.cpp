#include "why/why_json.h"

#include <algorithm>
#include <sstream>

#include "common/text.h"
#include "tracks/constants.h"
#include "tracks/filter_view.h"
#include "tracks/reasons.h"

namespace fleifeisa::host {
namespace {

// An answer stays a few kilobytes, whatever the scene: beyond these the smaller ones are left out.
constexpr std::size_t kMostMovers = 40, kMostPieces = 60, kMostShown = 50;

std::string boxJson(const Box& box) {
    return '[' + std::to_string(box.left) + ',' + std::to_string(box.top) + ',' + std::to_string(box.width) + ',' +
           std::to_string(box.height) + ']';
}

std::string secondsJson(double seconds) {
    return rounded(seconds, 2);
}

template <class Items, class Text>
std::string listJson(const Items& items, std::size_t most, Text text) {
    std::string json;
    std::size_t count = 0;
    for (const auto& item : items) {
        if (count++ == most) break;
        json += (json.empty() ? "" : ",") + text(item);
    }
    return '[' + json + ']';
}

std::string trackJson(const Mover& mover, const FilterView& view, std::int64_t time_ns) {
    const Track& track = mover.track;
    const auto number = [](auto value) { return std::to_string(value); };
    std::string json = "{\"track\":" + number(track.number) + ",\"state\":\"" + nameOf(track.state) +
                       "\",\"box\":" + boxJson(mover.box()) + ",\"frames\":" + number(track.frames) +
                       ",\"age_s\":" + secondsJson(static_cast<double>(time_ns - track.start_ns) / 1e9) +
                       ",\"missed_s\":" + secondsJson(mover.missed) +
                       ",\"unsupported_s\":" + secondsJson(mover.unsupported) +
                       ",\"area\":" + number(mover.blob < 0 ? 0 : track.area) + ",\"largest\":" + number(mover.area) +
                       ",\"group\":" + number(track.merged_with);
    return json + ",\"why\":" +
           listJson(reasonsOf(mover, view, time_ns), kMostShown,
                    [](Reason reason) { return std::string("\"") + nameOf(reason) + '"'; }) +
           '}';
}

/// The largest first.
template <class Piece>
std::vector<Piece> bySize(std::vector<Piece> pieces) {
    std::ranges::stable_sort(pieces, std::greater(), &Piece::pixels);
    return pieces;
}

std::string frameMembers(const WhyFrame& frame) {
    return "\"sequence\":" + std::to_string(frame.sequence) + ",\"time\":\"" + rfc3339(frame.time_ns) +
           "\",\"time_ns\":" + std::to_string(frame.time_ns) + ",\"size\":[" + std::to_string(frame.width) + ',' +
           std::to_string(frame.height) + "],\"scene\":\"" + nameOf(frame.scene) +
           "\",\"share\":" + rounded(frame.foreground, 5);
}

std::string orNull(const std::string& json) {
    return json.empty() ? "null" : json;
}

}  // namespace

std::string filterJson(const FilterView& view, std::int64_t time_ns, std::int64_t track) {
    std::vector<Mover> movers = view.movers;
    if (track != 0)
        std::erase_if(movers, [track](const Mover& mover) { return mover.confirmed && mover.track.number != track; });
    std::string json = std::string("{\"refined\":") + (view.refined ? "true" : "false") +
                       ",\"least_pixels\":" + rounded(view.least_pixels, 1) +
                       ",\"least_component\":" + std::to_string(view.least_component) +
                       ",\"birth\":{\"sightings\":" + std::to_string(kBirthSightings) +
                       ",\"seconds\":" + rounded(kBirthSeconds, 2) + "}";
    json += ",\"tracks\":" +
            listJson(movers, kMostMovers, [&](const Mover& mover) { return trackJson(mover, view, time_ns); });
    json += ",\"blobs\":" + listJson(bySize(view.blobs), kMostPieces, [](const Blob& blob) {
                return "{\"box\":" + boxJson(blob.box) + ",\"pixels\":" + std::to_string(blob.pixels) + '}';
            });
    json += ",\"dropped\":" + listJson(bySize(view.dropped), kMostPieces, [](const DroppedComponent& piece) {
                return "{\"box\":" + boxJson(piece.box) + ",\"pixels\":" + std::to_string(piece.pixels) +
                       ",\"why\":\"" + nameOf(piece.why) + "\"}";
            });
    return json + '}';
}

std::string whyJson(const std::string& camera, const WhyFrame& frame, const std::string& analyzer,
                    const std::string& filter) {
    return "{\"camera\":" + jsonString(camera) + ',' + frameMembers(frame) + ",\"analyzer\":" + orNull(analyzer) +
           ",\"filter\":" + orNull(filter) + '}';
}

std::string eventWhyJson(const CameraEvent& event, const WhyFrame& frame, const std::string& rule_values,
                         std::span<const AnalyzerObject> objects, const std::string& analyzer,
                         const std::string& filter) {
    return "{\"event\":" + jsonString(eventId(event.camera, event.number)) + ",\"kind\":\"" + nameOf(event.kind) +
           "\",\"rule\":" + jsonString(event.rule) + ",\"change\":" + jsonString(event.change) +
           ",\"track\":" + std::to_string(event.track) + ",\"parameters\":" + jsonString(event.parameters) +
           ",\"rule_values\":" + jsonString(rule_values) +
           ",\"value\":" + (event.value ? valueText(*event.value) : "null") + ',' + frameMembers(frame) +
           ",\"objects\":" +
           listJson(objects, kMostShown,
                    [](const AnalyzerObject& object) {
                        return "{\"id\":" + std::to_string(object.id) +
                               ",\"box\":" + boxJson({object.left, object.top, object.width, object.height}) +
                               ",\"density\":" + std::to_string(object.density) + '}';
                    }) +
           ",\"analyzer\":" + orNull(analyzer) + ",\"filter\":" + orNull(filter) + '}';
}

std::string ruleValues(const CameraEvent& event, const std::string& rules_text) {
    const std::string begin = event.kind == EventKind::kLine     ? "line " + event.rule + ' '
                              : !event.rule.empty()              ? "zone " + event.rule + ' '
                              : event.kind == EventKind::kMotion ? "motion "
                              : event.kind == EventKind::kStopped || event.kind == EventKind::kRemoved ? "stopped "
                              : event.kind == EventKind::kScene                                        ? "scene "
                                                                                                       : "none";
    std::istringstream lines(rules_text);
    for (std::string line; std::getline(lines, line);)
        if (line.starts_with(begin)) return line;
    return "";
}

}  // namespace fleifeisa::host
