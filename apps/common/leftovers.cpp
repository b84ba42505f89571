#include "common/leftovers.h"

#include <filesystem>
#include <mutex>
#include <set>
#include <system_error>
#include <utility>

namespace fleifeisa {
namespace {

std::mutex mutex;
std::multiset<std::string> paths;

}  // namespace

Leftover::Leftover(std::string path) : path_(std::move(path)) {
    const std::lock_guard lock(mutex);
    paths.insert(path_);
}

Leftover::~Leftover() {
    const std::lock_guard lock(mutex);
    paths.erase(paths.find(path_));
}

void removeLeftovers(bool files) {
    const std::lock_guard lock(mutex);
    std::error_code error;
    for (const std::string& path : paths)
        if (files || !std::filesystem::is_regular_file(path, error) || std::filesystem::file_size(path, error) == 0)
            std::filesystem::remove_all(path, error);
}

}  // namespace fleifeisa
