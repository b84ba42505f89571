#include "cli/paths.h"

#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <set>

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

/// One file under any of its names: by its inode where it exists, else by its full path.
std::string identity(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) == 0) return std::to_string(info.st_dev) + ":" + std::to_string(info.st_ino);
    std::error_code error;
    return fs::weakly_canonical(fs::absolute(path, error), error).string();
}

/// Pipes and devices may be shared, and have no content to lose.
bool isStream(const std::string& path) {
    struct stat info {};
    return ::stat(path.c_str(), &info) == 0 && !S_ISREG(info.st_mode) && !S_ISDIR(info.st_mode);
}

/// Every file that a source reads.
std::vector<std::string> inputsOf(const std::string& source) {
    std::error_code error;
    std::vector<std::string> paths;
    const bool list = source.starts_with("list:");
    const std::string path = list ? source.substr(5) : source;
    if (fs::is_directory(path, error)) {
        for (const fs::directory_entry& entry : fs::directory_iterator(path, error)) paths.push_back(entry.path());
        return paths;
    }
    if (!fs::is_regular_file(path, error)) return paths;
    paths.push_back(path);
    std::ifstream file(list ? path : std::string());
    for (std::string line; std::getline(file, line);) {
        if (line.ends_with('\r')) line.pop_back();
        if (line.empty() || line.front() == '#') continue;
        paths.push_back(line);  // names are looked for in both places
        paths.push_back((fs::path(path).parent_path() / line).string());
    }
    return paths;
}

}  // namespace

std::vector<std::string> pathFaults(std::span<const CameraConfig> cameras) {
    std::vector<std::string> faults;
    std::map<std::string, std::string> read;
    for (const CameraConfig& camera : cameras)
        for (const std::string& path : inputsOf(camera.source.source)) read.emplace(identity(path), path);
    std::set<std::string> written;
    for (const CameraConfig& camera : cameras)
        for (const OutputChoice& output : camera.outputs) {
            if (output.path != "-" && isStream(output.path)) continue;
            const std::string id = output.path == "-" ? "-" : identity(output.path);
            if (read.contains(id)) faults.push_back("output " + output.type + ": " + output.path + " is an input");
            if (!written.insert(id).second)
                faults.push_back("output " + output.type + ": " + (id == "-" ? "standard output" : output.path) +
                                 " is written by another output");
        }
    return faults;
}

}  // namespace fleifeisa::host
