#include "store/records.h"

#include <sstream>

#include "store/schema.h"

namespace fleifeisa::host {

const char* const kEventColumns =
    "c.name, e.id & 1099511627775, e.kind, e.rule, e.change, e.changes, e.reason, e.text, e.state, e.track, e.visit, "
    "e.start_ns, e.time_ns, e.end_ns, e.width, e.height, e.box_left, e.box_top, e.box_width, e.box_height, e.value, "
    "e.held, e.parameters, e.objects, e.pictures, e.clip, e.keep";

RecordWriter::RecordWriter(Database& database)
    // What was attached (pictures, clip, keep) stays. A released event is a start once more, which is no new change.
    : event_(database.prepare(
          "INSERT INTO events(id, kind, rule, change, changes, reason, text, state, track, visit, start_ns, time_ns, "
          "end_ns, width, height, box_left, box_top, box_width, box_height, value, held, parameters, objects) "
          "VALUES(?1, ?2, ?3, ?4, ?4, ?5, ?6, ?7, ?8, ?9, ?10, ?11, ?12, ?13, ?14, ?15, ?16, ?17, ?18, ?19, ?20, ?21, "
          "?22) ON CONFLICT(id) DO UPDATE SET change = excluded.change, changes = CASE WHEN excluded.change = "
          "events.change THEN events.changes ELSE events.changes || ',' || excluded.change END, reason = "
          "excluded.reason, text = excluded.text, state = excluded.state, time_ns = excluded.time_ns, end_ns = "
          "excluded.end_ns, width = excluded.width, height = excluded.height, box_left = excluded.box_left, box_top = "
          "excluded.box_top, box_width = excluded.box_width, box_height = excluded.box_height, value = "
          "excluded.value, held = excluded.held, objects = excluded.objects "
          "RETURNING changes, pictures, clip, keep")),
      track_(database.prepare("INSERT OR REPLACE INTO tracks VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")),
      count_(database.prepare("INSERT INTO counts VALUES(?1, ?2, ?3, ?4, ?5) ON CONFLICT(camera, line, hour) DO UPDATE "
                              "SET forward = forward + ?4, backward = backward + ?5")),
      scene_(database.prepare("INSERT OR REPLACE INTO scenes VALUES(?, ?, ?)")),
      minute_(database.prepare("INSERT OR REPLACE INTO minutes VALUES(?, ?, ?, ?)")),
      near_miss_(database.prepare("INSERT INTO near_misses VALUES(?, ?, ?, ?, ?, ?, ?)")),
      parameters_(database.prepare("INSERT OR IGNORE INTO parameters VALUES(?, ?, ?)")),
      attach_(database.prepare(
          "INSERT INTO media(event, kind, camera, file, bytes, start_ns, end_ns, width, height, details) SELECT id, "
          "?2, "
          "?3, ?4, ?5, ?6, ?7, ?8, ?9, ?10 FROM events WHERE id = ?1 ON CONFLICT(event, kind) DO UPDATE SET file = "
          "excluded.file, bytes = excluded.bytes, start_ns = excluded.start_ns, end_ns = excluded.end_ns, width = "
          "excluded.width, height = excluded.height, details = excluded.details")),
      attached_(database.prepare("UPDATE events SET pictures = (SELECT count(*) FROM media WHERE event = ?1 AND kind = "
                                 "0), clip = CASE WHEN ?2 THEN 2 ELSE clip END WHERE id = ?1")),
      clip_(database.prepare("UPDATE events SET clip = ? WHERE id = ?")),
      find_(database.prepare(std::string("SELECT ") + kEventColumns +
                             " FROM events e JOIN cameras c ON c.id = ? WHERE e.id = ?")),
      discard_(database.prepare("INSERT OR IGNORE INTO removals VALUES(?)")),
      wanted_(database.prepare("DELETE FROM removals WHERE file = ?")) {
    static_assert(static_cast<int>(MediaKind::kPicture) == 0 && static_cast<int>(ClipState::kReady) == 2);
}

StoredEvent RecordWriter::event(std::int64_t camera, const CameraEvent& event) {
    std::string objects;
    for (const int object : event.objects) objects += (objects.empty() ? "" : ",") + std::to_string(object);
    const auto side = [&event](int Box::*member) {
        return event.box ? std::optional<std::int64_t>(*event.box.*member) : std::nullopt;
    };
    event_
        .bind(rowOf(camera, event.number), static_cast<int>(event.kind), std::string_view(event.rule),
              std::string_view(event.change), std::string_view(event.reason), std::string_view(event.text),
              static_cast<int>(event.state), event.track, event.visit, event.start_ns, event.time_ns, event.end_ns,
              event.width, event.height, side(&Box::left), side(&Box::top), side(&Box::width), side(&Box::height),
              event.value, event.held, std::string_view(event.parameters), std::string_view(objects))
        .step();
    StoredEvent stored{event, event_.text(0), static_cast<int>(event_.integer(1)),
                       static_cast<ClipState>(event_.integer(2)), event_.integer(3) != 0};
    event_.run();  // to its end
    return stored;
}

void RecordWriter::attach(std::int64_t camera, std::int64_t number, const StoredMedia& media) {
    const std::string_view file = media.file;
    attach_
        .bind(rowOf(camera, number), static_cast<int>(media.kind), camera, file, media.bytes, media.start_ns,
              media.end_ns, media.width, media.height, std::string_view(media.details))
        .run();
    attached_.bind(rowOf(camera, number), media.kind == MediaKind::kClip).run();
    (attached_.changed() > 0 ? wanted_ : discard_).bind(file).run();
}

void RecordWriter::clip(std::int64_t camera, std::int64_t number, ClipState state) {
    clip_.bind(static_cast<int>(state), rowOf(camera, number)).run();
}

std::optional<StoredEvent> RecordWriter::find(std::int64_t camera, std::int64_t number) {
    if (!find_.bind(camera, rowOf(camera, number)).step()) return std::nullopt;
    StoredEvent stored = readEvent(find_);
    find_.run();
    return stored;
}

void RecordWriter::track(std::int64_t camera, const StoredTrack& stored) {
    const PastTrack& track = stored.track;
    const std::string path = encodePath(track.path);
    track_
        .bind(rowOf(camera, track.number), track.start_ns, track.end_ns, static_cast<int>(track.ended),
              track.split_from, stored.frames, stored.path_px, stored.width, stored.height, stored.removed,
              BlobValue{path}, stored.path_error)
        .run();
}

void RecordWriter::count(std::int64_t camera, const std::string& line, std::int64_t hour, const LineHour& count) {
    count_.bind(camera, std::string_view(line), hour, count.forward, count.backward).run();
}

void RecordWriter::scene(std::int64_t camera, const PastScene& scene) {
    scene_.bind(camera, scene.time_ns, static_cast<int>(scene.state)).run();
}

void RecordWriter::minute(std::int64_t camera, const ActivityMinute& minute) {
    const std::string grid(minute.grid.begin(), minute.grid.end());
    minute_.bind(camera, minute.minute, minute.foreground, BlobValue{grid}).run();
}

void RecordWriter::nearMiss(std::int64_t camera, const NearMiss& miss) {
    near_miss_
        .bind(miss.time_ns, camera, std::string_view(miss.rule), std::string_view(miss.value_name), miss.value,
              miss.limit, miss.track)
        .run();
}

void RecordWriter::parameters(const std::string& hash, const std::string& text, std::int64_t time_ns) {
    parameters_.bind(std::string_view(hash), std::string_view(text), time_ns).run();
}

StoredEvent readEvent(const Statement& row) {
    StoredEvent stored;
    CameraEvent& event = stored.event;
    const auto small = [&row](int column) { return static_cast<int>(row.integer(column)); };
    event.camera = row.text(0);
    event.number = row.integer(1);
    event.kind = static_cast<EventKind>(row.integer(2));
    event.rule = row.text(3);
    event.change = row.text(4);
    stored.changes = row.text(5);
    event.reason = row.text(6);
    event.text = row.text(7);
    event.state = static_cast<EventState>(row.integer(8));
    event.track = row.integer(9);
    event.visit = row.integer(10);
    event.start_ns = row.integer(11);
    event.time_ns = row.integer(12);
    if (!row.isNull(13)) event.end_ns = row.integer(13);
    event.width = small(14);
    event.height = small(15);
    if (!row.isNull(16)) event.box = Box{small(16), small(17), small(18), small(19)};
    if (!row.isNull(20)) event.value = row.number(20);
    event.held = row.integer(21) != 0;
    event.parameters = row.text(22);
    std::istringstream objects(row.text(23));
    for (std::string object; std::getline(objects, object, ',');) event.objects.push_back(std::stoi(object));
    stored.pictures = small(24);
    stored.clip = static_cast<ClipState>(row.integer(25));
    stored.keep = row.integer(26) != 0;
    return stored;
}

const char* const kMediaColumns = "kind, file, bytes, start_ns, end_ns, width, height, details";

StoredMedia readMedia(const Statement& row) {
    return {static_cast<MediaKind>(row.integer(0)),
            row.text(1),
            row.integer(2),
            row.integer(3),
            row.integer(4),
            static_cast<int>(row.integer(5)),
            static_cast<int>(row.integer(6)),
            row.text(7)};
}

}  // namespace fleifeisa::host
