#include "web/event_queries.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>

#include "common/text.h"
#include "events/foot_path.h"
#include "http/message.h"
#include "store/schema.h"
#include "store/state_directory.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kMinuteNs = 60'000'000'000;
constexpr std::int64_t kMostValues = 2000;  // of an activity
constexpr std::int64_t kNumberMask = (std::int64_t{1} << kCameraShift) - 1;

std::string moment(const std::string& name, std::int64_t time_ns) {
    return "\"" + name + "\":\"" + rfc3339(time_ns) + "\",\"" + name + "_ns\":" + std::to_string(time_ns);
}

std::string yesNo(bool value) {
    return value ? "true" : "false";
}

/// Seven decimals: enough for a share of any picture, and the same on every machine.
std::string share(double value) {
    constexpr int kDecimals = 7;
    return rounded(value, kDecimals);
}

/// The box, which is in pixels of the analyzed frame, and the area have a point in common.
std::string meets(const EventQuery::Area& area, const PictureMap& map) {
    const auto x = [&](double v) { return share((v - map.left) / map.width); };
    const auto y = [&](double v) { return share((v - map.top) / map.height); };
    return "(e.box_left <= e.width * " + x(area.right) + " AND e.box_left + e.box_width >= e.width * " + x(area.left) +
           " AND e.box_top <= e.height * " + y(area.bottom) + " AND e.box_top + e.box_height >= e.height * " +
           y(area.top) + ")";
}

/// What somebody said last: Verdict::kRight or kWrong as a number, 0: nothing.
constexpr const char* kMark =
    "coalesce((SELECT v.verdict FROM reviews v WHERE v.event = e.id AND v.verdict > 0 ORDER BY v.time_ns DESC LIMIT "
    "1), 0)";

/// As lists have it.
std::string withNews(const StoredEvent& stored, bool reviewed, std::int64_t mark) {
    std::string json = eventJson(stored.event, stored.pictures, stored.clip);
    json.pop_back();
    json += ",\"number\":" + std::to_string(stored.event.number) + ",\"changes\":[";
    std::string_view rest = stored.changes;
    for (bool first = true; !rest.empty(); first = false) {
        const std::size_t end = std::min(rest.find(','), rest.size());
        json += (first ? "" : ",") + jsonString(rest.substr(0, end));
        rest.remove_prefix(std::min(end + 1, rest.size()));
    }
    return json + "],\"keep\":" + yesNo(stored.keep) + ",\"reviewed\":" + yesNo(reviewed) + ",\"mark\":" +
           (mark == 0   ? "null"
            : mark == 1 ? "\"right\""
                        : "\"wrong\"") +
           '}';
}

}  // namespace

std::optional<std::pair<std::string, std::int64_t>> eventIdParts(std::string_view id) {
    const std::size_t dash = id.rfind('-');
    if (dash == std::string_view::npos || dash == 0) return std::nullopt;
    std::int64_t number = 0;
    const std::string_view digits = id.substr(dash + 1);
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    if (error != std::errc{} || end != digits.data() + digits.size() || number <= 0 || number > kNumberMask)
        return std::nullopt;
    return std::pair{std::string(id.substr(0, dash)), number};
}

EventQueries::EventQueries(const std::string& directory)
    : reader_(directory), database_(StateDirectory::databasePath(directory), Database::Mode::kReadOnly) {}

std::int64_t EventQueries::idOf(const std::string& camera) {
    Statement row = database_.prepare("SELECT id FROM cameras WHERE name = ?");
    return row.bind(std::string_view(camera)).step() ? row.integer(0) : 0;
}

