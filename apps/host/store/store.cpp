#include "store/store.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cstdlib>

#include "common/log.h"
#include "store/media_files.h"
#include "store/schema.h"

namespace fleifeisa::host {
namespace {

constexpr std::size_t kBatch = 1000;  ///< events in one transaction
constexpr double kRetrySeconds = 1;   ///< after a transaction that failed
constexpr double kHousekeepingSeconds = 60;
constexpr double kMoreHousekeepingSeconds = 0.5;  ///< while there is more to remove

std::int64_t freeBytes(const std::string& path) {
    struct statvfs filesystem {};
    if (::statvfs(path.c_str(), &filesystem) != 0) return INT64_MAX;
    return static_cast<std::int64_t>(filesystem.f_bavail * filesystem.f_frsize);
}

std::int64_t wallClock() {
    return std::chrono::duration_cast<std::chrono::nanoseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
}

}  // namespace

Store::Store(StoreOptions options, Tell tell)
    : options_(std::move(options)),
      tell_(std::move(tell)),
      directory_(options_.directory),
      database_(directory_.databasePath(), Database::Mode::kReadWrite),
      queue_(options_.most_events) {
    // Space can be given back without rewriting the file; has to be said before the first table.
    if (database_.integer("PRAGMA user_version") == 0) database_.run("PRAGMA auto_vacuum = INCREMENTAL");
    database_.run("PRAGMA journal_mode = WAL; PRAGMA synchronous = FULL; PRAGMA journal_size_limit = 67108864");
    migrate(database_);
    writer_ = std::make_unique<RecordWriter>(database_);
    Statement limits = database_.prepare("SELECT camera, clip_bytes, clip_days, event_days FROM limits");
    while (limits.step())  // of cameras that this run may not have
        limits_[limits.integer(0)] = {limits.integer(1), limits.integer(2), limits.integer(3)};
    mending_.emplace(database_, directory_.path(), firstNumbers());
    thread_ = std::thread(&Store::run, this);
}

Store::~Store() {
    {
        const std::lock_guard lock(mutex_);
        stopping_ = true;
    }
    changed_.notify_all();
    thread_.join();
    try {
        if (queue_.empty()) directory_.release(usedNumbers());
    } catch (const StoreError& error) {
        logWarning("", error.what());  // the block is lost, no number is used twice
    }
}

/// Of events that are new in this run, by camera.
std::map<std::string, std::int64_t> Store::firstNumbers() {
    std::map<std::string, std::int64_t> first;
    Statement cameras = database_.prepare(
        "SELECT name, coalesce((SELECT max(e.id) & 1099511627775 FROM events e WHERE e.id >= c.id << 40 AND e.id < "
        "c.id + "
        "1 << 40), 0) FROM cameras c");
    cameras.bind();
    while (cameras.step())
        first[cameras.text(0)] = std::max(cameras.integer(1) + 1, directory_.next(cameras.text(0)).event);
    return first;
}

void Store::limit(const std::string& camera, const CameraLimits& limits) {
    const std::lock_guard database_lock(database_mutex_);
    const std::int64_t id = storedId(camera);
    if (id == 0) return;
    limits_[id] = limits;
    Transaction transaction(database_);
    database_.prepare("INSERT OR REPLACE INTO limits VALUES(?, ?, ?, ?)")
        .bind(id, limits.clip_bytes, limits.clip_days, limits.event_days)
        .run();
    transaction.commit();
}

void Store::setRing(RingUse ring) {
    const std::lock_guard database_lock(database_mutex_);
    ring_ = std::move(ring);
}

std::vector<MediaUse> Store::use() {
    const std::lock_guard database_lock(database_mutex_);
    return mediaUse(database_, options_.now ? options_.now() : wallClock(),
                    freeBytes(directory_.path()) - options_.retention.min_free);
}

NextNumbers Store::addCamera(const std::string& name, const std::string& title, const std::string& source) {
    const std::lock_guard database_lock(database_mutex_);
    Transaction transaction(database_);
    database_
        .prepare(
            "INSERT INTO cameras(name, title, source) VALUES(?1, ?2, ?3) ON CONFLICT(name) DO UPDATE SET title = "
            "?2, source = ?3")
        .bind(std::string_view(name), std::string_view(title), std::string_view(source))
        .run();
    Statement found = database_.prepare("SELECT id FROM cameras WHERE name = ?");
    found.bind(std::string_view(name)).step();
    const std::int64_t id = found.integer(0), first = rowOf(id, 0), end = rowOf(id + 1, 0);
    found.reset();
    transaction.commit();

    std::vector<CameraEvent> interrupted;
    Statement open = database_.prepare(std::string("SELECT ") + kEventColumns +
                                       " FROM events e JOIN cameras c ON c.id = ?1 WHERE e.id >= ?2 AND e.id < ?3 AND "
                                       "e.end_ns IS NULL ORDER BY e.id");
    open.bind(id, first, end);
    while (open.step()) interrupted.push_back(readEvent(open).event);
    open.reset();
    const auto most = [&](const char* table) {
        Statement latest = database_.prepare(std::string("SELECT max(id) FROM ") + table + " WHERE id >= ? AND id < ?");
        latest.bind(first, end).step();
        return latest.isNull(0) ? 0 : latest.integer(0) - first;
    };
    NextNumbers next = directory_.next(name);
    next.track = std::max(next.track, most("tracks") + 1);
    next.event = std::max(next.event, most("events") + 1);

    directory_.reserve({{name, next}});

    const std::lock_guard lock(mutex_);
    camera_ids_[name] = id;
    // A camera that is added again while the host runs goes on where it is.
    const auto known = numbers_.find(name);
    if (known != numbers_.end()) return known->second;
    numbers_[name] = next;
    for (CameraEvent& event : interrupted) {
        event.state = EventState::kEnd;
        event.end_ns = event.time_ns;
        event.reason = "restart";
        queue_.event(event);
    }
    if (!interrupted.empty()) wake();
    return next;
}

// ---- What comes in; mutex_ is held for moments only ----

void Store::wake() {
    if (waiting_since_ == Clock::time_point{}) waiting_since_ = Clock::now();
    changed_.notify_all();
}

void Store::take(const CameraEvent& event) {
    NextNumbers& next = numbers_[event.camera];
    next = {std::max(next.track, event.track + 1), std::max(next.event, event.number + 1)};
    queue_.event(event);
}

void Store::event(const CameraEvent& event) {
    const std::lock_guard lock(mutex_);
    take(event);
    wake();
}

void Store::crossing(const std::string& camera, const Crossing& crossing) {
    const std::lock_guard lock(mutex_);
    queue_.crossing(camera, crossing);
    wake();
}

void Store::push(const std::function<void(StoreRows&)>& add) {
    const std::lock_guard lock(mutex_);
    if (StoreRows* rows = queue_.rows()) add(*rows);
    wake();
}

void Store::track(const std::string& camera, StoredTrack track) {
    push([&](StoreRows& rows) { rows.tracks.emplace_back(camera, std::move(track)); });
}
void Store::scene(const std::string& camera, const PastScene& scene) {
    push([&](StoreRows& rows) { rows.scenes.emplace_back(camera, scene); });
}
void Store::minute(const std::string& camera, const ActivityMinute& minute) {
    push([&](StoreRows& rows) { rows.minutes.emplace_back(camera, minute); });
}
void Store::nearMiss(const std::string& camera, const NearMiss& miss) {
    push([&](StoreRows& rows) { rows.near_misses.emplace_back(camera, miss); });
}
void Store::parameters(const std::string& hash, const std::string& text, std::int64_t time_ns) {
    push([&](StoreRows& rows) { rows.parameters.push_back({hash, text, time_ns}); });
}

void Store::results(const std::string& camera, const RuleResults& results) {
    if (results.events.empty() && results.crossings.empty() && results.near_misses.empty()) return;
    const std::lock_guard lock(mutex_);
    for (const CameraEvent& event : results.events) take(event);
    for (const Crossing& crossing : results.crossings) queue_.crossing(camera, crossing);
    for (const NearMiss& miss : results.near_misses)
        if (StoreRows* rows = queue_.rows()) rows->near_misses.emplace_back(camera, miss);
    wake();
}

void Store::numbers(const std::string& camera, const NextNumbers& next) {
    const std::lock_guard lock(mutex_);
    numbers_[camera] = next;
}

bool Store::hand(Attachment attachment) {
    const std::lock_guard lock(mutex_);
    const bool taken = queue_.attach(std::move(attachment));
    wake();
    return taken;
}

bool Store::attach(const std::string& camera, std::int64_t number, std::vector<StoredMedia> media) {
    return hand({camera, number, std::move(media), {}});
}

bool Store::clip(const std::string& camera, std::int64_t number, ClipState state) {
    return hand({camera, number, {}, state});
}

std::int64_t Store::takeLost(const std::string& camera) {
    const std::lock_guard lock(mutex_);
    return queue_.takeLost(camera);
}

bool Store::settle(double seconds_at_most) {
    std::unique_lock lock(mutex_);
    hurry_ = true;
    changed_.notify_all();
    return settled_.wait_for(lock, Seconds(seconds_at_most), [this] { return queue_.empty() && !busy_; });
}

StoreCounts Store::counts() {
    const std::lock_guard lock(mutex_);
    StoreCounts counts = counts_;
    counts.waiting = static_cast<std::int64_t>(queue_.size());
    counts.merged = queue_.merged();
    counts.lost = queue_.lost();
    counts.lost_rows = queue_.lostRows();
    return counts;
}

// ---- What people do ----

/// One statement on the row of an event.
std::string Store::change(const std::string& camera, std::int64_t number,
                          const std::function<std::string(std::int64_t row)>& act) {
    std::string refused;
    {
        const std::lock_guard database_lock(database_mutex_);
        Transaction transaction(database_);
        const std::int64_t id = storedId(camera);
        if (id == 0) return "there is no camera '" + camera + "'";
        if (!writer_->find(id, number)) return "there is no event " + eventId(camera, number);
        refused = act(rowOf(id, number));
        if (!refused.empty()) return refused;
        transaction.commit();
    }
    return "";
}

std::string Store::keep(const std::string& camera, std::int64_t number, bool on) {
    std::string refused = change(camera, number, [&](std::int64_t row) -> std::string {
        database_.prepare("UPDATE events SET keep = ? WHERE id = ?").bind(on, row).run();
        const std::int64_t most = options_.retention.kept_bytes;
        if (!on || most <= 0 || keptBytes(database_) <= most) return "";
        return "the files of marked events may have " + std::to_string(most / 1'000'000) + " MB in all";
    });
    if (refused.empty()) hand({camera, number, {}, {}});
    return refused;
}

void Store::say(std::int64_t row, const std::string& user, std::optional<Verdict> verdict) {
    if (!verdict) {
        database_.prepare("DELETE FROM reviews WHERE event = ? AND user = ?").bind(row, std::string_view(user)).run();
        return;
    }
    database_.prepare("INSERT OR REPLACE INTO reviews VALUES(?, ?, ?, ?)")
        .bind(row, std::string_view(user), static_cast<int>(*verdict), options_.now ? options_.now() : wallClock())
        .run();
}

std::string Store::review(const std::string& camera, std::int64_t number, const std::string& user,
                          std::optional<Verdict> verdict) {
    return change(camera, number, [&](std::int64_t row) {
        say(row, user, verdict);
        return "";
    });
}

void Store::review(const std::string& camera, const std::vector<std::int64_t>& numbers, const std::string& user,
                   std::optional<Verdict> verdict) {
    const std::lock_guard database_lock(database_mutex_);
    Transaction transaction(database_);
    const std::int64_t id = storedId(camera);
    for (const std::int64_t number : numbers)
        if (id != 0 && writer_->find(id, number)) say(rowOf(id, number), user, verdict);
    transaction.commit();
}

std::string Store::remove(const std::string& camera, std::int64_t number) {
    std::string refused = change(camera, number, [&](std::int64_t row) -> std::string {
        database_.prepare("DELETE FROM events WHERE id = ? AND end_ns IS NOT NULL").bind(row).run();
        return database_.changes() > 0 ? "" : eventId(camera, number) + " still runs";
    });
    if (!refused.empty()) return refused;
    {
        const std::lock_guard database_lock(database_mutex_);
        removeFiles(database_, directory_.path());
        removeExports(directory_.path(), eventId(camera, number));
    }
    if (options_.deleted) options_.deleted(camera, number);
    return "";
}

// ---- The writer's thread ----

void Store::run() {
    std::unique_lock lock(mutex_);
    while (true) {
        changed_.wait_for(lock, Seconds(kMoreHousekeepingSeconds), [this] { return stopping_ || !queue_.empty(); });
        // Others that come within the group's time share the transaction and its wait for the disk.
        changed_.wait_until(lock, waiting_since_ + seconds(options_.group_seconds),
                            [this] { return stopping_ || hurry_ || queue_.empty() || queue_.size() >= kBatch; });
        const StoreBatch batch = queue_.take(kBatch);
        waiting_since_ = queue_.empty() ? Clock::time_point{} : Clock::now();
        if (batch.empty() && stopping_) return;
        busy_ = true;
        lock.unlock();
        const auto stored = commitUntilDone(batch);
        if (stored) tellAll(*stored, batch.events.size());
        keepHouse();
        lock.lock();
        busy_ = false;
        if (!stored) return;  // stopping, and the disk does not take it
        counts_.committed += static_cast<std::int64_t>(batch.events.size());
        if (!queue_.empty()) continue;
        hurry_ = false;
        settled_.notify_all();
    }
}

/// Until the disk has it. Nothing where the host is to end and a second try failed, too.
std::optional<std::vector<StoredEvent>> Store::commitUntilDone(const StoreBatch& batch) {
    if (batch.empty()) return std::vector<StoredEvent>{};
    for (int failures = 0;; ++failures) {
        try {
            std::vector<StoredEvent> stored = commit(batch);
            if (failures > 0) logWarning("", "the store writes again");
            return stored;
        } catch (const std::exception& error) {
            if (failures == 0) logError("", std::string(error.what()) + "; tried again until it succeeds");
        }
        house_at_ = {};
        keepHouse();  // perhaps the disk is full
        std::unique_lock lock(mutex_);
        ++counts_.failures;
        if (stopping_ && failures > 0) {
            logError("", "the store gives up: " + std::to_string(batch.events.size() + queue_.size()) +
                             " messages of events are lost");
            return std::nullopt;
        }
        changed_.wait_for(lock, Seconds(kRetrySeconds), [this] { return stopping_; });
    }
}

/// Of a camera of whatever time, 0 where there is none; database_mutex_ is held.
std::int64_t Store::storedId(const std::string& name) {
    Statement found = database_.prepare("SELECT id FROM cameras WHERE name = ?");
    return found.bind(std::string_view(name)).step() ? found.integer(0) : 0;
}

std::map<std::string, NextNumbers> Store::usedNumbers() {
    const std::lock_guard lock(mutex_);
    return numbers_;
}

std::int64_t Store::cameraId(const std::string& name) {
    const std::lock_guard lock(mutex_);
    const auto found = camera_ids_.find(name);
    if (found == camera_ids_.end()) throw StoreError("camera '" + name + "' is not known to the store");
    return found->second;
}

/// @returns what is to be told: a message for each event of the batch, then an update of each that something was
/// attached to
std::vector<StoredEvent> Store::commit(const StoreBatch& batch) {
    const std::lock_guard database_lock(database_mutex_);
    // Before anything is told: no later run of the host may give these numbers out again.
    directory_.reserve(usedNumbers());

    Transaction transaction(database_);
    const StoreRows& rows = batch.rows;
    for (const auto& each : rows.parameters) writer_->parameters(each.hash, each.text, each.time_ns);
    std::vector<StoredEvent> stored;
    for (const CameraEvent& event : batch.events) stored.push_back(writer_->event(cameraId(event.camera), event));
    for (const auto& [camera, track] : rows.tracks) writer_->track(cameraId(camera), track);
    for (const auto& [camera, scene] : rows.scenes) writer_->scene(cameraId(camera), scene);
    for (const auto& [camera, minute] : rows.minutes) writer_->minute(cameraId(camera), minute);
    for (const auto& [camera, miss] : rows.near_misses) writer_->nearMiss(cameraId(camera), miss);
    for (const auto& [key, count] : rows.counts)
        writer_->count(cameraId(std::get<0>(key)), std::get<1>(key), std::get<2>(key), count);
    std::map<std::pair<std::int64_t, std::int64_t>, std::size_t> touched;
    for (const Attachment& each : batch.attachments) {
        const std::int64_t camera = storedId(each.camera);
        if (each.clip) writer_->clip(camera, each.number, *each.clip);
        for (const StoredMedia& media : each.media) writer_->attach(camera, each.number, media);
        touched.emplace(std::pair(camera, each.number), touched.size());
    }
    std::vector<std::optional<StoredEvent>> updates(touched.size());
    for (const auto& [id, place] : touched) updates[place] = writer_->find(id.first, id.second);
    for (std::optional<StoredEvent>& update : updates) {
        if (!update) continue;  // it is gone
        update->event.state = EventState::kUpdate;
        stored.push_back(std::move(*update));
    }
    transaction.commit();
    files_gone_ = files_gone_ || !touched.empty();
    return stored;
}

/// @param events  so many of them are what cameras handed in
void Store::tellAll(const std::vector<StoredEvent>& stored, std::size_t events) {
    for (std::size_t i = 0; i < stored.size(); ++i) {
        if (i < events && options_.committed) options_.committed(stored[i].event);
        if (tell_ && !stored[i].event.held) tell_(stored[i]);
    }
}

/// database_mutex_ is held.
void Store::keepMedia(std::int64_t now, bool& more) {
    std::vector<StoredEvent> changed;
    Transaction transaction(database_);
    const std::vector<Expired> gone =
        pruneMedia(database_, options_.retention, limits_, ring_, now, freeBytes(directory_.path()));
    for (const Expired& event : gone)
        if (auto stored = writer_->find(event.camera, event.number)) changed.push_back(std::move(*stored));
    transaction.commit();
    for (StoredEvent& event : changed) event.event.state = EventState::kUpdate;
    tellAll(changed, 0);
    more = more || !gone.empty();
    const std::lock_guard lock(mutex_);
    counts_.expired += static_cast<std::int64_t>(gone.size());
}

/// A step of it; database_mutex_ is held.
void Store::mend(bool& more) {
    if (!mending_) return;
    const bool going_on = mending_->step();
    more = more || going_on;
    if (!going_on && mending_->rows() + mending_->files() > 0)
        logInfo("", "after the last end of the host: " + std::to_string(mending_->rows()) + " rows without files and " +
                        std::to_string(mending_->files()) + " files without rows removed");
    const std::lock_guard lock(mutex_);
    counts_.mended_rows = mending_->rows();
    counts_.mended_files = mending_->files();
    counts_.mending = going_on;
    if (!going_on) mending_.reset();
}

void Store::keepHouse() {
    if (!options_.keep_house) return;
    bool more = false;
    try {
        if (std::exchange(files_gone_, false)) {
            const std::lock_guard database_lock(database_mutex_);
            files_gone_ = removeFiles(database_, directory_.path());
        }
        if (Clock::now() < house_at_) return;
        const std::lock_guard database_lock(database_mutex_);
        const std::int64_t now = options_.now ? options_.now() : wallClock();
        keepMedia(now, more);
        std::map<std::int64_t, std::int64_t> own_days;
        for (const auto& [camera, limits] : limits_)
            if (limits.event_days > 0) own_days[camera] = limits.event_days;
        // Clips go before anything of the database does.
        const std::int64_t free_bytes = more ? INT64_MAX : freeBytes(directory_.path());
        more = prune(database_, options_.retention, own_days, now, free_bytes) || more;
        files_gone_ = removeFiles(database_, directory_.path());
        mend(more);
        directory_.reserve(usedNumbers());
        const std::int64_t bytes = usedBytes(database_);
        const std::lock_guard lock(mutex_);
        counts_.bytes = bytes;
    } catch (const StoreError& error) {
        logDebug("", error.what());  // the next transaction will say so
    }
    house_at_ = Clock::now() + seconds(more ? kMoreHousekeepingSeconds : kHousekeepingSeconds);
}

}  // namespace fleifeisa::host
