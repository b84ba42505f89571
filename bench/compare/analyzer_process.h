// The analyzer as its users run it: a process of its own, fed with frames through a pipe, answering through another.
#pragma once

#include <cstddef>
#include <cstdint>
#include <ctime>
#include <stdexcept>
#include <string>

#include "common/process.h"

namespace bench {

struct AnalyzerOptions {
    std::string program;                // path of the executable
    int learning_frames = 300;          // written to a control file of this process's own
    double reply_limit_seconds = 60.0;  // wall time a reply may take before the process counts as stuck
};

// A reply took longer than the limit; the process has been ended.
class AnalyzerTooSlow : public std::runtime_error {
 public:
    using std::runtime_error::runtime_error;
};

class AnalyzerProcess {
 public:
    // Starts the process and takes its start-up reply. Throws std::runtime_error where that fails.
    explicit AnalyzerProcess(const AnalyzerOptions& options);
    ~AnalyzerProcess();
    AnalyzerProcess(const AnalyzerProcess&) = delete;
    AnalyzerProcess& operator=(const AnalyzerProcess&) = delete;

    struct Answer {
        double cpu_seconds = 0.0;  // user and system time from before the frame was sent until the process waits again
        size_t objects = 0;        // objects in the reply
    };
    // Sends one frame of width x height interleaved RGB and takes the reply. Throws std::runtime_error where the
    // process answers with an error or ends.
    Answer send(const uint8_t* rgb, int width, int height);

    // Largest resident set so far, KiB.
    [[nodiscard]] long peakKiB() const;

 private:
    void write(const char* head, size_t head_size, const uint8_t* body, size_t body_size);
    std::string readMessage();
    void fillInput();
    void waitUntilIdle() const;
    void stop(bool force);

    double limit_seconds_;
    std::string directory_;  // private root with the control file
    fleifeisa::Process process_;
    clockid_t clock_{};
    std::string input_;  // read from the process, not yet used
    int sequence_ = 0;
};

}  // namespace bench
