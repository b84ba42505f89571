// The web server of a host: page, interface, live pictures. Who may see what is decided here, before any route is
// asked.
#pragma once

#include <atomic>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "events/rules.h"
#include "http/server.h"
#include "sources/mask.h"
#include "store/store.h"
#include "web/access.h"
#include "web/camera_changes.h"
#include "web/change_feed.h"
#include "web/event_queries.h"
#include "web/live.h"
#include "web/picture_stream.h"
#include "web/worker.h"
#include "why/why_box.h"

namespace fleifeisa::host {

struct WebSettings {
    bool on = false;
    std::string address = "127.0.0.1";
    int port = 8480;
    std::string url;               ///< what people type where it differs: behind a proxy; its path is the base path
    std::string certificate, key;  ///< files (PEM), "": no TLS
    bool proxy = false;            ///< X-Forwarded-For and -Proto are believed
    int connections = 256, per_address = 64;

    bool operator==(const WebSettings&) const = default;
};

/// One camera as the host knows it, apart from its latest frame.
struct CameraStatus {
    std::string name, title, group, link;
    bool live = false, ended = false;
    std::string trouble;
    std::int64_t notify_from_ns = 0;  ///< as configured; INT64_MAX: never
    std::int64_t answered = 0, dropped = 0, lost = 0, restarts = 0;
    std::vector<ZoneRule> zones;
    std::vector<LineRule> lines;
    std::vector<Mask> masks;
    std::string explain_off;  ///< why nobody can ask what it sees, "": one can
};

/// One value of the configuration in force.
struct ConfigValue {
    std::string key, value, origin;
};

/// What the server shows; everything may be called from its threads.
struct WebParts {
    LivePictures* live = nullptr;
    ChangeFeed* feed = nullptr;
    WhyBoxes* why = nullptr;  ///< null: nobody can ask
    std::string state;        ///< state directory, "": no store
    std::string version;      ///< of the program
    std::string timezone;     ///< of what people read
    Store* store = nullptr;   ///< null: none
    std::function<std::vector<ConfigValue>()> configuration = nullptr;
    /// From that moment on (nanoseconds since 1970) a camera's events are told to programs and people.
    std::function<void(const std::string& camera, std::int64_t from_ns)> notify_from = nullptr;
    std::string configuration_file;
    /// Begins to make the copy of a clip that every browser plays; `done` gets "" or why there is none, from another
    /// thread, perhaps never. False where too much is asked for. Empty: no clips are made.
    std::function<bool(const std::string& camera, std::int64_t number, std::function<void(std::string)> done)>
        make_playable = nullptr;
    CameraChanges* changes = nullptr;  ///< null: nothing can be changed, there is no state directory
    CameraTrials* trials = nullptr;    ///< null: nothing can be tried
};

/// 0 where this address may be listened at with these accounts; else a sentence.
std::string exposureFault(const WebSettings& settings, const std::string& state);

/// "armed":false,"until":"2026-..." with the second name as given.
std::string armedJson(std::int64_t from_ns, const std::string& name);

class WebServer {
 public:
    /// @throws std::runtime_error, StoreError
    WebServer(const WebSettings& settings, WebParts parts);
    ~WebServer();
    WebServer(const WebServer&) = delete;
    WebServer& operator=(const WebServer&) = delete;

    /// In the order of the configuration; to be called a few times a second.
    void update(std::vector<CameraStatus> cameras);
    /// From the store's threads: an event that was committed, or one that somebody deleted. Waits for nobody.
    void tell(const StoredEvent& stored, bool deleted);
    /// After the configuration was read again.
    void reloaded();
    /// What to type into a browser.
    std::string address() const;

 private:
    enum class Need { kNothing, kView, kAdmin };
    enum class Place { kNow, kStore, kExport };  ///< in the server's thread, in the store's, in that of exports
    struct Call {
        std::shared_ptr<const HttpRequest> request;
        std::shared_ptr<const Identity> identity;
        std::map<std::string, std::string, std::less<>> parts;  ///< of the path: {camera}, {number} ...
        HttpAnswer answer;

        const std::string& camera() const { return parts.find("camera")->second; }
        std::int64_t number() const;
        const Account& account() const { return identity->account; }
    };
    /// Nothing: it answers later.
    using Handle = std::function<std::optional<HttpResponse>(Call&)>;
    struct Route {
        std::string method, pattern;
        Need need;
        Place place;
        Handle handle;
    };
    struct Known {
        CameraStatus status;
        double rate = 0;
        std::int64_t armed_from = 0;  ///< telling begins then
        std::string last_event;
        std::string told;  ///< what the changes were told last
        Clock::time_point told_at{};
    };

