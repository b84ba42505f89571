#include "analyzer/control_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <system_error>

#include "common/fd.h"

namespace fleifeisa::host {
namespace {

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

void writeAll(const Fd& file, std::string_view text, const std::string& path) {
    while (!text.empty()) {
        const ssize_t count = ::write(file.get(), text.data(), text.size());
        if (count < 0 && errno != EINTR) fail(path);
        if (count > 0) text.remove_prefix(static_cast<std::size_t>(count));
    }
    if (::fsync(file.get()) != 0) fail(path);
}

}  // namespace

std::string controlText(const ControlParameters& p) {
    std::string text = "<parameters>\n";
    const auto add = [&text](const char* key, const std::optional<std::string>& value) {
        if (value) text += std::string("<parameter name=\"") + key + "\" value=\"" + *value + "\"/>\n";
    };
    add("-bgframes", p.bgframes);
    add("-color_low", p.color_low);
    add("-color_high", p.color_high);
    add("-ir_low", p.ir_low);
    add("-ir_high", p.ir_high);
    return text + "</parameters>\n";
}

std::string controlPath(const std::string& root, int device) {
    return root + "/opt/tesra/var/conf/" + std::to_string(device) + "/qelparams2.conf";
}

bool writeControlFile(const std::string& path, std::string_view text) {
    struct stat before {};
    const bool existed = ::stat(path.c_str(), &before) == 0;
    if (existed) {
        std::ifstream in(path, std::ios::binary);
        if (in && std::string(std::istreambuf_iterator<char>(in), {}) == text) return false;
    }
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    if (error) throw std::system_error(error, path);

    const std::string temporary = path + ".new";
    const Fd file(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
    if (!file) fail(temporary);
    writeAll(file, text, temporary);
    struct stat now {};
    if (existed && ::fstat(file.get(), &now) == 0 && now.st_mtim.tv_sec <= before.st_mtim.tv_sec) {
        const timespec time{before.st_mtim.tv_sec + 1, 0};
        const timespec times[2] = {time, time};
        if (::futimens(file.get(), times) != 0) fail(temporary);
    }
    if (::rename(temporary.c_str(), path.c_str()) != 0) fail(path);
    return true;
}

}  // namespace fleifeisa::host
