// The confinement from within: a child confines itself and attempts what an exploit would; each attempt fails with an
// error, the child lives on, and its control file stays readable whatever happens to it.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <netinet/in.h>
#include <sys/ioctl.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/ptrace.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>

#include "host/Control.h"
#include "host/Sandbox.h"
#include "support/process.h"

namespace {

namespace fs = std::filesystem;
using Steps = std::function<void()>;

class Sandbox : public testing::Test {
 protected:
    void SetUp() override {
        setenv("FLEIFEISA_ROOT", dir.path.c_str(), 1);
        setenv("FLEIFEISA_SANDBOX", "on", 1);  // also in builds with sanitizers, where it is off by default
        dir.writeControl(backgroundFrames(11));
        path = ControlPath(3);
    }
    void TearDown() override {
        unsetenv("FLEIFEISA_SANDBOX");
        unsetenv("FLEIFEISA_ROOT");
    }

    // Runs `steps` in a child and returns what it has printed and how it ended. `next` are done here, one after each
    // line that the child prints; the child's standard input gets a line after each.
    static std::string inChild(const Steps& steps, const std::vector<Steps>& next = {}) {
        int in[2], out[2];
        EXPECT_EQ(pipe2(in, O_CLOEXEC) | pipe2(out, O_CLOEXEC), 0);
        std::fflush(nullptr);  // or the child prints it once more
        const pid_t child = fork();
        if (child == 0) {
            dup2(in[0], 0);
            dup2(out[1], 1);
            dup2(out[1], 2);
            steps();
            std::fflush(stdout);
            syscall(SYS_exit_group, 0);  // without the leak check
        }
        close(in[0]);
        close(out[1]);
        std::string text;
        std::size_t done = 0;
        for (char c; read(out[0], &c, 1) == 1;) {
            text += c;
            if (c != '\n' || done == next.size()) continue;
            next[done++]();
            EXPECT_EQ(write(in[1], "\n", 1), 1);
        }
        close(in[1]);
        close(out[0]);
        int status = 0;
        waitpid(child, &status, 0);
        return text + (WIFEXITED(status) ? "exit " : "signal ") +
               std::to_string(WIFEXITED(status) ? WEXITSTATUS(status) : WTERMSIG(status));
    }

    SandboxResult confine() const { return ConfineProcess(path.c_str()); }
    // Whether this kernel can confine in both ways, asked of the kernel: a sandbox that is broken is no reason to skip.
    static bool kernelConfines() {
        std::uint32_t action = SECCOMP_RET_ERRNO;
        return syscall(444, nullptr, 0, 1) >= 1 &&  // landlock_create_ruleset: its version
               syscall(SYS_seccomp, SECCOMP_GET_ACTION_AVAIL, 0, &action) == 0;
    }
    void demandConfinement() const {
        ASSERT_EQ(inChild([&] {
                      const SandboxResult result = confine();
                      std::printf("%d%d ", result.files, result.calls);
                  }),
                  "11 exit 0");
    }

