// Programs that are started for events: on_event = ["/usr/local/bin/notify", "{camera}", "{kind}"].
//
// No shell takes part: each text of the list is one argument, whatever an event puts into it.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "events/event.h"

namespace fleifeisa::host {

struct HookSettings {
    std::vector<std::string> command;  ///< program and arguments; see hookArguments()
    std::vector<EventState> states = {EventState::kStart};
    double seconds = 10;             ///< a program that takes longer is killed
    int most_at_once = 2;            ///< programs that run side by side
    std::size_t most_waiting = 100;  ///< events; beyond it the oldest is left out and counted
};

/// The command for an event. {event} {camera} {kind} {rule} {change} {state} {track} {time} {json} are replaced; other
/// braces stay as they are, and what an event puts in is not looked at again.
std::vector<std::string> hookArguments(const std::vector<std::string>& command, const CameraEvent& event);

/// Why the command is none: "expected a program" ..., "" where it is one.
std::string hookFault(const std::vector<std::string>& command);

class HookRunner {
 public:
    explicit HookRunner(HookSettings settings);
    /// Starts what waits and lets it end, as far as graceAtEnd() allows. Then what runs is killed, and what waits is
    /// left out, which is said.
    ~HookRunner();
    HookRunner(const HookRunner&) = delete;
    HookRunner& operator=(const HookRunner&) = delete;

    /// From any thread; waits for nobody.
    void tell(const CameraEvent& event);
    /// Seconds that the destructor may take, 0 at first.
    void graceAtEnd(double seconds);
    /// Disarmed, nothing is started for new events.
    void arm(bool on);

    struct Counts {
        std::int64_t started = 0, failed = 0, left_out = 0;
    };
    Counts counts();

 private:
    void work();
    bool runOne(const CameraEvent& event);

    const HookSettings settings_;
    std::mutex mutex_;
    std::condition_variable changed_, idle_;
    std::deque<CameraEvent> waiting_;
    Counts counts_;
    double grace_ = 0;
    int running_ = 0;
    bool armed_ = true, stopping_ = false;
    std::vector<std::thread> threads_;
};

}  // namespace fleifeisa::host
