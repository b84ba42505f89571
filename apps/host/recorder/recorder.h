// Compressed video of all cameras of a host: kept for a while in rings on disk, cut into clips of events.
//
// Cameras hand in segments and events and wait for nobody but a short lock. One thread writes segments and removes old
// ones; what it cannot write in time is dropped, whole segments at a time, and counted. Another one makes clips, one at
// a time: their work takes what processor time others leave.
#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "common/fd.h"
#include "recorder/clip_jobs.h"
#include "recorder/clip_settings.h"
#include "recorder/ring.h"
#include "recorder/segment.h"
#include "store/store.h"

namespace fleifeisa::host {

/// What was asked for, or why it is not there.
struct ClipFile {
    std::string path;   ///< "": see `fault`
    std::string fault;  ///< a sentence
};

/// For metrics.
struct RecorderCounts {
    std::int64_t segments = 0;  ///< written
    std::int64_t dropped = 0;   ///< segments the disk did not take in time, or at all
    std::int64_t clips = 0, clips_failed = 0;
    std::int64_t waiting_bytes = 0;  ///< of segments that wait for the disk
    std::int64_t ring_bytes = 0;
};

class Recorder {
 public:
    static constexpr std::size_t kMostWaiting = 256 << 20;  ///< bytes of segments that wait for the disk
    static constexpr std::size_t kMostWaitingOfCamera = 32 << 20;

    /// @param state  the state directory: rings lie in its "ring", clips in its "media"  @param store  lives longer
    Recorder(std::string state, Store& store);
    ~Recorder();
    Recorder(const Recorder&) = delete;
    Recorder& operator=(const Recorder&) = delete;

    /// A camera, perhaps with other settings than before. What an earlier run of the host left unfinished is gone on
    /// with: its ring, and events before `first_event` whose clip is still to be made.
    void add(const std::string& camera, const ClipSettings& settings, std::int64_t first_event);

    // ---- From a camera's threads ----

    /// A decoder's run begins. @returns its number
    std::int64_t begin(const std::string& camera);
    /// When its first frame was, as far as `ended` says nothing more comes of it.
    void note(const std::string& camera, std::int64_t run, std::int64_t first_ns);
    void end(const std::string& camera, std::int64_t run);
    void take(const std::string& camera, Segment segment);
    void event(const CameraEvent& event);
    /// Segments of the camera that were lost and not told of yet, at most one answer a minute; 0: none.
    std::int64_t takeLost(const std::string& camera, std::string& why);

    // ---- From others ----

    /// Waits until all clips are made whose video has come, false where that takes longer.
    bool settle(double seconds);
    /// A clip that every browser plays: itself, or a copy that is made, which may take as long as the clip lasts.
    /// @param done  called from the thread that makes clips, not at all where the host ends
    /// before its turn; must not throw  @returns false where too much is asked for, or the host ends
    bool playableLater(const std::string& camera, std::int64_t event, std::function<void(const ClipFile&)> done);
    /// Gives space back: the oldest segment of all rings that no clip needs. False where there is none.
    bool dropOldest();
    RecorderCounts counts();

 private:
    struct CameraState {
        CameraState(std::string camera, const ClipSettings& wanted, std::string directory)
            : name(std::move(camera)), settings(wanted), ring(std::move(directory)) {}
        std::string name;
        ClipSettings settings;
        Ring ring;
        ClipJobs jobs;
        OpenRuns open;
        std::size_t waiting = 0;  ///< bytes
        std::int64_t lost = 0;    ///< segments, untold
        std::string lost_why;
        Clock::time_point told_lost{};
        std::optional<std::int64_t> unfinished_before;  ///< earlier events are still to be looked through
        bool unread = true;                             ///< its ring on disk
    };
    struct Waiting {
        CameraState* camera;
        Segment segment;
    };

    void writeAll();
    void write(Waiting waiting);
    void lose(CameraState& camera, const std::string& why);
    std::vector<std::string> outdated(CameraState& camera);
    void makeAll();
    void make(CameraState& camera, ClipJob job, std::unique_lock<std::mutex>& lock);
    void findUnfinished(CameraState& camera, std::unique_lock<std::mutex>& lock);
    CameraState* find(const std::string& camera);
    std::optional<std::pair<CameraState*, ClipJob>> nextJob();
    ClipFile makeCopy(const std::string& camera, std::int64_t event);

    const std::string state_;
    Store& store_;
    const Event stop_;

    std::mutex mutex_;  // guards everything down to the blank line
    std::condition_variable written_, changed_, settled_;
    std::list<CameraState> cameras_;  ///< none is ever removed
    std::deque<Waiting> queue_;
    std::size_t queued_bytes_ = 0;
    std::deque<std::function<void()>> asked_;
    std::int64_t latest_run_ = 0;
    RecorderCounts counts_;
    bool stopping_ = false, making_ = false;
    int writing_ = 0;

    std::thread writer_, maker_;
};

}  // namespace fleifeisa::host
