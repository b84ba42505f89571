#include "web/web_server.h"

#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <iterator>

#include "common/log.h"
#include "common/text.h"
#include "sources/source.h"
#include "web/static_files.h"

namespace fleifeisa::host {
namespace {

constexpr std::string_view kRoot = "/api/v1/";
constexpr std::size_t kMostQueries = 200, kMostLogins = 8, kMostExports = 8, kMostStudies = 8;
constexpr double kTellSeconds = 1;   // between two messages of a camera's state
constexpr double kRateSeconds = 10;  // over which the rate is taken

bool isLoopback(const std::string& address) {
    return address == "::1" || address.starts_with("127.");
}

/// A proxy makes it known to others.
bool isLocal(const WebSettings& web) {
    return isLoopback(web.address) && web.url.empty() && !web.proxy;
}

std::string fileText(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) throw std::runtime_error("http: " + path + " cannot be read");
    return {std::istreambuf_iterator<char>(file), {}};
}

/// "https://cams.example.org/eye/" has "/eye".
std::string basePath(const std::string& url) {
    const std::size_t scheme = url.find("://");
    const std::size_t slash = scheme == std::string::npos ? scheme : url.find('/', scheme + 3);
    std::string base = slash == std::string::npos ? "" : url.substr(slash);
    while (base.ends_with('/')) base.pop_back();
    return base;
}

HttpSettings httpSettings(const WebSettings& web) {
    HttpSettings http;
    http.address = web.address;
    http.port = web.port;
    http.most_connections = web.connections;
    http.most_per_address = web.per_address;
    http.proxy = web.proxy;
    http.base = basePath(web.url);
    if (!web.certificate.empty()) {
        http.certificate = fileText(web.certificate);
        http.key = fileText(web.key);
    }
    return http;
}

std::string_view typeOf(std::string_view path) {
    constexpr std::array<std::pair<std::string_view, std::string_view>, 9> kTypes = {{
        {".html", "text/html; charset=utf-8"},
        {".css", "text/css; charset=utf-8"},
        {".js", "text/javascript; charset=utf-8"},
        {".json", "application/json"},
        {".svg", "image/svg+xml"},
        {".png", "image/png"},
        {".ico", "image/x-icon"},
        {".woff2", "font/woff2"},
        {".webmanifest", "application/manifest+json"},
    }};
    for (const auto& [ending, type] : kTypes)
        if (path.ends_with(ending)) return type;
    return "text/plain; charset=utf-8";
}

/// What every answer carries. No code or style but the page's own files, nothing from elsewhere, in nobody's frame.
void addHeaders(HttpResponse& response) {
    const auto has = [&response](std::string_view name) {
        return std::ranges::any_of(response.headers, [name](const auto& header) { return header.first == name; });
    };
    if (!has("Cache-Control")) response.headers.emplace_back("Cache-Control", "no-store");
    for (const auto& [name, value] : std::initializer_list<std::pair<const char*, const char*>>{
             {"Content-Security-Policy",
              "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' blob: data:; media-src 'self' "
              "blob:; "
              "connect-src 'self'; font-src 'self'; manifest-src 'self'; base-uri 'none'; form-action 'self'; "
              "frame-ancestors 'none'"},
             {"X-Content-Type-Options", "nosniff"},
             {"Referrer-Policy", "no-referrer"},
             {"Cross-Origin-Resource-Policy", "same-origin"},
             {"Cross-Origin-Opener-Policy", "same-origin"},
             {"X-Frame-Options", "DENY"}})
        response.headers.emplace_back(name, value);
}

std::vector<std::string_view> parts(std::string_view path) {
    std::vector<std::string_view> all;
    while (true) {
        const std::size_t end = path.find('/');
        all.push_back(path.substr(0, end));
        if (end == std::string_view::npos) return all;
        path.remove_prefix(end + 1);
    }
}

/// The values of "{name}" parts where the path is of that pattern.
std::optional<std::map<std::string, std::string, std::less<>>> match(std::string_view pattern, std::string_view path) {
    const auto wanted = parts(pattern), given = parts(path);
    if (wanted.size() != given.size()) return std::nullopt;
    std::map<std::string, std::string, std::less<>> values;
    for (std::size_t i = 0; i < wanted.size(); ++i) {
        if (wanted[i].starts_with('{'))
            values.emplace(wanted[i].substr(1, wanted[i].size() - 2), given[i]);
        else if (wanted[i] != given[i])
            return std::nullopt;
    }
    return values;
}

}  // namespace