/// Names and numbers only, checked before: nothing that could end a quote.
std::string EventQueries::where(const EventQuery& query, bool visits) {
    const std::string shift = std::to_string(kCameraShift), mask = std::to_string(kNumberMask);
    std::string text = " WHERE e.start_ns >= " + std::to_string(query.since_ns) + " AND e.start_ns < " +
                       std::to_string(query.until_ns);
    if (query.before)
        text += " AND (e.start_ns, e.id) < (" + std::to_string(query.before->first) + ',' +
                std::to_string(query.before->second) + ')';
    if (query.cameras) {
        std::string ids = "0";
        for (const std::string& camera : *query.cameras) ids += ',' + std::to_string(idOf(camera));
        text += " AND e.id >> " + shift + " IN (" + ids + ')';
    }
    if (visits) text += " AND e.kind = " + std::to_string(static_cast<int>(EventKind::kMotion));
    if (query.held) text += " AND e.held = " + std::string(*query.held ? "1" : "0");
    if (query.keep) text += " AND e.keep = " + std::string(*query.keep ? "1" : "0");
    if (query.reviewed) text += *query.reviewed ? " AND r.event IS NOT NULL" : " AND r.event IS NULL";
    // Of a visit: it, or an event in it.
    std::string one;
    if (!query.kinds.empty()) {
        std::string kinds;
        for (const EventKind kind : query.kinds)
            kinds += (kinds.empty() ? "" : ",") + std::to_string(static_cast<int>(kind));
        one += " AND e.kind IN (" + kinds + ')';
    }
    if (!query.rule.empty()) one += " AND e.rule = '" + query.rule + '\'';
    if (query.mark)
        one += std::string(" AND ") + kMark + " = " +
               (*query.mark == "none"    ? "0"
                : *query.mark == "right" ? "1"
                                         : "2");
    if (query.area) {
        std::string any = "0";
        std::string others = "0";
        for (const auto& [camera, map] : query.maps) {
            const std::string id = std::to_string(idOf(camera));
            any += " OR (e.id >> " + shift + " = " + id + " AND " + meets(*query.area, map) + ')';
            others += ',' + id;
        }
        one +=
            " AND (" + any + " OR (e.id >> " + shift + " NOT IN (" + others + ") AND " + meets(*query.area, {}) + "))";
    }
    if (!query.visit.empty()) {
        const auto parts = eventIdParts(query.visit);
        const std::int64_t camera = parts ? idOf(parts->first) : 0;
        const std::string number = std::to_string(parts ? parts->second : 0);
        one += " AND e.id >= " + std::to_string(rowOf(camera, 0)) + " AND e.id < " +
               std::to_string(rowOf(camera + 1, 0)) + " AND (e.visit = " + number +
               " OR e.id = " + std::to_string(rowOf(camera, parts ? parts->second : 0)) + ')';
    }
    if (one.empty() || !visits) return text + one;
    return text + " AND e.id IN (SELECT (e.id & ~" + mask + ") + CASE WHEN e.kind = 0 THEN e.id & " + mask +
           " ELSE e.visit END FROM events e WHERE e.start_ns >= " + std::to_string(query.since_ns) + one + ')';
}

std::string EventQueries::page(
    const EventQuery& query, bool visits,
    const std::function<std::string(const StoredEvent&, std::int64_t, const std::string&)>& item) {
    Statement rows = database_.prepare(std::string("SELECT ") + kEventColumns + ", r.event IS NOT NULL, " + kMark +
                                       ", e.id FROM events e "
                                       "JOIN cameras c ON c.id = e.id >> " +
                                       std::to_string(kCameraShift) + " LEFT JOIN reviews r ON r.user = '" +
                                       query.user + "' AND r.event = e.id" + where(query, visits) +
                                       " ORDER BY e.start_ns DESC, e.id DESC LIMIT " + std::to_string(query.limit + 1));
    constexpr int kReviewed = 27, kMarkColumn = 28, kRow = 29;
    std::string list, next;
    std::int64_t start_ns = 0, row = 0;
    for (int count = 0; rows.step(); ++count) {
        if (count == query.limit) {
            next = std::to_string(start_ns) + '.' + std::to_string(row);
            break;
        }
        const StoredEvent stored = readEvent(rows);
        start_ns = stored.event.start_ns;
        row = rows.integer(kRow);
        list += (count == 0 ? "" : ",") +
                item(stored, row, withNews(stored, rows.integer(kReviewed) != 0, rows.integer(kMarkColumn)));
    }
    return std::string("{\"") + (visits ? "visits" : "events") + "\":[" + list +
           "],\"next\":" + (next.empty() ? "null" : jsonString(next)) + '}';
}

std::string EventQueries::events(const EventQuery& query) {
    return page(query, false, [](const StoredEvent&, std::int64_t, const std::string& json) { return json; });
}

