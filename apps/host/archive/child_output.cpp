#include "archive/child_output.h"

#include <poll.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>

#include "common/process.h"

namespace fleifeisa::host {
namespace {

constexpr std::size_t kMost = 16u << 20;

/// What there is to read. False at the end.
bool readOn(const Fd& fd, std::string& text) {
    std::array<char, 4096> bytes{};
    const ssize_t count = ::read(fd.get(), bytes.data(), bytes.size());
    if (count > 0 && text.size() < kMost) text.append(bytes.data(), static_cast<std::size_t>(count));
    return count > 0 || (count < 0 && (errno == EAGAIN || errno == EINTR));
}

}  // namespace

std::string outputOf(const std::vector<std::string>& argv, int* status, std::string* complaints) {
    const Clock::time_point deadline = Clock::now() + std::chrono::seconds(30);
    if (status != nullptr) *status = -1;
    Process::Options options;
    options.argv = argv;
    options.pipe_out = options.pipe_err = true;
    options.pipe_bytes = 0;
    std::string text, errors;
    try {
        Process process(options);
        for (bool out = true, err = true; (out || err) && Clock::now() < deadline;) {
            std::array<pollfd, 2> items = {
                {{out ? process.out.get() : -1, POLLIN, 0}, {err ? process.err.get() : -1, POLLIN, 0}}};
            ::poll(items.data(), items.size(), pollTimeout(deadline));
            if (items[0].revents != 0) out = readOn(process.out, text);
            if (items[1].revents != 0) err = readOn(process.err, errors);
        }
        const auto ended = process.wait(deadline);
        if (!ended) return "";
        if (status != nullptr && WIFEXITED(*ended)) *status = WEXITSTATUS(*ended);
    } catch (const std::system_error& error) {
        errors = error.what();
    }
    if (complaints != nullptr) *complaints = errors;
    return text;
}

}  // namespace fleifeisa::host
