// Stands in for the analyzer and does nothing with its frames: what the pipe and the protocol cost by themselves, the
// floor below which no analyzer can go. Run it through the comparison: compare --analyzer build/bench/pipe_floor.
//
// PIPE_FLOOR_BYTES in the environment asks the kernel for a larger pipe.
#include <fcntl.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

namespace {

bool say(const std::string& text) {
    return write(STDOUT_FILENO, text.data(), text.size()) == static_cast<ssize_t>(text.size());
}

}  // namespace

int main() {
    if (const char* bytes = std::getenv("PIPE_FLOOR_BYTES"))
        fcntl(STDIN_FILENO, F_SETPIPE_SZ, static_cast<int>(std::strtol(bytes, nullptr, 10)));
    if (!say("ANALYTICS.CARTRIDGE\r\nStatus: OK\r\n\r\n")) return 1;
    std::vector<char> buffer(4096);
    size_t held = 0;
    for (;;) {
        // The head arrives at the front of the buffer, part of the body behind it.
        const ssize_t got = read(STDIN_FILENO, buffer.data() + held, 4096 - held);
        if (got <= 0) return 0;
        held += static_cast<size_t>(got);
        const std::string head(buffer.data(), held);
        const size_t end = head.find("\r\n\r\n");
        if (end == std::string::npos) continue;
        if (head.find("SHUTDOWN") < end) return 0;
        const size_t size = std::strtoul(head.c_str() + head.find("Content-Length:") + 15, nullptr, 10);
        buffer.resize(end + 4 + size + 4096);
        while (held < end + 4 + size) {
            const ssize_t more = read(STDIN_FILENO, buffer.data() + held, end + 4 + size - held);
            if (more <= 0) return 1;
            held += static_cast<size_t>(more);
        }
        held = 0;
        if (!say("ANALYTICS.CARTRIDGE\r\nStatus: OK\r\nTimestamp: 0\r\nSequence-Number:0\r\n\r\n")) return 1;
    }
}
