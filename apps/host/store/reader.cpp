#include "store/reader.h"

#include <algorithm>

#include "store/schema.h"
#include "store/state_directory.h"

namespace fleifeisa::host {

StoreReader::StoreReader(const std::string& directory)
    : database_(StateDirectory::databasePath(directory), Database::Mode::kReadOnly) {
    checkVersion(database_);
}

std::int64_t StoreReader::cameraId(const std::string& name) {
    Statement found = database_.prepare("SELECT id FROM cameras WHERE name = ?");
    if (!found.bind(std::string_view(name)).step()) database_.fail("there is no camera '" + name + "'");
    return found.integer(0);
}

void StoreReader::events(const EventFilter& filter, const std::function<void(const StoredEvent&)>& found) {
    std::string where = "WHERE e.start_ns >= ?1 AND e.start_ns < ?2";
    if (!filter.camera.empty()) {
        const std::int64_t id = cameraId(filter.camera);
        where += " AND e.id >= " + std::to_string(rowOf(id, 0)) + " AND e.id < " + std::to_string(rowOf(id + 1, 0));
    }
    if (!filter.rule.empty()) where += " AND e.rule = ?3";
    if (filter.kind) where += " AND e.kind = " + std::to_string(static_cast<int>(*filter.kind));
    if (filter.clip) where += " AND e.clip = " + std::to_string(static_cast<int>(*filter.clip));
    std::string from = " FROM events e JOIN cameras c ON c.id = e.id >> " + std::to_string(kCameraShift) + ' ' + where;
    if (filter.most > 0) {
        from += " AND e.id IN (SELECT e.id" + from + " ORDER BY e.start_ns DESC, e.id DESC LIMIT " +
                std::to_string(filter.most) + ")";
    }
    Statement rows = database_.prepare(std::string("SELECT ") + kEventColumns + from + " ORDER BY e.start_ns, e.id");
    const std::int64_t until = filter.until_ns > 0 ? filter.until_ns : INT64_MAX;
    if (filter.rule.empty())
        rows.bind(filter.since_ns, until);
    else
        rows.bind(filter.since_ns, until, std::string_view(filter.rule));
    while (rows.step()) found(readEvent(rows));
}

std::optional<StoredEvent> StoreReader::event(const std::string& camera, std::int64_t number) {
    const std::int64_t id = cameraId(camera);
    Statement row = database_.prepare(std::string("SELECT ") + kEventColumns +
                                      " FROM events e JOIN cameras c ON c.id = ? WHERE e.id = ?");
    if (!row.bind(id, rowOf(id, number)).step()) return std::nullopt;
    return readEvent(row);
}

std::vector<StoredMedia> StoreReader::media(const std::string& camera, std::int64_t number) {
    std::vector<StoredMedia> media;
    Statement rows =
        database_.prepare(std::string("SELECT ") + kMediaColumns + " FROM media WHERE event = ? ORDER BY kind");
    rows.bind(rowOf(cameraId(camera), number));
    while (rows.step()) media.push_back(readMedia(rows));
    return media;
}

std::map<std::string, Verdict> StoreReader::reviews(const std::string& camera, std::int64_t number) {
    std::map<std::string, Verdict> reviews;
    Statement rows = database_.prepare("SELECT user, verdict FROM reviews WHERE event = ?");
    rows.bind(rowOf(cameraId(camera), number));
    while (rows.step()) reviews[rows.text(0)] = static_cast<Verdict>(rows.integer(1));
    return reviews;
}

std::vector<std::string> StoreReader::cameras() {
    std::vector<std::string> names;
    Statement rows = database_.prepare("SELECT name FROM cameras ORDER BY name");
    while (rows.step()) names.push_back(rows.text(0));
    return names;
}

std::vector<PastTrack> StoreReader::tracks(const std::string& camera, std::int64_t since_ns) {
    const std::int64_t id = cameraId(camera), first = rowOf(id, 0);
    std::vector<PastTrack> tracks;
    Statement rows = database_.prepare(
        "SELECT id, split_from, ended, start_ns, end_ns, path FROM tracks WHERE id >= ? AND id < ? AND end_ns >= ? "
        "ORDER BY id");
    rows.bind(first, rowOf(id + 1, 0), since_ns);
    while (rows.step())
        tracks.push_back({rows.integer(0) - first, rows.integer(1), static_cast<TrackEnd>(rows.integer(2)),
                          rows.integer(3), rows.integer(4), decodePath(rows.text(5))});
    return tracks;
}

std::vector<PastScene> StoreReader::scenes(const std::string& camera, std::int64_t since_ns) {
    std::vector<PastScene> scenes;
    Statement rows = database_.prepare(
        "SELECT time_ns, state FROM scenes WHERE camera = ?1 AND time_ns >= coalesce((SELECT max(time_ns) FROM scenes "
        "WHERE camera = ?1 AND time_ns <= ?2), ?2) ORDER BY time_ns");
    rows.bind(cameraId(camera), since_ns);
    while (rows.step()) scenes.push_back({rows.integer(0), static_cast<SceneState>(rows.integer(1))});
    return scenes;
}

std::map<std::pair<std::string, std::int64_t>, LineHour> StoreReader::counts(const std::string& camera) {
    std::map<std::pair<std::string, std::int64_t>, LineHour> counts;
    Statement rows = database_.prepare("SELECT line, hour, forward, backward FROM counts WHERE camera = ?");
    rows.bind(cameraId(camera));
    while (rows.step()) counts[{rows.text(0), rows.integer(1)}] = {rows.integer(2), rows.integer(3)};
    return counts;
}

std::vector<ActivityMinute> StoreReader::minutes(const std::string& camera, std::int64_t since_minute) {
    std::vector<ActivityMinute> minutes;
    Statement rows = database_.prepare(
        "SELECT minute, foreground, grid FROM minutes WHERE camera = ? AND minute >= ? ORDER BY minute");
    rows.bind(cameraId(camera), since_minute);
    while (rows.step()) {
        ActivityMinute& minute = minutes.emplace_back();
        minute.minute = rows.integer(0);
        minute.foreground = rows.number(1);
        const std::string grid = rows.text(2);
        std::copy_n(grid.begin(), std::min(grid.size(), minute.grid.size()), minute.grid.begin());
    }
    return minutes;
}

std::vector<NearMiss> StoreReader::nearMisses(const std::string& camera) {
    std::vector<NearMiss> misses;
    Statement rows = database_.prepare(
        "SELECT rule, value_name, value, least, track, time_ns FROM near_misses WHERE camera = ? ORDER BY time_ns, "
        "track");
    rows.bind(cameraId(camera));
    while (rows.step())
        misses.push_back(
            {rows.text(0), rows.text(1), rows.number(2), rows.number(3), rows.integer(4), rows.integer(5)});
    return misses;
}

std::string StoreReader::parameters(const std::string& hash) {
    Statement row = database_.prepare("SELECT text FROM parameters WHERE hash = ?");
    return row.bind(std::string_view(hash)).step() ? row.text(0) : "";
}

std::vector<std::string> StoreReader::check() {
    std::vector<std::string> faults;
    Statement integrity = database_.prepare("PRAGMA integrity_check");
    while (integrity.step())
        if (integrity.text(0) != "ok") faults.push_back(integrity.text(0));
    const auto none = [&](const char* what, const std::string& sql) {
        if (const std::int64_t count = database_.integer(sql); count > 0)
            faults.push_back(std::to_string(count) + ' ' + what);
    };
    none("events of cameras that are not known",
         "SELECT count(*) FROM events WHERE id >> 40 NOT IN (SELECT id FROM cameras)");
    none("events that end before they start", "SELECT count(*) FROM events WHERE end_ns < start_ns");
    none("events whose parameters are not known",
         "SELECT count(*) FROM events WHERE parameters != '' AND parameters NOT IN (SELECT hash FROM parameters)");
    Statement paths = database_.prepare("SELECT id, path FROM tracks");
    while (paths.step()) try {
            decodePath(paths.text(1));
        } catch (const std::runtime_error& error) {
            faults.push_back("track " + std::to_string(paths.integer(0) & ((std::int64_t{1} << kCameraShift) - 1)) +
                             ": " + error.what());
        }
    return faults;
}

}  // namespace fleifeisa::host
