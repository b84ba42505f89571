#include "bench/compare/analyzer_process.h"

#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/uio.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "bench/compare/cpu_clock.h"

namespace bench {
namespace {

constexpr int kDevice = 1;

std::runtime_error systemError(const std::string& what) {
    return std::runtime_error(what + ": " + std::strerror(errno));
}

std::string seconds(double value) {
    std::ostringstream text;
    text << value << " s";
    return text.str();
}

// A directory that holds the control file of the device, as the analyzer looks for it below FLEIFEISA_ROOT.
std::string makeRoot(int learning_frames) {
    std::string name = std::filesystem::temp_directory_path() / "fleifeisa-bench-XXXXXX";
    if (mkdtemp(name.data()) == nullptr) throw systemError(name);
    const std::filesystem::path folder = std::filesystem::path(name) / "opt/tesra/var/conf" / std::to_string(kDevice);
    std::filesystem::create_directories(folder);
    std::ofstream file(folder / "qelparams2.conf");
    file << "<param name=\"-bgframes\" value=\"" << learning_frames << "\"/>\n";
    if (!file.flush()) throw std::runtime_error("cannot write below " + name);
    return name;
}

size_t countObjects(const std::string& message) {
    size_t objects = 0;
    for (size_t at = message.find("<OBJECT "); at != std::string::npos; at = message.find("<OBJECT ", at + 1))
        ++objects;
    return objects;
}

}  // namespace

AnalyzerProcess::AnalyzerProcess(const AnalyzerOptions& options)
    : limit_seconds_(options.reply_limit_seconds), directory_(makeRoot(options.learning_frames)) {
    signal(SIGPIPE, SIG_IGN);
    try {
        process_ = fleifeisa::Process({.argv = {options.program, "COLOR", "STREAMING", std::to_string(kDevice), "1"},
                                       .environment = {{"FLEIFEISA_ROOT", directory_}},
                                       .pipe_in = true,
                                       .pipe_out = true,
                                       .pipe_err = false,
                                       .pipe_bytes = 0});
        if (clock_getcpuclockid(process_.pid(), &clock_) != 0)
            throw std::runtime_error("no clock for " + options.program);
        const std::string hello = readMessage();
        if (hello.find("Status: OK") == std::string::npos) {
            throw std::runtime_error(options.program + " did not start: " + hello);
        }
    } catch (...) {
        stop(true);
        throw;
    }
}

AnalyzerProcess::~AnalyzerProcess() {
    stop(false);
}

AnalyzerProcess::Answer AnalyzerProcess::send(const uint8_t* rgb, int width, int height) {
    const size_t size = static_cast<size_t>(width) * static_cast<size_t>(height) * 3;
    ++sequence_;
    std::ostringstream head;
    head << "ANALYTICS.CARTRIDGE\r\nContent-Type: image/rgb\r\nContent-Length: " << size << "\r\nImage-width: " << width
         << "\r\nImage-height: " << height << "\r\nTimestamp: " << 1300000000 + sequence_
         << "\r\nSequence-Number: " << sequence_ << "\r\n\r\n";
    const std::string text = head.str();
    waitUntilIdle();
    const double before = clockSeconds(clock_);
    write(text.data(), text.size(), rgb, size);
    const std::string message = readMessage();
    waitUntilIdle();  // whatever it does after its reply belongs to this frame
    const double after = clockSeconds(clock_);
    if (message.find("Status: OK") == std::string::npos) throw std::runtime_error("the analyzer answered: " + message);
    return {after - before, countObjects(message)};
}

void AnalyzerProcess::write(const char* head, size_t head_size, const uint8_t* body, size_t body_size) {
    const size_t total = head_size + body_size;
    size_t done = 0;
    while (done < total) {
        std::array<iovec, 2> parts{};
        int count = 0;
        if (done < head_size) parts[static_cast<size_t>(count++)] = {const_cast<char*>(head) + done, head_size - done};
        const size_t from = done < head_size ? 0 : done - head_size;
        parts[static_cast<size_t>(count++)] = {const_cast<uint8_t*>(body) + from, body_size - from};
        const ssize_t wrote = writev(process_.in.get(), parts.data(), count);
        if (wrote > 0) {
            done += static_cast<size_t>(wrote);
            continue;
        }
        if (errno == EINTR) continue;
        if (errno != EAGAIN) throw systemError("the analyzer stopped reading");
        pollfd wait{process_.in.get(), POLLOUT, 0};
        if (poll(&wait, 1, static_cast<int>(limit_seconds_ * 1000.0)) == 0) {
            stop(true);
            throw AnalyzerTooSlow("the analyzer read nothing for " + seconds(limit_seconds_));
        }
    }
}

// Appends what the process has written to input_; waits where there is nothing yet.
void AnalyzerProcess::fillInput() {
    pollfd wait{process_.out.get(), POLLIN, 0};
    if (poll(&wait, 1, static_cast<int>(limit_seconds_ * 1000.0)) == 0) {
        stop(true);
        throw AnalyzerTooSlow("no reply within " + seconds(limit_seconds_));
    }
    std::array<char, 65536> block;
    const ssize_t got = read(process_.out.get(), block.data(), block.size());
    if (got == 0) throw std::runtime_error("the analyzer ended");
    if (got > 0) input_.append(block.data(), static_cast<size_t>(got));
}

// One reply: header lines up to an empty one, then as many bytes as its Content-Length says.
std::string AnalyzerProcess::readMessage() {
    size_t end = 0;
    while ((end = input_.find("\r\n\r\n")) == std::string::npos) fillInput();
    size_t size = end + 4;
    const std::string key = "Content-Length:";
    const size_t at = input_.find(key);
    if (at < end) size += std::strtoul(input_.c_str() + at + key.size(), nullptr, 10);
    while (input_.size() < size) fillInput();
    std::string message = input_.substr(0, size);
    input_.erase(0, size);
    return message;
}

// Returns when the process sleeps, that is, waits for the next message.
void AnalyzerProcess::waitUntilIdle() const {
    const std::string path = "/proc/" + std::to_string(process_.pid()) + "/stat";
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

long AnalyzerProcess::peakKiB() const {
    // Not rusage: its maximum starts with the size of the parent.
    std::ifstream file("/proc/" + std::to_string(process_.pid()) + "/status");
    for (std::string line; std::getline(file, line);) {
        if (line.rfind("VmHWM:", 0) == 0) return std::strtol(line.c_str() + 6, nullptr, 10);
    }
    return 0;
}

// Ends the process, with SHUTDOWN unless forced, and removes what belongs to it. May be called more than once.
void AnalyzerProcess::stop(bool force) {
    if (process_.running()) {
        if (!force) {
            const char bye[] = "ANALYTICS.CARTRIDGE\r\nCommand: SHUTDOWN\r\n\r\n";
            force = ::write(process_.in.get(), bye, sizeof(bye) - 1) != static_cast<ssize_t>(sizeof(bye) - 1);
        }
        process_.in.reset();
        if (force || !process_.wait(fleifeisa::Clock::now() + fleifeisa::seconds(limit_seconds_))) process_.kill();
    }
    process_.out.reset();
    std::error_code ignored;
    std::filesystem::remove_all(directory_, ignored);
}

}  // namespace bench