std::string EventQueries::visits(const EventQuery& query) {
    Statement inside = database_.prepare(
        "SELECT kind, rule, track, pictures, id & ?4 FROM events WHERE start_ns >= ?1 AND start_ns <= ?2 AND visit = "
        "?3 "
        "AND id >= ?5 AND id < ?6 ORDER BY id");
    return page(query, true, [&](const StoredEvent& stored, std::int64_t row, const std::string& json) {
        const CameraEvent& visit = stored.event;
        const std::int64_t camera = row >> kCameraShift;
        inside.bind(visit.start_ns, visit.end_ns.value_or(INT64_MAX), visit.number, kNumberMask, rowOf(camera, 0),
                    rowOf(camera + 1, 0));
        std::map<std::string, int> kinds;
        std::set<std::string> rules;
        std::set<std::int64_t> tracks;
        std::int64_t show = stored.pictures > 0 ? visit.number : 0;
        while (inside.step()) {
            ++kinds[nameOf(static_cast<EventKind>(inside.integer(0)))];
            if (const std::string rule = inside.text(1); !rule.empty()) rules.insert(rule);
            if (inside.integer(2) > 0) tracks.insert(inside.integer(2));
            if (show == 0 && inside.integer(3) > 0) show = inside.integer(4);
        }
        inside.reset();
        if (tracks.empty() && visit.track > 0) tracks.insert(visit.track);
        std::string text = "{\"event\":" + json + ",\"kinds\":{";
        for (const auto& [kind, count] : kinds)
            text += (text.back() == '{' ? "" : ",") + jsonString(kind) + ':' + std::to_string(count);
        text += "},\"rules\":[";
        for (const std::string& rule : rules) text += (text.back() == '[' ? "" : ",") + jsonString(rule);
        return text + "],\"tracks\":" + std::to_string(tracks.size()) +
               ",\"show\":" + jsonString(eventId(visit.camera, show == 0 ? visit.number : show)) + '}';
    });
}

std::optional<EventQueries::Found> EventQueries::event(const std::string& camera, std::int64_t number,
                                                       const std::string& user) {
    const std::int64_t row = rowOf(idOf(camera), number);
    Statement found = database_.prepare(
        std::string("SELECT ") + kEventColumns +
        ", EXISTS(SELECT 1 FROM reviews r WHERE r.user = ?2 AND r.event = e.id), " + kMark +
        ", coalesce((SELECT v.user FROM reviews v WHERE v.event = e.id AND v.verdict > 0 ORDER BY v.time_ns DESC "
        "LIMIT 1), '') FROM events e JOIN cameras c ON c.id = e.id >> " +
        std::to_string(kCameraShift) + " WHERE e.id = ?1");
    constexpr int kReviewed = 27, kMarkColumn = 28, kBy = 29;
    if (!found.bind(row, std::string_view(user)).step()) return std::nullopt;
    const StoredEvent stored = readEvent(found);
    const std::int64_t mark = found.integer(kMarkColumn);
    return Found{stored, withNews(stored, found.integer(kReviewed) != 0, mark), found.text(kBy), mark != 0};
}

std::vector<std::int64_t> EventQueries::family(const std::string& camera, std::int64_t number) {
    const std::int64_t id = idOf(camera), row = rowOf(id, number);
    std::vector<std::int64_t> numbers;
    Statement visit = database_.prepare("SELECT start_ns, coalesce(end_ns, ?2), kind FROM events WHERE id = ?1");
    if (!visit.bind(row, INT64_MAX).step()) return numbers;
    numbers.push_back(number);
    if (static_cast<EventKind>(visit.integer(2)) != EventKind::kMotion) return numbers;
    Statement inside = database_.prepare(
        "SELECT id FROM events WHERE start_ns >= ? AND start_ns <= ? AND visit = ? AND id >= ? AND id < ?");
    inside.bind(visit.integer(0), visit.integer(1), number, rowOf(id, 0), rowOf(id + 1, 0));
    while (inside.step()) numbers.push_back(inside.integer(0) & kNumberMask);
    return numbers;
}

