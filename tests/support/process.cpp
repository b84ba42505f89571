#include "support/process.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>
#include <utime.h>

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace {

constexpr unsigned kPatience = 120;  // seconds until a hanging analyzer is killed

int TempFile(const std::string& content) {
    char name[] = "/tmp/fleifeisa-io-XXXXXX";
    const int fd = mkstemp(name);
    if (fd < 0) throw std::runtime_error("no temporary file");
    unlink(name);
    if (write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
        throw std::runtime_error("temporary file not written");
    lseek(fd, 0, SEEK_SET);
    return fd;
}

std::string ReadAll(int fd) {
    lseek(fd, 0, SEEK_SET);
    std::string all;
    char piece[65536];
    for (ssize_t n; (n = read(fd, piece, sizeof piece)) > 0;) all.append(piece, static_cast<std::size_t>(n));
    return all;
}

pid_t Spawn(const std::vector<std::string>& args, const std::string& root, int in, int out, int err,
            unsigned patience = kPatience) {
    std::vector<char*> argv{const_cast<char*>(FLEIFEISA_EXE)};
    for (const std::string& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    const pid_t child = fork();
    if (child < 0) throw std::runtime_error("fork failed");
    if (child == 0) {
        dup2(in, 0);
        dup2(out, 1);
        if (err >= 0) dup2(err, 2);
        setenv("FLEIFEISA_ROOT", root.c_str(), 1);
        alarm(patience);  // survives the exec
        execv(FLEIFEISA_EXE, argv.data());
        _exit(127);
    }
    return child;
}

int StatusOf(pid_t child) {
    int status = 0;
    waitpid(child, &status, 0);
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

TempDir::TempDir() {
    char name[] = "/tmp/fleifeisa-test-XXXXXX";
    if (mkdtemp(name) == nullptr) throw std::runtime_error("no temporary directory");
    path = name;
}

TempDir::~TempDir() {
    std::filesystem::remove_all(path);
}

void TempDir::WriteControl(const std::string& text, time_t stamp) const {
    const std::string file = Write("opt/tesra/var/conf/3/qelparams2.conf", text);
    if (stamp != 0) {
        const utimbuf times{stamp, stamp};
        utime(file.c_str(), &times);
    }
}

std::string TempDir::Write(const std::string& name, const std::string& bytes) const {
    const std::filesystem::path file = std::filesystem::path(path) / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
    return file.string();
}

RunResult RunAnalyzer(const std::vector<std::string>& args, const std::string& input, const std::string& root) {
    const int in = TempFile(input);
    RunResult result = RunAnalyzerOn(args, in, -1, root);
    close(in);
    return result;
}

RunResult RunAnalyzerOn(const std::vector<std::string>& args, int input, int output, const std::string& root) {
    const int in = input >= 0 ? input : TempFile("");
    const int out = output >= 0 ? output : TempFile("");
    const int err = TempFile("");
    RunResult result{StatusOf(Spawn(args, root, in, out, err)), "", ReadAll(err)};
    if (output < 0) result.out = ReadAll(out);
    close(err);
    if (input < 0) close(in);
    if (output < 0) close(out);
    return result;
}

Session::Session(const std::vector<std::string>& args, const std::string& root, unsigned patience) {
    int request[2], reply[2];
    if (pipe2(request, O_CLOEXEC) != 0 || pipe2(reply, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const int err = TempFile("");
    child = Spawn(args, root, request[0], reply[1], err, patience);
    close(err);
    close(request[0]);
    close(reply[1]);
    to = request[1];
    from = reply[0];
}

Session::~Session() {
    if (child > 0) Finish();
}

void Session::Send(const std::string& bytes) {
    if (write(to, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error("the analyzer takes no more input");
}

std::string Session::Reply() {
    std::size_t size = std::string::npos;
    char piece[65536];
    while (pending.size() < size) {
        if (const std::size_t end = pending.find("\r\n\r\n"); end != std::string::npos && size == std::string::npos) {
            const std::size_t length = pending.find("Content-Length: ");
            size = end + 4 + (length < end ? std::stoul(pending.substr(length + 16, end - length)) : 0);
            continue;
        }
        const ssize_t n = read(from, piece, sizeof piece);
        if (n <= 0) break;
        pending.append(piece, static_cast<std::size_t>(n));
    }
    const std::string reply = pending.substr(0, size);
    pending.erase(0, size);
    return reply;
}

bool Session::Quiet(int milliseconds) const {
    pollfd output{from, POLLIN, 0};
    return pending.empty() && poll(&output, 1, milliseconds) == 0;
}

void Session::Signal(int number) const {
    kill(child, number);
}

int Session::Finish() {
    close(to);
    const int status = StatusOf(child);
    close(from);
    child = 0;
    return status;
}
