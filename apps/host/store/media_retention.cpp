#include "store/media_retention.h"

#include <algorithm>

#include "store/records.h"
#include "store/schema.h"

namespace fleifeisa::host {
namespace {

constexpr std::int64_t kDayNs = 86'400'000'000'000;
constexpr int kFiles = 200;  ///< a step
constexpr const char* kClips = "(4, 5, 6)";
constexpr const char* kPictures = "(0, 1, 2, 3, 7)";
static_assert(static_cast<int>(MediaKind::kClip) == 4 && static_cast<int>(MediaKind::kPlayable) == 6 &&
              static_cast<int>(MediaKind::kWhy) == 7);

constexpr const char* kNotKept = " AND event NOT IN (SELECT id FROM events WHERE keep = 1)";

class Pruning {
 public:
    Pruning(Database& database, std::vector<Expired>& gone) : database_(database), gone_(gone) {}

    /// The oldest events with files of a kind: clips (4) or pictures (0). @param bytes  to be freed, at least
    /// @param where  more conditions  @returns what was freed
    std::int64_t oldest(int kind, const std::string& where, std::int64_t bytes) {
        Statement rows = database_.prepare("SELECT event, camera FROM media WHERE kind = " + std::to_string(kind) +
                                           where + kNotKept + " ORDER BY start_ns LIMIT " + std::to_string(kFiles));
        std::vector<std::pair<std::int64_t, std::int64_t>> found;
        rows.bind();
        while (rows.step()) found.emplace_back(rows.integer(0), rows.integer(1));
        rows.reset();
        std::int64_t freed = 0;
        for (const auto& [event, camera] : found) {
            if (freed >= bytes) break;
            freed += std::max<std::int64_t>(1, expire(event, camera, kind == 4));
        }
        return freed;
    }

 private:
    std::int64_t expire(std::int64_t event, std::int64_t camera, bool clip) {
        const std::string kinds = clip ? kClips : kPictures;
        Statement sum = database_.prepare("SELECT sum(bytes) FROM media WHERE event = ? AND kind IN " + kinds);
        sum.bind(event).step();
        const std::int64_t bytes = sum.integer(0);
        sum.reset();
        database_.prepare("DELETE FROM media WHERE event = ? AND kind IN " + kinds).bind(event).run();
        database_
            .prepare(clip ? "UPDATE events SET clip = ? WHERE id = ?"
                          : "UPDATE events SET pictures = 0 * ? WHERE id = ?")
            .bind(static_cast<int>(ClipState::kExpired), event)
            .run();
        gone_.push_back({camera, event - rowOf(camera, 0)});
        return bytes;
    }

