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
          "excluded.value, held = excluded.held, objects = excluded.objects")),
      track_(database.prepare("INSERT OR REPLACE INTO tracks VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)")),
      count_(database.prepare("INSERT INTO counts VALUES(?1, ?2, ?3, ?4, ?5) ON CONFLICT(camera, line, hour) DO UPDATE "
                              "SET forward = forward + ?4, backward = backward + ?5")),
      scene_(database.prepare("INSERT OR REPLACE INTO scenes VALUES(?, ?, ?)")),
      minute_(database.prepare("INSERT OR REPLACE INTO minutes VALUES(?, ?, ?, ?)")),
      near_miss_(database.prepare("INSERT INTO near_misses VALUES(?, ?, ?, ?, ?, ?, ?)")),
      parameters_(database.prepare("INSERT OR IGNORE INTO parameters VALUES(?, ?, ?)")) {}

void RecordWriter::event(std::int64_t camera, const CameraEvent& event) {
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
        .run();
}

void RecordWriter::track(std::int64_t camera, const StoredTrack& stored) {
    const PastTrack& track = stored.track;
    const std::string path = encodePath(track.path);
    track_
        .bind(rowOf(camera, track.number), track.start_ns, track.end_ns, static_cast<int>(track.ended),
              track.split_from, stored.frames, stored.path_px, stored.width, stored.height, stored.removed, Blob{path},
              stored.path_error)
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
    minute_.bind(camera, minute.minute, minute.foreground, Blob{grid}).run();
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

}  // namespace fleifeisa::host
