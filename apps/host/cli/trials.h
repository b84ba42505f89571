// The trials of a run: at most two, each for as long as somebody asks for it.
#pragma once

#include <array>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "camera/trial.h"
#include "cli/page_changes.h"
#include "web/live.h"

namespace fleifeisa::host {

class Trials final : public CameraTrials {
 public:
    static constexpr double kUnaskedSeconds = 15;

    Trials(PageChanges& changes, LivePictures& live) : changes_(changes), live_(live) {}

    int begin(const std::string& camera, const std::string& change) override;
    std::string state(const std::string& camera, int number) override;
    void end(const std::string& camera, int number) override;
    bool runs(const std::string& live_name) override;

    /// In the host's own thread, a few times a second: cameras get their trials, those nobody asks for end.
    /// @param running  the camera of that name, null: it does not run now
    void tick(const std::function<Camera*(const std::string&)>& running);

 private:
    struct One {
        std::shared_ptr<Trial> trial;  ///< null: the place is free
        Clock::time_point asked{};
        const Camera* attached = nullptr;  ///< has it as a tap
        // processor time of the camera itself, since the trial had learned
        double live_cpu = 0, live_wall = 0, cpu_before = -1;
        Clock::time_point measured{};
    };

    One& find(const std::string& camera, int number);
    static void retire(One& one, std::vector<std::shared_ptr<Trial>>& ending);
    static void measure(One& one, const Camera& camera);

    PageChanges& changes_;
    LivePictures& live_;
    std::mutex mutex_;
    std::array<One, kMost> all_;
    /// Cameras may still hold them; they go where the last one is this, so that no camera waits for them.
    std::vector<std::shared_ptr<Trial>> ending_;
    std::vector<std::string> left_;  ///< cameras whose trial has gone
};

}  // namespace fleifeisa::host
