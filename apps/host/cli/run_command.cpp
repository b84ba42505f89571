// `fleifeisa-host run CONFIG`: many cameras, until they end or a signal comes.
#include <sysexits.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <system_error>

#include "camera/supervisor.h"
#include "cli/commands.h"
#include "cli/config.h"
#include "cli/paths.h"
#include "cli/store_commands.h"
#include "common/log.h"

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
        if (!setAnalyzer(config)) return EX_UNAVAILABLE;
        desk_settings_ = config.desk;
        try {
            if (!config.desk.state.empty()) desk_.emplace(config.desk);
        } catch (const StoreError& error) {
            logError("", error.what());
            return EX_CANTCREAT;
        }
        for (const CameraConfig& camera : config.cameras) add(camera);
        startWaiting();
        const int code = supervisor_.run(nullptr, [this] { reload(); });
        for (const auto& camera : supervisor_.cameras()) report(*camera);
        desk_.reset();  // while signals are still looked after: the disk may be slow
        return code != 0 ? code : failed_;
    }

 private:
    bool load(HostConfig& config) const {
        std::vector<std::string> errors;
        config = loadConfig(options_.config, errors, options_.check_only ? ConfigCheck::kWorld : ConfigCheck::kText);
        if (config.desk.state.empty()) config.desk.state = stateDirectory();
        if (config.desk.state.empty() && !config.desk.on_event.empty())
            errors.push_back(options_.config + ": on_event: events are told when they are stored: it needs a state " +
                             "directory (state, or $STATE_DIRECTORY)");
        for (const std::string& fault : pathFaults(config.cameras)) errors.push_back(options_.config + ": " + fault);
        for (const std::string& error : errors) logError("", error);
        return errors.empty();
    }

    bool setAnalyzer(HostConfig& config) const {
        const std::string wanted = options_.analyzer.empty() ? config.analyzer : options_.analyzer;
        const std::string program = findAnalyzer(wanted);
        if (program.empty()) logError("", "the analyzer " + (wanted.empty() ? "fleifeisa" : wanted) + " was not found");
        for (CameraConfig& camera : config.cameras) camera.analyzer.program = program;
        return !program.empty();
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
        auto camera = std::make_unique<Camera>(config, std::vector<Output*>{}, desk_ ? &*desk_ : nullptr);
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
        const std::vector<CameraConfig> before = configured_;
        for (const CameraConfig& old : before) {
            const bool kept =
                std::ranges::any_of(config.cameras, [&](const CameraConfig& c) { return c.name == old.name; });
            if (!kept) drop(old.name, false);
        }
        for (const CameraConfig& camera : config.cameras) update(camera);
        startWaiting();
        logInfo("", "the configuration was read again");
    }

    void update(const CameraConfig& wanted) {
        const auto old = std::ranges::find(configured_, wanted.name, &CameraConfig::name);
        if (old == configured_.end()) return add(wanted);
        Camera* camera = running(wanted.name);
        // One that gave up gets another chance; one whose file has come to its end has done its work.
        const bool failed = !camera || (camera->done() && camera->exitCode() != 0);
        if (*old == wanted && !failed) return;
        CameraConfig comparable = *old;
        comparable.control = wanted.control;
        if (comparable == wanted && camera && !camera->done()) {
            *old = wanted;
            camera->setControl(wanted.control);
            return;
        }
        drop(wanted.name, true);
        add(wanted);
    }

    static void report(const Camera& camera) {
        const CameraCounts& counts = camera.counts();
        char text[160];
        std::snprintf(text, sizeof text, "%lld frames answered, %lld dropped, %lld lost, analyzer restarted %lld times",
                      static_cast<long long>(counts.answered), static_cast<long long>(counts.dropped),
                      static_cast<long long>(counts.lost), static_cast<long long>(counts.restarts));
        logInfo(camera.config().name, text);
        if (const std::string trouble = camera.trouble(); !trouble.empty()) logInfo(camera.config().name, trouble);
    }

    const RunOptions& options_;
    DeskSettings desk_settings_;
    std::optional<EventDesk> desk_;  ///< outlives the cameras
    Supervisor supervisor_;
    std::vector<CameraConfig> configured_;
    std::vector<std::string> waiting_;  ///< names of the configured cameras that are still to be started
    int failed_ = 0;
};

}  // namespace

int runCommand(const RunOptions& options) {
    return statusOf([&options] { return Service(options).run(); });
}

}  // namespace fleifeisa::host
