#include "common/memory_left.h"

#include <algorithm>
#include <fstream>

namespace fleifeisa {
namespace {

std::optional<std::int64_t> numberIn(const std::string& path) {
    std::ifstream file(path);
    std::int64_t value = 0;
    if (!(file >> value)) return std::nullopt;  // "max" as well
    return value;
}

std::optional<std::int64_t> systemLeft(const std::string& root) {
    std::ifstream file(root + "/proc/meminfo");
    std::string name, unit;
    for (std::int64_t kilobytes = 0; file >> name >> kilobytes && std::getline(file, unit);)
        if (name == "MemAvailable:") return kilobytes << 10;
    return std::nullopt;
}

/// What pages of files take counts as used there, and is given back when it is wanted.
std::optional<std::int64_t> groupLeft(const std::string& directory) {
    const auto most = numberIn(directory + "/memory.max"), used = numberIn(directory + "/memory.current");
    if (!most || !used) return std::nullopt;
    std::int64_t files = 0;
    std::ifstream file(directory + "/memory.stat");
    std::string name;
    for (std::int64_t bytes = 0; file >> name >> bytes;)
        if (name == "inactive_file") files = bytes;
    return std::max<std::int64_t>(0, *most - *used + files);
}

}  // namespace

std::optional<std::int64_t> memoryLeft(const std::string& root) {
    std::optional<std::int64_t> left = systemLeft(root);
    std::ifstream groups(root + "/proc/self/cgroup");
    for (std::string line; std::getline(groups, line);) {
        if (!line.starts_with("0::/")) continue;
        // A limit may stand at each of them, up to the root.
        for (std::string path = line.substr(3); !path.empty(); path.erase(path.rfind('/'))) {
            const auto here = groupLeft(root + "/sys/fs/cgroup" + path);
            if (here) left = std::min(left.value_or(*here), *here);
        }
    }
    return left;
}

}  // namespace fleifeisa
