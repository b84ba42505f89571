// Changing cameras: zones, lines, masks, thresholds; who changed what, and taking it back.
#include <algorithm>
#include <chrono>

#include "common/text.h"
#include "sources/source.h"
#include "web/json_body.h"
#include "web/web_server.h"

namespace fleifeisa::host {
namespace {

std::string numberOrNull(std::int64_t number) {
    return number == 0 ? "null" : std::to_string(number);
}

/// Without its closing brace.
std::string changeJson(const CameraChange& change) {
    return "{\"change\":" + std::to_string(change.number) + ",\"time\":\"" + rfc3339(change.time_ns) +
           "\",\"time_ns\":" + std::to_string(change.time_ns) + ",\"user\":" + jsonString(change.user) +
           ",\"units\":" + change.units + ",\"effect\":" + jsonString(change.effect) +
           ",\"undoes\":" + numberOrNull(change.undoes) + ",\"undone_by\":" + numberOrNull(change.undone_by);
}

}  // namespace

CameraChanges& WebServer::changes() const {
    if (parts_.changes == nullptr)
        throw HttpError(503, "nothing can be changed here: the configuration names no state directory");
    return *parts_.changes;
}

/// The camera's page and all others look again.
CameraChanges::Done WebServer::answerChange(const Call& call) const {
    return [this, answer = call.answer, camera = call.camera()](const CameraChange& change) {
        parts_.feed->tell("changed", camera,
                          "{\"type\":\"changed\",\"camera\":" + jsonString(camera) +
                              ",\"change\":" + std::to_string(change.number) + '}');
        answer(jsonResponse(changeJson(change) + '}'));
    };
}

/// Each change with how many events a day there were before and after it, as far as no other change came between.
HttpResponse WebServer::history(const Call& call) {
    constexpr std::int64_t kMostNs = 7 * 24 * kHourNs;
    const std::int64_t now = std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
    const std::vector<CameraChange> all = changes().history(call.camera());
    const std::int64_t first = queries().firstEvent(call.camera());
    std::string json;
    for (std::size_t i = 0; i < all.size(); ++i) {
        const std::int64_t time = all[i].time_ns;
        const std::int64_t earliest = i + 1 < all.size() ? all[i + 1].time_ns : first;
        const std::int64_t from = std::max(time - kMostNs, std::min(time, earliest));
        const std::int64_t to = std::min(time + kMostNs, i == 0 ? now : all[i - 1].time_ns);
        const auto span = [&](const char* name, std::int64_t since, std::int64_t until) {
            return std::string(",\"") + name + "\":{\"seconds\":" + std::to_string((until - since) / 1'000'000'000) +
                   ",\"events\":" + std::to_string(queries().eventsBetween(call.camera(), since, until)) + '}';
        };
        json +=
            (json.empty() ? "" : ",") + changeJson(all[i]) + span("before", from, time) + span("after", time, to) + '}';
    }
    return jsonResponse("{\"camera\":" + jsonString(call.camera()) + ",\"changes\":[" + json + "]}");
}

void WebServer::addRuleRoutes() {
    // Writing waits for the disk: not in the server's thread.
    const auto add = [this](const char* method, const std::string& pattern, Handle handle) {
        routes_.push_back({method, pattern, Need::kAdmin, Place::kStore, std::move(handle)});
    };
    const auto make = [this](const Call& call, const std::string& change) {
        changes().change(call.camera(), call.identity->user, change, answerChange(call));
        return std::nullopt;
    };
    add("GET", "cameras/{camera}/settings",
        [this](Call& call) { return jsonResponse(changes().settings(call.camera())); });
    add("PATCH", "cameras/{camera}/settings", [make](Call& call) { return make(call, call.request->body); });
    for (const std::string kind : {"zone", "line"}) {
        const std::string pattern = "cameras/{camera}/" + kind + "s/{" + kind + "}";
        const auto change = [kind](const Call& call, const std::string& value) {
            const std::string& name = call.parts.find(kind)->second;
            return "{\"" + kind + "\":{" + jsonString(name) + ':' + value + "}}";
        };
        add("PUT", pattern, [make, change](Call& call) {
            if (!JsonBody::sound(call.request->body)) throw HttpError(400, "expected a JSON object");
            return make(call, change(call, call.request->body));
        });
        add("DELETE", pattern, [make, change](Call& call) { return make(call, change(call, R"({"removed":true})")); });
    }
    add("GET", "cameras/{camera}/history", [this](Call& call) { return history(call); });
    add("POST", "cameras/{camera}/undo", [this](Call& call) -> std::optional<HttpResponse> {
        const auto number = JsonBody(call.request->body).integer("change", 1, INT64_MAX);
        if (!number) throw HttpError(400, "change: expected the number of a change");
        changes().undo(call.camera(), call.identity->user, *number, answerChange(call));
        return std::nullopt;
    });
}

}  // namespace fleifeisa::host
