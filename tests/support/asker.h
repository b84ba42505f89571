// The asking end of an explaining analyzer's socket.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

class Asker {
 public:
    struct Answer {
        unsigned id = 0;
        std::string json, layer;
    };

    Asker() {
        int ends[2] = {-1, -1};
        if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0) std::abort();
        here_ = ends[0];
        there = ends[1];
    }
    ~Asker() {
        hangUp();
        close(there);
    }
    Asker(const Asker&) = delete;
    Asker& operator=(const Asker&) = delete;

    // False where the socket takes no more.
    bool send(std::string_view bytes) const {
        return write(here_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    }
    // What has come, as far as it is whole; anything else than answers ends the process.
    std::vector<Answer> take() {
        char chunk[4096];
        for (ssize_t n = 0; (n = read(here_, chunk, sizeof chunk)) > 0;)
            incoming_.append(chunk, static_cast<std::size_t>(n));
        std::vector<Answer> answers;
        while (!incoming_.empty()) {
            unsigned id = 0;
            unsigned long json = 0, layer = 0;
            int head = 0;
            const std::size_t line = incoming_.find('\n');
            if (line == std::string::npos) break;
            if (std::sscanf(incoming_.c_str(), "%u %lu %lu%n", &id, &json, &layer, &head) != 3 ||
                static_cast<std::size_t>(head) != line)
                std::abort();
            if (incoming_.size() < line + 1 + json + layer) break;
            answers.push_back({id, incoming_.substr(line + 1, json), incoming_.substr(line + 1 + json, layer)});
            incoming_.erase(0, line + 1 + json + layer);
        }
        return answers;
    }
    void hangUp() {
        if (here_ >= 0) close(here_);
        here_ = -1;
    }

    int there = -1;  // the analyzer's end

 private:
    int here_ = -1;
    std::string incoming_;
};