    const TempDir dir;
    std::string path;  // of the control file
};

// Prints an attempt that succeeded or failed for another reason than the confinement.
void denied(const char* what, long result) {
    if (result >= 0 || (errno != EPERM && errno != EACCES))
        std::printf("%s: %s\n", what, result >= 0 ? "succeeded" : strerror(errno));
}
void allowed(const char* what, long result) {
    if (result < 0) std::printf("%s: %s\n", what, strerror(errno));
}

void attemptFiles(const std::string& control_file, const std::string& other_file) {
    const char* own = control_file.c_str();
    denied("reading /etc/passwd", open("/etc/passwd", O_RDONLY));
    denied("reading its own memory", open("/proc/self/mem", O_RDONLY));
    denied("reading a file beside the configuration", open(other_file.c_str(), O_RDONLY));
    denied("listing a directory", open("/", O_RDONLY));
    denied("opening by path only", open("/etc/passwd", O_PATH));
    denied("writing the control file", open(own, O_WRONLY));
    denied("reading and writing it", open(own, O_RDWR));
    denied("truncating it", open(own, O_RDONLY | O_TRUNC));
    denied("truncating it by name", truncate(own, 0));
    denied("making a file", open((control_file + "x").c_str(), O_RDONLY | O_CREAT, 0600));
    denied("unlink", unlink(own));
    denied("rename", rename(own, other_file.c_str()));
    denied("symlink", symlink("/etc/passwd", (control_file + "l").c_str()));
    denied("chmod", chmod(own, 0666));
    denied("memfd", syscall(SYS_memfd_create, "x", 0));
    denied("writing an inherited descriptor", write(100, "x", 1));
    char byte;
    if (read(101, &byte, 1) >= 0) std::printf("an inherited descriptor could be read\n");
    denied("typing into the terminal", ioctl(0, TIOCSTI, ""));
}

void attemptProcesses(void* page) {
    denied("socket", socket(AF_INET, SOCK_STREAM, 0));
    denied("local socket", socket(AF_UNIX, SOCK_DGRAM, 0));
    const sockaddr_in to{};
    denied("connect", connect(0, reinterpret_cast<const sockaddr*>(&to), sizeof to));
    denied("fork", fork());
    denied("clone3", syscall(435, nullptr, 0));
    char program[] = "/bin/true";
    char* const arguments[] = {program, nullptr};
    denied("execve", execve(program, arguments, nullptr));
    denied("ptrace", ptrace(PTRACE_TRACEME, 0, nullptr, nullptr));
    denied("writing another process", syscall(SYS_process_vm_writev, getppid(), nullptr, 0, nullptr, 0, 0));
    denied("signalling the parent", kill(getppid(), 0));
    denied("signalling a thread of it", syscall(SYS_tgkill, getppid(), getppid(), 0));
    denied("executable memory", syscall(SYS_mmap, 0, 4096, PROT_EXEC, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
    denied("making memory executable", mprotect(page, 4096, PROT_READ | PROT_EXEC));
    denied("io_uring", syscall(425, 1, nullptr));
#ifdef __x86_64__
    denied("a call of the x32 interface", syscall(0x40000000 | SYS_getpid));
    long result = 20;  // getpid by the 32-bit interface of the same processor
    asm volatile("int $0x80" : "+a"(result) : : "memory", "r8", "r9", "r10", "r11");
    if (result >= 0) std::printf("a 32-bit call succeeded\n");
#endif
}

TEST_F(Sandbox, DeniesTheRestAndLivesOn) {
    if (!kernelConfines()) GTEST_SKIP() << "this kernel lacks Landlock or seccomp filters";
    ASSERT_NO_FATAL_FAILURE(demandConfinement());
    const std::string other = dir.write("other", "secret");
    const int inherited = dup2(1, 100), readable = dup2(open(other.c_str(), O_RDONLY | O_CLOEXEC), 101);
    ASSERT_EQ(readable, 101);
    const std::string text = inChild([&] {
        void* page = mmap(nullptr, 4096, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
        confine();
        errno = 0;
        attemptFiles(path, other);
        attemptProcesses(page);
        std::printf("alive ");
    });
    close(inherited);
    close(readable);
    EXPECT_EQ(text, "alive exit 0");
}

// A program of the analyzer's library may keep one descriptor more, and nothing else with it.
TEST_F(Sandbox, OneDescriptorMore) {
    if (!kernelConfines()) GTEST_SKIP() << "this kernel lacks Landlock or seccomp filters";
    for (const int also : {-1, 3}) {
        const std::string text = inChild([&] {
            if (dup2(1, 3) < 0 || dup2(1, 4) < 0) std::printf("no descriptors ");
            ConfineProcess(path.c_str(), also);
            errno = 0;
            if (write(3, "three ", 6) < 0) std::printf("none ");
            denied("writing to another one", write(4, "x", 1));
            denied("a socket", socket(AF_UNIX, SOCK_STREAM, 0));
        });
        EXPECT_EQ(text, also == 3 ? "three exit 0" : "none exit 0");
    }
}

TEST_F(Sandbox, LeavesWhatTheAnalyzerNeeds) {
    unsetenv("FLEIFEISA_SANDBOX");
#ifdef __SANITIZE_ADDRESS__
    GTEST_SKIP() << "off by default: the sanitizers of this build need more";
#endif
    if (!kernelConfines()) GTEST_SKIP() << "this kernel lacks Landlock or seccomp filters";
    ASSERT_NO_FATAL_FAILURE(demandConfinement());
    const std::string text = inChild([&] {
        close(2);  // a kernel that lacks something says so there
        confine();
        timespec time;
        int waiting = 0;
        allowed("bytes waiting", ioctl(0, FIONREAD, &waiting));
        allowed("sleep", usleep(1));
        allowed("clock", syscall(SYS_clock_gettime, CLOCK_REALTIME, &time));
        std::string large(1 << 20, 'x');
        for (int i = 0; i < 6; i++) large += large;
        try {
            throw std::runtime_error("caught");
        } catch (const std::exception& e) {
            std::printf("%zu %s %d ", large.size(), e.what(), isatty(0));
        }
    });
    EXPECT_EQ(text, "67108864 caught 0 exit 0");
    EXPECT_EQ(inChild([&] {
                  close(2);
                  confine();
                  signal(SIGABRT, SIG_DFL);
                  std::abort();
              }),
              "signal " + std::to_string(SIGABRT));
}

// The file through its life: the child reads it whenever something has changed, and sees the same with and without
// confinement.
TEST_F(Sandbox, FollowsTheControlFile) {
    const fs::path device = fs::path(path).parent_path(), conf = device.parent_path(), other = dir.path + "/other";
    const auto write = [](const fs::path& file, int frames) {
        fs::create_directories(file.parent_path());
        std::ofstream(file) << backgroundFrames(frames);
    };
    const auto replace = [&](const fs::path& file, int frames) {
        write(file.string() + ".new", frames);
        fs::rename(file.string() + ".new", file);
    };
    const auto link = [](const fs::path& target, const fs::path& at) {  // also over another one
        fs::create_directories(at.parent_path());
        fs::create_symlink(target, at.string() + ".new");
        fs::rename(at.string() + ".new", at);
    };
    const Steps nothing = [] {}, start = [&] { write(path, 11); }, make = [&] { write(path, 12); };
    const struct {
        const char* what;
        Steps before;
        std::vector<Steps> changes;
        const char* seen;  // background frames at the start and after each change, '-' where it cannot be opened
    } cases[] = {
        {"replaced by rename", start, {[&] { replace(path, 12); }}, "11\n12\n"},
        {"deleted and made again", start, {[&] { fs::remove(path); }, make}, "11\n-\n12\n"},
        {"its directory likewise", start, {[&] { fs::remove_all(device); }, make}, "11\n-\n12\n"},
        {"made later with all directories", nothing, {make}, "-\n12\n"},
        {"made later", [&] { fs::create_directories(device); }, {make}, "-\n12\n"},
        {"made later behind a link", [&] { fs::create_directories(other), link(other, device); }, {make}, "-\n12\n"},
        {"target of a link replaced",
         [&] { write(other / "file", 11), link(other / "file", path); },
         {[&] { replace(other / "file", 12); }},
         "11\n12\n"},
        {"target of a relative link made later",
         [&] { fs::create_directories(other), link("../../../../../other/file", path); },
         {[&] { write(other / "file", 12); }},
         "-\n12\n"},
        {"link switched",
         [&] { write(other / "a", 11), write(other / "b", 12), link(other / "a", path); },
         {[&] { link(other / "b", path); }},
         "11\n12\n"},
        {"directory link switched",
         [&] { write(other / "a" / "qelparams2.conf", 11), link(other / "a", device); },
         {[&] { write(other / "b" / "qelparams2.conf", 12), link(other / "b", device); }},
         "11\n12\n"},
        {"link to all devices' directories switched",
         [&] { write(other / "a" / "3" / "qelparams2.conf", 11), link(other / "a", conf); },
         {[&] { write(other / "b" / "3" / "qelparams2.conf", 12), link(other / "b", conf); }},
         "11\n12\n"},
    };
    for (const char* confined : {"on", "off"}) {
        setenv("FLEIFEISA_SANDBOX", confined, 1);
        for (const auto& life : cases) {
            SCOPED_TRACE(std::string(life.what) + ", confinement " + confined);
            fs::remove_all(dir.path + "/opt");
            fs::remove_all(other);
            life.before();
            const std::string text = inChild(
                [&] {
                    close(2);
                    confine();
                    for (std::size_t i = 0; i <= life.changes.size(); i++) {
                        control c;
                        std::puts(updateControl(3, &c) ? std::to_string(c.bg_frames).c_str() : "-");
                        std::fflush(stdout);
                        if (i < life.changes.size()) std::getchar();
                    }
                },
                life.changes);
            EXPECT_EQ(text, life.seen + std::string("exit 0"));
        }
    }
}

TEST_F(Sandbox, SaysInOneLineWhatDoesNotHold) {
    if (!kernelConfines()) GTEST_SKIP() << "this kernel lacks Landlock or seccomp filters";
    ASSERT_NO_FATAL_FAILURE(demandConfinement());
    setenv("FLEIFEISA_SANDBOX", "off", 1);
    EXPECT_EQ(inChild([&] {
                  confine();
                  allowed("open", open("/etc/passwd", O_RDONLY));
              }),
              "exit 0");
    setenv("FLEIFEISA_SANDBOX", "perhaps", 1);
    EXPECT_EQ(inChild([&] { confine(); }),
              "Sandbox: FLEIFEISA_SANDBOX is neither on nor off and has no effect.\nexit 0");
    setenv("FLEIFEISA_SANDBOX", "on", 1);
    const std::string text = inChild([&] {  // a kernel without the two interfaces, played by a filter that hides them
        sock_filter program[] = {
            BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
            BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, 444, 1, 0), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_seccomp, 0, 1),
            BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ERRNO | ENOSYS), BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW)};
        const sock_fprog filter{5, program};
        allowed("hiding", prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) | prctl(PR_SET_SECCOMP, 2, &filter));
        confine();
    });
    EXPECT_EQ(text,
              "Sandbox: file access is not confined, the kernel lacks Landlock; system calls are not confined, the "
              "kernel lacks seccomp filters.\nexit 0");
}

}  // namespace
