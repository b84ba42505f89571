// The system call half of the confinement: a seccomp filter, by straight system calls.
#include "host/sandboxprivate.h"

#ifdef __linux__

#include <linux/audit.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <vector>

#if defined(__x86_64__) && !defined(__ILP32__)
#define FLEIFEISA_AUDIT_ARCH AUDIT_ARCH_X86_64
#elif defined(__aarch64__) && !defined(__ILP32__) && !defined(__AARCH64EB__)
#define FLEIFEISA_AUDIT_ARCH AUDIT_ARCH_AARCH64
#endif

#ifdef FLEIFEISA_AUDIT_ARCH

#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/mman.h>

namespace {

// Calls that are allowed whatever their arguments.
constexpr int kPlain[] = {
    SYS_read,          SYS_close,           SYS_lseek,
    SYS_fstat,         SYS_newfstatat,      SYS_statx,  // input, the control file
#ifdef SYS_stat
    SYS_stat,          SYS_lstat,  // other C libraries use them instead of newfstatat
#endif
#ifdef SYS_poll
    SYS_poll,
#endif
    SYS_ppoll,  // bytes waiting on standard input
    SYS_brk,           SYS_munmap,          SYS_mremap,
    SYS_madvise,  // memory
    SYS_clock_gettime, SYS_gettimeofday,    SYS_clock_nanosleep,
    SYS_nanosleep,  // time
    SYS_futex,         SYS_sched_yield,     SYS_getrandom,
    SYS_getpid,        SYS_gettid,  // the C library's inner needs
    SYS_rt_sigaction,  SYS_rt_sigprocmask,  SYS_rt_sigreturn,
    SYS_sigaltstack,   SYS_restart_syscall,  // signals
    SYS_exit,          SYS_exit_group,
};

// Calls that are allowed where the lower half of one argument is within a bound or has only certain bits.
struct Checked {
    int number;
    unsigned argument;
    enum { kAtMost, kOnlyBits, kEqual } test;
    std::uint32_t value;
};

// O_LARGEFILE as the kernel knows it; the C library's is 0.
#ifdef __x86_64__
constexpr std::uint32_t kLargeFile = 0100000;
#else
constexpr std::uint32_t kLargeFile = 0400000;
#endif
constexpr std::uint32_t kReadFlags = O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW | kLargeFile;
constexpr std::uint32_t kNotExecutable = ~std::uint32_t{PROT_EXEC};

std::vector<Checked> CheckedCalls(std::uint32_t last) {
    return {
        {SYS_write, 0, Checked::kAtMost, last},
        {SYS_writev, 0, Checked::kAtMost, last},
        {SYS_openat, 2, Checked::kOnlyBits, kReadFlags},
        {SYS_mmap, 2, Checked::kOnlyBits, kNotExecutable},
        {SYS_mprotect, 2, Checked::kOnlyBits, kNotExecutable},
        {SYS_ioctl, 1, Checked::kEqual, TCGETS},    // isatty
        {SYS_ioctl, 1, Checked::kEqual, FIONREAD},  // bytes waiting on standard input
        {SYS_fcntl, 1, Checked::kEqual, F_GETFL},   // fdopen
        {SYS_fcntl, 1, Checked::kEqual, F_GETFD},
        {SYS_tgkill, 0, Checked::kEqual, static_cast<std::uint32_t>(getpid())},  // abort
    };
}

constexpr std::uint32_t kAllow = SECCOMP_RET_ALLOW;
constexpr std::uint32_t kDeny = SECCOMP_RET_ERRNO | EPERM;

// Instructions. Jumps count the instructions that are left out where the comparison holds, and where it does not.
sock_filter Load(std::size_t offset) {
    return BPF_STMT(BPF_LD | BPF_W | BPF_ABS, static_cast<std::uint32_t>(offset));
}
sock_filter JumpEqual(std::uint32_t value, std::uint8_t yes, std::uint8_t no) {
    return BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, value, yes, no);
}
sock_filter Return(std::uint32_t verdict) {
    return BPF_STMT(BPF_RET | BPF_K, verdict);
}

// One rule, entered and left with the call's number in the accumulator. A failed test goes on to the next rule, so
// that one call can have several.
void AddChecked(std::vector<sock_filter>& program, const Checked& rule) {
    std::vector<sock_filter> body;
    body.push_back(Load(offsetof(seccomp_data, args) + rule.argument * sizeof(std::uint64_t)));  // little endian
    switch (rule.test) {
        case Checked::kAtMost:
            body.push_back(BPF_JUMP(BPF_JMP | BPF_JGT | BPF_K, rule.value, 1, 0));
            break;
        case Checked::kOnlyBits:
            body.push_back(BPF_JUMP(BPF_JMP | BPF_JSET | BPF_K, ~rule.value, 1, 0));
            break;
        case Checked::kEqual:
            body.push_back(JumpEqual(rule.value, 0, 1));
            break;
    }
    body.push_back(Return(kAllow));
    body.push_back(Load(offsetof(seccomp_data, nr)));
    program.push_back(JumpEqual(static_cast<std::uint32_t>(rule.number), 0, static_cast<std::uint8_t>(body.size())));
    program.insert(program.end(), body.begin(), body.end());
}

std::vector<sock_filter> Program(std::uint32_t last) {
    // The architecture first: the same number means another call in the 32-bit interface of the same processor.
    std::vector<sock_filter> program = {Load(offsetof(seccomp_data, arch)), JumpEqual(FLEIFEISA_AUDIT_ARCH, 1, 0),
                                        Return(kDeny), Load(offsetof(seccomp_data, nr))};
    for (const int number : kPlain) {
        program.push_back(JumpEqual(static_cast<std::uint32_t>(number), 0, 1));
        program.push_back(Return(kAllow));
    }
    for (const Checked& rule : CheckedCalls(last)) AddChecked(program, rule);
    program.push_back(Return(kDeny));
    return program;
}

}  // namespace

const char* ConfineCalls(int last) {
    std::vector<sock_filter> program = Program(static_cast<std::uint32_t>(last));
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    if (syscall(SYS_seccomp, SECCOMP_SET_MODE_FILTER, SECCOMP_FILTER_FLAG_TSYNC, &filter) == 0) return nullptr;
    return errno == ENOSYS || errno == EINVAL ? "the kernel lacks seccomp filters" : "the kernel refused the filter";
}

#else

const char* ConfineCalls(int) {
    return "there is no list of them for this processor";
}

#endif
#endif
