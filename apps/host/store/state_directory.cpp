#include "store/state_directory.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/vfs.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <thread>

#include "common/log.h"

namespace fleifeisa::host {
namespace {

constexpr std::array<std::pair<std::uint64_t, const char*>, 9> kNetworkFilesystems = {{
    {0x6969, "NFS"},
    {0x517B, "SMB"},
    {0xFF534D42, "CIFS"},
    {0xFE534D42, "SMB2"},
    {0x00C36400, "Ceph"},
    {0x5346414F, "AFS"},
    {0x73757245, "Coda"},
    {0x0BD00BD0, "Lustre"},
    {0x01021997, "9P"},
}};

[[noreturn]] void failWithErrno(const std::string& path) {
    throw StoreError(path + ": " + std::strerror(errno));
}

void syncPath(const std::string& path, int flags) {
    const Fd file(::open(path.c_str(), flags | O_CLOEXEC));
    if (!file || ::fsync(file.get()) != 0) failWithErrno(path);
}

}  // namespace

std::string filesystemFault(std::uint64_t type) {
    for (const auto& [number, name] : kNetworkFilesystems)
        if (number == (type & 0xFFFFFFFF))
            return std::string("lies on a network filesystem (") + name + "), where a database cannot be kept safe";
    return "";
}

namespace {

/// Programs that a killed host was just starting hold its lock for a moment longer.
constexpr int kTries = 20;

bool isGone(const std::string& process) {
    const int number = std::atoi(process.c_str());
    return number > 0 && ::kill(number, 0) != 0 && errno == ESRCH;
}

}  // namespace

StateDirectory::StateDirectory(const std::string& path) : path_(path) {
    std::error_code error;
    std::filesystem::create_directories(path, error);
    if (error) throw StoreError(path + ": " + error.message());
    struct statfs filesystem {};
    if (::statfs(path.c_str(), &filesystem) != 0) failWithErrno(path);
    if (const std::string fault = filesystemFault(static_cast<std::uint64_t>(filesystem.f_type)); !fault.empty())
        throw StoreError(path + ": " + fault);

    const std::string lock_path = path + "/lock";
    lock_ = Fd(::open(lock_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0640));
    if (!lock_) failWithErrno(lock_path);
    for (int tries = 0; ::flock(lock_.get(), LOCK_EX | LOCK_NB) != 0; ++tries) {
        if (errno != EWOULDBLOCK) failWithErrno(lock_path);
        std::string owner;
        std::ifstream(lock_path) >> owner;
        if (tries < kTries && isGone(owner)) {
            std::this_thread::sleep_for(std::chrono::milliseconds(100));
            continue;
        }
        throw StoreError(path + ": is used by another host" + (owner.empty() ? "" : " (process " + owner + ")"));
    }
    const std::string owner = std::to_string(::getpid()) + '\n';
    if (::ftruncate(lock_.get(), 0) != 0 ||
        ::pwrite(lock_.get(), owner.data(), owner.size(), 0) != static_cast<ssize_t>(owner.size()))
        failWithErrno(lock_path);
    readNumbers();
}

/// One camera a line: name, next track, next event.
void StateDirectory::readNumbers() {
    std::ifstream file(path_ + "/numbers");
    for (std::string line; std::getline(file, line);) {
        std::istringstream words(line);
        std::string name;
        NextNumbers next;
        if (words >> name >> next.track >> next.event && next.track > 0 && next.event > 0)
            limits_[name] = next;
        else
            logWarning("", path_ + "/numbers: a line is damaged; the database decides");
    }
}

void StateDirectory::writeNumbers() {
    const std::string path = path_ + "/numbers", part = path + ".part";
    std::ofstream file(part, std::ios::trunc);
    for (const auto& [name, next] : limits_) file << name << ' ' << next.track << ' ' << next.event << '\n';
    file.close();
    if (!file) throw StoreError(part + ": cannot be written");
    syncPath(part, O_RDONLY);
    if (::rename(part.c_str(), path.c_str()) != 0) failWithErrno(path);
    syncPath(path_, O_RDONLY | O_DIRECTORY);
}

NextNumbers StateDirectory::next(const std::string& camera) const {
    const auto found = limits_.find(camera);
    return found == limits_.end() ? NextNumbers{} : found->second;
}

void StateDirectory::reserve(const std::map<std::string, NextNumbers>& used) {
    const std::map<std::string, NextNumbers> before = limits_;
    const auto extend = [](std::int64_t& limit, std::int64_t next) {
        if (next + kBlock / 2 > limit) limit = next + kBlock;
    };
    for (const auto& [name, next] : used) {
        extend(limits_[name].track, next.track);
        extend(limits_[name].event, next.event);
    }
    if (limits_ == before) return;
    try {
        writeNumbers();
    } catch (...) {
        limits_ = before;  // nothing may be told that is not reserved
        throw;
    }
}

void StateDirectory::release(const std::map<std::string, NextNumbers>& used) {
    for (const auto& [name, next] : used) limits_[name] = next;
    writeNumbers();
}

}  // namespace fleifeisa::host
