// Events, visits and their files.
#include <algorithm>
#include <sstream>

#include "common/text.h"
#include "sources/source.h"
#include "store/media_files.h"
#include "web/arguments.h"
#include "web/json_body.h"
#include "web/web_server.h"

namespace fleifeisa::host {
namespace {

std::string pathOf(const CameraEvent& event) {
    return "cameras/" + event.camera + "/events/" + std::to_string(event.number);
}

/// As the interface names it: "picture.jpg".
std::string fileName(MediaKind kind) {
    const bool video = kind == MediaKind::kClip || kind == MediaKind::kPlayable;
    const bool json = kind == MediaKind::kTimes || kind == MediaKind::kWhy;
    return std::string(nameOf(kind)) + (video ? ".mp4" : json ? ".json" : ".jpg");
}

std::string typeOf(MediaKind kind) {
    const bool video = kind == MediaKind::kClip || kind == MediaKind::kPlayable;
    const bool json = kind == MediaKind::kTimes || kind == MediaKind::kWhy;
    return video ? "video/mp4" : json ? "application/json" : "image/jpeg";
}

std::string mediaJson(const CameraEvent& event, const std::vector<StoredMedia>& all) {
    std::string json;
    for (int kind = 0; kind < kMediaKinds; ++kind) {
        const auto found = std::ranges::find(all, static_cast<MediaKind>(kind), &StoredMedia::kind);
        json += std::string(kind == 0 ? "{\"" : ",\"") + nameOf(static_cast<MediaKind>(kind)) + "\":";
        if (found == all.end()) {
            json += "null";
            continue;
        }
        const bool sound = JsonBody::sound(found->details);
        json += "{\"href\":" + jsonString(pathOf(event) + '/' + fileName(found->kind)) +
                ",\"bytes\":" + std::to_string(found->bytes) + ",\"start_ns\":" + std::to_string(found->start_ns) +
                ",\"end_ns\":" + std::to_string(found->end_ns) + ",\"size\":" +
                (found->width > 0 ? '[' + std::to_string(found->width) + ',' + std::to_string(found->height) + ']'
                                  : "null") +
                ",\"details\":" + (sound ? found->details : "null") + '}';
    }
    return json + '}';
}

std::string linesJson(const std::string& text) {
    std::istringstream lines(text);
    std::string json;
    for (std::string line; std::getline(lines, line);) json += (json.empty() ? "" : ",") + jsonString(line);
    return json;
}

std::string detailJson(EventQueries& store, const std::string& camera, std::int64_t number, const std::string& user) {
    const auto found = store.event(camera, number, user);
    if (!found) throw HttpError(404, "there is no such event");
    const CameraEvent& event = found->stored.event;
    std::string objects;
    for (const int object : event.objects) objects += (objects.empty() ? "" : ",") + std::to_string(object);
    return "{\"event\":" + found->json + ",\"media\":" + mediaJson(event, store.media(camera, number)) +
           ",\"marked_by\":" + (found->marked ? jsonString(found->marked_by) : "null") + ",\"objects\":[" + objects +
           "],\"in_force\":[" + linesJson(store.parametersText(event.parameters)) + "]}";
}

void refuse(const std::string& why) {
    if (why.empty()) return;
    throw HttpError(why.starts_with("there is no") ? 404 : 409, why);
}

}  // namespace

EventQuery WebServer::query(const Call& call) const {
    EventQuery query = queryOf(*call.request, call.account());
    query.user = call.identity->user;
    const std::lock_guard lock(mutex_);
    for (const Known& known : cameras_) {
        const LiveFrame frame = parts_.live->camera(known.status.name).latest();
        if (!(frame.map == PictureMap{})) query.maps[known.status.name] = frame.map;
    }
    return query;
}

void WebServer::changeEvent(Call& call) {
    const JsonBody body(call.request->body);
    const std::string& camera = call.camera();
    const std::int64_t number = call.number();
    const std::string& user = call.identity->user;
    const auto reviewed = body.flag("reviewed"), keep = body.flag("keep");
    const auto mark = body.text("mark");
    if (keep && !call.identity->admin()) throw HttpError(403, "keeping is for administrators");
    if (mark && *mark != "right" && *mark != "wrong") throw HttpError(400, "mark: expected right, wrong or null");
    EventQueries& store = queries();
    std::string news =
        "{\"type\":\"review\",\"camera\":" + jsonString(camera) + ",\"event\":" + jsonString(eventId(camera, number));
    if (keep) {
        refuse(parts_.store->keep(camera, number, *keep));
        parts_.feed->tell("review", camera, news + ",\"keep\":" + (*keep ? "true" : "false") + '}');
    }
    if (body.has("mark")) {
        const auto verdict = mark ? (*mark == "right" ? Verdict::kRight : Verdict::kWrong) : Verdict::kSeen;
        refuse(parts_.store->review(camera, number, user, verdict));
        parts_.feed->tell("review", camera, news + ",\"mark\":" + (mark ? jsonString(*mark) : "null") + '}');
    }
    if (!reviewed) return;
    const std::vector<std::int64_t> family = store.family(camera, number);
    if (family.empty()) throw HttpError(404, "there is no such event");
    parts_.store->review(camera, family, user, *reviewed ? std::optional(Verdict::kSeen) : std::nullopt);
    parts_.feed->tell("review", camera, news + ",\"reviewed\":" + (*reviewed ? "true" : "false") + '}', user);
}

void WebServer::reviewSeveral(Call& call) {
    const JsonBody body(call.request->body);
    const bool reviewed = body.needFlag("reviewed");
    constexpr std::size_t kMost = 500;
    const std::vector<std::string> ids = body.texts("events");
    if (ids.size() > kMost) throw HttpError(400, "events: at most 500");
    EventQueries& store = queries();
    std::map<std::string, std::vector<std::int64_t>> wanted;
    for (const std::string& id : ids) {
        const auto parts = eventIdParts(id);
        if (!parts || !isCameraName(parts->first) || !call.identity->sees(parts->first))
            throw HttpError(404, "there is no such event");
        const auto family = store.family(parts->first, parts->second);
        auto& numbers = wanted[parts->first];
        numbers.insert(numbers.end(), family.begin(), family.end());
    }
    for (const auto& [camera, numbers] : wanted)
        parts_.store->review(camera, numbers, call.identity->user,
                             reviewed ? std::optional(Verdict::kSeen) : std::nullopt);
    for (const std::string& id : ids)
        parts_.feed->tell("review", eventIdParts(id)->first,
                          "{\"type\":\"review\",\"camera\":" + jsonString(eventIdParts(id)->first) +
                              ",\"event\":" + jsonString(id) + ",\"reviewed\":" + (reviewed ? "true" : "false") + '}',
                          call.identity->user);
}

HttpResponse WebServer::mediaFileOf(const Call& call, MediaKind kind) {
    const auto all = queries().media(call.camera(), call.number());
    const auto found = std::ranges::find(all, kind, &StoredMedia::kind);
    if (found == all.end()) throw HttpError(404, "there is no such file");
    HttpResponse response = fileResponse(*call.request, parts_.state + '/' + found->file, typeOf(kind));
    // Best views and clips may become better while the event runs.
    response.headers.emplace_back("Cache-Control", "private, max-age=60");
    return response;
}

HttpResponse WebServer::makeLink(const Call& call) {
    const JsonBody body(call.request->body);
    constexpr std::int64_t kMostHours = 8760;
    const std::string file = body.needText("file");
    const auto hours = body.integer("hours", 1, kMostHours);
    constexpr std::array kKinds = {MediaKind::kPicture, MediaKind::kBox, MediaKind::kThumb, MediaKind::kStrip,
                                   MediaKind::kClip};
    if (!hours || std::ranges::none_of(kKinds, [&](MediaKind kind) { return fileName(kind) == file; }))
        throw HttpError(400, "expected file (picture.jpg, box.jpg, thumb.jpg, strip.jpg, clip.mp4) and hours");
    const auto found = queries().event(call.camera(), call.number(), "");
    if (!found) throw HttpError(404, "there is no such event");
    const std::string path = pathOf(found->stored.event) + '/' + file;
    const std::int64_t expires = wallSeconds() + *hours * 3600;
    return jsonResponse("{\"href\":" + jsonString(path + '?' + access_.sign("/api/v1/" + path, expires)) +
                        ",\"expires\":\"" + rfc3339(expires * 1'000'000'000) + "\"}");
}

void WebServer::addEventRoutes() {
    const auto add = [this](const char* method, const std::string& pattern, Need need, Handle handle) {
        routes_.push_back({method, pattern, need, Place::kStore, std::move(handle)});
    };
    const std::string event = "cameras/{camera}/events/{number}";
    add("GET", "events", Need::kView, [this](Call& call) { return jsonResponse(queries().events(query(call))); });
    add("GET", "visits", Need::kView, [this](Call& call) { return jsonResponse(queries().visits(query(call))); });
    add("POST", "reviewed", Need::kView, [this](Call& call) {
        reviewSeveral(call);
        return noContent();
    });
    add("GET", event, Need::kView, [this](Call& call) {
        return jsonResponse(detailJson(queries(), call.camera(), call.number(), call.identity->user));
    });
    add("PATCH", event, Need::kView, [this](Call& call) {
        changeEvent(call);
        return jsonResponse(detailJson(queries(), call.camera(), call.number(), call.identity->user));
    });
    add("DELETE", event, Need::kAdmin, [this](Call& call) {
        queries();
        refuse(parts_.store->remove(call.camera(), call.number()));
        return noContent();
    });
    for (int kind = 0; kind < kMediaKinds; ++kind) {
        if (static_cast<MediaKind>(kind) == MediaKind::kPlayable) continue;  // media_routes.cpp
        add("GET", event + '/' + fileName(static_cast<MediaKind>(kind)), Need::kView,
            [this, kind](Call& call) { return mediaFileOf(call, static_cast<MediaKind>(kind)); });
    }
    add("POST", event + "/link", Need::kView, [this](Call& call) { return makeLink(call); });
}

}  // namespace fleifeisa::host
