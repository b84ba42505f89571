// The host itself: how it does, what it says, what is in force.
#include <sys/statvfs.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>

#include "common/log.h"
#include "common/text.h"
#include "sources/source.h"
#include "web/arguments.h"
#include "web/json_body.h"
#include "web/static_files.h"
#include "web/web_server.h"

namespace fleifeisa::host {
namespace {

std::int64_t residentBytes() {
    std::ifstream file("/proc/self/statm");
    std::int64_t all = 0, resident = 0;
    file >> all >> resident;
    return resident * ::sysconf(_SC_PAGESIZE);
}

std::string thousandths(double value) {
    return rounded(value, 3);
}

}  // namespace

std::string WebServer::stateJson() {
    const auto number = [](std::int64_t value) { return std::to_string(value); };
    std::size_t cameras = 0, answering = 0;
    {
        const std::lock_guard lock(mutex_);
        cameras = cameras_.size();
        for (const Known& known : cameras_) answering += known.rate > 0 ? 1 : 0;
    }
    std::string json = "{\"version\":" + jsonString(parts_.version) + ",\"started\":\"" + rfc3339(started_ns_) +
                       "\",\"uptime\":" + thousandths(Seconds(Clock::now() - started_).count()) +
                       ",\"ready\":" + (ready_ ? "true" : "false") + ",\"cameras\":" + std::to_string(cameras) +
                       ",\"analyzers\":" + std::to_string(answering) + ",\"store\":";
    if (parts_.store) {
        const StoreCounts counts = parts_.store->counts();
        json += "{\"committed\":" + number(counts.committed) + ",\"waiting\":" + number(counts.waiting) +
                ",\"merged\":" + number(counts.merged) + ",\"lost\":" + number(counts.lost) +
                ",\"lost_rows\":" + number(counts.lost_rows) + ",\"failures\":" + number(counts.failures) +
                ",\"bytes\":" + number(counts.bytes) + "},\"disk\":";
        struct statvfs disk {};
        if (::statvfs(parts_.state.c_str(), &disk) == 0) {
            const auto block = static_cast<std::int64_t>(disk.f_frsize);
            const std::int64_t free_bytes = static_cast<std::int64_t>(disk.f_bavail) * block;
            const auto days = queries().daysThatFit(free_bytes);
            json += "{\"free\":" + number(free_bytes) +
                    ",\"total\":" + number(static_cast<std::int64_t>(disk.f_blocks) * block) +
                    ",\"used\":" + number(counts.bytes + queries().mediaBytes()) +
                    ",\"days\":" + (days ? thousandths(*days) : "null") + '}';
        } else {
            json += "null";
        }
    } else {
        json += "null,\"disk\":null";
    }
    const HttpCounts& http = server_->counts();
    const LiveCounts& live = parts_.live->counts();
    return json + ",\"web\":{\"connections\":" + number(http.connections) + ",\"refused\":" + number(http.refused) +
           ",\"requests\":" + number(http.requests) + ",\"streams\":" + number(http.streams) +
           ",\"encoded\":" + number(live.encoded) +
           ",\"encode_seconds\":" + thousandths(static_cast<double>(live.encode_ns) / 1e9) +
           ",\"skipped\":" + number(live.skipped) + ",\"faults\":" + number(http.faults + faults_) +
           "},\"memory\":" + number(residentBytes()) + '}';
}

/// Text of Prometheus.
HttpResponse WebServer::metrics(const Identity& identity) {
    std::string text;
    const auto family = [&text](const char* name, const char* kind, const char* help) {
        text += std::string("# HELP fleifeisa_") + name + ' ' + help + "\n# TYPE fleifeisa_" + name + ' ' + kind + '\n';
    };
    const auto one = [&](const char* name, const char* kind, const char* help, std::int64_t value) {
        family(name, kind, help);
        text += std::string("fleifeisa_") + name + ' ' + std::to_string(value) + '\n';
    };
    const HttpCounts& http = server_->counts();
    const LiveCounts& live = parts_.live->counts();
    one("web_connections", "gauge", "Open connections.", http.connections);
    one("web_requests_total", "counter", "Requests.", http.requests);
    one("web_refused_total", "counter", "Connections refused at a limit or for being slow.", http.refused);
    one("web_faults_total", "counter", "Requests that failed within.", http.faults + faults_);
    one("live_pictures_total", "counter", "Live pictures encoded.", live.encoded);
    one("resident_bytes", "gauge", "Memory of the host.", residentBytes());
    if (parts_.store) {
        const StoreCounts counts = parts_.store->counts();
        one("store_messages_total", "counter", "Messages of events committed.", counts.committed);
        one("store_waiting", "gauge", "Messages that wait for the disk.", counts.waiting);
        one("store_lost_total", "counter", "Events left out.", counts.lost);
        one("store_bytes", "gauge", "Size of the database.", counts.bytes);
    }
    const std::lock_guard lock(mutex_);
    const auto cameras = [&](const char* name, const char* kind, const char* help, auto value) {
        family(name, kind, help);
        for (const Known& known : cameras_)
            if (identity.sees(known.status.name))
                text += std::string("fleifeisa_") + name + "{camera=\"" + known.status.name + "\"} " +
                        std::to_string(value(known)) + '\n';
    };
    cameras("frames_answered_total", "counter", "Frames.", [](const Known& known) { return known.status.answered; });
    cameras("frames_dropped_total", "counter", "Live frames replaced by newer ones.",
            [](const Known& known) { return known.status.dropped; });
    cameras("frames_lost_total", "counter", "Frames lost with an analyzer.",
            [](const Known& known) { return known.status.lost; });
    cameras("analyzer_restarts_total", "counter", "Restarts.",
            [](const Known& known) { return known.status.restarts; });
    cameras("source_failing", "gauge", "1: no frames come.",
            [](const Known& known) { return std::int64_t{known.status.trouble.empty() ? 0 : 1}; });
    cameras("tracks", "gauge", "Tracks in the latest frame.", [this](const Known& known) {
        return std::int64_t{parts_.live->camera(known.status.name).latest().shown()};
    });
    HttpResponse response;
    response.type = "text/plain; version=0.0.4; charset=utf-8";
    response.body = std::move(text);
    return response;
}

void WebServer::addHostRoutes() {
    const auto add = [this](const char* method, const char* pattern, Need need, Place place, Handle handle) {
        routes_.push_back({method, pattern, need, place, std::move(handle)});
    };
    add("GET", "openapi.json", Need::kNothing, Place::kNow, [](Call&) {
        HttpResponse response;
        response.type = "application/json";
        response.lasting = openApi();
        return response;
    });
    add("GET", "arming", Need::kView, Place::kNow,
        [this](Call& call) { return jsonResponse(armingJson(*call.identity)); });
    add("PUT", "arming", Need::kAdmin, Place::kStore, [this](Call& call) {
        arm(call);
        return jsonResponse(armingJson(*call.identity));
    });
    add("GET", "state", Need::kAdmin, Place::kStore, [this](Call&) { return jsonResponse(stateJson()); });
    add("GET", "metrics", Need::kView, Place::kNow, [this](Call& call) { return metrics(*call.identity); });
    add("GET", "log", Need::kAdmin, Place::kNow, [](Call& call) {
        const std::int64_t after = numberArgument(*call.request, "after", 0, 0, INT64_MAX);
        const std::string level = call.request->argument("level"), camera = call.request->argument("camera");
        constexpr std::array<std::string_view, 4> kLevels = {"error", "warning", "info", "debug"};
        const auto* const least = std::ranges::find(kLevels, level.empty() ? "info" : level);
        if (least == kLevels.end()) throw HttpError(400, "level: expected error, warning, info or debug");
        std::string lines;
        std::int64_t next = after;
        for (const LogLine& line : lastLogLines(after)) {
            next = line.number;
            const auto at = static_cast<std::size_t>(line.level);
            if (at > static_cast<std::size_t>(least - kLevels.begin()) || (!camera.empty() && line.camera != camera))
                continue;
            lines += (lines.empty() ? "{" : ",{") + ("\"number\":" + std::to_string(line.number)) + ",\"time\":\"" +
                     rfc3339(line.time_ns) + "\",\"level\":\"" + std::string(kLevels[at]) +
                     "\",\"camera\":" + jsonString(line.camera) + ",\"message\":" + jsonString(line.message) + '}';
        }
        return jsonResponse("{\"lines\":[" + lines + "],\"next\":" + std::to_string(next) + '}');
    });
    add("GET", "configuration", Need::kAdmin, Place::kNow, [this](Call&) {
        std::string values;
        if (parts_.configuration)
            for (const ConfigValue& value : parts_.configuration())
                values += (values.empty() ? "{" : ",{") + ("\"key\":" + jsonString(value.key)) +
                          ",\"value\":" + jsonString(value.value) + ",\"origin\":" + jsonString(value.origin) + '}';
        const std::string overrides = parts_.changes ? parts_.changes->file() : "";
        return jsonResponse("{\"file\":" + jsonString(parts_.configuration_file) +
                            ",\"overrides\":" + (overrides.empty() ? "null" : jsonString(overrides)) + ",\"values\":[" +
                            values + "]}");
    });
}

}  // namespace fleifeisa::host
