#include "store/schema.h"

#include <array>

namespace fleifeisa::host {
namespace {

/// Step i leads from version i to i + 1. Steps are never changed once they are in use: add one.
constexpr std::array<const char*, kSchemaVersion> kSteps = {
    // 1: what happened
    R"(
CREATE TABLE cameras(id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE, title TEXT NOT NULL DEFAULT '',
                     source TEXT NOT NULL DEFAULT '');
CREATE TABLE parameters(hash TEXT PRIMARY KEY, text TEXT NOT NULL, first_ns INTEGER NOT NULL) WITHOUT ROWID;
CREATE TABLE tracks(id INTEGER PRIMARY KEY, start_ns INTEGER NOT NULL, end_ns INTEGER NOT NULL, ended INTEGER NOT NULL,
                    split_from INTEGER NOT NULL, frames INTEGER NOT NULL, path_px REAL NOT NULL,
                    width INTEGER NOT NULL, height INTEGER NOT NULL, removed INTEGER NOT NULL,
                    path BLOB NOT NULL, path_error REAL NOT NULL);
CREATE INDEX tracks_end ON tracks(end_ns);
CREATE TABLE events(id INTEGER PRIMARY KEY, kind INTEGER NOT NULL, rule TEXT NOT NULL, change TEXT NOT NULL,
                    changes TEXT NOT NULL, reason TEXT NOT NULL, text TEXT NOT NULL, state INTEGER NOT NULL,
                    track INTEGER NOT NULL, visit INTEGER NOT NULL, start_ns INTEGER NOT NULL, time_ns INTEGER NOT NULL,
                    end_ns INTEGER, width INTEGER NOT NULL, height INTEGER NOT NULL, box_left INTEGER, box_top INTEGER,
                    box_width INTEGER, box_height INTEGER, value REAL, held INTEGER NOT NULL, parameters TEXT NOT NULL,
                    objects TEXT NOT NULL, pictures INTEGER NOT NULL DEFAULT 0, clip INTEGER NOT NULL DEFAULT 0,
                    keep INTEGER NOT NULL DEFAULT 0);
CREATE INDEX events_start ON events(start_ns);
CREATE INDEX events_open ON events(id) WHERE end_ns IS NULL;
CREATE TABLE counts(camera INTEGER NOT NULL, line TEXT NOT NULL, hour INTEGER NOT NULL, forward INTEGER NOT NULL,
                    backward INTEGER NOT NULL, PRIMARY KEY(camera, line, hour)) WITHOUT ROWID;
CREATE TABLE scenes(camera INTEGER NOT NULL, time_ns INTEGER NOT NULL, state INTEGER NOT NULL,
                    PRIMARY KEY(camera, time_ns)) WITHOUT ROWID;
)",
    // 2: how busy it was, and what nearly happened
    R"(
CREATE TABLE minutes(camera INTEGER NOT NULL, minute INTEGER NOT NULL, foreground REAL NOT NULL, grid BLOB NOT NULL,
                     PRIMARY KEY(camera, minute)) WITHOUT ROWID;
CREATE TABLE near_misses(time_ns INTEGER NOT NULL, camera INTEGER NOT NULL, rule TEXT NOT NULL, value_name TEXT NOT NULL,
                         value REAL NOT NULL, least REAL NOT NULL, track INTEGER NOT NULL);
CREATE INDEX near_misses_time ON near_misses(time_ns);
)",
    // 3: files of events. Whatever deletes a row leaves the file's name in removals, so that none is forgotten.
    R"(
CREATE TABLE media(event INTEGER NOT NULL, kind INTEGER NOT NULL, camera INTEGER NOT NULL, file TEXT NOT NULL,
                   bytes INTEGER NOT NULL, start_ns INTEGER NOT NULL, end_ns INTEGER NOT NULL, width INTEGER NOT NULL,
                   height INTEGER NOT NULL, details TEXT NOT NULL, PRIMARY KEY(event, kind)) WITHOUT ROWID;
CREATE INDEX media_age ON media(kind, start_ns);
CREATE INDEX media_use ON media(camera, kind, start_ns, bytes);
CREATE INDEX events_kept ON events(id) WHERE keep = 1;
CREATE TABLE limits(camera INTEGER PRIMARY KEY, clip_bytes INTEGER NOT NULL, clip_days INTEGER NOT NULL,
                    event_days INTEGER NOT NULL);
CREATE TABLE removals(file TEXT PRIMARY KEY) WITHOUT ROWID;
CREATE TABLE reviews(event INTEGER NOT NULL, user TEXT NOT NULL, verdict INTEGER NOT NULL, time_ns INTEGER NOT NULL,
                     PRIMARY KEY(event, user)) WITHOUT ROWID;
CREATE TRIGGER media_gone AFTER DELETE ON media BEGIN
    INSERT OR IGNORE INTO removals VALUES(old.file);
END;
CREATE TRIGGER events_gone AFTER DELETE ON events BEGIN
    DELETE FROM media WHERE event = old.id;
    DELETE FROM reviews WHERE event = old.id;
END;
)",
};

std::int64_t versionOf(Database& database) {
    const std::int64_t version = database.integer("PRAGMA user_version");
    if (version > kSchemaVersion)
        database.fail("was written by a newer version of this program (schema " + std::to_string(version) + ", here " +
                      std::to_string(kSchemaVersion) + ")");
    if (version == 0 && database.integer("SELECT count(*) FROM sqlite_master") > 0)
        database.fail("is a database, but not one of this program");
    return version;
}

}  // namespace

void migrate(Database& database, int to_version) {
    for (std::int64_t version = versionOf(database); version < to_version; ++version) {
        Transaction transaction(database);
        database.run(kSteps[static_cast<std::size_t>(version)]);
        database.run("PRAGMA user_version = " + std::to_string(version + 1));
        transaction.commit();
    }
}

void checkVersion(Database& database) {
    const std::int64_t version = versionOf(database);
    if (version != kSchemaVersion)
        database.fail("has schema " + std::to_string(version) + ", expected " + std::to_string(kSchemaVersion) +
                      " (the host brings it up to date when it starts)");
}

}  // namespace fleifeisa::host
