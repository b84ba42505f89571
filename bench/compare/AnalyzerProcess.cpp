#include "bench/compare/AnalyzerProcess.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <spawn.h>
#include <sys/uio.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

#include "bench/compare/CpuClock.h"

extern char** environ;

namespace bench {
namespace {

constexpr int kDevice = 1;

std::runtime_error SystemError(const std::string& what) {
    return std::runtime_error(what + ": " + std::strerror(errno));
}

std::string Seconds(double value) {
    std::ostringstream text;
    text << value << " s";
    return text.str();
}

// A directory that holds the control file of the device, as the analyzer looks for it below FLEIFEISA_ROOT.
std::string MakeRoot(int learning_frames) {
    std::string name = std::filesystem::temp_directory_path() / "fleifeisa-bench-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw SystemError(name);
    const std::filesystem::path folder = std::filesystem::path(name) / "opt/tesra/var/conf" / std::to_string(kDevice);
    std::filesystem::create_directories(folder);
    std::ofstream file(folder / "qelparams2.conf");
    file << "<param name=\"-bgframes\" value=\"" << learning_frames << "\"/>\n";
    if (!file.flush()) throw std::runtime_error("cannot write below " + name);
    return name;
}

pid_t Spawn(const std::string& program, const std::string& root, int input, int output) {
    std::vector<std::string> words{program, "COLOR", "STREAMING", std::to_string(kDevice), "1"};
    std::vector<char*> argv;
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    std::string root_setting = "FLEIFEISA_ROOT=" + root;
    std::vector<char*> environment{root_setting.data()};
    for (char** entry = environ; *entry != nullptr; ++entry) {
        if (std::strncmp(*entry, "FLEIFEISA_ROOT=", 15) != 0) environment.push_back(*entry);
    }
    environment.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input, STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output, STDOUT_FILENO);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, "/dev/null", O_WRONLY, 0);
    pid_t child = -1;
    const int failed = posix_spawn(&child, program.c_str(), &actions, nullptr, argv.data(), environment.data());
    posix_spawn_file_actions_destroy(&actions);
    if (failed != 0) throw std::runtime_error("cannot run " + program + ": " + std::strerror(failed));
    return child;
}

size_t CountObjects(const std::string& message) {
    size_t objects = 0;
    for (size_t at = message.find("<OBJECT "); at != std::string::npos; at = message.find("<OBJECT ", at + 1))
        ++objects;
    return objects;
}

}  // namespace

AnalyzerProcess::AnalyzerProcess(const AnalyzerOptions& options)
    : limit_seconds_(options.reply_limit_seconds), directory_(MakeRoot(options.learning_frames)) {
    signal(SIGPIPE, SIG_IGN);
    try {
        std::array<int, 2> in{};
        std::array<int, 2> out{};
        if (pipe2(in.data(), O_CLOEXEC) != 0) throw SystemError("pipe");
        to_child_ = in[1];
        if (pipe2(out.data(), O_CLOEXEC) != 0) throw SystemError("pipe");
        from_child_ = out[0];
        child_ = Spawn(options.program, directory_, in[0], out[1]);
        close(in[0]);
        close(out[1]);
        // Only our ends wait in poll, so that a stuck process is noticed; its own ends are ordinary blocking pipes.
        fcntl(to_child_, F_SETFL, O_NONBLOCK);
        fcntl(from_child_, F_SETFL, O_NONBLOCK);
        if (clock_getcpuclockid(child_, &clock_) != 0) throw std::runtime_error("no clock for " + options.program);
        const std::string hello = ReadMessage();
        if (hello.find("Status: OK") == std::string::npos) {
            throw std::runtime_error(options.program + " did not start: " + hello);
        }
    } catch (...) {
        Stop(true);
        throw;
    }
}

AnalyzerProcess::~AnalyzerProcess() {
    Stop(false);
}

AnalyzerProcess::Answer AnalyzerProcess::Send(const uint8_t* rgb, int width, int height) {
    const size_t size = static_cast<size_t>(width) * static_cast<size_t>(height) * 3;
    ++sequence_;
    std::ostringstream head;
    head << "ANALYTICS.CARTRIDGE\r\nContent-Type: image/rgb\r\nContent-Length: " << size << "\r\nImage-width: " << width
         << "\r\nImage-height: " << height << "\r\nTimestamp: " << 1300000000 + sequence_
         << "\r\nSequence-Number: " << sequence_ << "\r\n\r\n";
    const std::string text = head.str();
    WaitUntilIdle();
    const double before = ClockSeconds(clock_);
    Write(text.data(), text.size(), rgb, size);
    const std::string message = ReadMessage();
    WaitUntilIdle();  // whatever it does after its reply belongs to this frame
    const double after = ClockSeconds(clock_);
    if (message.find("Status: OK") == std::string::npos) throw std::runtime_error("the analyzer answered: " + message);
    return {after - before, CountObjects(message)};
}

