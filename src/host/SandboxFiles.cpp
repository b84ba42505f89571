// The file half of the confinement: Landlock, by its three system calls.
#include "host/sandboxprivate.h"

#ifdef __linux__

#include <fcntl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <filesystem>
#include <system_error>

namespace {

// The kernel's interface, stated here because the headers of older systems do not have all of it.
constexpr long kCreateRuleset = 444, kAddRule = 445, kRestrictSelf = 446;  // on every architecture
constexpr unsigned kVersionOnly = 1;
constexpr int kPathBeneath = 1;
constexpr std::uint64_t kReadFile = 1u << 2;

struct Ruleset {
    std::uint64_t files;    // rights that are denied unless a rule grants them
    std::uint64_t network;  // since version 4
    std::uint64_t scopes;   // since version 6
};
struct __attribute__((packed)) PathBeneath {
    std::uint64_t allowed;
    std::int32_t parent;
};

// Everything that the kernel's version of the interface can deny: executing, reading, writing, listing, removing,
// making (13 rights), then linking across directories (2), truncating (3), device controls (5); binding and connecting
// (4); foreign abstract sockets and signals (6). A kernel takes a longer structure whose unknown rest is zero.
Ruleset EverythingOf(long version) {
    const int rights = version >= 5 ? 16 : version >= 3 ? 15 : version == 2 ? 14 : 13;
    return {(std::uint64_t{1} << rights) - 1, version >= 4 ? 3u : 0u, version >= 6 ? 3u : 0u};
}

std::string Parent(const std::string& path) {
    const std::size_t end = path.find_last_not_of('/');
    const std::size_t slash = path.find_last_of('/', end);
    const std::size_t last = slash == std::string::npos ? slash : path.find_last_not_of('/', slash);
    return last == std::string::npos ? "" : path.substr(0, last + 1);
}

bool AllowReading(int rules, int below) {
    const PathBeneath rule{kReadFile, below};
    return syscall(kAddRule, rules, kPathBeneath, &rule, 0) == 0;
}

// Opens the directory of all devices' directories: a device's own may be deleted and made anew, and a rule follows the
// directory, not its name. Never the root (or a relative path's start), which would grant every file.
int OpenSurroundings(const std::string& control_file, std::string& directory) {
    for (directory = Parent(Parent(control_file)); !directory.empty(); directory = Parent(directory)) {
        const int fd = open(directory.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        if (fd >= 0) return fd;
    }
    return -1;
}

bool AllowReadingOf(int rules, const std::string& path) {
    const int fd = path.empty() ? -1 : open(path.c_str(), O_PATH | O_CLOEXEC);
    if (fd < 0) return true;  // nothing there
    const bool added = AllowReading(rules, fd);
    close(fd);
    return added;
}

// Where a symbolic link leads in the end, whether or not that exists; empty where the path is none.
std::string Target(const std::string& path) {
    std::error_code error;
    const std::filesystem::path next = std::filesystem::read_symlink(path, error);
    if (error) return "";
    const std::filesystem::path whole = std::filesystem::canonical(path, error);
    return (error ? std::filesystem::path(Parent(path)) / next : whole).string();
}

// Links are switched, and their targets replaced, by renaming something beside the target over it. So what lies beside
// it can be read as well; not where that is the root.
bool AllowTargets(int rules, const std::string& control_file) {
    for (std::string path = control_file; !path.empty(); path = Parent(path)) {
        const std::string name = path.substr(0, path.find_last_not_of('/') + 1);
        const std::string beside = Parent(Target(name));
        if (beside.find_first_not_of("/.") != std::string::npos && !AllowReadingOf(rules, beside)) return false;
    }
    return true;
}

bool AddRules(int rules, const std::string& control_file, std::string& directory) {
    const int surroundings = OpenSurroundings(control_file, directory);
    if (surroundings >= 0) {
        const bool added = AllowReading(rules, surroundings);
        close(surroundings);
        if (!added) return false;
    }
    // The device's directory and the file, which symbolic links may have put elsewhere.
    return AllowReadingOf(rules, Parent(control_file)) && AllowReadingOf(rules, control_file) &&
           AllowTargets(rules, control_file);
}

}  // namespace

const char* ConfineFiles(const std::string& control_file, std::string& directory) {
    const long version = syscall(kCreateRuleset, nullptr, 0, kVersionOnly);
    if (version < 1) return errno == EOPNOTSUPP ? "Landlock is switched off" : "the kernel lacks Landlock";
    const Ruleset denied = EverythingOf(version);
    const int rules = static_cast<int>(syscall(kCreateRuleset, &denied, sizeof denied, 0));
    if (rules < 0) return "Landlock refused the rules";
    const bool held = AddRules(rules, control_file, directory) && syscall(kRestrictSelf, rules, 0) == 0;
    close(rules);
    return held ? nullptr : "Landlock refused the rules";
}

#endif
