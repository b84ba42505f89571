// Cameras, live pictures and the changes.
#include <algorithm>
#include <chrono>

#include "common/text.h"
#include "sources/source.h"
#include "web/arguments.h"
#include "web/json_body.h"
#include "web/web_server.h"

namespace fleifeisa::host {
namespace {

constexpr std::size_t kMostWatched = 200;
constexpr int kUsualWidth = 640, kMostWidth = 8192;

/// Three decimals, as rates are read.
std::string thousandths(double value) {
    return rounded(value, 3);
}

std::string share(double value) {
    return rounded(value, 7);
}

template <typename Points>
std::string pointsJson(const Points& points) {
    std::string json;
    for (const auto& point : points) json += (json.empty() ? "[" : ",[") + share(point.x) + ',' + share(point.y) + ']';
    return '[' + json + ']';
}

template <typename Items, typename Text>
std::string listJson(const Items& items, Text text) {
    std::string json;
    for (const auto& item : items) json += (json.empty() ? "" : ",") + text(item);
    return '[' + json + ']';
}

std::string orNull(const std::string& text) {
    return text.empty() ? "null" : jsonString(text);
}

}  // namespace

std::string WebServer::cameraJson(const Known& known) const {
    const CameraStatus& status = known.status;
    const LiveFrame frame = parts_.live->camera(status.name).latest();
    const bool seen = frame.sequence > 0;
    const auto number = [](std::int64_t value) { return std::to_string(value); };
    std::string json = "{\"name\":" + jsonString(status.name) +
                       ",\"title\":" + jsonString(status.title.empty() ? status.name : status.title) +
                       ",\"group\":" + orNull(status.group) + ",\"live\":" + (status.live ? "true" : "false") +
                       ",\"link\":" + orNull(status.link) + ",\"state\":\"" + nameOf(frame.scene) +
                       "\",\"trouble\":" + jsonString(status.trouble) +
                       ",\"ended\":" + (status.ended ? "true" : "false");
    json += ",\"time\":" + (seen ? jsonString(rfc3339(frame.time_ns)) : "null");
    json += ",\"time_ns\":" + (seen ? number(frame.time_ns) : "null");
    json += ",\"size\":" + (seen ? '[' + number(frame.width) + ',' + number(frame.height) + ']' : "null");
    json += ",\"map\":" + (seen ? '[' + share(frame.map.left) + ',' + share(frame.map.top) + ',' +
                                      share(frame.map.width) + ',' + share(frame.map.height) + ']'
                                : "null");
    json += ",\"rate\":" + thousandths(known.rate) + ",\"tracks\":" + number(frame.shown());
    json += ",\"answered\":" + number(status.answered) + ",\"dropped\":" + number(status.dropped) +
            ",\"lost\":" + number(status.lost) + ",\"restarts\":" + number(status.restarts);
    json += ',' + armedJson(known.armed_from, "armed_from");
    json += ",\"last_event\":" + orNull(known.last_event);
    json += ",\"explain_off\":" + orNull(parts_.why ? status.explain_off : "nobody can ask here");
    json += ",\"zones\":" + listJson(status.zones, [](const ZoneRule& zone) {
                return "{\"name\":" + jsonString(zone.name) + ",\"title\":" + jsonString(zone.title) +
                       ",\"points\":" + pointsJson(zone.points) + '}';
            });
    json += ",\"lines\":" + listJson(status.lines, [](const LineRule& line) {
                return "{\"name\":" + jsonString(line.name) + ",\"title\":" + jsonString(line.title) +
                       ",\"points\":" + pointsJson(std::array{line.from, line.to}) + '}';
            });
    return json + ",\"masks\":" + listJson(status.masks, [](const Mask& mask) { return pointsJson(mask); }) + '}';
}

std::vector<Watched> WebServer::parseView(const std::string& text, const Identity& identity) const {
    std::vector<Watched> view;
    for (std::string_view rest = text; !rest.empty();) {
        const std::size_t end = std::min(rest.find(','), rest.size());
        std::string_view one = rest.substr(0, end);
        rest.remove_prefix(std::min(end + 1, rest.size()));
        Watched& watched = view.emplace_back();
        if (one.ends_with(":calm")) {
            watched.calm = true;
            one.remove_suffix(5);
        }
        const std::size_t colon = one.find(':');
        watched.camera = std::string(one.substr(0, colon));
        if (colon != std::string_view::npos) {
            HttpRequest width;
            width.query["view"] = std::string(one.substr(colon + 1));
            watched.width = static_cast<int>(numberArgument(width, "view", kUsualWidth, 1, kMostWidth));
        }
    }
    checkView(view, identity);
    return view;
}

void WebServer::checkView(const std::vector<Watched>& view, const Identity& identity) const {
    if (view.size() > kMostWatched) throw HttpError(400, "view: at most 200 cameras");
    for (const Watched& watched : view) {
        const std::string camera = watched.camera.substr(0, watched.camera.find('~'));
        const bool trial = camera != watched.camera;
        if (!identity.sees(camera) || !known(camera) ||
            (trial && !(identity.admin() && parts_.trials && parts_.trials->runs(watched.camera))))
            throw HttpError(404, "there is no such camera");
    }
}

std::optional<HttpResponse> WebServer::openPictures(const Call& call) {
    if (streams_.size() > kMostWatched)
        std::erase_if(streams_, [](const auto& each) { return each.second.first.expired(); });
    const std::vector<Watched> view = parseView(call.request->argument("view"), *call.identity);
    constexpr std::size_t kIdBytes = 12;
    const auto stream = std::make_shared<PictureStream>(*parts_.live, randomText(kIdBytes), departure(call.identity));
    stream->show(view);
    streams_[stream->id()] = {stream, call.identity};
    HttpResponse response;
    response.type = "application/vnd.fleifeisa.pictures";
    response.headers = {{"X-Accel-Buffering", "no"}};
    response.stream = stream;
    return response;
}

std::optional<HttpResponse> WebServer::changeView(const Call& call) {
    const auto found = streams_.find(call.parts.find("stream")->second);
    const auto stream = found == streams_.end() ? nullptr : found->second.first.lock();
    if (!stream || found->second.second->user != call.identity->user) throw HttpError(404, "there is no such stream");
    std::vector<Watched> view;
    for (const JsonBody& one : JsonBody(call.request->body).objects("view"))
        view.push_back({one.needText("camera"),
                        static_cast<int>(one.integer("width", 1, kMostWidth).value_or(kUsualWidth)),
                        one.flag("calm").value_or(false)});
    checkView(view, *call.identity);
    stream->show(view);
    server_->wake();
    return noContent();
}

std::optional<HttpResponse> WebServer::nextPicture(Call& call) {
    if (!known(call.camera())) throw HttpError(404, "there is no such camera");
    const int width =
        LivePictures::widthFor(static_cast<int>(numberArgument(*call.request, "width", kUsualWidth, 1, kMostWidth)));
    const auto take = [answer = call.answer](const std::shared_ptr<const LiveMessage>& message) {
        if (!message) return answer(errorResponse(503, "no frame came within three seconds"));
        HttpResponse response;
        response.type = "image/jpeg";
        response.headers = {{"X-Time-Ns", std::to_string(message->time_ns)}};
        response.body = message->bytes.substr(message->jpeg);
        answer(std::move(response));
    };
    if (!parts_.live->camera(call.camera()).askOnce(width, take)) throw HttpError(503, "too many ask for it");
    return std::nullopt;
}

void WebServer::addCameraRoutes() {
    const auto add = [this](const char* method, const char* pattern, Place place, Handle handle) {
        routes_.push_back({method, pattern, Need::kView, place, std::move(handle)});
    };
    add("GET", "cameras", Place::kNow, [this](Call& call) {
        const std::lock_guard lock(mutex_);
        std::string json;
        for (const Known& known : cameras_)
            if (call.identity->sees(known.status.name)) json += (json.empty() ? "" : ",") + cameraJson(known);
        return jsonResponse('[' + json + ']');
    });
    add("GET", "cameras/{camera}", Place::kNow, [this](Call& call) {
        const auto found = known(call.camera());
        if (!found) throw HttpError(404, "there is no such camera");
        return jsonResponse(cameraJson(*found));
    });
    add("GET", "cameras/{camera}/tracks", Place::kNow, [this](Call& call) {
        if (!known(call.camera())) throw HttpError(404, "there is no such camera");
        const LiveFrame frame = parts_.live->camera(call.camera()).latest();
        if (frame.sequence == 0) throw HttpError(503, "there was no frame yet");
        return jsonResponse(liveFrameJson(call.camera(), frame) + '}');
    });
    add("GET", "cameras/{camera}/picture.jpg", Place::kNow, [this](Call& call) { return nextPicture(call); });
    add("GET", "pictures", Place::kNow, [this](Call& call) { return openPictures(call); });
    add("PUT", "pictures/{stream}", Place::kNow, [this](Call& call) { return changeView(call); });
    add("GET", "changes", Place::kNow, [this](Call& call) {
        const auto identity = call.identity;
        const auto mine = [identity](const ChangeFeed::Message& message) {
            return (message.camera.empty() || identity->sees(message.camera)) &&
                   (message.user.empty() || message.user == identity->user);
        };
        std::string after = call.request->header("last-event-id");
        if (after.empty()) after = call.request->argument("after");
        const std::int64_t now = std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
        HttpResponse response;
        response.type = "text/event-stream";
        response.headers = {{"X-Accel-Buffering", "no"}};
        response.stream = std::make_shared<ChangeStream>(
            *parts_.feed, after, "\"version\":" + jsonString(parts_.version) + ",\"time\":\"" + rfc3339(now) + '"',
            mine, departure(identity));
        return response;
    });

    // What was, from the store. Of a camera that is known to neither the configuration nor the store there is nothing.
    const auto past =
        [&](const char* pattern,
            const std::function<std::string(const Call&, EventQueries&, std::int64_t, std::int64_t)>& answer) {
            add("GET", pattern, Place::kStore, [this, answer](Call& call) {
                const std::int64_t now =
                    std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
                constexpr std::int64_t kDayNs = 24 * kHourNs, kMostNs = 4000 * kDayNs;
                auto [since, until] = spanArgument(*call.request, INT64_MIN, now);
                if (since == INT64_MIN) since = until - kDayNs;
                if (since > until || until - since > kMostNs || since < 0)
                    throw HttpError(400, "since, until: expected at most 4000 days, in this order");
                EventQueries& store = queries();
                if (!known(call.camera()) && !store.knows(call.camera()))
                    throw HttpError(404, "there is no such camera");
                return jsonResponse(answer(call, store, since, until));
            });
        };
    past("cameras/{camera}/activity", [](const Call& call, EventQueries& store, std::int64_t since,
                                         std::int64_t until) {
        constexpr int kMostStep = 1440;
        const auto step = static_cast<int>(numberArgument(*call.request, "step", 1, 1, kMostStep));
        return store.activity(call.camera(), since, until, step, flagArgument(*call.request, "grid").value_or(false));
    });
    past("cameras/{camera}/gaps", [](const Call& call, EventQueries& store, std::int64_t since, std::int64_t until) {
        return store.gaps(call.camera(), since, until);
    });
    past("cameras/{camera}/scenes", [](const Call& call, EventQueries& store, std::int64_t since, std::int64_t until) {
        return store.scenes(call.camera(), since, until);
    });
    past("cameras/{camera}/paths", [](const Call& call, EventQueries& store, std::int64_t since, std::int64_t until) {
        return store.paths(call.camera(), since, until);
    });
    past("cameras/{camera}/counts", [](const Call& call, EventQueries& store, std::int64_t since, std::int64_t until) {
        return store.counts(call.camera(), since, until);
    });
}

}  // namespace fleifeisa::host
