#include "common/set_aside.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <system_error>
#include <vector>

namespace fleifeisa {
namespace {

namespace fs = std::filesystem;

/// Numbers N of the files PATH.N, the highest first.
std::vector<std::int64_t> numbersOf(const fs::path& path) {
    std::vector<std::int64_t> numbers;
    const std::string prefix = path.filename().string() + ".";
    std::error_code error;
    const fs::path directory = path.has_parent_path() ? path.parent_path() : fs::path(".");
    for (fs::directory_iterator entry(directory, error), end; !error && entry != end; entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (!name.starts_with(prefix)) continue;
        std::int64_t number = 0;
        const char* const last = name.data() + name.size();
        const auto found = std::from_chars(name.data() + prefix.size(), last, number);
        if (found.ec == std::errc() && found.ptr == last && number > 0) numbers.push_back(number);
    }
    std::sort(numbers.begin(), numbers.end(), std::greater<>());
    return numbers;
}

}  // namespace

void setAside(const std::string& path, int keep) {
    std::error_code error;
    if (!fs::is_regular_file(path, error) || fs::file_size(path, error) == 0) return;
    std::vector<std::int64_t> numbers = numbersOf(path);
    const std::int64_t next = numbers.empty() ? 1 : numbers.front() + 1;
    fs::rename(path, path + "." + std::to_string(next));
    numbers.insert(numbers.begin(), next);
    for (std::size_t i = static_cast<std::size_t>(std::max(0, keep)); keep > 0 && i < numbers.size(); ++i)
        fs::remove(path + "." + std::to_string(numbers[i]), error);
}

}  // namespace fleifeisa
