// Child processes: analyzers, and ffmpeg as decoder and encoder.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/fd.h"

namespace fleifeisa {

/// Size asked for pipes that carry frames. An unprivileged user may get less once many are open; that is no error.
constexpr int kPipeBytes = 1 << 20;

class Process {
 public:
    struct Options {
        std::vector<std::string> argv;  ///< argv[0] is searched in PATH where it holds no slash
        std::vector<std::pair<std::string, std::string>> environment;  ///< added to the host's own
        bool pipe_in = false;                                          ///< else /dev/null
        bool pipe_out = false;                                         ///< else /dev/null
        bool pipe_err = false;                                         ///< else the host's
        bool pipe_extra = false;                                       ///< a second output, its descriptor 3
        bool socket_extra = false;                                     ///< instead: both ways, a local socket
        int pipe_bytes = kPipeBytes;                                   ///< size asked for, 0: as the system makes them
        bool survives = false;  ///< killAllChildren() spares it: it ends when its input does
        int nice = 0;           ///< added to the host's own priority: what nobody waits for takes what others leave
    };

    Process() = default;
    /// The child runs in a process group of its own, so that an interrupt at the terminal reaches only the host.
    /// @throws std::system_error where it cannot be started
    explicit Process(const Options& options);
    Process(Process&& other) noexcept { *this = std::move(other); }
    Process& operator=(Process&& other) noexcept;
    /// Kills and reaps.
    ~Process();

    bool running() const { return pid_ > 0; }
    pid_t pid() const { return pid_; }
    void signal(int number) const;
    /// Waits for the end; nothing when it still runs at the deadline. The status is that of waitpid.
    std::optional<int> wait(Clock::time_point deadline);
    /// SIGKILL and wait.
    int kill();

    Fd in;     ///< write end of its standard input, non-blocking
    Fd out;    ///< read end of its standard output, non-blocking
    Fd err;    ///< read end of its standard error, non-blocking
    Fd extra;  ///< read end of its second output, or this end of the socket, non-blocking

 private:
    pid_t pid_ = -1;
};

/// "exit status 3", "signal 9 (Killed)".
std::string describeStatus(int status);

/// SIGKILL for every child but those that survive, for an end at once.
void killAllChildren();

/// Full path of a program: as given where it holds a slash, else from PATH; "" where there is none.
std::string findProgram(const std::string& name);

/// Processor time of a process so far, in seconds; 0 where it is gone.
double processorSeconds(pid_t pid);

}  // namespace fleifeisa
