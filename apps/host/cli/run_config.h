// The configuration of a run: the file, and what was changed on the page.
#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "cli/commands.h"
#include "cli/config.h"

namespace fleifeisa::host {

/// Reads and checks all of it; says what is wrong. False where something is.
/// @param text  the file's, for withChanges()
bool loadRun(const RunOptions& options, HostConfig& config, std::string& text);

/// The configuration of this text with the changes as they are now. Changes that cannot be read are as bad as a
/// configuration that cannot: a private area may stand in them.
HostConfig withChanges(const RunOptions& options, const std::string& text, std::vector<std::string>& errors);

/// What is in force, for other threads.
class ValuesInForce {
 public:
    void set(std::vector<ConfigValue> values) {
        const std::lock_guard lock(mutex_);
        values_ = std::move(values);
    }
    std::vector<ConfigValue> get() const {
        const std::lock_guard lock(mutex_);
        return values_;
    }

 private:
    mutable std::mutex mutex_;
    std::vector<ConfigValue> values_;
};

}  // namespace fleifeisa::host
