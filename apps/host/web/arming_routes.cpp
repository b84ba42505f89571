// Whether people are told: the page may stop telling for a time. What is seen and stored stays the same.
#include <algorithm>
#include <chrono>

#include "common/text.h"
#include "sources/source.h"
#include "web/arguments.h"
#include "web/json_body.h"
#include "web/web_server.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kNever = INT64_MAX, kMinuteNs = 60'000'000'000;

std::int64_t wallClock() {
    return std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace

std::string armedJson(std::int64_t from_ns, const std::string& name) {
    const bool armed = from_ns <= wallClock();
    return std::string("\"armed\":") + (armed ? "true" : "false") + ",\"" + name +
           "\":" + (armed || from_ns == kNever ? "null" : jsonString(rfc3339(from_ns)));
}

/// mutex_ is held.
std::int64_t WebServer::armedFrom(const CameraStatus& status) const {
    const auto said = arming_.find(status.name);
    return said == arming_.end() ? status.notify_from_ns : said->second;
}

std::string WebServer::armingJson(const Identity& identity) const {
    const std::lock_guard lock(mutex_);
    std::string json;
    for (const Known& known : cameras_)
        if (identity.sees(known.status.name))
            json += (json.empty() ? "{" : ",{") + ("\"camera\":" + jsonString(known.status.name)) + ',' +
                    armedJson(known.armed_from, "until") + '}';
    return "{\"cameras\":[" + json + "]}";
}

void WebServer::applyArming() const {
    if (!parts_.notify_from) return;
    std::map<std::string, std::int64_t> arming;
    {
        const std::lock_guard lock(mutex_);
        arming = arming_;
    }
    // Without the lock: whoever is called may be about to tell of an event.
    for (const auto& [camera, from_ns] : arming) parts_.notify_from(camera, from_ns);
}

void WebServer::arm(const Call& call) {
    const JsonBody body(call.request->body);
    std::int64_t from = 0;
    if (!body.needFlag("armed")) {
        constexpr std::int64_t kMostMinutes = 525'600;
        const auto minutes = body.integer("minutes", 1, kMostMinutes);
        const auto until = body.text("until");
        from = minutes ? wallClock() + *minutes * kMinuteNs : until ? parseInstant("until", *until) : kNever;
    }
    const std::vector<std::string> names = body.texts("cameras");
    const std::string group = body.text("group").value_or("");
    std::vector<std::string> chosen;
    {
        const std::lock_guard lock(mutex_);
        for (const std::string& name : names)
            if (!call.identity->sees(name) ||
                std::ranges::none_of(cameras_, [&](const Known& known) { return known.status.name == name; }))
                throw HttpError(404, "there is no such camera");
        for (const Known& known : cameras_) {
            const std::string& name = known.status.name;
            const bool named = !body.has("cameras") || body.isNull("cameras") || std::ranges::count(names, name) > 0;
            if (named && call.identity->sees(name) && (group.empty() || known.status.group == group))
                chosen.push_back(name);
        }
    }
    if (!group.empty() && chosen.empty()) throw HttpError(404, "there is no such group");
    if (!parts_.state.empty()) {
        Accounts accounts(parts_.state);
        for (const std::string& camera : chosen) accounts.arm(camera, from);
    }
    for (const std::string& camera : chosen) {
        {
            const std::lock_guard lock(mutex_);
            arming_[camera] = from;
            for (Known& known : cameras_)
                if (known.status.name == camera) known.armed_from = from;
        }
        parts_.feed->tell(
            "arming", camera,
            "{\"type\":\"arming\",\"camera\":" + jsonString(camera) + ',' + armedJson(from, "until") + '}');
    }
    applyArming();
}

}  // namespace fleifeisa::host