std::string exposureFault(const WebSettings& settings, const std::string& state) {
    if (!settings.on || isLocal(settings)) return "";
    const std::string how = "what is not for this machine alone demands accounts: ";
    if (state.empty()) return how + "they need a state directory (state, or $STATE_DIRECTORY)";
    if (Accounts(state).any()) return "";
    return how + "fleifeisa-host user add NAME --role admin --state " + state;
}

WebServer::WebServer(const WebSettings& settings, WebParts parts)
    : settings_(settings),
      parts_(std::move(parts)),
      started_ns_(std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count()),
      access_({basePath(settings.url) + '/', settings.url, isLocal(settings)}, parts_.state),
      store_worker_(std::make_unique<Worker>(kMostQueries)),
      login_worker_(std::make_unique<Worker>(kMostLogins)),
      export_worker_(std::make_unique<Worker>(kMostExports)),
      study_worker_(std::make_unique<Worker>(kMostStudies)) {
    if (!parts_.state.empty()) arming_ = Accounts(parts_.state).arming();
    applyArming();
    if (parts_.store)
        store_worker_->post([this] {
            try {
                for (const std::string& camera : queries().cameras()) {
                    std::string last = queries().lastEvent(camera);
                    const std::lock_guard lock(mutex_);
                    last_events_.emplace(camera, std::move(last));
                }
            } catch (const std::exception& error) {
                logWarning("", std::string("web: ") + error.what());
            }
        });
    addRoutes();
    server_ = std::make_unique<HttpServer>(
        httpSettings(settings_), [this](std::shared_ptr<const HttpRequest> request, const HttpAnswer& answer) {
            take(std::move(request), answer);
        });
    parts_.feed->onNews([this] { server_->wake(); });
    parts_.live->onNews([this] { server_->wake(); });
    server_->start();
    if (!isLoopback(settings_.address) && settings_.certificate.empty() && !settings_.url.starts_with("https:"))
        logWarning(
            "", "http: passwords and pictures travel readable: give a certificate, or stand behind a proxy with one");
}

WebServer::~WebServer() {
    parts_.feed->onNews(nullptr);
    parts_.live->onNews(nullptr);
    stopping_ = true;
    export_worker_.reset();
    study_worker_.reset();
    store_worker_.reset();
    login_worker_.reset();
    server_.reset();
}

std::string WebServer::address() const {
    if (!settings_.url.empty()) return settings_.url;
    const bool six = settings_.address.find(':') != std::string::npos;
    return std::string(settings_.certificate.empty() ? "http://" : "https://") + (six ? "[" : "") + settings_.address +
           (six ? "]" : "") + ':' + std::to_string(server_->port()) + '/';
}

// ---- What the host tells ----

