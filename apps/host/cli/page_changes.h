// Changes that are made on the page: checked like the configuration, kept in the state directory, applied as on SIGHUP.
#pragma once

#include <map>
#include <mutex>
#include <string>

#include "cli/change_history.h"
#include "cli/config.h"
#include "web/camera_changes.h"

namespace fleifeisa::host {

class PageChanges final : public CameraChanges {
 public:
    /// @param path  of the configuration file, for messages and relative paths
    /// @param apply  reads the changes again and applies them in the host's own thread, then calls `then` there
    PageChanges(const std::string& state, std::string path, std::function<void(std::function<void()> then)> apply);

    /// What is in force from now on: the file's text, and what came of it and the changes.
    void inForce(const std::string& text, const HostConfig& config);

    std::string file() const override { return history_.overridesPath(); }
    std::string settings(const std::string& camera) override;
    std::vector<CameraChange> history(const std::string& camera) override;
    Rules rulesWith(const std::string& camera, const std::string& change) override;
    void change(const std::string& camera, const std::string& user, const std::string& change, Done done) override;
    void undo(const std::string& camera, const std::string& user, std::int64_t number, Done done) override;
    /// The configuration that a change would make, for whoever tries it. @throws HttpError
    CameraConfig configWith(const std::string& camera, const std::string& change);

 private:
    using Units = std::map<std::string, nlohmann::json>;  ///< "zone.yard" or "rate": its value, null: none

    const CameraConfig& cameraOf(const HostConfig& config, const std::string& camera) const;
    nlohmann::json overrides() const;
    HostConfig checked(const nlohmann::json& overrides) const;
    Units unitsOf(const std::string& camera, const nlohmann::json& overrides, const std::string& change) const;
    CameraChange make(const std::string& camera, const std::string& user, const Units& units, std::int64_t undoes);
    void tell(CameraChange change, Done done) const;

    const ChangeHistory history_;
    const std::string path_;
    const std::function<void(std::function<void()>)> apply_;
    std::mutex mutex_;
    std::string text_;   ///< of the configuration file, in force
    HostConfig config_;  ///< in force
};

/// What becomes of a camera whose configuration changes: CameraChange::effect.
std::string effectOf(const CameraConfig& before, const CameraConfig& after);

}  // namespace fleifeisa::host
