// All cameras of one run, the signals, and the end.
#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "camera/camera.h"

namespace fleifeisa::host {

/// Blocks the signals the supervisor takes over. Call before any thread starts.
void blockSignals();

class Supervisor {
 public:
    Supervisor();

    void add(std::unique_ptr<Camera> camera);
    /// Stops a camera and waits for its end.
    void remove(Camera& camera);
    const std::vector<std::unique_ptr<Camera>>& cameras() const { return cameras_; }

    /// Runs until every camera has ended. SIGTERM and SIGINT end them in order, a second one at once (status 128 +
    /// signal); SIGHUP calls `reload`. `tick` is called a few times a second where it is given.
    /// Returns the exit status: 0, or the first failure.
    int run(const std::function<void()>& tick, const std::function<void()>& reload);

 private:
    void handleSignals(const std::function<void()>& reload);
    bool allDone() const;

    Fd signals_;
    Event done_;
    bool stopping_ = false;
    std::vector<std::unique_ptr<Camera>> cameras_;
};

}  // namespace fleifeisa::host