void WebServer::update(std::vector<CameraStatus> cameras) {
    parts_.live->expire();
    if (parts_.why) parts_.why->expire();
    applyArming();  // a camera that starts begins as it is configured
    const Clock::time_point now = Clock::now();
    std::vector<std::pair<std::string, std::string>> news;
    {
        const std::lock_guard lock(mutex_);
        std::map<std::string, Known> before;
        for (Known& known : cameras_) before.emplace(known.status.name, std::move(known));
        cameras_.clear();
        std::map<std::string, std::int64_t> answered;
        for (CameraStatus& status : cameras) {
            Known& known = cameras_.emplace_back(std::move(before[status.name]));
            known.status = std::move(status);
            known.armed_from = armedFrom(known.status);
            answered[known.status.name] = known.status.answered;
        }
        if (history_.empty() || Seconds(now - history_.back().first).count() >= 1) history_.emplace_back(now, answered);
        while (history_.size() > 2 && Seconds(now - history_[1].first).count() >= kRateSeconds) history_.pop_front();
        const double span = Seconds(now - history_.front().first).count();
        for (Known& known : cameras_) {
            const auto then = history_.front().second.find(known.status.name);
            const std::int64_t frames =
                then == history_.front().second.end() ? 0 : known.status.answered - then->second;
            known.rate = span > 0 && frames > 0 ? static_cast<double>(frames) / span : 0;
            if (const auto last = last_events_.find(known.status.name); last != last_events_.end())
                known.last_event = last->second;
            if (Seconds(now - known.told_at).count() < kTellSeconds) continue;
            const LiveFrame frame = parts_.live->camera(known.status.name).latest();
            const std::string key = std::string(nameOf(frame.scene)) + std::to_string(frame.shown()) +
                                    known.status.trouble + (known.status.ended ? "e" : "") + known.last_event +
                                    armedJson(known.armed_from, "until");
            if (key == known.told) continue;
            known.told = key;
            known.told_at = now;
            news.emplace_back(known.status.name, "{\"type\":\"camera\",\"camera\":" + cameraJson(known) + '}');
        }
        ready_ = true;
    }
    for (const auto& [camera, json] : news) parts_.feed->tell("camera", camera, json);
}

void WebServer::tell(const StoredEvent& stored, bool deleted) {
    const CameraEvent& event = stored.event;
    if (deleted) {
        parts_.feed->tell("deleted", event.camera,
                          "{\"type\":\"deleted\",\"camera\":" + jsonString(event.camera) +
                              ",\"event\":" + jsonString(eventId(event.camera, event.number)) + '}');
        return;
    }
    {
        const std::lock_guard lock(mutex_);
        last_events_[event.camera] = eventId(event.camera, event.number);
    }
    parts_.feed->tell("event", event.camera,
                      "{\"type\":\"event\",\"event\":" + eventJson(event, stored.pictures, stored.clip) + '}');
}

void WebServer::reloaded() {
    parts_.feed->tell("reload", "", R"({"type":"reload"})");
}

// ---- Requests ----

void WebServer::take(std::shared_ptr<const HttpRequest> request, const HttpAnswer& answer) {
    const HttpAnswer finish = [answer](HttpResponse response) {
        addHeaders(response);
        answer(std::move(response));
    };
    const auto call = std::make_shared<Call>();
    call->request = std::move(request);
    call->answer = finish;
    try {
        const std::string& path = call->request->path;
        if (!path.starts_with(kRoot)) return finish(page(*call->request));
        const std::string_view rest = std::string_view(path).substr(kRoot.size());
        bool known = false;
        for (const Route& route : routes_) {
            auto values = match(route.pattern, rest);
            if (!values) continue;
            known = true;
            if (route.method != call->request->method) continue;
            call->parts = std::move(*values);
            guard(*call, route);
            return perform(call, route);
        }
        if (known) throw HttpError(405, "this cannot be done here");
        throw HttpError(404, "there is no such thing in the interface");
    } catch (const HttpError& error) {
        finish(errorResponse(error.status, error.what()));
    } catch (const std::exception& error) {
        ++faults_;
        logError("", std::string("web: ") + error.what());
        finish(errorResponse(500, "something failed; the log says what"));
    }
}

/// Who may do what is decided here, for all routes.
void WebServer::guard(Call& call, const Route& route) {
    const HttpRequest& request = *call.request;
    const bool change = request.method != "GET";
    const bool is_signed = !change && access_.isSigned(request, wallSeconds());
    if (!is_signed) access_.checkOrigin(request);
    bool use = false;
    call.identity = access_.identify(request, use);
    if (use)
        store_worker_->post([directory = parts_.state, cookie = call.identity->cookie] {
            try {
                Accounts(directory).useSession(cookie, wallSeconds());
            } catch (const StoreError& error) {
                logDebug("", error.what());
            }
        });
    if (is_signed) {
        if (!call.identity) call.identity = std::make_shared<Identity>();
        return;
    }
    if (route.need == Need::kNothing) return;
    if (!call.identity) throw HttpError(401, "nobody is logged in");
    if (change) access_.checkToken(request, *call.identity);
    if (const auto camera = call.parts.find("camera");
        camera != call.parts.end() && (!isCameraName(camera->second) || !call.identity->sees(camera->second)))
        throw HttpError(404, "there is no such camera");
    if (route.need == Need::kAdmin && !call.identity->admin()) throw HttpError(403, "this is for administrators");
}

