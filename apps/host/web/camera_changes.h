// What the page may change of cameras: the host does it, the interface asks for it.
//
// A change is a JSON object of the configuration's own keys, those that overrides.toml may hold: {"rate":5,
// "zone":{"yard":{"dwell":30}},"control":{"color_low":null}}. null takes back what was changed: the value is the
// configuration file's again. {"zone":{"yard":{"removed":true}}} takes a zone of the file away.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "events/rules.h"

namespace fleifeisa::host {

/// One change, as the history has it.
struct CameraChange {
    std::int64_t number = 0, time_ns = 0;
    std::string user;                        ///< "": somebody at an open page
    std::string units;                       ///< JSON: {"zone.yard":{"before":null,"after":{...}}}
    std::string effect;                      ///< "rules", "hand-over", "learns", "restart", "nothing"
    std::int64_t undoes = 0, undone_by = 0;  ///< numbers, 0: none
};

/// All of it may be called from any thread. Every function throws HttpError: 404 without such a camera, 400 with what
/// is wrong in a change, 409 with why it cannot be made, 503 where there is no state directory.
class CameraChanges {
 public:
    CameraChanges() = default;
    CameraChanges(const CameraChanges&) = delete;
    CameraChanges& operator=(const CameraChanges&) = delete;
    virtual ~CameraChanges() = default;

    /// The file that holds them.
    virtual std::string file() const = 0;
    /// JSON of all that can be changed, as it is in force, and of what is changed.
    virtual std::string settings(const std::string& camera) = 0;
    /// The latest first.
    virtual std::vector<CameraChange> history(const std::string& camera) = 0;
    /// The rules in force, with a change that is not made.
    virtual Rules rulesWith(const std::string& camera, const std::string& change) = 0;

    /// Makes a change, which is safe on disk when this returns. `done` is called with it from another thread once it is
    /// on its way to the camera; never where the host ends before.
    using Done = std::function<void(const CameraChange&)>;
    virtual void change(const std::string& camera, const std::string& user, const std::string& change, Done done) = 0;
    /// Takes one back, itself a change.
    virtual void undo(const std::string& camera, const std::string& user, std::int64_t number, Done done) = 0;
};

/// Changed versions of cameras, which run beside them for those who look. As above.
class CameraTrials {
 public:
    static constexpr int kMost = 2;  ///< at once, in the whole host

    CameraTrials() = default;
    CameraTrials(const CameraTrials&) = delete;
    CameraTrials& operator=(const CameraTrials&) = delete;
    virtual ~CameraTrials() = default;

    /// Its number, 1 to kMost. Live pictures of it go by liveName(). It ends where nobody asks for its state.
    virtual int begin(const std::string& camera, const std::string& change) = 0;
    /// JSON.
    virtual std::string state(const std::string& camera, int number) = 0;
    virtual void end(const std::string& camera, int number) = 0;
    virtual bool runs(const std::string& live_name) = 0;

    /// "gate~1": no name of a camera.
    static std::string liveName(const std::string& camera, int number) { return camera + '~' + std::to_string(number); }
};

}  // namespace fleifeisa::host
