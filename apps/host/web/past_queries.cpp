// What studies of the past ask the store for (study_routes.cpp, rule_routes.cpp).
#include <algorithm>

#include "store/schema.h"
#include "web/event_queries.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kMinuteNs = 60'000'000'000;
constexpr std::int64_t kNumberMask = (std::int64_t{1} << kCameraShift) - 1;

}  // namespace

std::int64_t EventQueries::eventsBetween(const std::string& camera, std::int64_t since_ns, std::int64_t until_ns) {
    const std::int64_t id = idOf(camera);
    Statement row = database_.prepare(
        "SELECT count(*) FROM events WHERE start_ns >= ? AND start_ns < ? AND id >= ? AND id < ? AND track > 0");
    row.bind(since_ns, until_ns, rowOf(id, 0), rowOf(id + 1, 0)).step();
    return row.integer(0);
}

std::int64_t EventQueries::firstEvent(const std::string& camera) {
    const std::int64_t id = idOf(camera);
    Statement row = database_.prepare("SELECT start_ns FROM events WHERE id >= ? AND id < ? ORDER BY id LIMIT 1");
    return row.bind(rowOf(id, 0), rowOf(id + 1, 0)).step() ? row.integer(0) : INT64_MAX;
}

EventQueries::Past EventQueries::past(const std::string& camera, std::int64_t since_ns, std::int64_t most_tracks) {
    Past past{{}, {}, since_ns};
    const std::int64_t id = idOf(camera);
    if (id == 0) return past;
    Statement oldest =
        database_.prepare("SELECT end_ns FROM tracks WHERE id >= ? AND id < ? ORDER BY id DESC LIMIT 1 OFFSET " +
                          std::to_string(most_tracks));
    if (oldest.bind(rowOf(id, 0), rowOf(id + 1, 0)).step()) past.since_ns = std::max(since_ns, oldest.integer(0));
    past.tracks = reader_.tracks(camera, past.since_ns);
    past.scenes = reader_.scenes(camera, past.since_ns);
    return past;
}

std::string EventQueries::pictured(const std::string& camera, std::int64_t track, std::int64_t time_ns) {
    const std::int64_t id = idOf(camera);
    Statement row = database_.prepare(
        "SELECT id & ?7 FROM events WHERE start_ns >= ?1 AND start_ns <= ?2 AND id >= ?3 AND id < ?4 AND pictures > 0 "
        "AND (track = ?5 OR (kind = 0 AND start_ns <= ?6 AND coalesce(end_ns, ?6) >= ?6)) "
        "ORDER BY track = ?5 DESC, start_ns DESC LIMIT 1");
    row.bind(time_ns - kHourNs, time_ns + kMinuteNs, rowOf(id, 0), rowOf(id + 1, 0), track, time_ns, kNumberMask);
    return row.step() ? eventId(camera, row.integer(0)) : "";
}

}  // namespace fleifeisa::host
