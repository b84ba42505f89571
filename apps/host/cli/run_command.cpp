// `fleifeisa-host run CONFIG`: many cameras, until they end or a signal comes.
#include <sysexits.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "camera/supervisor.h"
#include "cli/commands.h"
#include "cli/config.h"
#include "cli/config_values.h"
#include "cli/explain_choice.h"
#include "cli/page_changes.h"
#include "cli/paths.h"
#include "cli/run_config.h"
#include "cli/store_commands.h"
#include "cli/trials.h"
#include "common/log.h"
#include "common/memory_left.h"
#include "common/secrets.h"
#include "web/web_server.h"

namespace fleifeisa::host {
namespace {

class Service {
 public:
    explicit Service(const RunOptions& options) : options_(options) {}

    int run() {
        HostConfig config;
        if (!load(config)) return EX_CONFIG;
        if (options_.check_only) {
            std::printf("%s: %zu cameras, no errors\n", options_.config.c_str(), config.cameras.size());
            return 0;
        }
        if (options_.print_only) {
            for (const ConfigValue& value : valuesInForce(config))
                std::printf("%s = %s  # %s\n", value.key.c_str(), value.value.c_str(), value.origin.c_str());
            return 0;
        }
        if (!setAnalyzer(config)) return EX_UNAVAILABLE;
        desk_settings_ = config.desk;
        web_settings_ = config.web;
        try {
            if (!config.desk.state.empty()) desk_.emplace(config.desk);
            if (const std::string fault = exposureFault(config.web, config.desk.state); !fault.empty()) {
                logError("", options_.config + ": http.listen: " + fault);
                return EX_CONFIG;
            }
        } catch (const StoreError& error) {
            logError("", error.what());
            return EX_CANTCREAT;
        }
        if (desk_)
            changes_.emplace(config.desk.state, options_.config, [this](std::function<void()> then) {
                supervisor_.post([this, then = std::move(then)] {
                    applyChanges();
                    then();
                });
            });
        if (changes_) trials_.emplace(*changes_, live_);
        isInForce(config);
        for (const CameraConfig& camera : config.cameras) add(camera);
        startWaiting();
        if (!startWeb(config)) return EX_UNAVAILABLE;
        const int code =
            supervisor_.run(web_ ? [this] { showCameras(); } : std::function<void()>(), [this] { reload(); });
        if (desk_) desk_->listen(nullptr);
        web_.reset();
        for (const auto& camera : supervisor_.cameras()) report(*camera);
        if (desk_) desk_->finish(supervisor_.stopping() ? kStopSeconds : kFinishSeconds);
        constexpr double kHookSeconds = 15, kHookSecondsOfAStop = 0.4;
        if (desk_) desk_->graceAtEnd(supervisor_.stopping() ? kHookSecondsOfAStop : kHookSeconds);
        desk_.reset();  // while signals are still looked after: the disk may be slow
        return code != 0 ? code : failed_;
    }

 private:
    bool load(HostConfig& config) {
        std::string read;
        if (!loadRun(options_, config, read)) return false;
        text_ = std::move(read);
        return true;
    }

    bool setAnalyzer(HostConfig& config) const {
        const std::string wanted = options_.analyzer.empty() ? config.analyzer : options_.analyzer;
        const std::string program = findAnalyzer(wanted);
        if (program.empty()) logError("", "the analyzer " + (wanted.empty() ? "fleifeisa" : wanted) + " was not found");
        for (CameraConfig& camera : config.cameras) {
            camera.analyzer.program = program;
            explain(camera, config.web.on);
        }
        return !program.empty();
    }

    /// What was decided at a camera's start stays as long as nobody wants it otherwise: less memory later is no reason
    /// to begin anew.
    void explain(CameraConfig& camera, bool page) const {
        const auto before = std::ranges::find(configured_, camera.name, &CameraConfig::name);
        if (before != configured_.end() && before->explain == camera.explain &&
            before->analyzer.program == camera.analyzer.program) {
            camera.analyzer.explainer = before->analyzer.explainer;
            camera.explain_off = before->explain_off;
            return;
        }
        chooseExplain(camera, page, memoryLeft());
        if (!camera.explain_off.empty() && camera.explain.value_or(page))
            logWarning(camera.name, "explain is off: " + camera.explain_off);
    }