void AnalyzerProcess::Write(const char* head, size_t head_size, const uint8_t* body, size_t body_size) {
    const size_t total = head_size + body_size;
    size_t done = 0;
    while (done < total) {
        std::array<iovec, 2> parts{};
        int count = 0;
        if (done < head_size) parts[static_cast<size_t>(count++)] = {const_cast<char*>(head) + done, head_size - done};
        const size_t from = done < head_size ? 0 : done - head_size;
        parts[static_cast<size_t>(count++)] = {const_cast<uint8_t*>(body) + from, body_size - from};
        const ssize_t wrote = writev(to_child_, parts.data(), count);
        if (wrote > 0) {
            done += static_cast<size_t>(wrote);
            continue;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN) throw SystemError("the analyzer stopped reading");
        pollfd wait{to_child_, POLLOUT, 0};
        if (poll(&wait, 1, static_cast<int>(limit_seconds_ * 1000.0)) == 0) {
            Stop(true);
            throw AnalyzerTooSlow("the analyzer read nothing for " + Seconds(limit_seconds_));
        }
    }
}

// Appends what the process has written to input_; waits where there is nothing yet.
void AnalyzerProcess::FillInput() {
    pollfd wait{from_child_, POLLIN, 0};
    if (poll(&wait, 1, static_cast<int>(limit_seconds_ * 1000.0)) == 0) {
        Stop(true);
        throw AnalyzerTooSlow("no reply within " + Seconds(limit_seconds_));
    }
    std::array<char, 65536> block;
    const ssize_t got = read(from_child_, block.data(), block.size());
    if (got == 0) throw std::runtime_error("the analyzer ended");
    if (got > 0) input_.append(block.data(), static_cast<size_t>(got));
}

// One reply: header lines up to an empty one, then as many bytes as its Content-Length says.
std::string AnalyzerProcess::ReadMessage() {
    size_t end = 0;
    while ((end = input_.find("\r\n\r\n")) == std::string::npos) FillInput();
    size_t size = end + 4;
    const std::string key = "Content-Length:";
    const size_t at = input_.find(key);
    if (at < end) size += std::strtoul(input_.c_str() + at + key.size(), nullptr, 10);
    while (input_.size() < size) FillInput();
    std::string message = input_.substr(0, size);
    input_.erase(0, size);
    return message;
}

// Returns when the process sleeps, that is, waits for the next message.
void AnalyzerProcess::WaitUntilIdle() const {
    const std::string path = "/proc/" + std::to_string(child_) + "/stat";
    const auto start = std::chrono::steady_clock::now();
    while (std::chrono::steady_clock::now() - start < std::chrono::seconds(5)) {
        std::ifstream file(path);
        std::string text;
        std::getline(file, text);
        const size_t name_end = text.rfind(')');
        if (name_end == std::string::npos || name_end + 2 >= text.size() || text[name_end + 2] != 'R') return;
        sched_yield();
    }
}

long AnalyzerProcess::PeakKiB() const {
    // Not rusage: its maximum starts with the size of the parent.
    std::ifstream file("/proc/" + std::to_string(child_) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return 0;
}

// Ends the process, with SHUTDOWN unless forced, and removes what belongs to it. May be called more than once.
void AnalyzerProcess::Stop(bool force) {
    if (child_ >= 0) {
        if (!force) {
            const char bye[] = "ANALYTICS.CARTRIDGE\r\nCommand: SHUTDOWN\r\n\r\n";
            force = write(to_child_, bye, sizeof(bye) - 1) != static_cast<ssize_t>(sizeof(bye) - 1);
        }
        if (force) kill(child_, SIGKILL);
    }
    for (int* end : {&to_child_, &from_child_}) {
        if (*end >= 0) close(*end);
        *end = -1;
    }
    if (child_ >= 0) {
        while (waitpid(child_, nullptr, 0) < 0 && errno == EINTR) {
        }
    }
    child_ = -1;
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}

}  // namespace bench
