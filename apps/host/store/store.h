// The store of a host: what happened, kept so that it is never told and then forgotten.
//
// Cameras hand in what happened, from any thread, and wait for nobody but a short lock. One thread writes in groups and
// tells of each event after the transaction that holds it has reached the disk. While the disk stalls, telling waits
// and the queue fills (store_queue.h says what happens at its bound); a failed transaction is tried again until it
// succeeds.
#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>

#include "common/fd.h"
#include "store/media_retention.h"
#include "store/mending.h"
#include "store/records.h"
#include "store/retention.h"
#include "store/state_directory.h"
#include "store/store_queue.h"

namespace fleifeisa::host {

struct StoreOptions {
    std::string directory;
    std::size_t most_events = 10'000;  ///< that wait for the disk
    double group_seconds = 0.25;       ///< longest an event waits for others to share its transaction
    RetentionLimits retention;
    bool keep_house = true;  ///< false: nothing is aged out, nothing mended; for whoever does not know the limits
    /// Called when an event was deleted by somebody, from the thread that did it.
    std::function<void(const std::string& camera, std::int64_t number)> deleted;
    /// Called like Tell, before it, also for what is held: for those who keep, not for those who tell people.
    std::function<void(const CameraEvent&)> committed;
    /// Nanoseconds since 1970; for tests.
    std::function<std::int64_t()> now;
};

/// For metrics.
struct StoreCounts {
    std::int64_t committed = 0;  ///< messages of events
    std::int64_t waiting = 0, merged = 0, lost = 0, lost_rows = 0;
    std::int64_t failures = 0;                       ///< transactions that had to be tried again
    std::int64_t bytes = 0;                          ///< of the database, as of the latest look
    std::int64_t expired = 0;                        ///< events whose clip or pictures went, by age, size or free space
    bool mending = true;                             ///< media are still being looked through after the start
    std::int64_t mended_rows = 0, mended_files = 0;  ///< rows without files, files without rows
};

class Store {
 public:
    /// Called from the writer's thread after the commit, in order, never for what is held. Must not wait for anybody.
    using Tell = std::function<void(const StoredEvent&)>;

    /// Opens or creates everything; older databases are brought up to date. @throws StoreError
    Store(StoreOptions options, Tell tell);
    /// Commits and tells what waits, as far as the disk lets it (a second failure gives up).
    ~Store();
    Store(const Store&) = delete;
    Store& operator=(const Store&) = delete;

    /// Makes a camera known before it hands in anything; waits for the disk, so it belongs to the start. Its events
    /// that still ran when the host ended are ended (reason restart) and told. @returns its unused numbers
    NextNumbers addCamera(const std::string& name, const std::string& title, const std::string& source);

    void event(const CameraEvent& event);
    void crossing(const std::string& camera, const Crossing& crossing);
    void track(const std::string& camera, StoredTrack track);
    void scene(const std::string& camera, const PastScene& scene);
    void minute(const std::string& camera, const ActivityMinute& minute);
    void nearMiss(const std::string& camera, const NearMiss& miss);
    void parameters(const std::string& hash, const std::string& text, std::int64_t time_ns);
    /// All of what one call of a rule engine came to.
    void results(const std::string& camera, const RuleResults& results);
    /// Before or while the camera runs, from any thread but the cameras'; waits for the disk. @throws StoreError
    void limit(const std::string& camera, const CameraLimits& limits);
    /// Continuous recording that retention is to know of; until it is called again. From the writer's thread.
    void setRing(RingUse ring);
    /// What there is on disk, by camera. Waits for the disk.
    std::vector<MediaUse> use();

    /// Finished files of an event, in the places that mediaFile() gives them. Told by an update once committed; a clip
    /// is ready with it. False where too much waits: nothing knows of the files then. Those of an event that is not
    /// there (any more) are removed. From any thread, waits for nobody.
    bool attach(const std::string& camera, std::int64_t number, std::vector<StoredMedia> media);
    /// Told by an update, too.
    bool clip(const std::string& camera, std::int64_t number, ClipState state);

    // What people do. These wait for the disk: never from a camera's thread. "", or a sentence why it was not done.
    // @throws StoreError
    /// Marked events are never aged out. Refused beyond RetentionLimits::kept_bytes.
    std::string keep(const std::string& camera, std::int64_t number, bool on);
    /// Row, files, and exports that lie in the state directory. Not while it runs.
    std::string remove(const std::string& camera, std::int64_t number);
    /// @param user  who; "": whoever has no name  @param verdict  nothing: takes back what was said
    std::string review(const std::string& camera, std::int64_t number, const std::string& user,
                       std::optional<Verdict> verdict);
    /// Of several; those that are not there are passed over.
    void review(const std::string& camera, const std::vector<std::int64_t>& numbers, const std::string& user,
                std::optional<Verdict> verdict);

    /// What the camera will use next; to be called often, costs nothing. Keeps reservations ahead.
    void numbers(const std::string& camera, const NextNumbers& next);
    /// Events left out since the last call (kGap tells them, change "events"), once there is room again; else 0.
    std::int64_t takeLost(const std::string& camera);

    /// Waits until all that was handed in before is committed and told, false where that takes longer.
    bool settle(double seconds);
    StoreCounts counts();
    std::string databasePath() const { return directory_.databasePath(); }

 private:
    void run();
    std::vector<StoredEvent> commit(const StoreBatch& batch);
    std::optional<std::vector<StoredEvent>> commitUntilDone(const StoreBatch& batch);
    void tellAll(const std::vector<StoredEvent>& stored, std::size_t events);
    void keepHouse();
    void keepMedia(std::int64_t now, bool& more);
    void mend(bool& more);
    bool hand(Attachment attachment);
    std::string change(const std::string& camera, std::int64_t number,
                       const std::function<std::string(std::int64_t row)>& act);
    void say(std::int64_t row, const std::string& user, std::optional<Verdict> verdict);
    std::int64_t storedId(const std::string& name);
    std::map<std::string, std::int64_t> firstNumbers();
    void wake();
    void take(const CameraEvent& event);
    void push(const std::function<void(StoreRows&)>& add);
    std::map<std::string, NextNumbers> usedNumbers();
    std::int64_t cameraId(const std::string& name);

    const StoreOptions options_;
    const Tell tell_;
    StateDirectory directory_;
    Database database_;  ///< after the start the writer's thread's own
    std::unique_ptr<RecordWriter> writer_;
    std::map<std::string, std::int64_t> camera_ids_;  ///< guarded by mutex_; grows only in addCamera()
    Clock::time_point house_at_{};                    ///< the writer's thread's own, as is files_gone_
    bool files_gone_ = false;
    std::optional<Mending> mending_;
    std::map<std::int64_t, CameraLimits> limits_;  ///< guarded by database_mutex_, as is ring_
    RingUse ring_;

    std::mutex mutex_;
    std::mutex database_mutex_;  ///< addCamera() beside the writer
    std::condition_variable changed_, settled_;
    StoreQueue queue_;
    std::map<std::string, NextNumbers> numbers_;
    Clock::time_point waiting_since_{};  ///< of the oldest in the queue
    StoreCounts counts_;
    bool stopping_ = false, busy_ = false, hurry_ = false;
    std::thread thread_;
};

}  // namespace fleifeisa::host
