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

int tempFile(const std::string& content) {
    char name[] = "/tmp/fleifeisa-io-XXXXXX";
    const int fd = mkstemp(name);
    if (fd < 0) throw std::runtime_error("no temporary file");
    unlink(name);
    if (write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size()))
        throw std::runtime_error("temporary file not written");
    lseek(fd, 0, SEEK_SET);
    return fd;
}

std::string readAll(int fd) {
    lseek(fd, 0, SEEK_SET);
    std::string all;
    char piece[65536];
    for (ssize_t n; (n = read(fd, piece, sizeof piece)) > 0;) all.append(piece, static_cast<std::size_t>(n));
    return all;
}

pid_t spawn(const std::vector<std::string>& args, const std::string& root, int in, int out, int err,
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

int statusOf(pid_t child) {
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

void TempDir::writeControl(const std::string& text, time_t stamp) const {
    const std::string file = write("opt/tesra/var/conf/3/qelparams2.conf", text);
    if (stamp != 0) {
        const utimbuf times{stamp, stamp};
        utime(file.c_str(), &times);
    }
}

std::string TempDir::write(const std::string& name, const std::string& bytes) const {
    const std::filesystem::path file = std::filesystem::path(path) / name;
    std::filesystem::create_directories(file.parent_path());
    std::ofstream(file, std::ios::binary) << bytes;
    return file.string();
}

RunResult runAnalyzer(const std::vector<std::string>& args, const std::string& input, const std::string& root) {
    const int in = tempFile(input);
    RunResult result = runAnalyzerOn(args, in, -1, root);
    close(in);
    return result;
}

RunResult runAnalyzerOn(const std::vector<std::string>& args, int input, int output, const std::string& root) {
    const int in = input >= 0 ? input : tempFile("");
    const int out = output >= 0 ? output : tempFile("");
    const int err = tempFile("");
    RunResult result{statusOf(spawn(args, root, in, out, err)), "", readAll(err)};
    if (output < 0) result.out = readAll(out);
    close(err);
    if (input < 0) close(in);
    if (output < 0) close(out);
    return result;
}

Session::Session(const std::vector<std::string>& args, const std::string& root, unsigned patience) {
    int request[2], reply[2];
    if (pipe2(request, O_CLOEXEC) != 0 || pipe2(reply, O_CLOEXEC) != 0) throw std::runtime_error("no pipe");
    const int err = tempFile("");
    child_ = spawn(args, root, request[0], reply[1], err, patience);
    close(err);
    close(request[0]);
    close(reply[1]);
    to_ = request[1];
    from_ = reply[0];
}

Session::~Session() {
    if (child_ > 0) finish();
}

void Session::send(const std::string& bytes) {
    if (write(to_, bytes.data(), bytes.size()) != static_cast<ssize_t>(bytes.size()))
        throw std::runtime_error("the analyzer takes no more input");
}

std::string Session::reply() {
    std::size_t size = std::string::npos;
    char piece[65536];
    while (pending_.size() < size) {
        if (const std::size_t end = pending_.find("\r\n\r\n"); end != std::string::npos && size == std::string::npos) {
            const std::size_t length = pending_.find("Content-Length: ");
            size = end + 4 + (length < end ? std::stoul(pending_.substr(length + 16, end - length)) : 0);
            continue;
        }
        const ssize_t n = read(from_, piece, sizeof piece);
        if (n <= 0) break;
        pending_.append(piece, static_cast<std::size_t>(n));
    }
    const std::string reply = pending_.substr(0, size);
    pending_.erase(0, size);
    return reply;
}

bool Session::quiet(int milliseconds) const {
    pollfd output{from_, POLLIN, 0};
    return pending_.empty() && poll(&output, 1, milliseconds) == 0;
}

void Session::signal(int number) const {
    kill(child_, number);
}

int Session::finish() {
    close(to_);
    const int status = statusOf(child_);
    close(from_);
    child_ = 0;
    return status;
}
