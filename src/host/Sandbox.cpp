#include "host/Sandbox.h"

#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <string_view>

#include "host/sandboxprivate.h"

#ifdef __linux__
#include <sys/prctl.h>
#include <sys/syscall.h>
#endif

namespace {

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool kOnByDefault = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer) || __has_feature(thread_sanitizer) || __has_feature(memory_sanitizer)
constexpr bool kOnByDefault = false;
#else
constexpr bool kOnByDefault = true;
#endif
#else
constexpr bool kOnByDefault = true;
#endif

// Appends one more remark to the line.
void Add(std::string& note, const std::string& remark) {
    note += (note.empty() ? "Sandbox: " : "; ") + remark;
}

bool Wanted(std::string& note) {
    const char* text = std::getenv("FLEIFEISA_SANDBOX");
    const std::string_view value = text != nullptr ? text : "";
    if (value == "off") return false;
    if (value == "on") return true;
    if (!value.empty()) Add(note, "FLEIFEISA_SANDBOX is neither on nor off and has no effect");
    return kOnByDefault;
}

#ifdef __linux__

#ifndef SYS_close_range
#define SYS_close_range 436
#endif

void Confine(const std::string& control_file, int last, SandboxResult& result) {
    if (prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0) {
        Add(result.note, "not confined, the kernel cannot renounce new privileges");
        return;
    }
    syscall(SYS_close_range, static_cast<unsigned>(last + 1), ~0u,
            0u);  // what a careless parent left open; kernels before 5.9 keep it
    const char* no_files = ConfineFiles(control_file, result.directory);
    const char* no_calls = ConfineCalls(last);
    result.files = no_files == nullptr;
    result.calls = no_calls == nullptr;
    if (!result.files) Add(result.note, "file access is not confined, " + std::string(no_files));
    if (!result.calls) Add(result.note, "system calls are not confined, " + std::string(no_calls));
    if (result.files && result.directory.empty())
        Add(result.note, "the control file's directory does not exist; one that is made later needs a restart");
}

#else

void Confine(const std::string&, int, SandboxResult& result) {
    Add(result.note, "not confined, this system is not Linux");
}

#endif

}  // namespace

SandboxResult ConfineProcess(const char* control_file, int also) {
    SandboxResult result;
    if (Wanted(result.note)) Confine(control_file, std::max(STDERR_FILENO, also), result);
    if (!result.note.empty()) std::fprintf(stderr, "%s.\n", result.note.c_str());
    return result;
}