    Database& database_;
    std::vector<Expired>& gone_;
};

/// Bytes by camera.
std::map<std::int64_t, std::int64_t> bytesOf(Database& database, const char* sql) {
    std::map<std::int64_t, std::int64_t> bytes;
    Statement rows = database.prepare(sql);
    rows.bind();
    while (rows.step()) bytes[rows.integer(0)] = rows.integer(1);
    return bytes;
}

constexpr const char* kAll = "SELECT camera, sum(bytes) FROM media GROUP BY camera";
constexpr const char* kKept =
    "SELECT m.camera, sum(m.bytes) FROM events e JOIN media m ON m.event = e.id WHERE e.keep = 1 GROUP BY m.camera";

}  // namespace

std::int64_t keptBytes(Database& database) {
    std::int64_t sum = 0;
    for (const auto& [camera, bytes] : bytesOf(database, kKept)) sum += bytes;
    return sum;
}

std::vector<Expired> pruneMedia(Database& database, const RetentionLimits& host,
                                const std::map<std::int64_t, CameraLimits>& limits, const RingUse& ring,
                                std::int64_t now_ns, std::int64_t free_bytes) {
    std::vector<Expired> gone;
    Pruning pruning(database, gone);
    std::map<std::int64_t, std::int64_t> bytes = bytesOf(database, kAll);
    for (const auto& [camera, kept] : bytesOf(database, kKept)) bytes[camera] -= kept;
    std::int64_t all = ring.bytes ? ring.bytes() : 0;
    for (auto& [camera, used] : bytes) {
        const auto found = limits.find(camera);
        const CameraLimits limit = found == limits.end() ? CameraLimits{} : found->second;
        const std::string of = " AND camera = " + std::to_string(camera);
        if (limit.clip_days > 0)
            used -= pruning.oldest(4, of + " AND start_ns < " + std::to_string(now_ns - limit.clip_days * kDayNs),
                                   INT64_MAX);
        std::int64_t over = limit.clip_bytes > 0 ? used - limit.clip_bytes : 0;
        for (const int kind : {4, 0}) {
            if (over <= 0) break;
            const std::int64_t freed = pruning.oldest(kind, of, over);
            over -= freed;
            used -= freed;
        }
        all += used;
    }
    std::int64_t over = std::max(host.media_bytes > 0 ? all - host.media_bytes : 0, host.min_free - free_bytes);
    if (over > 0) over -= pruning.oldest(4, "", over);
    for (int i = 0; over > 0 && gone.empty() && ring.drop_oldest && i < kFiles; ++i) {
        const std::int64_t before = ring.bytes ? ring.bytes() : 0;
        if (!ring.drop_oldest()) break;
        over -= std::max<std::int64_t>(1, before - (ring.bytes ? ring.bytes() : 0));
    }
    if (over > 0 && gone.empty()) pruning.oldest(0, "", over);
    return gone;
}

std::vector<MediaUse> mediaUse(Database& database, std::int64_t now_ns, std::int64_t free_bytes) {
    constexpr std::int64_t kRateNs = 7 * kDayNs;
    std::vector<MediaUse> uses;
    double all_a_day = 0, all_bytes = 0;
    Statement cameras = database.prepare(
        "SELECT c.id, c.name, coalesce(l.clip_bytes, 0), coalesce(l.clip_days, 0), coalesce(l.event_days, 0) FROM "
        "cameras "
        "c LEFT JOIN limits l ON l.camera = c.id ORDER BY c.name");
    Statement sums = database.prepare(
        "SELECT coalesce(sum(bytes), 0), coalesce(min(start_ns), 0) FROM media WHERE camera "
        "= ? AND kind BETWEEN ? AND ? AND start_ns >= ?");
    const auto kept = bytesOf(database, kKept);
    cameras.bind();
    while (cameras.step()) {
        const std::int64_t id = cameras.integer(0);
        const auto sum = [&](int from, int to, std::int64_t since, std::int64_t* first = nullptr) {
            sums.bind(id, from, to, since).step();
            if (first) *first = sums.integer(1);
            const std::int64_t bytes = sums.integer(0);
            sums.reset();
            return bytes;
        };
        MediaUse use;
        use.camera = cameras.text(1);
        use.limits = {cameras.integer(2), cameras.integer(3), cameras.integer(4)};
        use.clips = sum(4, 6, 0);
        use.pictures = sum(0, 3, 0);
        use.kept = kept.contains(id) ? kept.at(id) : 0;
        std::int64_t first = 0;
        const std::int64_t recent = sum(0, 6, now_ns - kRateNs, &first);
        // A store of a few hours says little about a day: at least one is assumed.
        const double days = static_cast<double>(std::clamp(now_ns - first, kDayNs, kRateNs)) / kDayNs;
        use.a_day = static_cast<std::int64_t>(static_cast<double>(recent) / days);
        all_a_day += static_cast<double>(use.a_day);
        all_bytes += static_cast<double>(use.clips + use.pictures - use.kept);
        uses.push_back(std::move(use));
    }
    for (MediaUse& use : uses) {
        if (use.a_day <= 0) continue;
        use.days_that_fit = (all_bytes + static_cast<double>(std::max<std::int64_t>(0, free_bytes))) / all_a_day;
        if (use.limits.clip_bytes > 0)
            use.days_that_fit = std::min(use.days_that_fit,
                                         static_cast<double>(use.limits.clip_bytes) / static_cast<double>(use.a_day));
    }
    return uses;
}

}  // namespace fleifeisa::host
