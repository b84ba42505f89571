#include "cli/change_history.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <system_error>

#include "cli/overrides.h"
#include "common/fd.h"
#include "common/log.h"

namespace fleifeisa::host {
namespace {

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

void writeAll(const Fd& file, const std::string& path, std::string_view text) {
    while (!text.empty()) {
        const ssize_t count = ::write(file.get(), text.data(), text.size());
        if (count < 0 && errno == EINTR) continue;
        if (count < 0) fail(path);
        text.remove_prefix(static_cast<std::size_t>(count));
    }
    if (::fsync(file.get()) != 0) fail(path);
}

void syncDirectory(const std::string& path) {
    const Fd directory(::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (!directory || ::fsync(directory.get()) != 0) fail(path);
}

/// Aside, synced, renamed: whoever reads sees the old text or the new one.
void writeWhole(const std::string& directory, const std::string& path, const std::string& text) {
    const std::string part = path + ".part";
    const Fd file(::open(part.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640));
    if (!file) fail(part);
    writeAll(file, part, text);
    if (::rename(part.c_str(), path.c_str()) != 0) fail(path);
    syncDirectory(directory);
}

}  // namespace

std::string ChangeHistory::overridesText() const {
    constexpr std::uintmax_t kLargest = 16u << 20;
    const std::string path = overridesPath();
    std::error_code error;
    if (!std::filesystem::exists(path, error)) return "";
    const std::uintmax_t size = std::filesystem::file_size(path, error);
    std::ifstream file(path, std::ios::binary);
    if (error || !file) throw std::invalid_argument(path + ": cannot be read");
    if (size > kLargest) throw std::invalid_argument(path + ": larger than 16 MiB");
    return {std::istreambuf_iterator<char>(file), {}};
}

nlohmann::json ChangeHistory::overrides() const {
    return overridesJson(overridesText(), overridesPath());
}

std::vector<nlohmann::json> ChangeHistory::lines(std::int64_t up_to) const {
    std::vector<nlohmann::json> all;
    std::ifstream file(path());
    for (std::string text; std::getline(file, text);) {
        nlohmann::json line = nlohmann::json::parse(text, nullptr, false);
        if (!line.is_object() || !line.contains("units") || !line["units"].is_object()) continue;
        const std::int64_t number = line.value("change", std::int64_t{0});
        // One of the same number never came into force: the host ended between the two files.
        while (!all.empty() && all.back()["change"] >= number) all.pop_back();
        if (number > 0 && number <= up_to) all.push_back(std::move(line));
    }
    return all;
}

void ChangeHistory::commit(const nlohmann::json& line, const nlohmann::json& overrides) const {
    std::vector<nlohmann::json> all = lines(line.at("change").get<std::int64_t>() - 1);
    if (all.size() + 1 > kMost) {
        std::string text;
        for (std::size_t i = kMost / 2; i < all.size(); ++i) text += all[i].dump() + '\n';
        writeWhole(state_, path(), text);
    }
    const bool is_new = !std::filesystem::exists(path());
    const Fd file(::open(path().c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0640));
    if (!file) fail(path());
    // Behind a line that a power loss tore, one begins anew.
    writeAll(file, path(),
             (is_new ? "" : "\n") + line.dump(-1, ' ', false, nlohmann::json::error_handler_t::replace) + '\n');
    if (is_new) syncDirectory(state_);
    writeWhole(state_, overridesPath(), host::overridesText(overrides));
}

}  // namespace fleifeisa::host
