// The socket "tell" in the state directory: one message a connection, "CAMERA TEXT", one answer.
#pragma once

#include <functional>
#include <string>
#include <thread>

#include "common/fd.h"

namespace fleifeisa::host {

class TellSocket {
 public:
    static constexpr std::size_t kMostText = 500;  ///< bytes of one text
    /// Why it was not taken, "" where it was. Called from the socket's thread; must not wait.
    using Take = std::function<std::string(const std::string& camera, const std::string& text)>;

    /// Whoever may write into the directory's files may tell. The host goes on without the socket where it cannot be
    /// made, which is logged.
    TellSocket(const std::string& directory, Take take);
    ~TellSocket();
    TellSocket(const TellSocket&) = delete;
    TellSocket& operator=(const TellSocket&) = delete;

 private:
    void run();
    void serve(int client) const;

    const Take take_;
    Fd directory_, socket_;
    Event over_;
    std::thread thread_;
};

/// The other side. @returns the host's answer, "" where it took it  @throws std::runtime_error where there is no host
std::string tellHost(const std::string& directory, const std::string& camera, const std::string& text);

}  // namespace fleifeisa::host
