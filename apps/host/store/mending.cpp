#include "store/mending.h"

#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <optional>

#include "common/text.h"
#include "store/media_files.h"

namespace fleifeisa::host {
namespace {

namespace fs = std::filesystem;
constexpr int kRows = 5000;  ///< a step

/// Of the filesystem's own clock, as files get it.
std::int64_t coarseNow() {
    timespec now{};
    ::clock_gettime(CLOCK_REALTIME_COARSE, &now);
    return now.tv_sec * std::int64_t{1'000'000'000} + now.tv_nsec;
}

std::vector<std::string> directoriesIn(const fs::path& path) {
    std::vector<std::string> names;
    std::error_code error;
    for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error))
        if (it->is_directory(error)) names.push_back(it->path().filename().string());
    std::ranges::sort(names);
    return names;
}

}  // namespace

Mending::Mending(Database& database, std::string directory, std::map<std::string, std::int64_t> first_numbers)
    : database_(database),
      directory_(std::move(directory)),
      first_numbers_(std::move(first_numbers)),
      started_ns_(coarseNow()) {
    const fs::path media = fs::path(directory_) / kMediaDirectory;
    for (const std::string& camera : directoriesIn(media))
        for (const std::string& date : directoriesIn(media / camera))
            directories_.push_back(std::string(kMediaDirectory) + '/' + camera + '/' + date);
}

bool Mending::step() {
    if (!rows_done_) {
        checkRows();
        return true;
    }
    if (directories_.empty()) return false;
    const std::string directory = std::move(directories_.back());
    directories_.pop_back();
    checkDirectory(directory);
    return true;
}

/// A file of another size than its row says is one that a crash parted from its row: whole, and newer.
void Mending::checkRows() {
    struct Wrong {
        std::int64_t event;
        int kind;
        std::int64_t bytes;  ///< 0: the file is not there
    };
    std::vector<Wrong> wrong;
    Statement rows = database_.prepare(
        "SELECT event, kind, file, bytes FROM media WHERE (event, kind) > (?, ?) ORDER BY event, kind LIMIT ?");
    rows.bind(event_, kind_, kRows);
    int count = 0;
    for (; rows.step(); ++count) {
        event_ = rows.integer(0);
        kind_ = static_cast<int>(rows.integer(1));
        struct stat file {};
        const bool there = ::stat((directory_ + '/' + rows.text(2)).c_str(), &file) == 0;
        const std::int64_t bytes = there ? file.st_size : 0;
        if (bytes != rows.integer(3)) wrong.push_back({event_, kind_, bytes});
    }
    rows.reset();
    rows_done_ = count < kRows;
    if (wrong.empty()) return;
    Transaction transaction(database_);
    for (const Wrong& row : wrong) {
        if (row.bytes > 0) {
            database_.prepare("UPDATE media SET bytes = ? WHERE event = ? AND kind = ?")
                .bind(row.bytes, row.event, row.kind)
                .run();
            continue;
        }
        ++rows_;
        database_.prepare("DELETE FROM media WHERE event = ? AND kind = ?").bind(row.event, row.kind).run();
        database_
            .prepare(
                "UPDATE events SET pictures = (SELECT count(*) FROM media WHERE event = ?1 AND kind = 0), clip = "
                "CASE WHEN ?2 AND clip = 2 THEN 4 ELSE clip END WHERE id = ?1")
            .bind(row.event, row.kind == static_cast<int>(MediaKind::kClip))
            .run();
    }
    transaction.commit();
}

void Mending::checkDirectory(const std::string& directory) {
    const fs::path path = fs::path(directory_) / directory;
    const std::string camera = fs::path(directory).parent_path().filename().string();
    const auto known = first_numbers_.find(camera);
    const std::int64_t first = known == first_numbers_.end() ? INT64_MAX : known->second;
    Statement row = database_.prepare(
        "SELECT 1 FROM media WHERE event = (SELECT id FROM cameras WHERE name = ?) * ? + ? "
        "AND kind = ? AND file = ?");
    std::error_code error;
    std::vector<std::string> names;
    for (fs::directory_iterator it(path, error), end; !error && it != end; it.increment(error))
        names.push_back(it->path().filename().string());
    for (const std::string& name : names) {
        const std::string ending = kUnfinished;
        const bool unfinished = name.ends_with(ending);
        const auto parsed = parseMediaName(unfinished ? name.substr(0, name.size() - ending.size()) : name);
        if (!parsed || parsed->number >= first) continue;  // somebody else's, or of this run
        const std::string file = directory + '/' + name;
        if (!unfinished) {
            const bool told = row.bind(std::string_view(camera), std::int64_t{1} << kCameraShift, parsed->number,
                                       static_cast<int>(parsed->kind), std::string_view(file))
                                  .step();
            row.reset();
            if (told) continue;
        }
        struct stat status {};
        if (::stat((path / name).c_str(), &status) != 0) continue;
        if (status.st_mtim.tv_sec * std::int64_t{1'000'000'000} + status.st_mtim.tv_nsec >= started_ns_) continue;
        if (::unlink((path / name).c_str()) == 0) ++files_;
    }
    // Nothing more is written for days that are over, but for events that still run.
    if (path.filename().string() < rfc3339(started_ns_).substr(0, 10)) ::rmdir(path.c_str());
}

}  // namespace fleifeisa::host
