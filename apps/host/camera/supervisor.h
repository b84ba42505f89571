// All cameras of one run, the signals, and the end.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "camera/camera.h"

namespace fleifeisa::host {

/// Blocks the signals the supervisor takes over. Call before any thread starts.
void blockSignals();

class Supervisor {
 public:
    /// From here on a thread of its own takes the signals, whatever the others are doing: SIGTERM and SIGINT end all
    /// cameras in order; a second one, or three seconds, end the process at once (status 128 + signal).
    Supervisor();
    ~Supervisor();
    Supervisor(const Supervisor&) = delete;
    Supervisor& operator=(const Supervisor&) = delete;

    void add(std::unique_ptr<Camera> camera);
    /// Stops a camera without waiting for it; `ended` is called from run() when it has ended, before it goes.
    void remove(Camera& camera, std::function<void(const Camera&)> ended);
    const std::vector<std::unique_ptr<Camera>>& cameras() const { return cameras_; }

    /// Runs until every camera has ended. SIGHUP calls `reload`. `tick` is called a few times a second where it is
    /// given. Returns the exit status: 0, or the first failure.
    int run(const std::function<void()>& tick, const std::function<void()>& reload);
    /// From any thread: something to be done in run()'s. What comes after its end, or behind a signal to end, is left
    /// out.
    void post(std::function<void()> job);
    bool stopping() const { return stopping_; }
    /// Whether a camera like this was removed and has not ended yet.
    bool anyLeaving(const std::function<bool(const CameraConfig&)>& like) const;

 private:
    struct Leaving {
        std::unique_ptr<Camera> camera;
        std::function<void(const Camera&)> ended;
    };
    void takeSignals();
    void letGo();
    bool allDone() const;

    Fd signals_;
    Event woken_;  ///< a camera has ended, or a signal has come
    Event over_;
    std::atomic<bool> stopping_{false}, reload_{false};
    std::mutex mutex_;
    std::vector<std::function<void()>> jobs_;
    std::vector<std::unique_ptr<Camera>> cameras_;
    std::vector<Leaving> leaving_;
    std::thread thread_;
};

}  // namespace fleifeisa::host