    void addRoutes();
    void addAccessRoutes();
    void addCameraRoutes();
    void addEventRoutes();
    void addHostRoutes();
    void addMediaRoutes();
    void addRuleRoutes();
    void addWhyRoutes();
    void addStudyRoutes();
    void addTrialRoutes();
    void take(std::shared_ptr<const HttpRequest> request, const HttpAnswer& answer);
    HttpResponse page(const HttpRequest& request) const;
    HttpResponse metrics(const Identity& identity);
    void guard(Call& call, const Route& route);
    void perform(const std::shared_ptr<Call>& call, const Route& route);
    void onWorker(Worker& worker, const std::shared_ptr<Call>& call, const Handle& handle);
    EventQueries& queries();
    void queriesAreThere() const;
    std::function<bool()> departure(const std::shared_ptr<const Identity>& identity);

    std::string sessionJson(const Identity* identity) const;
    void login(const Call& call);
    void changePassword(const Call& call);
    void noteSuccess(const std::string& address, const std::string& user);
    void forgiveThrottle();
    std::string cameraJson(const Known& known) const;
    std::int64_t armedFrom(const CameraStatus& status) const;
    std::string armingJson(const Identity& identity) const;
    void arm(const Call& call);
    void applyArming() const;
    std::string stateJson();
    void changeEvent(Call& call);
    void reviewSeveral(Call& call);
    HttpResponse mediaFileOf(const Call& call, MediaKind kind);
    HttpResponse playable(const Call& call);
    HttpResponse exported(const Call& call);
    HttpResponse makeLink(const Call& call);
    std::optional<HttpResponse> nextPicture(Call& call);
    std::optional<HttpResponse> why(Call& call);
    std::optional<HttpResponse> openPictures(const Call& call);
    CameraChanges& changes() const;
    CameraTrials& trials() const;
    CameraChanges::Done answerChange(const Call& call) const;
    HttpResponse history(const Call& call);
    std::shared_ptr<std::atomic<bool>> beginStudy(const Call& call);
    void endStudies(const Call& call);
    std::string whatIf(const Call& call, const std::atomic<bool>& over);
    std::string notAgain(const Call& call, const std::atomic<bool>& over);
    std::optional<HttpResponse> changeView(const Call& call);
    std::vector<Watched> parseView(const std::string& text, const Identity& identity) const;
    void checkView(const std::vector<Watched>& view, const Identity& identity) const;
    std::optional<Known> known(const std::string& camera) const;
    EventQuery query(const Call& call) const;

    const WebSettings settings_;
    const WebParts parts_;
    const Clock::time_point started_ = Clock::now();
    const std::int64_t started_ns_;
    std::atomic<std::int64_t> faults_{0};
    std::atomic<bool> ready_{false};

    mutable std::mutex mutex_;
    std::vector<Known> cameras_;
    std::map<std::string, std::string> last_events_;
    std::map<std::string, std::shared_ptr<std::atomic<bool>>> studies_;  ///< by user and camera; true: give it up
    std::map<std::string, std::int64_t> arming_;                         ///< as Accounts::arming()
    std::vector<std::pair<std::string, std::string>> succeeded_;         ///< logins: address and user
    std::deque<std::pair<Clock::time_point, std::map<std::string, std::int64_t>>> history_;  ///< of frames answered

    // the server's thread's own
    Access access_;
    // A user's name alone locks nobody out for long: strangers know names.
    Throttle by_address_{5, 900}, by_user_{20, 30};
    std::vector<Route> routes_;
    std::map<std::string, std::pair<std::weak_ptr<PictureStream>, std::shared_ptr<const Identity>>> streams_;

    std::unique_ptr<EventQueries> queries_;  ///< the store's thread's own
    struct Copies {                          ///< of clips; those who make them may outlive the server
        std::mutex mutex;
        std::set<std::pair<std::string, std::int64_t>> making;
        std::map<std::pair<std::string, std::int64_t>, std::string> failed;  ///< why, until somebody was told
    };
    const std::shared_ptr<Copies> copies_ = std::make_shared<Copies>();
    std::atomic<bool> stopping_{false};
    const std::shared_ptr<std::atomic<int>> exports_ = std::make_shared<std::atomic<int>>(0);  ///< made or fetched
    std::unique_ptr<Worker> store_worker_, login_worker_, export_worker_, study_worker_;
    std::unique_ptr<HttpServer> server_;
};

}  // namespace fleifeisa::host
