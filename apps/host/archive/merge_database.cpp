#include "archive/merge_database.h"

namespace fleifeisa::host {
namespace {

constexpr const char* kSchema = R"(
PRAGMA page_size = 4096;
PRAGMA journal_mode = OFF;
PRAGMA synchronous = OFF;
CREATE TABLE cameras(id INTEGER PRIMARY KEY, name TEXT NOT NULL UNIQUE, title TEXT NOT NULL);
-- state: done, damaged (a part of the file could not be read), failed, missing (not run so far).
-- start_ns: of the file's first frame, null where nobody said; times of its tracks and events then begin at 0, and
-- they have no day and no hour. part_*: nanoseconds since the file's beginning, of a file that was cut.
CREATE TABLE clips(id INTEGER PRIMARY KEY, camera INTEGER NOT NULL, result TEXT NOT NULL, file TEXT NOT NULL,
                   start_ns INTEGER, part_from_ns INTEGER, part_to_ns INTEGER, state TEXT NOT NULL,
                   reason TEXT NOT NULL, frames INTEGER, width INTEGER, height INTEGER, first_ns INTEGER,
                   last_ns INTEGER, frames_hash TEXT, replies_hash TEXT, tracks_hash TEXT, events_hash TEXT);
CREATE TABLE tracks(id INTEGER PRIMARY KEY, clip INTEGER NOT NULL, number INTEGER NOT NULL, day TEXT, hour INTEGER,
                    start_ns INTEGER NOT NULL, end_ns INTEGER NOT NULL, ended TEXT NOT NULL, frames INTEGER NOT NULL,
                    path_px REAL NOT NULL, thumb TEXT, json TEXT NOT NULL);
-- number, track and visit count within the clip. Files are relative to the clip's result.
CREATE TABLE events(id INTEGER PRIMARY KEY, clip INTEGER NOT NULL, camera INTEGER NOT NULL, number INTEGER NOT NULL,
                    kind TEXT NOT NULL, rule TEXT NOT NULL, changes TEXT NOT NULL, reason TEXT NOT NULL,
                    text TEXT NOT NULL, day TEXT, hour INTEGER, start_ns INTEGER NOT NULL, end_ns INTEGER NOT NULL,
                    track INTEGER, visit INTEGER, value REAL, held INTEGER NOT NULL, thumb TEXT, picture TEXT,
                    strip TEXT, video TEXT, json TEXT NOT NULL);
)";

constexpr const char* kBehind = R"(
CREATE TABLE counts(camera INTEGER NOT NULL, line TEXT NOT NULL, day TEXT NOT NULL, hour INTEGER NOT NULL,
                    forward INTEGER NOT NULL, backward INTEGER NOT NULL, PRIMARY KEY(camera, line, day, hour))
    WITHOUT ROWID;
INSERT INTO counts SELECT camera, rule, coalesce(day, ''), coalesce(hour, 0), sum(changes = 'forward'),
                          sum(changes = 'backward')
    FROM events WHERE kind = 'line' GROUP BY 1, 2, 3, 4 ORDER BY 1, 2, 3, 4;
CREATE INDEX events_day ON events(camera, day, hour);
CREATE INDEX events_rule ON events(rule, start_ns);
CREATE INDEX events_start ON events(start_ns);
CREATE INDEX tracks_start ON tracks(start_ns);
CREATE INDEX tracks_clip ON tracks(clip, number);
)";

std::optional<std::string> unlessEmpty(const std::string& text) {
    return text.empty() ? std::nullopt : std::optional(text);
}

std::optional<std::int64_t> unlessZero(std::int64_t value) {
    return value == 0 ? std::nullopt : std::optional(value);
}

}  // namespace

MergeDatabase::MergeDatabase(const std::string& path, const Plan& plan)
    : plan_(plan), time_(plan.timezone), database_(path, Database::Mode::kReadWrite) {
    database_.run(kSchema);
    transaction_.emplace(database_);
    camera_ = database_.prepare("INSERT INTO cameras VALUES(?, ?, ?)");
    clip_ = database_.prepare("INSERT INTO clips VALUES(?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)");
    track_ = database_.prepare("INSERT INTO tracks VALUES(NULL,?,?,?,?,?,?,?,?,?,?,?)");
    event_ = database_.prepare("INSERT INTO events VALUES(NULL,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?,?)");
}

std::int64_t MergeDatabase::cameraOf(const std::string& name) {
    const auto [found, is_new] = cameras_.emplace(name, static_cast<std::int64_t>(cameras_.size()) + 1);
    if (is_new) {
        const auto title = plan_.titles.find(name);
        camera_
            ->bind(found->second, std::string_view(name),
                   std::string_view(title == plan_.titles.end() ? "" : title->second))
            .run();
    }
    return found->second;
}

void MergeDatabase::add(const ClipRun& run, const ClipResult* result, const std::string& state,
                        const std::string& reason) {
    const Clip& clip = run.clip;
    const std::int64_t camera = cameraOf(clip.camera), id = ++clips_;
    const bool part = !clip.part.whole(), there = result != nullptr;
    const ClipSummary summary = there ? result->summary : ClipSummary{};
    const auto if_there = [there](const auto& value) { return there ? std::optional(value) : std::nullopt; };
    const auto if_part = [part](std::int64_t value) { return part ? std::optional(value) : std::nullopt; };
    clip_
        ->bind(id, camera, std::string_view(run.name), std::string_view(clip.file), clip.start_time_ns,
               if_part(clip.part.from_ns), if_part(clip.part.to_ns), std::string_view(state), std::string_view(reason),
               if_there(summary.frames), if_there(summary.width), if_there(summary.height), if_there(summary.first_ns),
               if_there(summary.last_ns), if_there(summary.frames_hash), if_there(summary.replies_hash),
               if_there(summary.tracks_hash), if_there(summary.events_hash))
        .run();
    if (!there) return;
    const bool dated = clip.start_time_ns.has_value();
    const auto day_of = [&](std::int64_t time_ns) {
        return dated ? std::optional(time_.dayOf(time_ns)) : std::nullopt;
    };
    const auto hour_of = [&](std::int64_t time_ns) {
        return dated ? std::optional(time_.hourOf(time_ns)) : std::nullopt;
    };
    for (const ResultTrack& track : result->tracks) {
        const auto day = day_of(track.start_ns);
        const auto thumb = unlessEmpty(track.thumb);
        track_
            ->bind(id, track.number, day, hour_of(track.start_ns), track.start_ns, track.end_ns,
                   std::string_view(track.ended), track.frames, track.path_px, thumb, std::string_view(track.message))
            .run();
    }
    for (const ResultEvent& event : result->events) {
        const auto day = day_of(event.start_ns);
        const auto thumb = unlessEmpty(event.thumb), picture = unlessEmpty(event.picture),
                   strip = unlessEmpty(event.strip), video = unlessEmpty(event.video);
        event_
            ->bind(id, camera, event.number, std::string_view(event.kind), std::string_view(event.rule),
                   std::string_view(event.changes), std::string_view(event.reason), std::string_view(event.text), day,
                   hour_of(event.start_ns), event.start_ns, event.end_ns, unlessZero(event.track),
                   unlessZero(event.visit), event.value, event.held, thumb, picture, strip, video,
                   std::string_view(event.message))
            .run();
    }
}

void MergeDatabase::finish() {
    transaction_->commit();
    database_.run(kBehind);
}

}  // namespace fleifeisa::host