    /// False where the page cannot be served, which is said.
    bool startWeb(const HostConfig& config) {
        if (!config.web.on) return true;
        WebParts parts;
        parts.live = &live_;
        parts.feed = &feed_;
        parts.why = &why_;
        parts.state = config.desk.state;
        parts.version = options_.version;
        parts.timezone = config.timezone;
        parts.store = desk_ ? &desk_->store() : nullptr;
        if (desk_)
            parts.notify_from = [this](const std::string& camera, std::int64_t from_ns) {
                desk_->notifyFrom(camera, from_ns);
            };
        if (desk_)
            parts.make_playable = [this](const std::string& camera, std::int64_t number,
                                         std::function<void(std::string)> done) {
                return desk_->recorder().playableLater(
                    camera, number, [done = std::move(done)](const ClipFile& file) { done(file.fault); });
            };
        parts.configuration_file = options_.config;
        parts.configuration = [this] { return values_.get(); };
        parts.changes = changes_ ? &*changes_ : nullptr;
        parts.trials = trials_ ? &*trials_ : nullptr;
        try {
            web_.emplace(config.web, parts);
        } catch (const std::exception& error) {
            logError("", error.what());
            return false;
        }
        if (desk_) desk_->listen([this](const StoredEvent& stored, bool deleted) { web_->tell(stored, deleted); });
        showCameras();
        std::printf("%s\n", web_->address().c_str());
        std::fflush(stdout);
        return true;
    }

    void showCameras() {
        if (trials_) trials_->tick([this](const std::string& name) { return running(name); });
        std::vector<CameraStatus> all;
        for (const CameraConfig& config : configured_) {
            CameraStatus& status = all.emplace_back();
            status.name = config.name;
            status.title = config.title;
            status.group = config.group;
            status.link = config.link;
            status.live = isLive(config.source);
            status.notify_from_ns = config.notify_from_ns;
            status.zones = config.rules.zones;
            status.lines = config.rules.lines;
            status.masks = config.source.masks;
            status.explain_off = config.explain_off;
            const Camera* camera = running(config.name);
            if (!camera) continue;
            const CameraCounts& counts = camera->counts();
            status.answered = counts.answered;
            status.dropped = counts.dropped;
            status.lost = counts.lost;
            status.restarts = counts.restarts;
            status.ended = camera->done();
            status.trouble = withoutSecrets(camera->trouble());
        }
        web_->update(std::move(all));
    }

    /// It starts once no camera is in its way that was removed and has not ended yet.
    void add(const CameraConfig& config) {
        configured_.push_back(config);
        waiting_.push_back(config.name);
    }

    void startWaiting() {
        std::erase_if(waiting_, [this](const std::string& name) {
            const auto config = std::ranges::find(configured_, name, &CameraConfig::name);
            if (config == configured_.end()) return true;
            if (supervisor_.stopping() ||
                supervisor_.anyLeaving([&](const CameraConfig& other) { return sharesAnything(*config, other); }))
                return false;
            start(*config);
            return true;
        });
    }

    static bool sharesAnything(const CameraConfig& one, const CameraConfig& other) {
        return one.name == other.name || one.analyzer.device == other.analyzer.device ||
               std::ranges::any_of(one.outputs, [&other](const OutputChoice& output) {
                   return std::ranges::count(other.outputs, output.path, &OutputChoice::path) > 0;
               });
    }

    void start(const CameraConfig& config) {
        std::vector<Output*> watchers;
        if (web_settings_.on) watchers.push_back(&live_.camera(config.name));
        auto camera = std::make_unique<Camera>(config, watchers, desk_ ? &*desk_ : nullptr, why_.of(config.name));
        try {
            camera->prepare();
        } catch (const StoreError& error) {
            logError(config.name, std::string("the camera cannot be started: ") + error.what());
            failed_ = EX_CANTCREAT;
            return;
        } catch (const std::system_error& error) {
            logError(config.name, std::string("the camera cannot be started: control file: ") + error.what());
            failed_ = EX_CANTCREAT;
            return;
        }
        logInfo(config.name, "starts");
        supervisor_.add(std::move(camera));
    }

    Camera* running(const std::string& name) const {
        for (const auto& camera : supervisor_.cameras())
            if (camera->config().name == name) return camera.get();
        return nullptr;
    }

    void drop(const std::string& name, bool replaced) {
        std::erase_if(configured_, [&name](const CameraConfig& one) { return one.name == name; });
        Camera* camera = running(name);
        if (!camera) return;
        if (replaced) camera->replace();
        supervisor_.remove(*camera, [this](const Camera& gone) {
            report(gone);
            startWaiting();
        });
    }