std::string EventQueries::activity(const std::string& camera, std::int64_t since_ns, std::int64_t until_ns, int step,
                                   bool grid) {
    // A minute with a part in the time counts.
    const std::int64_t first = since_ns / kMinuteNs, end = (until_ns + kMinuteNs - 1) / kMinuteNs;
    const std::int64_t minutes = std::max<std::int64_t>(0, end - first);
    const std::int64_t least = (minutes + kMostValues - 1) / kMostValues;
    const std::int64_t each = std::max<std::int64_t>({1, step, least});
    struct Bin {
        double sum = 0;
        int count = 0;
    };
    std::vector<Bin> bins(static_cast<std::size_t>((minutes + each - 1) / each));
    std::array<std::int64_t, ActivityMinute::kSide * ActivityMinute::kSide> cells{};
    std::int64_t counted = 0;
    Statement rows = database_.prepare(
        "SELECT minute, foreground, grid FROM minutes WHERE camera = ? AND minute >= ? AND minute < ? ORDER BY minute");
    rows.bind(idOf(camera), first, end);
    while (rows.step()) {
        Bin& bin = bins[static_cast<std::size_t>((rows.integer(0) - first) / each)];
        bin.sum += rows.number(1);
        ++bin.count;
        if (!grid) continue;
        const std::string shares = rows.text(2);
        for (std::size_t i = 0; i < std::min(shares.size(), cells.size()); ++i)
            cells[i] += static_cast<unsigned char>(shares[i]);
        ++counted;
    }
    std::string json = "{\"camera\":" + jsonString(camera) + ",\"step\":" + std::to_string(each) + ',' +
                       moment("from", first * kMinuteNs) + ",\"foreground\":[";
    for (std::size_t i = 0; i < bins.size(); ++i)
        json += (i == 0 ? "" : ",") + (bins[i].count == 0 ? "null" : share(bins[i].sum / bins[i].count));
    json += ']';
    if (grid) {
        constexpr double kFull = 255;
        json += ",\"grid\":[";
        for (std::size_t i = 0; i < cells.size(); ++i)
            json += (i == 0 ? "" : ",") +
                    (counted == 0 ? "0" : share(static_cast<double>(cells[i]) / kFull / static_cast<double>(counted)));
        json += ']';
    }
    return json + '}';
}

std::string EventQueries::gaps(const std::string& camera, std::int64_t since_ns, std::int64_t until_ns) {
    std::string json;
    const auto gap = [&](std::int64_t from, std::int64_t to, const char* why) {
        json += (json.empty() ? "" : ",") + ("{" + moment("from", from)) + ',' + moment("to", to) + ",\"why\":\"" +
                why + "\"}";
    };
    const std::int64_t id = idOf(camera);
    // Minutes without a frame, between such with one.
    Statement minutes = database_.prepare(
        "SELECT minute FROM minutes WHERE camera = ?1 AND minute >= coalesce((SELECT max(minute) FROM minutes WHERE "
        "camera = ?1 AND minute <= ?2), ?2) AND minute <= coalesce((SELECT min(minute) FROM minutes WHERE camera = ?1 "
        "AND "
        "minute >= ?3), ?3) ORDER BY minute");
    minutes.bind(id, since_ns / kMinuteNs, until_ns / kMinuteNs);
    for (std::int64_t last = -1; minutes.step(); last = minutes.integer(0))
        if (last >= 0 && minutes.integer(0) > last + 1)
            gap((last + 1) * kMinuteNs, minutes.integer(0) * kMinuteNs, "no-frames");
    Statement lost = database_.prepare(
        "SELECT start_ns, coalesce(end_ns, ?4) FROM events WHERE id >= ?1 AND id < ?2 AND kind = ?5 AND change = "
        "'lost' "
        "AND start_ns < ?4 AND coalesce(end_ns, ?4) > ?3 ORDER BY start_ns");
    lost.bind(rowOf(id, 0), rowOf(id + 1, 0), since_ns, until_ns, static_cast<int>(EventKind::kScene));
    while (lost.step()) gap(lost.integer(0), lost.integer(1), "lost");
    return "{\"camera\":" + jsonString(camera) + ",\"gaps\":[" + json + "]}";
}

std::string EventQueries::scenes(const std::string& camera, std::int64_t since_ns, std::int64_t until_ns) {
    std::string json;
    if (idOf(camera) != 0)
        for (const PastScene& scene : reader_.scenes(camera, since_ns))
            if (scene.time_ns < until_ns)
                json += (json.empty() ? "{" : ",{") + moment("time", scene.time_ns) + ",\"state\":\"" +
                        nameOf(scene.state) + "\"}";
    return "{\"camera\":" + jsonString(camera) + ",\"scenes\":[" + json + "]}";
}

