#include "events/event.h"

#include <array>
#include <charconv>
#include <cmath>

#include "common/text.h"

namespace fleifeisa::host {
namespace {

constexpr std::array<const char*, kEventKinds> kKinds = {"motion", "zone",     "line", "stopped", "removed",
                                                         "scene",  "analyzer", "gap",  "clock",   "external"};
constexpr std::array<const char*, 3> kStates = {"start", "update", "end"};
constexpr std::array<const char*, 5> kClips = {"none", "recording", "ready", "expired", "failed"};

template <typename Value, std::size_t count>
std::optional<Value> valueOf(const std::array<const char*, count>& names, std::string_view name) {
    for (std::size_t i = 0; i < count; ++i)
        if (name == names[i]) return static_cast<Value>(i);
    return std::nullopt;
}

/// A JSON string, or null for "".
std::string orNull(const std::string& text) {
    return text.empty() ? "null" : jsonString(text);
}

}  // namespace

const char* nameOf(EventKind kind) {
    return kKinds[static_cast<std::size_t>(kind)];
}
const char* nameOf(EventState state) {
    return kStates[static_cast<std::size_t>(state)];
}
const char* nameOf(ClipState state) {
    return kClips[static_cast<std::size_t>(state)];
}
std::optional<EventKind> eventKindOf(std::string_view name) {
    return valueOf<EventKind>(kKinds, name);
}
std::optional<EventState> eventStateOf(std::string_view name) {
    return valueOf<EventState>(kStates, name);
}

std::string eventId(std::string_view camera, std::int64_t number) {
    return std::string(camera) + '-' + std::to_string(number);
}

std::optional<std::pair<std::string, std::int64_t>> parseEventId(const std::string& id) {
    const std::size_t dash = id.rfind('-');
    if (dash == std::string::npos || dash == 0) return std::nullopt;
    std::int64_t number = 0;
    const char* const end = id.data() + id.size();
    const auto [last, error] = std::from_chars(id.data() + dash + 1, end, number);
    if (error != std::errc() || last != end || number <= 0) return std::nullopt;
    return std::pair(id.substr(0, dash), number);
}

std::string valueText(double value) {
    std::string text = fixedPoint(std::llround(value * 1000), 3);
    while (text.back() == '0') text.pop_back();
    if (text.back() == '.') text.pop_back();
    return text;
}

std::string eventJson(const CameraEvent& event, int pictures, ClipState clip) {
    const auto number = [](std::int64_t n) { return std::to_string(n); };
    const auto list = [&number](std::initializer_list<int> numbers) {
        std::string text;
        for (const int n : numbers) text += (text.empty() ? "[" : ",") + number(n);
        return text + ']';
    };
    std::string json = "{\"event\":" + jsonString(eventId(event.camera, event.number));
    json += ",\"camera\":" + jsonString(event.camera);
    json += std::string(",\"kind\":\"") + nameOf(event.kind) + "\",\"rule\":" + orNull(event.rule);
    json += ",\"change\":" + orNull(event.change);
    json += std::string(",\"state\":\"") + nameOf(event.state) + '"';
    if (!event.reason.empty()) json += ",\"reason\":" + jsonString(event.reason);
    if (!event.text.empty()) json += ",\"text\":" + jsonString(event.text);
    json += ",\"track\":" + (event.track > 0 ? number(event.track) : "null");
    json += ",\"visit\":" + (event.visit > 0 ? jsonString(eventId(event.camera, event.visit)) : "null");
    json += ",\"start\":\"" + rfc3339(event.start_ns) + "\",\"start_ns\":" + number(event.start_ns);
    json += ",\"time\":\"" + rfc3339(event.time_ns) + "\",\"time_ns\":" + number(event.time_ns);
    json += ",\"end_ns\":" + (event.end_ns ? number(*event.end_ns) : "null");
    json += ",\"size\":" + (event.width > 0 ? list({event.width, event.height}) : "null");
    json += ",\"box\":" +
            (event.box ? list({event.box->left, event.box->top, event.box->width, event.box->height}) : "null");
    json += ",\"value\":" + (event.value ? valueText(*event.value) : "null");
    json += std::string(",\"held\":") + (event.held ? "true" : "false");
    json += ",\"parameters\":" + orNull(event.parameters);
    if (pictures >= 0) json += ",\"pictures\":" + number(pictures) + ",\"clip\":\"" + nameOf(clip) + '"';
    return json + '}';
}

}  // namespace fleifeisa::host