    /// SIGHUP. A file with errors changes nothing.
    void reload() {
        for (const auto& camera : supervisor_.cameras()) camera->reopenOutputs();
        HostConfig config;
        if (!load(config) || !setAnalyzer(config)) {
            logError("", "the configuration in force stays");
            return;
        }
        if (!(config.desk == desk_settings_))
            logWarning("", "state, keep and on_event are read at the start only: they stay as they were");
        if (!(config.web == web_settings_)) logWarning("", "http is read at the start only: it stays as it was");
        adopt(config);
        if (web_) web_->reloaded();
        logInfo("", "the configuration was read again");
    }

    /// Somebody changed something on the page: the file's text stays the one in force.
    void applyChanges() {
        std::vector<std::string> errors;
        HostConfig config = withChanges(options_, text_, errors);
        if (!errors.empty() || !setAnalyzer(config)) {
            for (const std::string& error : errors) logError("", error);
            return;
        }
        adopt(config);
    }

    void isInForce(const HostConfig& config) {
        values_.set(valuesInForce(config));
        if (changes_) changes_->inForce(text_, config);
    }

    void adopt(const HostConfig& config) {
        const std::vector<CameraConfig> before = configured_;
        for (const CameraConfig& old : before) {
            const bool kept =
                std::ranges::any_of(config.cameras, [&](const CameraConfig& c) { return c.name == old.name; });
            if (!kept) drop(old.name, false);
        }
        isInForce(config);
        for (const CameraConfig& camera : config.cameras) update(camera);
        startWaiting();
        if (web_) showCameras();
    }

    void update(const CameraConfig& wanted) {
        const auto old = std::ranges::find(configured_, wanted.name, &CameraConfig::name);
        if (old == configured_.end()) return add(wanted);
        Camera* camera = running(wanted.name);
        // One that gave up gets another chance; one whose file has come to its end has done its work.
        const bool failed = !camera || (camera->done() && camera->exitCode() != 0);
        if (*old == wanted && !failed) {
            *old = wanted;  // titles of zones and lines, which nothing depends on
            return;
        }
        if (old->sameCamera(wanted) && camera && !camera->done()) {
            CameraConfig new_rules = *old;
            new_rules.rules = wanted.rules;
            new_rules.notify_from_ns = wanted.notify_from_ns;
            if (!(old->rules == wanted.rules)) camera->setRules(wanted.rules);
            if (!(new_rules == wanted)) camera->change(wanted);
            if (desk_) desk_->notifyFrom(wanted.name, wanted.notify_from_ns);
            *old = wanted;
            return;
        }
        drop(wanted.name, true);
        add(wanted);
    }

    static void report(const Camera& camera) {
        const CameraCounts& counts = camera.counts();
        char text[160];
        std::snprintf(
            text, sizeof text,
            "%lld frames answered, %lld dropped, %lld lost, analyzer restarted %lld times, handed over %lld times",
            static_cast<long long>(counts.answered), static_cast<long long>(counts.dropped),
            static_cast<long long>(counts.lost), static_cast<long long>(counts.restarts),
            static_cast<long long>(counts.hand_overs));
        logInfo(camera.config().name, text);
        if (const std::string trouble = camera.trouble(); !trouble.empty()) logInfo(camera.config().name, trouble);
    }

    const RunOptions& options_;
    std::string text_;  ///< of the configuration file, in force
    DeskSettings desk_settings_;
    WebSettings web_settings_;
    ValuesInForce values_;
    LivePictures live_;  ///< these three outlive the cameras and the store, which tell them
    ChangeFeed feed_;
    WhyBoxes why_;
    std::optional<EventDesk> desk_;       ///< outlives the cameras
    std::optional<PageChanges> changes_;  ///< where there is a state directory
    std::optional<Trials> trials_;        ///< outlives the cameras, who hold some
    Supervisor supervisor_;
    std::vector<CameraConfig> configured_;
    std::vector<std::string> waiting_;  ///< names of the configured cameras that are still to be started
    int failed_ = 0;
    std::optional<WebServer> web_;  ///< goes first
};

}  // namespace

int runCommand(const RunOptions& options) {
    return statusOf([&options] { return Service(options).run(); });
}

}  // namespace fleifeisa::host