std::string EventQueries::counts(const std::string& camera, std::int64_t since_ns, std::int64_t until_ns) {
    std::string json;
    if (idOf(camera) != 0)
        for (const auto& [key, count] : reader_.counts(camera)) {
            const std::int64_t hour_ns = key.second * kHourNs;
            if (hour_ns + kHourNs <= since_ns || hour_ns >= until_ns) continue;
            json += (json.empty() ? "{" : ",{") + ("\"line\":" + jsonString(key.first)) + ',' +
                    moment("hour", hour_ns) + ",\"forward\":" + std::to_string(count.forward) +
                    ",\"backward\":" + std::to_string(count.backward) + '}';
        }
    return "{\"camera\":" + jsonString(camera) + ",\"counts\":[" + json + "]}";
}

std::string EventQueries::paths(const std::string& camera, std::int64_t since_ns, std::int64_t until_ns) {
    const std::int64_t id = idOf(camera);
    // Deliberate: +end_ns keeps the index of ends away, which holds all cameras' tracks up to today; a camera's own are
    // in the order of their numbers.
    Statement tracks = database_.prepare(
        "SELECT id, ended, path_error, path FROM tracks WHERE id >= ? AND id < ? AND start_ns < ? AND +end_ns >= ? "
        "ORDER BY id "
        "LIMIT ?");
    tracks.bind(rowOf(id, 0), rowOf(id + 1, 0), until_ns, since_ns, kMostPaths);
    std::string json;
    while (tracks.step()) {
        std::string points;
        for (const FootPoint& point : decodePath(tracks.text(3)))
            points += (points.empty() ? "[" : ",[") + std::to_string(point.time_ns) + ',' + share(point.foot.x) + ',' +
                      share(point.foot.y) + ',' + share(point.width) + ',' + share(point.height) + ']';
        json += (json.empty() ? "" : ",") + ("{\"track\":" + std::to_string(tracks.integer(0) & kNumberMask)) +
                ",\"ended\":\"" + nameOf(static_cast<TrackEnd>(tracks.integer(1))) +
                "\",\"error\":" + share(tracks.number(2)) + ",\"points\":[" + points + "]}";
    }
    return "{\"camera\":" + jsonString(camera) + ",\"paths\":[" + json + "]}";
}

std::vector<std::pair<StoredEvent, std::int64_t>> EventQueries::marked(const std::string& camera, EventKind kind,
                                                                       const std::string& rule, int most) {
    const std::int64_t id = idOf(camera);
    Statement rows =
        database_.prepare(std::string("SELECT ") + kEventColumns + ", " + kMark +
                          " FROM events e JOIN cameras c ON c.id = e.id >> " + std::to_string(kCameraShift) +
                          " WHERE e.id >= ? AND e.id < ? AND e.kind = ? AND e.rule = ? AND e.held = 0 "
                          "ORDER BY e.id DESC LIMIT ?");
    rows.bind(rowOf(id, 0), rowOf(id + 1, 0), static_cast<int>(kind), std::string_view(rule), most);
    constexpr int kMarkColumn = 27;
    std::vector<std::pair<StoredEvent, std::int64_t>> all;
    while (rows.step()) all.emplace_back(readEvent(rows), rows.integer(kMarkColumn));
    return all;
}

std::optional<double> EventQueries::daysThatFit(std::int64_t free_bytes) {
    const auto now = std::chrono::nanoseconds(std::chrono::system_clock::now().time_since_epoch()).count();
    std::optional<double> days;
    for (const MediaUse& use : reader_.use(now, free_bytes))
        if (use.days_that_fit >= 0) days = std::min(days.value_or(use.days_that_fit), use.days_that_fit);
    return days;
}

std::string EventQueries::lastEvent(const std::string& camera) {
    const std::int64_t id = idOf(camera);
    if (id == 0) return "";
    Statement row = database_.prepare("SELECT max(id) FROM events WHERE id >= ? AND id < ? AND held = 0");
    row.bind(rowOf(id, 0), rowOf(id + 1, 0)).step();
    return row.isNull(0) ? "" : eventId(camera, row.integer(0) & kNumberMask);
}

}  // namespace fleifeisa::host
