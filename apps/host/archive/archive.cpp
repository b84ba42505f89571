#include "archive/archive.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <system_error>

#include "common/log.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;

[[noreturn]] void fail(const std::string& path) {
    throw std::system_error(errno, std::generic_category(), path);
}

/// To the disk, so that a name never stands for what a power cut took.
void sync(const std::string& path) {
    const Fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC));
    if (!fd || ::fsync(fd.get()) != 0) fail(path);
}

void syncTree(const std::string& directory) {
    for (const auto& entry : fs::recursive_directory_iterator(directory)) sync(entry.path().string());
    sync(directory);
}

std::string self() {
    return nodeName() + '.' + std::to_string(::getpid());
}

}  // namespace

std::string nodeName() {
    std::array<char, 256> name{};
    ::gethostname(name.data(), name.size() - 1);
    // The scheduler's own name for the machine, by which it can be asked to leave it out.
    const char* const slurm = std::getenv("SLURMD_NODENAME");
    std::string text = slurm != nullptr && *slurm != '\0' ? slurm : name.data();
    for (char& c : text)
        if (std::isalnum(static_cast<unsigned char>(c)) == 0 && c != '-' && c != '.') c = '_';
    return text.empty() ? "unnamed" : text;
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) fail(path);
    std::string text{std::istreambuf_iterator<char>(file), {}};
    if (file.bad()) fail(path);
    return text;
}

void writeFile(const std::string& path, std::string_view text) {
    const std::string aside = path + '@' + self();
    const Fd fd(::open(aside.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666));
    if (!fd) fail(aside);
    for (std::string_view rest = text; !rest.empty();) {
        const ssize_t written = ::write(fd.get(), rest.data(), rest.size());
        if (written < 0 && errno == EINTR) continue;
        if (written < 0) fail(aside);
        rest.remove_prefix(static_cast<std::size_t>(written));
    }
    if (::fsync(fd.get()) != 0 || ::rename(aside.c_str(), path.c_str()) != 0) fail(path);
}

Archive::Archive(const std::string& directory) : directory_(fs::absolute(directory).lexically_normal().string()) {
    for (const char* below : {"results", "failed", "parts", "journal"}) {
        std::error_code error;
        fs::create_directories(path(below), error);
        if (error) throw std::system_error(error, path(below));
    }
}

std::string Archive::partOf(const std::string& name, int pid) const {
    return path("parts/") + name + '@' + nodeName() + '.' + std::to_string(pid);
}

bool Archive::has(const std::string& name) const {
    return fs::exists(resultOf(name));
}

std::set<std::string> Archive::results() const {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(path("results"))) names.insert(entry.path().filename().string());
    return names;
}

std::map<std::string, ClipFailure> Archive::failures() const {
    std::map<std::string, ClipFailure> failures;
    for (const auto& entry : fs::directory_iterator(path("failed"))) {
        if (entry.path().extension() != ".json" || has(entry.path().stem().string())) continue;
        try {
            ClipFailure failure = fromJson<ClipFailure>(readFile(entry.path().string()));
            failures[failure.name] = std::move(failure);
        } catch (const std::exception&) {  // gone by now, or cut off by a power failure: as if it were not there
            continue;
        }
    }
    return failures;
}

void Archive::noteFailure(const ClipFailure& failure) const {
    writeFile(path("failed/") + failure.name + ".json", toJson(failure) + '\n');
}

void Archive::forgetFailure(const std::string& name) const {
    std::error_code error;
    fs::remove(path("failed/") + name + ".json", error);
}

bool Archive::finish(const std::string& part, const std::string& name) const {
    syncTree(part);
    const std::string result = resultOf(name);
    if (::rename(part.c_str(), result.c_str()) == 0) {
        sync(path("results"));
        forgetFailure(name);
        return true;
    }
    if (errno != EEXIST && errno != ENOTEMPTY) fail(result);
    const ClipSummary own = fromJson<ClipSummary>(readFile(part + "/summary.json")), other = summary(name);
    if (own.hashes() != other.hashes())
        throw std::runtime_error("another process, on " + cost(name).node + ", computed something else of this clip");
    fs::remove_all(part);
    return false;
}

ClipSummary Archive::summary(const std::string& name) const {
    return fromJson<ClipSummary>(readFile(resultOf(name) + "/summary.json"));
}

ClipCost Archive::cost(const std::string& name) const {
    return fromJson<ClipCost>(readFile(resultOf(name) + "/run.json"));
}

void Archive::note(const JournalLine& line) {
    if (!journal_) {
        const std::string file = path("journal/") + self();
        journal_ = Fd(::open(file.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666));
        if (!journal_) fail(file);
    }
    std::ostringstream text;
    text.imbue(std::locale::classic());
    text << line.name << ' ' << line.done << ' ' << line.ended_ns << ' ' << line.frames << ' ' << line.weight << ' '
         << line.seconds << ' ' << line.cpu_seconds << ' ' << line.peak_bytes << '\n';
    const std::string bytes = text.str();
    // Less is told of progress where this fails; nothing else depends on it.
    if (::write(journal_.get(), bytes.data(), bytes.size()) < 0) logWarning("", "the journal cannot be written");
}

std::vector<JournalLine> Archive::journal() const {
    std::vector<JournalLine> lines;
    for (const auto& entry : fs::directory_iterator(path("journal"))) {
        std::ifstream file(entry.path());
        for (std::string text; std::getline(file, text);) {
            std::istringstream words(text);
            words.imbue(std::locale::classic());
            JournalLine line;
            if (words >> line.name >> line.done >> line.ended_ns >> line.frames >> line.weight >> line.seconds >>
                line.cpu_seconds >> line.peak_bytes)
                lines.push_back(line);
        }
    }
    std::ranges::stable_sort(lines, {}, &JournalLine::ended_ns);
    return lines;
}

std::optional<Fd> Archive::lock(std::string& holder) const {
    const std::string file = path("lock");
    Fd fd(::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666));
    if (!fd) fail(file);
    if (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        holder = readFile(file);
        return std::nullopt;
    }
    const std::string text = self();
    if (::ftruncate(fd.get(), 0) != 0 || ::write(fd.get(), text.data(), text.size()) < 0) fail(file);
    return fd;
}

void Archive::removeNeedlessParts() const {
    for (const auto& entry : fs::directory_iterator(path("parts"))) {
        const std::string name = entry.path().filename().string();
        std::error_code error;
        if (has(name.substr(0, name.rfind('@')))) fs::remove_all(entry.path(), error);
    }
}

void Archive::removeLeftParts() const {
    const std::string here = nodeName() + '.';
    for (const auto& entry : fs::directory_iterator(path("parts"))) {
        const std::string name = entry.path().filename().string();
        const std::string maker = name.substr(name.rfind('@') + 1);
        if (!maker.starts_with(here)) continue;
        int pid = 0;
        std::from_chars(maker.data() + here.size(), maker.data() + maker.size(), pid);
        if (pid > 0 && ::kill(pid, 0) != 0 && errno == ESRCH) fs::remove_all(entry.path());
    }
}

}  // namespace fleifeisa::host
