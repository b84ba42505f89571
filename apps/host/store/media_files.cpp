#include "store/media_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>

#include "common/fd.h"
#include "common/log.h"
#include "common/text.h"

namespace fleifeisa::host {
namespace {

struct Kind {
    const char* name;
    const char* ending;  ///< of the file's name, behind the number
};
constexpr std::array<Kind, kMediaKinds> kKinds = {{{"picture", ".jpg"},
                                                   {"box", "-box.jpg"},
                                                   {"thumb", "-thumb.jpg"},
                                                   {"strip", "-strip.jpg"},
                                                   {"clip", ".mp4"},
                                                   {"times", "-times.json"},
                                                   {"play", "-play.mp4"},
                                                   {"why", "-why.json"}}};

const Kind& of(MediaKind kind) {
    return kKinds[static_cast<std::size_t>(kind)];
}

}  // namespace

const char* nameOf(MediaKind kind) {
    return of(kind).name;
}

std::string mediaFile(const std::string& camera, std::int64_t number, std::int64_t start_ns, MediaKind kind) {
    const std::string date = rfc3339(start_ns).substr(0, 10);
    return std::string(kMediaDirectory) + '/' + camera + '/' + date + '/' + std::to_string(number) + of(kind).ending;
}

std::optional<MediaName> parseMediaName(const std::string& name) {
    MediaName found;
    const auto [end, error] = std::from_chars(name.data(), name.data() + name.size(), found.number);
    if (error != std::errc() || found.number <= 0) return std::nullopt;
    for (std::size_t kind = 0; kind < kKinds.size(); ++kind) {
        if (std::string(end, name.data() + name.size()) != kKinds[kind].ending) continue;
        found.kind = static_cast<MediaKind>(kind);
        return found;
    }
    return std::nullopt;
}

/// Synced before it gets its name, so that a row never tells of a file that a loss of power left empty.
std::string writeMedia(const std::string& directory, const std::string& file, std::string_view bytes) {
    const std::string path = directory + '/' + file, unfinished = path + kUnfinished;
    const auto fault = [&path, &unfinished] {
        std::string why = path + ": " + std::strerror(errno);
        ::unlink(unfinished.c_str());
        return why;
    };
    std::error_code error;
    std::filesystem::create_directories(std::filesystem::path(path).parent_path(), error);
    const Fd out(::open(unfinished.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0640));
    if (!out) return fault();
    while (!bytes.empty()) {
        const ssize_t written = ::write(out.get(), bytes.data(), bytes.size());
        if (written < 0 && errno == EINTR) continue;
        if (written <= 0) return fault();
        bytes.remove_prefix(static_cast<std::size_t>(written));
    }
    if (::fdatasync(out.get()) != 0 || ::rename(unfinished.c_str(), path.c_str()) != 0) return fault();
    return "";
}

void removeExports(const std::string& directory, const std::string& event) {
    namespace fs = std::filesystem;
    std::error_code error;
    std::vector<fs::path> lists;
    for (fs::directory_iterator it(fs::path(directory) / kExportDirectory, error), end; !error && it != end;
         it.increment(error))
        if (it->path().extension() == kExportList) lists.push_back(it->path());
    for (const fs::path& list : lists) {
        std::ifstream lines(list);
        bool holds = false;
        for (std::string line; !holds && std::getline(lines, line);) holds = line == event;
        if (!holds) continue;
        fs::remove_all(fs::path(list).replace_extension(), error);
        fs::remove(list, error);
    }
}

bool removeFiles(Database& database, const std::string& directory, int most) {
    std::vector<std::string> files;
    Statement rows = database.prepare("SELECT file FROM removals LIMIT ?");
    rows.bind(most);
    while (rows.step()) files.push_back(rows.text(0));
    rows.reset();
    if (files.empty()) return false;
    for (const std::string& file : files)
        if (::unlink((directory + '/' + file).c_str()) != 0 && errno != ENOENT)
            logWarning("", directory + '/' + file + ": cannot be removed: " + std::strerror(errno));
    Transaction transaction(database);
    Statement done = database.prepare("DELETE FROM removals WHERE file = ?");
    for (const std::string& file : files) done.bind(std::string_view(file)).run();
    transaction.commit();
    return files.size() == static_cast<std::size_t>(most);
}

}  // namespace fleifeisa::host
