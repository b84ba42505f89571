#include "common/process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <sys/wait.h>

#include <array>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <mutex>
#include <set>
#include <sstream>
#include <system_error>

extern char** environ;

namespace fleifeisa {
namespace {

constexpr int kExtra = 3;

std::mutex children_mutex;
std::set<pid_t> children;

struct Pipe {
    Fd read, write;
};

Pipe makePipe(int bytes) {
    std::array<int, 2> ends{};
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
    Pipe pipe{Fd(ends[0]), Fd(ends[1])};
    for (int size = bytes; size > 65536 && ::fcntl(pipe.write.get(), F_SETPIPE_SZ, size) < 0;) size /= 2;
    return pipe;
}

/// The end that is read is this process's, the other one the child's.
Pipe makeSocket() {
    std::array<int, 2> ends{};
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends.data()) != 0)
        throw std::system_error(errno, std::generic_category(), "socketpair");
    return {Fd(ends[0]), Fd(ends[1])};
}

void setNonBlocking(const Fd& fd) {
    ::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) | O_NONBLOCK);
}

/// The environment of the child as "NAME=value", with the additions in place of what they replace.
std::vector<std::string> childEnvironment(const std::vector<std::pair<std::string, std::string>>& additions) {
    std::vector<std::string> result;
    for (char** entry = environ; *entry; ++entry) {
        const std::string text = *entry;
        bool replaced = false;
        for (const auto& [name, value] : additions) replaced = replaced || text.starts_with(name + "=");
        if (!replaced) result.push_back(text);
    }
    for (const auto& [name, value] : additions) result.push_back(name + "=" + value);
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (std::string& text : strings) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
}

/// Attributes and file actions of one posix_spawn.
class SpawnSetup {
 public:
    SpawnSetup() {
        posix_spawn_file_actions_init(&actions_);
        posix_spawnattr_init(&attributes_);
        sigset_t none, defaults;
        sigemptyset(&none);
        sigemptyset(&defaults);
        for (const int number : {SIGPIPE, SIGINT, SIGTERM, SIGHUP, SIGXFSZ}) sigaddset(&defaults, number);
        posix_spawnattr_setsigmask(&attributes_, &none);
        posix_spawnattr_setsigdefault(&attributes_, &defaults);
        posix_spawnattr_setpgroup(&attributes_, 0);
        posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETPGROUP);
    }
    SpawnSetup(const SpawnSetup&) = delete;
    SpawnSetup& operator=(const SpawnSetup&) = delete;
    ~SpawnSetup() {
        posix_spawn_file_actions_destroy(&actions_);
        posix_spawnattr_destroy(&attributes_);
    }
    void connect(int target, const Fd& end) {
        if (end)
            posix_spawn_file_actions_adddup2(&actions_, end.get(), target);
        else
            posix_spawn_file_actions_addopen(&actions_, target, "/dev/null", O_RDWR, 0);
    }
    const posix_spawn_file_actions_t* actions() const { return &actions_; }
    const posix_spawnattr_t* attributes() const { return &attributes_; }

 private:
    posix_spawn_file_actions_t actions_;
    posix_spawnattr_t attributes_;
};

}  // namespace

Process::Process(const Options& options) {
    Pipe to, from, errors, extra_ends;
    if (options.pipe_in) to = makePipe(options.pipe_bytes);
    if (options.pipe_out) from = makePipe(options.pipe_bytes);
    if (options.pipe_err) errors = makePipe(options.pipe_bytes);
    if (options.pipe_extra) extra_ends = makePipe(options.pipe_bytes);
    if (options.socket_extra) extra_ends = makeSocket();
    SpawnSetup setup;
    setup.connect(STDIN_FILENO, to.read);
    setup.connect(STDOUT_FILENO, from.write);
    if (options.pipe_err) setup.connect(STDERR_FILENO, errors.write);
    // Last: the other ends may lie at this number themselves.
    if (extra_ends.write) setup.connect(kExtra, extra_ends.write);

    std::vector<std::string> arguments = options.argv;
    std::vector<std::string> environment = childEnvironment(options.environment);
    const int failure = ::posix_spawnp(&pid_, arguments.at(0).c_str(), setup.actions(), setup.attributes(),
                                       pointers(arguments).data(), pointers(environment).data());
    if (failure != 0) {
        pid_ = -1;
        throw std::system_error(failure, std::generic_category(), arguments.at(0));
    }
    if (!options.survives) {
        const std::lock_guard lock(children_mutex);
        children.insert(pid_);
    }
    if (options.nice != 0) ::setpriority(PRIO_PROCESS, static_cast<id_t>(pid_), options.nice);
    in = std::move(to.write);
    out = std::move(from.read);
    err = std::move(errors.read);
    extra = std::move(extra_ends.read);
    for (const Fd* end : {&in, &out, &err, &extra})
        if (*end) setNonBlocking(*end);
}

Process& Process::operator=(Process&& other) noexcept {
    std::swap(pid_, other.pid_);
    in = std::move(other.in);
    out = std::move(other.out);
    err = std::move(other.err);
    extra = std::move(other.extra);
    return *this;
}

Process::~Process() {
    if (running()) kill();
}

void Process::signal(int number) const {
    if (pid_ > 0) ::kill(pid_, number);
}

std::optional<int> Process::wait(Clock::time_point deadline) {
    if (pid_ <= 0) return 0;
    const Fd handle(static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0)));
    pollfd item{handle.get(), POLLIN, 0};
    while (handle && ::poll(&item, 1, pollTimeout(deadline)) < 0 && errno == EINTR) continue;
    int status = 0;
    const pid_t result = ::waitpid(pid_, &status, WNOHANG);
    if (result == 0) return std::nullopt;
    const std::lock_guard lock(children_mutex);
    children.erase(pid_);
    pid_ = -1;
    return status;
}

int Process::kill() {
    signal(SIGKILL);
    return wait(Clock::now() + std::chrono::hours(1)).value_or(0);
}

std::string describeStatus(int status) {
    if (WIFSIGNALED(status))
        return "signal " + std::to_string(WTERMSIG(status)) + " (" + ::strsignal(WTERMSIG(status)) + ")";
    return "exit status " + std::to_string(WEXITSTATUS(status));
}

void killAllChildren() {
    const std::lock_guard lock(children_mutex);
    for (const pid_t pid : children) ::kill(pid, SIGKILL);
}

std::string findProgram(const std::string& name) {
    if (name.find('/') != std::string::npos) return ::access(name.c_str(), X_OK) == 0 ? name : "";
    const char* path = std::getenv("PATH");
    std::string rest = path ? path : "/usr/local/bin:/usr/bin:/bin";
    while (!rest.empty()) {
        const std::size_t colon = std::min(rest.find(':'), rest.size());
        const std::string candidate = (colon == 0 ? "." : rest.substr(0, colon)) + "/" + name;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
        rest.erase(0, colon + 1);
    }
    return "";
}

double processorSeconds(pid_t pid) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/stat");
    std::string text((std::istreambuf_iterator<char>(file)), {});
    const std::size_t name_end = text.rfind(')');  // a name may hold blanks and parentheses
    if (pid <= 0 || name_end == std::string::npos) return 0;
    std::istringstream words(text.substr(name_end + 1));
    constexpr int kBefore = 11;  // fields between the name and utime
    std::string word;
    for (int i = 0; i < kBefore; ++i) words >> word;
    double user = 0, system = 0;
    words >> user >> system;
    return (user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

}  // namespace fleifeisa