void WebServer::perform(const std::shared_ptr<Call>& call, const Route& route) {
    if (route.place != Place::kNow)
        return onWorker(route.place == Place::kStore ? *store_worker_ : *export_worker_, call, route.handle);
    if (auto response = route.handle(*call)) call->answer(std::move(*response));
}

void WebServer::onWorker(Worker& worker, const std::shared_ptr<Call>& call, const Handle& handle) {
    const bool of_store = &worker == store_worker_.get();
    const bool taken = worker.post([this, of_store, call, handle] {
        try {
            if (auto response = handle(*call)) call->answer(std::move(*response));
        } catch (const HttpError& error) {
            call->answer(errorResponse(error.status, error.what()));
        } catch (const StoreError& error) {
            logWarning("", std::string("web: ") + error.what());
            if (of_store) queries_.reset();
            call->answer(errorResponse(503, "the store does not answer"));
        } catch (const std::exception& error) {
            ++faults_;
            logError("", std::string("web: ") + error.what());
            call->answer(errorResponse(500, "something failed; the log says what"));
        }
    });
    if (!taken) throw HttpError(503, "too much is asked at once");
}

void WebServer::queriesAreThere() const {
    if (parts_.state.empty() || !parts_.store)
        throw HttpError(503, "nothing is kept: the configuration names no state directory");
}

EventQueries& WebServer::queries() {
    queriesAreThere();
    if (!queries_) queries_ = std::make_unique<EventQueries>(parts_.state);
    return *queries_;
}

std::int64_t WebServer::Call::number() const {
    const std::string& text = parts.find("number")->second;
    const auto id = eventIdParts("c-" + text);
    if (!id || text.find_first_not_of("0123456789") != std::string::npos)
        throw HttpError(404, "there is no such event");
    return id->second;
}

/// For long responses: whether the viewer has lost the right to look.
std::function<bool()> WebServer::departure(const std::shared_ptr<const Identity>& identity) {
    return [this, identity, checked = std::int64_t{-1}, next = Clock::time_point{}, gone = false]() mutable {
        if (gone || Clock::now() < next) return gone;
        next = Clock::now() + std::chrono::seconds(1);
        gone = !access_.holds(*identity, checked);
        return gone;
    };
}

std::optional<WebServer::Known> WebServer::known(const std::string& camera) const {
    const std::lock_guard lock(mutex_);
    for (const Known& each : cameras_)
        if (each.status.name == camera) return each;
    return std::nullopt;
}

/// The shell of the page, for everybody: it holds nothing of the cameras.
HttpResponse WebServer::page(const HttpRequest& request) const {
    const std::string path = request.path == "/" ? "/index.html" : request.path;
    if (request.method != "GET") throw HttpError(405, "this cannot be done here");
    if (path == "/livez" || path == "/readyz") {
        HttpResponse response;
        response.status = path == "/livez" || ready_ ? 200 : 503;
        response.type = "text/plain";
        response.body = response.status == 200 ? "ok\n" : "not yet\n";
        return response;
    }
    for (const StaticFile& file : staticFiles()) {
        if (file.path != path) continue;
        HttpResponse response;
        response.headers = {{"ETag", std::string(file.tag)}, {"Cache-Control", "no-cache"}};
        if (request.header("if-none-match") == file.tag) {
            response.status = 304;
            return response;
        }
        response.type = typeOf(path);
        response.lasting = file.bytes;
        return response;
    }
    throw HttpError(404, "there is no such page");
}

void WebServer::addRoutes() {
    addAccessRoutes();
    addCameraRoutes();
    addEventRoutes();
    addHostRoutes();
    addMediaRoutes();
    addRuleRoutes();
    addWhyRoutes();
    addStudyRoutes();
    addTrialRoutes();
}

}  // namespace fleifeisa::host
