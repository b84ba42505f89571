#include "store/store.h"

#include <sys/statvfs.h>

#include <algorithm>
#include <cstdlib>

#include "common/log.h"
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
        const bool done = batch.empty() || commitUntilDone(batch);
        if (done) tellAll(batch);
        keepHouse();
        lock.lock();
        busy_ = false;
        if (!done) return;  // stopping, and the disk does not take it
        counts_.committed += static_cast<std::int64_t>(batch.events.size());
        if (!queue_.empty()) continue;
        hurry_ = false;
        settled_.notify_all();
    }
}

/// Until the disk has it. False where the host is to end and a second try failed, too.
bool Store::commitUntilDone(const StoreBatch& batch) {
    for (int failures = 0;; ++failures) {
        try {
            commit(batch);
            if (failures > 0) logWarning("", "the store writes again");
            return true;
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
            return false;
        }
        changed_.wait_for(lock, Seconds(kRetrySeconds), [this] { return stopping_; });
    }
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

void Store::commit(const StoreBatch& batch) {
    const std::lock_guard database_lock(database_mutex_);
    // Before anything is told: no later run of the host may give these numbers out again.
    directory_.reserve(usedNumbers());

    Transaction transaction(database_);
    const StoreRows& rows = batch.rows;
    for (const auto& each : rows.parameters) writer_->parameters(each.hash, each.text, each.time_ns);
    for (const CameraEvent& event : batch.events) writer_->event(cameraId(event.camera), event);
    for (const auto& [camera, track] : rows.tracks) writer_->track(cameraId(camera), track);
    for (const auto& [camera, scene] : rows.scenes) writer_->scene(cameraId(camera), scene);
    for (const auto& [camera, minute] : rows.minutes) writer_->minute(cameraId(camera), minute);
    for (const auto& [camera, miss] : rows.near_misses) writer_->nearMiss(cameraId(camera), miss);
    for (const auto& [key, count] : rows.counts)
        writer_->count(cameraId(std::get<0>(key)), std::get<1>(key), std::get<2>(key), count);
    transaction.commit();
}

void Store::tellAll(const StoreBatch& batch) {
    for (const CameraEvent& event : batch.events) {
        if (options_.committed) options_.committed(event);
        if (tell_ && !event.held) tell_({event, event.change, 0, ClipState::kNone, false});
    }
}

void Store::keepHouse() {
    if (Clock::now() < house_at_) return;
    bool more = false;
    try {
        const std::lock_guard database_lock(database_mutex_);
        const std::int64_t now = options_.now ? options_.now() : wallClock();
        more = prune(database_, options_.retention, now, freeBytes(directory_.path()));
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
