#include "cli/run_config.h"

#include <stdexcept>

#include "cli/change_history.h"
#include "cli/paths.h"
#include "cli/store_commands.h"
#include "common/log.h"

namespace fleifeisa::host {

bool loadRun(const RunOptions& options, HostConfig& config, std::string& text) {
    std::vector<std::string> errors;
    if (const std::optional<std::string> read = readConfig(options.config, errors)) {
        text = *read;
        config = withChanges(options, text, errors);
    }
    if (config.desk.state.empty() && !config.desk.on_event.empty())
        errors.push_back(options.config + ": on_event: events are told when they are stored: it needs a state " +
                         "directory (state, or $STATE_DIRECTORY)");
    for (const std::string& fault : pathFaults(config.cameras)) errors.push_back(options.config + ": " + fault);
    for (const std::string& error : errors) logError("", error);
    for (const std::string& warning : config.warnings) logWarning("", warning);
    return errors.empty();
}

HostConfig withChanges(const RunOptions& options, const std::string& text, std::vector<std::string>& errors) {
    const ConfigCheck check = options.check_only ? ConfigCheck::kWorld : ConfigCheck::kText;
    HostConfig config = parseConfig(text, options.config, errors, check);
    if (config.desk.state.empty()) config.desk.state = stateDirectory();
    if (!errors.empty() || config.desk.state.empty()) return config;
    const std::string state = config.desk.state;
    try {
        const ChangeHistory history(state);
        const OverridesFile changes{history.overridesPath(), history.overridesText()};
        if (!changes.text.empty()) config = parseConfig(text, options.config, errors, check, &changes);
    } catch (const std::invalid_argument& error) {
        errors.emplace_back(error.what());
    }
    config.desk.state = state;
    return config;
}

}  // namespace fleifeisa::host
